/* Keyed store: a few small molecules are kept under named keys in a store
 * file in a temporary directory; the store is closed, reopened read-only, and
 * every molecule is found by name and read back. The store keeps no exact
 * record length, so each record starts with its own length byte. */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "demo.h"
#include "qxbase.h"

static const char *const molecules[][2] = {
    {"water", "H2O  O 0.000 0.000 0.117  H 0.000 0.757 -0.467  H 0.000 -0.757 -0.467"},
    {"ammonia", "NH3  N 0.000 0.000 0.113  H 0.000 0.939 -0.264  H 0.813 -0.470 -0.264"},
    {"methane", "CH4  C 0.000 0.000 0.000  H 0.629 0.629 0.629  H -0.629 -0.629 0.629"},
    {"carbon dioxide", "CO2  C 0.000 0.000 0.000  O 0.000 0.000 1.160  O 0.000 0.000 -1.160"},
};
enum { kMolecules = sizeof molecules / sizeof molecules[0] };

static int store_molecules(const char *path) {
  UtlDb *db = UTL_DB_OPEN(path, "c", 0); /* creates a default store */
  int i;
  if (db == NULL) return 0;
  for (i = 0; i < kMolecules; i++) {
    unsigned char record[256];
    size_t length = strlen(molecules[i][1]);
    int key = UTL_DB_GENKEY(db, molecules[i][0]);
    record[0] = (unsigned char)length;
    memcpy(record + 1, molecules[i][1], length);
    if (key < 0 || !UTL_DB_WRITE(db, key, (int)length + 1, record)) {
      UTL_DB_CLOSE(db);
      return 0;
    }
    printf("stored %-15s as key %d\n", molecules[i][0], key);
  }
  return UTL_DB_CLOSE(db);
}

static int read_molecules(const char *path) {
  UtlDb *db = UTL_DB_OPEN(path, "r", 0);
  int i, ok = db != NULL;
  for (i = 0; ok && i < kMolecules; i++) {
    unsigned char record[256];
    int delivered = 0;
    int key = UTL_DB_FIND(db, -1, molecules[i][0]);
    ok = key >= 0 && UTL_DB_READ(db, key, sizeof record, record, &delivered) &&
         delivered > record[0];
    if (ok) {
      printf("key %d %-15s (block of %3d bytes) %.*s\n", key, molecules[i][0], delivered, record[0],
             (const char *)record + 1);
      ok = memcmp(record + 1, molecules[i][1], record[0]) == 0;
    }
  }
  if (ok) printf("benzene: key %d (not stored)\n", UTL_DB_FIND(db, -1, "benzene"));
  return db != NULL && UTL_DB_CLOSE(db) && ok;
}

int demo_db(void) {
  char dir[] = "/tmp/qx_demo_XXXXXX";
  char path[64];
  int ok;
  printf("\n== keyed store ==\n");
  if (mkdtemp(dir) == NULL) return 0;
  snprintf(path, sizeof path, "%s/molecules.db", dir);
  ok = store_molecules(path) && read_molecules(path);
  remove(path);
  rmdir(dir);
  return ok;
}
