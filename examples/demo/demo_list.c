/* Linked list and string buffer: the atoms of a water molecule are kept as
 * copied records in a list (each 32-byte record in storage the node owns),
 * walked to find the centroid, and reported through a string buffer that is
 * handed to the caller at the end. */
#include <stdio.h>
#include <string.h>

#include "demo.h"
#include "qxbase.h"

typedef struct {
  char name[8];
  double xyz[3];
} demo_atom;

static UTL_LIST_NODE *load_atoms(void) {
  static const demo_atom atoms[] = {{"O", {0.000, 0.000, 0.117}},
                                    {"H1", {0.000, 0.757, -0.467}},
                                    {"H2", {0.000, -0.757, -0.467}}};
  UTL_LIST_NODE *head = NULL;
  UTL_LIST_NODE *tail = NULL;
  size_t i;
  for (i = 0; i < sizeof atoms / sizeof atoms[0]; i++) {
    /* Appending to the tail we keep avoids a walk along the list. */
    tail = UTL_LIST_APPEND(tail, sizeof atoms[i], &atoms[i]);
    if (tail == NULL) {
      UTL_ERROR_ADD_TRACE("load_atoms (0)");
      UTL_LIST_CLEAR(head);
      return NULL;
    }
    if (head == NULL) head = tail;
  }
  return head;
}

static char *report(UTL_LIST_NODE *head) {
  UTL_STR_BUFF *buffer = UTL_STR_BUFF_CREATE(64, 64);
  UTL_LIST_NODE *node = head;
  double centre[3] = {0.0, 0.0, 0.0};
  char line[80];
  char *text;
  int count = UTL_LIST_LENGTH(head);
  int k;
  if (buffer == NULL) return NULL;
  while (node != NULL) {
    demo_atom atom;
    unsigned int size;
    node = UTL_LIST_RETRIEVE(node, sizeof atom, &atom, &size);
    snprintf(line, sizeof line, "  %-4s %8.3f %8.3f %8.3f\n", atom.name, atom.xyz[0], atom.xyz[1],
             atom.xyz[2]);
    UTL_STR_BUFF_ADD(buffer, line);
    for (k = 0; k < 3; k++)
      centre[k] += atom.xyz[k] / count;
  }
  snprintf(line, sizeof line, "  centroid of %d atoms: %.3f %.3f %.3f\n", count, centre[0],
           centre[1], centre[2]);
  UTL_STR_BUFF_ADD(buffer, line);
  text = UTL_STR_BUFF_STEAL(buffer); /* ours now; the buffer can go */
  UTL_STR_BUFF_DESTROY(buffer);
  return text;
}

int demo_list(void) {
  UTL_LIST_NODE *atoms;
  char *text;
  char *name;
  void *record;
  printf("\n== linked list and string buffer ==\n");
  atoms = load_atoms();
  if (atoms == NULL) return 0;
  text = report(atoms);
  if (text == NULL) {
    UTL_LIST_CLEAR(atoms);
    return 0;
  }
  fputs(text, stdout);
  UTL_DMEM_FREE(text, "demo_list", __LINE__);

  /* Drop the second hydrogen and name the last atom left, read in place. */
  UTL_LIST_DELETE(UTL_LIST_ELEMENT(atoms, 2));
  UTL_LIST_RETRIEVE_P(UTL_LIST_TAIL(atoms), &record, NULL);
  name = UTL_STR_LOCASE(((demo_atom *)record)->name);
  printf("  %d atoms after the delete, the last one is %s\n", UTL_LIST_LENGTH(atoms),
         name != NULL ? name : "?");
  UTL_DMEM_FREE(name, "demo_list", __LINE__);
  return UTL_LIST_CLEAR(atoms) == NULL && !UTL_ERROR_IS_SET();
}
