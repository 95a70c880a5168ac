/* libqxbase: umbrella header including every family of the library. */
#ifndef QXBASE_H
#define QXBASE_H

#include "qxbase_export.h"
#include "utl_byte.h"
#include "utl_error.h"
#include "utl_mem.h"
#include "utl_str.h"
#include "utl_db.h"

#endif /* QXBASE_H */
