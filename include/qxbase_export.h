/* Symbol export for libqxbase: the public interface is exactly the set of
 * declarations marked QX_API; everything else is hidden. */
#ifndef QXBASE_EXPORT_H
#define QXBASE_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define QX_API __attribute__((visibility("default")))
#else
#define QX_API
#endif

#ifdef __cplusplus
#define QX_BEGIN_DECLS extern "C" {
#define QX_END_DECLS }
#else
#define QX_BEGIN_DECLS
#define QX_END_DECLS
#endif

#endif /* QXBASE_EXPORT_H */
