/* Fitting and random numbers: two conformations of a small molecule
 * (butane's carbons and the hydrogens of one end) are superposed, first as
 * they are and then with the weight of the hydrogens set to 0; a torsion
 * turned by 60 degrees shows up in the rms. Then a few numbers from the
 * drand48-compatible generator with a fixed seed. */
#include <stdio.h>

#include "demo.h"
#include "qxbase.h"

#define ATOMS 7

/* Conformation A, in angstroms. */
static const double conf_a[3 * ATOMS] = {
    0.000,  0.000,  0.000, /* C1 */
    1.530,  0.000,  0.000, /* C2 */
    2.040,  1.443,  0.000, /* C3 */
    3.570,  1.443,  0.000, /* C4 */
    -0.363, -1.028, 0.000, /* H on C1 */
    -0.363, 0.514,  0.890, /* H on C1 */
    -0.363, 0.514,  -0.890 /* H on C1 */
};

/* Conformation B: A with the C1 end turned 60 degrees about the C1-C2 bond,
 * then moved and turned as a whole. */
static void make_conformation_b(double *b) {
  const double turn = 60.0, tilt = 25.0;
  double twisted[3 * ATOMS];
  double c = UTL_MATH_COSD(turn), s = UTL_MATH_SIND(turn);
  double ct = UTL_MATH_COSD(tilt), st = UTL_MATH_SIND(tilt);
  int k;
  for (k = 0; k < ATOMS; k++) {
    const double *p = conf_a + 3 * k;
    double *q = twisted + 3 * k;
    /* The C1-C2 bond lies on x: turn the C1 end (C1 and its hydrogens) about x. */
    int moving = (k == 0 || k >= 4);
    q[0] = p[0];
    q[1] = moving ? c * p[1] - s * p[2] : p[1];
    q[2] = moving ? s * p[1] + c * p[2] : p[2];
  }
  for (k = 0; k < ATOMS; k++) {
    const double *q = twisted + 3 * k;
    b[3 * k] = ct * q[0] - st * q[1] + 4.0;
    b[3 * k + 1] = st * q[0] + ct * q[1] - 2.0;
    b[3 * k + 2] = q[2] + 1.5;
  }
}

int demo_fit(void) {
  double b[3 * ATOMS], centre_a[3], centre_b[3], rotation[9], rms;
  double carbons_only[ATOMS] = {1, 1, 1, 1, 0, 0, 0};
  double rigid_rms;
  int i;
  printf("\n== fitting ==\n");
  make_conformation_b(b);

  QX_3DGEOM_LSFIT(ATOMS, conf_a, b, NULL, centre_b, centre_a, rotation, &rms);
  printf("all atoms:      rms %.4f A\n", rms);
  QX_3DGEOM_LSFIT(ATOMS, conf_a, b, carbons_only, centre_b, centre_a, rotation, &rigid_rms);
  printf("carbons only:   rms %.4f A (the backbone did not move)\n", rigid_rms);
  printf("rotation rows:  % .4f % .4f % .4f\n", rotation[0], rotation[1], rotation[2]);
  for (i = 1; i < 3; i++)
    printf("                % .4f % .4f % .4f\n", rotation[3 * i], rotation[3 * i + 1],
           rotation[3 * i + 2]);

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
  return rms > 0.1 && rigid_rms < 1e-6 && rotation[8] > 1.0 - 1e-6;
}
