/* One section of the demo program per library family. */
#ifndef QX_DEMO_H
#define QX_DEMO_H

/* The directory of the message catalogue shipped with the demo. */
const char *demo_catalog(void);

int demo_error(void);
int demo_mem(void);
int demo_list(void);
int demo_hash(void);
int demo_set(void);
int demo_fit(void);
int demo_geom(void);
int demo_db(void);
#endif
