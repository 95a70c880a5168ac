/* Error stack: a crystal-cell reader fails three calls deep, each caller adds
 * its trace line, and the top level prints the stack with the explanation
 * taken from the message catalogue that ships with the demo. */
#include <stdio.h>

#include "demo.h"
#include "qxbase.h"

/* The innermost routine: a cell angle must lie strictly between 0 and 180. */
static int check_cell_angle(double degrees) {
  if (degrees <= 0.0 || degrees >= 180.0) {
    UTL_ERROR_SET("DEMO", "CELL", "FATAL", "BAD_ANGLE", "check_cell_angle");
    UTL_ERROR_SET_MESSAGE("gamma = 190 degrees");
    return 0;
  }
  return 1;
}

static int read_cell(const double angles[3]) {
  int i;
  for (i = 0; i < 3; i++) {
    if (!check_cell_angle(angles[i])) {
      UTL_ERROR_ADD_TRACE("read_cell (1)");
      return 0;
    }
  }
  return 1;
}

static int load_structure(const char *name) {
  static const double angles[3] = {90.0, 90.0, 190.0};
  printf("loading %s\n", name);
  if (!read_cell(angles)) {
    UTL_ERROR_ADD_TRACE("load_structure (0)");
    return 0;
  }
  return 1;
}

int demo_error(void) {
  printf("== error stack ==\n");
  if (!UTL_ERROR_ADD_TREE(demo_catalog())) return 0;
  if (load_structure("quartz.cell")) return 0; /* the demo input is bad on purpose */
  UTL_ERROR_ADD_TRACE("demo_error (0)");
  fflush(stdout);
  UTL_ERROR_SHOW(); /* to standard error */
  fflush(stderr);
  printf("severity %s, code %s\n", UTL_ERROR_GET_SEVERITY(), UTL_ERROR_EXCEPTION_CODE());
  UTL_ERROR_CLEAR();
  UTL_ERROR_REMOVE_TREE(demo_catalog());
  return !UTL_ERROR_IS_SET();
}
