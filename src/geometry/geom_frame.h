// Cores shared by the frame functions (utl_geom) and the 3D geometry
// functions (qx_3dgeom): the alignment frame and the torsion construction.
// Neither touches the error stack; the exported routines around them record
// their own errors.
#ifndef QXBASE_GEOMETRY_GEOM_FRAME_H
#define QXBASE_GEOMETRY_GEOM_FRAME_H

namespace qx::geom {

// Length below which UTL_GEOM_ALIGN calls a direction too short.
inline constexpr double kAlignMinLength = 0.0001;

enum class FrameResult { kOk, kColinear };

// The alignment frame of unit directions u and w: m gets the rows u, n x u, n
// with n = unit(u x w), or the fallback normal when u and w are parallel.
// kColinear when they are parallel and u lies on the x axis. Behind
// UTL_GEOM_ALIGN, UTL_GEOM_ALIGNX and QX_3DGEOM_RELATIVE.
FrameResult FrameFromUnitDirections(const double *u, const double *w, double *m);

// Torsion of three consecutive unit bonds in degrees, as atan2 gives it
// (-180, 180]; plane normals with a cosine at or beyond -/+0.99999999 give
// exactly 180 or 0. The bonds must not be colinear (the callers test that
// with their own bands). Behind UTL_GEOM_TAU and QX_3DGEOM_DIHEDRAL.
double TorsionOfUnitBonds(const double *b1, const double *b2, const double *b3);

}  // namespace qx::geom

#endif  // QXBASE_GEOMETRY_GEOM_FRAME_H
