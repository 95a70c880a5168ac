/* Debugging allocator: debug mode cannot be switched off again, so the demo
 * runs it in a child process. The child lists its live blocks, then frees a
 * block it wrote one byte past; the allocator writes the fault code and stops
 * the child with SIGQUIT, which the parent reports. */
#define _POSIX_C_SOURCE 200809L
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "demo.h"
#include "qxbase.h"

static void run_guarded_child(void) {
  struct rlimit no_core = {0, 0};
  char *name;
  char *atoms;
  setrlimit(RLIMIT_CORE, &no_core);
  UTL_DMEM_SET_DEBUG();
  name = UTL_DSTR_SAVE("quartz", "demo_mem", __LINE__);
  atoms = UTL_DMEM_ALLOC(12, "demo_mem", __LINE__);
  printf("live: %u bytes, listing:\n", UTL_DMEM_ALLOCATED_BYTES());
  UTL_DMEM_MPA(NULL, "demo_mem", 0, 0);
  memset(atoms, 'x', 13); /* one byte too many */
  UTL_DMEM_FREE(atoms, "demo_mem", __LINE__);
  UTL_DMEM_FREE(name, "demo_mem", __LINE__);
  _exit(0); /* not reached while SIGQUIT has its default action */
}

int demo_mem(void) {
  pid_t child;
  int status = 0;
  printf("== debugging allocator ==\n");
  fflush(stdout);
  child = fork();
  if (child < 0) return 0;
  if (child == 0) run_guarded_child();
  if (waitpid(child, &status, 0) != child) return 0;
  if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGQUIT) {
    printf("the overrun went unnoticed\n");
    return 0;
  }
  printf("child stopped by SIGQUIT, as the allocator does on a damaged block\n");
  return 1;
}
