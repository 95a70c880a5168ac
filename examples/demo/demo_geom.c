/* Geometry: the heavy atoms of ethanol, their bond lengths and angle, the
 * hydroxyl hydrogen placed from internal coordinates (anti and gauche), its
 * torsion in both conventions, and a crystal cell round trip. */
#include <stdio.h>

#include "demo.h"
#include "qxbase.h"

int demo_geom(void) {
  static const double c1[3] = {0.0, 0.0, 0.0}, c2[3] = {1.523, 0.0, 0.0};
  static const double o[3] = {2.000, 1.357, 0.0};
  static const double cell[6] = {7.2, 8.1, 9.3, 90.0, 104.5, 90.0};
  double frame[9], h[3], ortho[9], frac[9], xyz[3], back[3];
  const double fractional[3] = {0.25, 0.5, 0.125};
  const double torsions[2] = {180.0, -60.0};
  int i;

  printf("== geometry ==\n");
  printf("C1-C2 %.4f  C2-O %.4f  angle C1-C2-O %.2f\n", QX_3DGEOM_DIST_2PT(c1, c2),
         QX_3DGEOM_DIST_2PT(c2, o), QX_3DGEOM_ANGLE_3PT(c2, c1, o));

  /* The hydrogen sits 0.96 from O, at 108.5 degrees to C2, and turned about
   * the O-C2 bond against C1 by the torsion. */
  for (i = 0; i < 3; i++) {
    frame[i] = o[i];
    frame[3 + i] = c2[i];
    frame[6 + i] = c1[i];
  }
  for (i = 0; i < 2; i++) {
    if (!QX_3DGEOM_EXTENSION_PT(frame, 0.96, 108.5, torsions[i], h)) return 0;
    printf("H at %7.4f %7.4f %7.4f: O-H %.3f, H-O-C2 %.2f, torsion %.2f (0..360) / %.2f\n", h[0],
           h[1], h[2], QX_3DGEOM_DIST_2PT(o, h), QX_3DGEOM_ANGLE_3PT(o, h, c2),
           QX_3DGEOM_DIHEDRAL(h, o, c2, c1), UTL_GEOM_TAU(h, o, c2, c1));
  }

  /* Degenerate input is answered by the result: a zero-length arm. */
  printf("angle with a zero arm: %g\n", QX_3DGEOM_ANGLE_3PT(c1, c1, o));

  if (!UTL_GEOM_CRYSTAL_MATRICES(cell, ortho, frac)) return 0;
  UTL_GEOM_TRANSFORM(fractional, ortho, NULL, xyz);
  UTL_GEOM_TRANSFORM(xyz, frac, NULL, back);
  printf("fractional (0.25, 0.5, 0.125) -> %.4f %.4f %.4f -> %.4f %.4f %.4f\n", xyz[0], xyz[1],
         xyz[2], back[0], back[1], back[2]);
  return !UTL_ERROR_IS_SET();
}
