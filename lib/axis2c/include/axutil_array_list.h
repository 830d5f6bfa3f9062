/* A growing array of pointers, which it does not own. */
#ifndef AXUTIL_ARRAY_LIST_H
#define AXUTIL_ARRAY_LIST_H

#include <axutil_env.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axutil_array_list axutil_array_list_t;

AXIS2_EXTERN axutil_array_list_t* AXIS2_CALL axutil_array_list_create(const axutil_env_t* env,
                                                                      int initial_capacity);
AXIS2_EXTERN void AXIS2_CALL axutil_array_list_free(axutil_array_list_t* list,
                                                    const axutil_env_t* env);
AXIS2_EXTERN int AXIS2_CALL axutil_array_list_size(axutil_array_list_t* list,
                                                   const axutil_env_t* env);
AXIS2_EXTERN axis2_status_t AXIS2_CALL axutil_array_list_add(axutil_array_list_t* list,
                                                             const axutil_env_t* env,
                                                             const void* item);
/* An index outside the list gives null, and sets the error. */
AXIS2_EXTERN void* AXIS2_CALL axutil_array_list_get(axutil_array_list_t* list,
                                                    const axutil_env_t* env, int index);
/* Stores the item and returns the previous one. */
AXIS2_EXTERN void* AXIS2_CALL axutil_array_list_set(axutil_array_list_t* list,
                                                    const axutil_env_t* env, int index, void* item);
/* Takes the item out and returns it; the ones behind it move up. */
AXIS2_EXTERN void* AXIS2_CALL axutil_array_list_remove(axutil_array_list_t* list,
                                                       const axutil_env_t* env, int index);

#ifdef __cplusplus
}
#endif
#endif
