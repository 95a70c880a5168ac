/* qx_demo: a tour of libqxbase, one section per family.
 *
 * Usage: qx_demo [catalogue-directory]
 */
#include <stdio.h>

#include "demo.h"

static const char *catalog_dir = QX_DEMO_CATALOG;

const char *demo_catalog(void) {
  return catalog_dir;
}

int main(int argc, char **argv) {
  int failures = 0;
  if (argc > 1) catalog_dir = argv[1];
  failures += !demo_error();
  failures += !demo_mem();
  failures += !demo_list();
  failures += !demo_hash();
  failures += !demo_set();
  failures += !demo_fit();
  failures += !demo_geom();
  failures += !demo_db();
  printf("\nqx_demo: %s\n", failures == 0 ? "all sections ran" : "some sections failed");
  return failures == 0 ? 0 : 1;
}
