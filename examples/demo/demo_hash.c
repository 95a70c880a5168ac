/* Hash table and file search: atomic masses keyed by element symbol, then a
 * data file found along a search list (the current directory, then the
 * directory named by QX_DEMO_DATA) and read back with the checked wrappers. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "demo.h"
#include "qxbase.h"

static int build_masses(UTL_HASH_TABLE *table) {
  static const char *symbols[] = {"H", "C", "N", "O", "S", "Fe"};
  static const double masses[] = {1.008, 12.011, 14.007, 15.999, 32.06, 55.845};
  unsigned int i;
  for (i = 0; i < sizeof masses / sizeof masses[0]; i++) {
    if (!UTL_HASH_INSERT(table, symbols[i], sizeof masses[i], &masses[i])) return 0;
  }
  return 1;
}

static int show_masses(void) {
  static const char *formula[] = {"C", "O", "O"};
  UTL_HASH_TABLE *table = UTL_HASH_CREATE(7, NULL, NULL, NULL, NULL);
  double mass, total = 0.0;
  unsigned int i, n;
  if (table == NULL || !build_masses(table)) return 0;
  for (i = 0; i < 3; i++) {
    UTL_HASH_RETRIEVE(table, formula[i], sizeof mass, &mass, &n);
    total += mass;
  }
  printf("CO2 weighs %.3f g/mol (%d symbols in the table)\n", total, UTL_HASH_COUNT_ALL(table));
  UTL_HASH_RETRIEVE(table, "Xx", sizeof mass, &mass, &n); /* not an element */
  printf("lookup of Xx: %s %s\n", UTL_ERROR_GET_SEVERITY(), UTL_ERROR_EXCEPTION_CODE());
  UTL_ERROR_CLEAR();
  UTL_HASH_DESTROY(table);
  return 1;
}

static int find_data_file(void) {
  char dir[] = "/tmp/qx_demoXXXXXX", path[64], line[64];
  char *found;
  FILE *stream;
  if (mkdtemp(dir) == NULL) return 0;
  snprintf(path, sizeof path, "%s/cell.dat", dir);
  stream = UTL_FILE_FOPEN(path, "w", NULL, NULL);
  if (stream == NULL || !UTL_FILE_FWRITE("a=4.913 c=5.405\n", 1, 16, stream)) return 0;
  UTL_FILE_FCLOSE(stream);
  setenv("QX_DEMO_DATA", dir, 1);
  found = UTL_FILE_FIND("cell", "dat", "", "QX_DEMO_DATA", NULL);
  if (found == NULL) return 0;
  printf("cell found as $QX_DEMO_DATA/%s\n", found + strlen(dir) + 1);
  stream = UTL_FILE_FOPEN("cell", "r", "dat", "", "QX_DEMO_DATA", NULL);
  if (stream != NULL && fgets(line, sizeof line, stream) != NULL) printf("read: %s", line);
  if (stream != NULL) UTL_FILE_FCLOSE(stream);
  remove(found);
  UTL_DMEM_FREE(found, "demo", __LINE__);
  remove(dir);
  return stream != NULL && !UTL_ERROR_IS_SET();
}

int demo_hash(void) {
  printf("\n== hash table and file search ==\n");
  return show_masses() && find_data_file();
}
