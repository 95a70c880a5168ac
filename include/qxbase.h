/* libqxbase: umbrella header including every family of the library. */
#ifndef QXBASE_H
#define QXBASE_H

#include "qxbase_export.h"
#include "utl_byte.h"
#include "utl_error.h"
#include "utl_mem.h"
#include "utl_str.h"
#include "utl_intr.h"
#include "utl_list.h"
#include "utl_set.h"
#include "utl_vector.h"
#include "utl_file.h"
#include "utl_hash.h"
#include "qx_linalg.h"
#include "utl_math.h"
#include "utl_geom.h"
#include "qx_3dgeom.h"
#include "utl_db.h"

#endif /* QXBASE_H */
