/* A string object, and copies of plain strings. */
#ifndef AXUTIL_STRING_H
#define AXUTIL_STRING_H

#include <axutil_env.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axutil_string axutil_string_t;

AXIS2_EXTERN axutil_string_t* AXIS2_CALL axutil_string_create(const axutil_env_t* env,
                                                              const axis2_char_t* text);
AXIS2_EXTERN void AXIS2_CALL axutil_string_free(axutil_string_t* string, const axutil_env_t* env);
AXIS2_EXTERN const axis2_char_t* AXIS2_CALL axutil_string_get_buffer(const axutil_string_t* string,
                                                                     const axutil_env_t* env);

/* Null for null; the caller frees the copy with AXIS2_FREE. */
AXIS2_EXTERN void* AXIS2_CALL axutil_strdup(const axutil_env_t* env, const void* text);

#ifdef __cplusplus
}
#endif
#endif
