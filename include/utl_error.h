/* utl_error: the process-wide error stack, its printed form and the message
 * catalogue.
 *
 * A routine that fails records one error (product, facility, severity, code)
 * with its own name as the first trace line; each caller on the way up adds
 * one trace line ("%s (%d)" of its name and call site). The stack holds nine
 * entries and 23 trace lines in static storage: recording never allocates, and
 * overflow silently drops the newest information. Texts are cut to their field
 * widths (product, facility, code 31; severity 15; message 80; trace 79).
 *
 * The stack is unguarded process-wide data: use it from one thread at a time.
 */
#ifndef UTL_ERROR_H
#define UTL_ERROR_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* Severity names the library itself tests for: "FATAL", "WARNING", "INFO". */
QX_API extern const char *UtlErrorFatal;
QX_API extern const char *UtlErrorWarning;
QX_API extern const char *UtlErrorInfo;

/* ---- Recording ---------------------------------------------------------- */

/* Records an error; routine becomes its first trace line. With all nine
 * entries in use the error is dropped. Returns 1 when recorded, 0 when dropped.
 * A null text is taken as empty. */
QX_API int UTL_ERROR_SET(const char *product, const char *facility, const char *severity,
                         const char *code, const char *routine);

/* As UTL_ERROR_SET, with the first trace line "%.50s: %.30s(%d)" of routine,
 * file and line. */
QX_API void UTL_ERROR_SET_FILENAME(const char *product, const char *facility, const char *severity,
                                   const char *code, const char *routine, const char *file,
                                   int line);

/* Appends a trace line to the top error. With no error set, first records
 * UTL / ERROR / WARNING / PROGRAM_ERROR from "UTL_ERROR_ADD_TRACE". Returns the
 * pool index used, or the fill count (23) when the pool is full and the line
 * was dropped. */
QX_API int UTL_ERROR_ADD_TRACE(const char *text);

/* Appends the trace line "%.50s: %.30s(%d)" of routine, file and line. */
QX_API void UTL_ERROR_ADD_TRACE_FILENAME(const char *routine, const char *file, int line);

/* ---- Interrogation ------------------------------------------------------ */

/* Stores text (80 characters at most) as the top error's message; nothing
 * when no error is set. */
QX_API void UTL_ERROR_SET_MESSAGE(const char *text);
/* The top error's message, or "No error message." when none is set. */
QX_API const char *UTL_ERROR_GET_MESSAGE(void);
/* Replaces the top error's severity (15 characters at most) when one is set. */
QX_API void UTL_ERROR_SET_SEVERITY(const char *severity);
/* The top error's severity, or "SUCCESS" when none is set. */
QX_API const char *UTL_ERROR_GET_SEVERITY(void);
/* The top error's code, or NULL when none is set. */
QX_API const char *UTL_ERROR_EXCEPTION_CODE(void);
QX_API int UTL_ERROR_IS_SET(void);
/* 1 when the top error's code equals code, ignoring case. */
QX_API int UTL_ERROR_IS(const char *code);
QX_API int UTL_ERROR_IS_END_LOOP(void); /* code "UIMS_USER_END_LOOP" */
QX_API int UTL_ERROR_IS_ABORT(void);    /* code "UIMS_USER_CANCEL" */
/* These compare the top entry's severity text without looking at whether an
 * error is set: after UTL_ERROR_CLEAR they still answer from the old entry.
 * Callers rely on that; it is deliberate. */
QX_API int UTL_ERROR_IS_FATAL(void);
QX_API int UTL_ERROR_IS_WARNING(void);
QX_API int UTL_ERROR_IS_INFO(void);
/* 1 when any entry from the top down has severity "FATAL" (same caveat). */
QX_API int UTL_ERROR_ANY_FATAL(void);
/* Copies the top error's product, facility and code (up to 32 bytes each) and
 * its severity, or "SUCCESS" (up to 16 bytes), into caller buffers. Null
 * buffers are skipped. */
QX_API void UTL_ERROR_INTERPRET(char *product, char *facility, char *severity, char *code);
/* Duplicates the requested texts of the top error (any pointer may be null);
 * the caller frees each with UTL_DMEM_FREE. Returns -1 when no error is set,
 * 1 on success, 0 when a copy failed (copies already made are the caller's). */
QX_API int UTL_ERROR_SAVE(char **product, char **facility, char **severity, char **code);

/* ---- Barriers ----------------------------------------------------------- */

/* Opens a barrier; everything recorded until the matching POP is discarded by
 * it. Ignored when the stack is full. */
QX_API void UTL_ERROR_PUSH(void);
/* Closes the nearest barrier, restoring the stack as it was at the PUSH. */
QX_API void UTL_ERROR_POP(void);
/* Discards the errors down to the nearest barrier. */
QX_API void UTL_ERROR_CLEAR(void);
/* Keeps the first non-fatal error of a sequence and discards later ones;
 * turns a fatal error into the only one. state starts at 0. Returns 1 to go
 * on, 0 on a fatal error. */
QX_API int UTL_ERROR_CATCH_NONFATAL(int *state);

/* ---- Output ------------------------------------------------------------- */

/* Writes text to the opaque stream; the default treats stream as a FILE * and
 * returns 1. */
typedef int (*UTL_ERROR_OUTPUT_FUNC)(void *stream, const char *text);

/* Sets the reporting level (0 nothing, 1 one line, 2 header and catalogue
 * text, 3 as 2 plus trace lines; default 3) when level is 0..3. Returns level. */
QX_API int UTL_ERROR_SET_REPORTING(int level);
/* Replaces the output function and returns the argument. A null function
 * restores the default one (the historical library would have crashed). */
QX_API UTL_ERROR_OUTPUT_FUNC UTL_ERROR_DEFINE_OUTPUT_MSG(UTL_ERROR_OUTPUT_FUNC output);
/* Appends a message-catalogue directory. Catalogue files are named by the
 * lower-cased key "product/facility/code" or "generic/code" under a tree; the
 * lines before the first line that starts with "@" are the message. Returns 1,
 * or 0 with a trace line when the node or the path copy cannot be made. */
QX_API int UTL_ERROR_ADD_TREE(const char *directory);
/* Removes the first tree whose path equals directory exactly. */
QX_API void UTL_ERROR_REMOVE_TREE(const char *directory);
/* Writes the whole stack to standard error; the stack is unchanged. */
QX_API void UTL_ERROR_SHOW(void);
/* Writes the stack down to the nearest barrier, then discards those errors. */
QX_API void UTL_ERROR_PRINT(void *stream);
/* Writes the whole stack, then empties it, barriers included. */
QX_API void UTL_ERROR_DUMP(void *stream);
/* Writes text (if any) and a line end, adds trace (if any) as a last trace
 * line, prints and discards the errors down to the nearest barrier, and ends
 * with an empty line. Returns the output function's result for that line. */
QX_API int UTL_ERROR_MESSAGE(void *stream, const char *trace, const char *text);

QX_END_DECLS

#endif /* UTL_ERROR_H */
