/* A stub: a service client made for one endpoint. */
#ifndef AXIS2_STUB_H
#define AXIS2_STUB_H

#include <axis2_options.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axis2_stub axis2_stub_t;
typedef struct axis2_svc_client axis2_svc_client_t;

/* client_home need not exist: its axis2.xml is read for a proxy only. The reference is copied. */
AXIS2_EXTERN axis2_stub_t* AXIS2_CALL axis2_stub_create_with_endpoint_ref_and_client_home(
    const axutil_env_t* env, axis2_endpoint_ref_t* endpoint_ref, const axis2_char_t* client_home);
AXIS2_EXTERN void AXIS2_CALL axis2_stub_free(axis2_stub_t* stub, const axutil_env_t* env);
AXIS2_EXTERN axis2_svc_client_t* AXIS2_CALL axis2_stub_get_svc_client(const axis2_stub_t* stub,
                                                                      const axutil_env_t* env);
AXIS2_EXTERN axis2_options_t* AXIS2_CALL axis2_stub_get_options(const axis2_stub_t* stub,
                                                                const axutil_env_t* env);

#ifdef __cplusplus
}
#endif
#endif
