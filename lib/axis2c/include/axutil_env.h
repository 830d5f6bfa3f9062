/* The environment that every call takes: allocator, last error, log. */
#ifndef AXUTIL_ENV_H
#define AXUTIL_ENV_H

#include <axutil_error.h>
#include <axutil_log.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axutil_allocator {
  void*(AXIS2_CALL* malloc_fn)(struct axutil_allocator* allocator, size_t size);
  void*(AXIS2_CALL* realloc)(struct axutil_allocator* allocator, void* ptr, size_t size);
  void(AXIS2_CALL* free_fn)(struct axutil_allocator* allocator, void* ptr);
} axutil_allocator_t;

#define AXIS2_MALLOC(allocator, size) ((allocator)->malloc_fn(allocator, size))
#define AXIS2_FREE(allocator, ptr) ((allocator)->free_fn(allocator, ptr))

/* Its error is unguarded: threads that call at the same time need an environment each. */
typedef struct axutil_env {
  axutil_allocator_t* allocator;
  axutil_error_t* error;
  axutil_log_t* log;
  axis2_bool_t log_enabled;
} axutil_env_t;

/* Appends to log_file; where that cannot be opened, the log goes to standard error. A file of more
 * than 32 MB is moved to log_file.old first. Null only when memory is short. */
AXIS2_EXTERN axutil_env_t* AXIS2_CALL axutil_env_create_all(const axis2_char_t* log_file,
                                                            const axutil_log_levels_t log_level);
AXIS2_EXTERN void AXIS2_CALL axutil_env_free(axutil_env_t* env);

#ifdef __cplusplus
}
#endif
#endif
