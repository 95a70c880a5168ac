/* Compiled as strict C99: every public header is plain C. */
#include "qxbase.h"

#include <stdio.h>
#include <string.h>

int main(void) {
  char *copy;
  UTL_ERROR_SET("UTL", "TEST", "WARNING", "C_API", "main");
  if (!UTL_ERROR_IS_SET() || strcmp(UTL_ERROR_GET_SEVERITY(), "WARNING") != 0) return 1;
  UTL_ERROR_CLEAR();
  copy = UTL_DSTR_SAVE("c99", "c_api", __LINE__);
  if (copy == NULL || strcmp(copy, "c99") != 0) return 1;
  UTL_DMEM_FREE(copy, "c_api", __LINE__);
  puts("c api ok");
  return 0;
}
