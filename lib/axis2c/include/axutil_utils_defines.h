/* Basic types of Axis2/C, with its own names and values. */
#ifndef AXUTIL_UTILS_DEFINES_H
#define AXUTIL_UTILS_DEFINES_H

#include <stddef.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

#define AXIS2_EXTERN extern
#define AXIS2_CALL

typedef char axis2_char_t;
typedef int axis2_bool_t;
typedef int axis2_status_t;

#define AXIS2_TRUE 1
#define AXIS2_FALSE 0

enum axis2_status_codes { AXIS2_CRITICAL_FAILURE = -1, AXIS2_FAILURE = 0, AXIS2_SUCCESS = 1 };
typedef enum axis2_status_codes axis2_status_codes_t;

/* Stands in signatures of generated code; never made here. */
typedef struct axutil_hash_t axutil_hash_t;

#ifdef __cplusplus
}
#endif
#endif
