/* A qualified name: local part, namespace, prefix; the last two may be null. */
#ifndef AXUTIL_QNAME_H
#define AXUTIL_QNAME_H

#include <axutil_env.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axutil_qname axutil_qname_t;

AXIS2_EXTERN axutil_qname_t* AXIS2_CALL axutil_qname_create(const axutil_env_t* env,
                                                            const axis2_char_t* localpart,
                                                            const axis2_char_t* namespace_uri,
                                                            const axis2_char_t* prefix);
AXIS2_EXTERN void AXIS2_CALL axutil_qname_free(axutil_qname_t* qname, const axutil_env_t* env);
/* Local part and namespace count, the prefix does not. */
AXIS2_EXTERN axis2_bool_t AXIS2_CALL axutil_qname_equals(const axutil_qname_t* qname,
                                                         const axutil_env_t* env,
                                                         const axutil_qname_t* other);
AXIS2_EXTERN axis2_char_t* AXIS2_CALL axutil_qname_get_localpart(const axutil_qname_t* qname,
                                                                 const axutil_env_t* env);
AXIS2_EXTERN axis2_char_t* AXIS2_CALL axutil_qname_get_uri(const axutil_qname_t* qname,
                                                           const axutil_env_t* env);

#ifdef __cplusplus
}
#endif
#endif
