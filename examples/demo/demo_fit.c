/* Fitting and random numbers: two conformations of ethanol (the anti and a
 * gauche position of the hydroxyl hydrogen, the second one moved and turned
 * as a whole) are superposed on all atoms and on the heavy atoms alone; the
 * turned hydrogen shows up in the first rms only. Then the principal axes of
 * the molecule, and a few numbers from the generator with a fixed seed. */
#include <stdio.h>

#include "demo.h"
#include "qxbase.h"

#define ATOMS 4 /* C1, C2, O, H */

/* Ethanol's heavy atoms and the hydroxyl hydrogen at the given H-O-C2-C1
 * torsion, then turned by `tilt` degrees about z and shifted. */
static int ethanol(double torsion, double tilt, const double *shift, double *xyz) {
  static const double heavy[9] = {0.0, 0.0, 0.0, 1.523, 0.0, 0.0, 2.000, 1.357, 0.0};
  double frame[9], local[3 * ATOMS];
  double c = UTL_MATH_COSD(tilt), s = UTL_MATH_SIND(tilt);
  int i;
  for (i = 0; i < 9; i++)
    local[i] = heavy[i];
  for (i = 0; i < 3; i++) { /* O, C2, C1: the hydrogen hangs off O */
    frame[i] = heavy[6 + i];
    frame[3 + i] = heavy[3 + i];
    frame[6 + i] = heavy[i];
  }
  if (!QX_3DGEOM_EXTENSION_PT(frame, 0.96, 108.5, torsion, local + 9)) return 0;
  for (i = 0; i < ATOMS; i++) {
    const double *p = local + 3 * i;
    xyz[3 * i] = c * p[0] - s * p[1] + shift[0];
    xyz[3 * i + 1] = s * p[0] + c * p[1] + shift[1];
    xyz[3 * i + 2] = p[2] + shift[2];
  }
  return 1;
}

int demo_fit(void) {
  static const double no_shift[3] = {0.0, 0.0, 0.0}, shift[3] = {4.0, -2.0, 1.5};
  static const double heavy_only[ATOMS] = {1.0, 1.0, 1.0, 0.0};
  double anti[3 * ATOMS], gauche[3 * ATOMS], centre_a[3], centre_b[3], rotation[9];
  double rms, heavy_rms, values[3], axes[9];
  int i;

  printf("\n== fitting ==\n");
  if (!ethanol(180.0, 0.0, no_shift, anti) || !ethanol(-60.0, 30.0, shift, gauche)) return 0;
  QX_3DGEOM_LSFIT(ATOMS, anti, gauche, NULL, centre_b, centre_a, rotation, &rms);
  printf("anti onto gauche, all atoms:   rms %.4f A\n", rms);
  QX_3DGEOM_LSFIT(ATOMS, anti, gauche, heavy_only, centre_b, centre_a, rotation, &heavy_rms);
  printf("anti onto gauche, heavy atoms: rms %.4f A, rotation\n", heavy_rms);
  for (i = 0; i < 3; i++)
    printf("  % .4f % .4f % .4f\n", rotation[3 * i], rotation[3 * i + 1], rotation[3 * i + 2]);

  if (!UTL_GEOM_PRIN_AXIS(ATOMS, anti, NULL, centre_a, values, axes)) return 0;
  printf("principal moments %.3f %.3f %.3f\n", values[0], values[1], values[2]);

  printf("\n== random numbers (seed 2026) ==\n");
  UTL_MATH_SRAND(2026);
  /* One call per statement: the order of evaluation of arguments is unspecified. */
  printf("uniform ");
  for (i = 0; i < 3; i++)
    printf(" %.6f", UTL_MATH_RAND());
  printf("\ninteger ");
  for (i = 0; i < 2; i++)
    printf(" %d", UTL_MATH_IRAND());
  printf("\ngaussian");
  for (i = 0; i < 2; i++)
    printf(" % .6f", UTL_MATH_GRAND());
  printf("\n");
  /* The heavy atoms are rigid, so their fit is exact and undoes the 30 degree turn. */
  return rms > 0.1 && heavy_rms < 1e-6 && rotation[8] > 1.0 - 1e-6 && rotation[1] > 0.49;
}
