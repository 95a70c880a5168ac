/* Bit sets: path fingerprints of a few small molecules and their Tanimoto
 * similarity matrix. Each atom, bond and three-atom path of a molecule's
 * heavy-atom graph is hashed to two bits of a 256-bit set; similar molecules
 * share most of their bits. */
#include <stdio.h>
#include <string.h>

#include "demo.h"
#include "qxbase.h"

#define FP_BITS 256
#define MAX_ATOMS 8

struct molecule {
  const char *name;
  const char *atoms; /* one element letter per heavy atom; 'c' aromatic carbon */
  int bonds[MAX_ATOMS + 1][2];
  int bond_count;
};

static const struct molecule molecules[] = {
    {"methanol", "CO", {{0, 1}}, 1},
    {"ethanol", "CCO", {{0, 1}, {1, 2}}, 2},
    {"1-propanol", "CCCO", {{0, 1}, {1, 2}, {2, 3}}, 3},
    {"acetic acid", "CCOO", {{0, 1}, {1, 2}, {1, 3}}, 3},
    {"benzene", "cccccc", {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 0}}, 6},
    {"toluene",
     "cccccc"
     "C",
     {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 0}, {0, 6}},
     7},
    {"phenol",
     "cccccc"
     "O",
     {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 0}, {0, 6}},
     7},
};
#define MOLECULE_COUNT ((int)(sizeof molecules / sizeof molecules[0]))

/* FNV-1a; each feature sets two bits. */
static void add_feature(UTL_SET *fp, const char *feature) {
  unsigned int h = 2166136261u;
  for (; *feature; feature++)
    h = (h ^ (unsigned char)*feature) * 16777619u;
  UTL_SET_INSERT(fp, (int)(h % FP_BITS));
  UTL_SET_INSERT(fp, (int)((h >> 16) % FP_BITS));
}

static int bonded(const struct molecule *m, int a, int b) {
  int i;
  for (i = 0; i < m->bond_count; i++)
    if ((m->bonds[i][0] == a && m->bonds[i][1] == b) ||
        (m->bonds[i][0] == b && m->bonds[i][1] == a))
      return 1;
  return 0;
}

static UTL_SET *fingerprint(const struct molecule *m) {
  UTL_SET *fp = UTL_SET_CREATE(FP_BITS);
  int n = (int)strlen(m->atoms), a, b, c;
  char feature[8];
  if (fp == NULL) return NULL;
  for (a = 0; a < n; a++) {
    sprintf(feature, "%c", m->atoms[a]);
    add_feature(fp, feature);
    for (b = 0; b < n; b++) {
      if (b == a || !bonded(m, a, b)) continue;
      if (m->atoms[a] <= m->atoms[b]) {
        sprintf(feature, "%c-%c", m->atoms[a], m->atoms[b]);
        add_feature(fp, feature);
      }
      for (c = 0; c < n; c++) {
        if (c == a || c == b || !bonded(m, b, c) || m->atoms[a] > m->atoms[c]) continue;
        sprintf(feature, "%c-%c-%c", m->atoms[a], m->atoms[b], m->atoms[c]);
        add_feature(fp, feature);
      }
    }
  }
  return fp;
}

int demo_set(void) {
  UTL_SET *fps[MOLECULE_COUNT];
  char *hex;
  double t, cosine;
  int i, j, ok = 1;

  printf("\n== Bit sets: molecular fingerprints (%d bits) ==\n", FP_BITS);
  for (i = 0; i < MOLECULE_COUNT; i++) {
    fps[i] = fingerprint(&molecules[i]);
    if (fps[i] == NULL) return 0;
    printf("%-12s %3d bits set\n", molecules[i].name, UTL_SET_CARDINALITY(fps[i]));
  }
  hex = UTL_SET_TO_STRING(fps[1]);
  if (hex != NULL) printf("ethanol as hex: %s\n", hex);
  UTL_DMEM_FREE(hex, "demo_set", __LINE__);

  printf("\nTanimoto     ");
  for (j = 0; j < MOLECULE_COUNT; j++)
    printf(" %6.6s", molecules[j].name);
  printf("\n");
  for (i = 0; i < MOLECULE_COUNT; i++) {
    printf("%-12s ", molecules[i].name);
    for (j = 0; j < MOLECULE_COUNT; j++) {
      ok &= UTL_SET_TANIMOTO(fps[i], fps[j], NULL, NULL, &t) > 0;
      printf(" %6.3f", t);
    }
    printf("\n");
  }
  if (UTL_SET_COSINE(fps[5], fps[6], &cosine)) printf("cosine(toluene, phenol) = %.3f\n", cosine);
  for (i = 0; i < MOLECULE_COUNT; i++)
    UTL_SET_DESTROY(fps[i]);
  return ok;
}
