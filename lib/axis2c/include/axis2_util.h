/* All of axutil. */
#ifndef AXIS2_UTIL_H
#define AXIS2_UTIL_H

#include <axutil_array_list.h>
#include <axutil_env.h>
#include <axutil_error.h>
#include <axutil_log.h>
#include <axutil_qname.h>
#include <axutil_string.h>
#include <axutil_uri.h>
#include <axutil_utils_defines.h>

#endif
