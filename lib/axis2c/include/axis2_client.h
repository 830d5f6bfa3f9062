/* The service client: SOAP 1.1 over HTTP. One thread at a time uses a client. */
#ifndef AXIS2_CLIENT_H
#define AXIS2_CLIENT_H

#include <axiom_soap.h>
#include <axis2_options.h>
#include <axis2_stub.h>
#include <axis2_svc.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axis2_callback axis2_callback_t;
typedef axis2_status_t(AXIS2_CALL* axis2_on_complete_func_ptr)(axis2_callback_t*,
                                                               const axutil_env_t*);
typedef axis2_status_t(AXIS2_CALL* axis2_on_error_func_ptr)(axis2_callback_t*, const axutil_env_t*,
                                                            int);

AXIS2_EXTERN axis2_callback_t* AXIS2_CALL axis2_callback_create(const axutil_env_t* env);
AXIS2_EXTERN void AXIS2_CALL axis2_callback_set_on_complete(axis2_callback_t* callback,
                                                            axis2_on_complete_func_ptr f);
AXIS2_EXTERN void AXIS2_CALL axis2_callback_set_on_error(axis2_callback_t* callback,
                                                         axis2_on_error_func_ptr f);
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_callback_set_data(axis2_callback_t* callback,
                                                               void* data);
AXIS2_EXTERN void* AXIS2_CALL axis2_callback_get_data(const axis2_callback_t* callback);
/* The answer, while on_complete runs. */
AXIS2_EXTERN axiom_soap_envelope_t* AXIS2_CALL
axis2_callback_get_envelope(const axis2_callback_t* callback, const axutil_env_t* env);

AXIS2_EXTERN axis2_options_t* AXIS2_CALL
axis2_svc_client_get_options(const axis2_svc_client_t* client, const axutil_env_t* env);
AXIS2_EXTERN axis2_svc_t* AXIS2_CALL axis2_svc_client_get_svc(const axis2_svc_client_t* client,
                                                              const axutil_env_t* env);
/* Every request goes through this HTTP proxy. client_home/axis2.xml may name one as well. */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_svc_client_set_proxy(axis2_svc_client_t* client,
                                                                  const axutil_env_t* env,
                                                                  axis2_char_t* host,
                                                                  axis2_char_t* port);

/* Sends an envelope with the payload, which is consumed and may be null, and reads the answer only
 * to see whether it is a fault. */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_svc_client_send_robust(axis2_svc_client_t* client,
                                                                    const axutil_env_t* env,
                                                                    const axiom_node_t* payload);
/* Sends the payload, which is consumed, and returns the first element of the answer's body, owned
 * by the client until its next call. Null on failure, with the reason in env->error: an unreachable
 * or mute device, a status that carries no SOAP, bad XML, a fault. */
AXIS2_EXTERN axiom_node_t* AXIS2_CALL axis2_svc_client_send_receive_with_op_qname(
    axis2_svc_client_t* client, const axutil_env_t* env, const axutil_qname_t* op_qname,
    const axiom_node_t* payload);
/* The same on a thread of its own, with the options as they are now. The callback, which is
 * consumed, runs on that thread with an environment of that thread. Freeing the client waits. */
AXIS2_EXTERN void AXIS2_CALL axis2_svc_client_send_receive_non_blocking_with_op_qname(
    axis2_svc_client_t* client, const axutil_env_t* env, const axutil_qname_t* op_qname,
    const axiom_node_t* payload, axis2_callback_t* callback);

/* What the last blocking call was refused for, with status 401 or 407. */
AXIS2_EXTERN axis2_bool_t AXIS2_CALL
axis2_svc_client_get_http_auth_required(const axis2_svc_client_t* client, const axutil_env_t* env);
AXIS2_EXTERN axis2_bool_t AXIS2_CALL
axis2_svc_client_get_proxy_auth_required(const axis2_svc_client_t* client, const axutil_env_t* env);
/* The scheme of that refusal, "Digest" ahead of "Basic" when both are offered; null when the device
 * named none. */
AXIS2_EXTERN axis2_char_t* AXIS2_CALL
axis2_svc_client_get_auth_type(const axis2_svc_client_t* client, const axutil_env_t* env);

#ifdef __cplusplus
}
#endif
#endif
