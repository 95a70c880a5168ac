/* One section of the demo program per library family. */
#ifndef QX_DEMO_H
#define QX_DEMO_H

/* The directory of the message catalogue shipped with the demo. */
const char *demo_catalog(void);

int demo_error(void);
int demo_db(void);
#endif
