/* The received SOAP envelope, as a callback sees it. */
#ifndef AXIOM_SOAP_H
#define AXIOM_SOAP_H

#include <axiom.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axiom_soap_envelope axiom_soap_envelope_t;
typedef struct axiom_soap_body axiom_soap_body_t;

#define AXIOM_SOAP11 1
#define AXIOM_SOAP12 2

AXIS2_EXTERN axiom_soap_body_t* AXIS2_CALL
axiom_soap_envelope_get_body(axiom_soap_envelope_t* envelope, const axutil_env_t* env);
AXIS2_EXTERN axiom_node_t* AXIS2_CALL axiom_soap_body_get_base_node(axiom_soap_body_t* body,
                                                                    const axutil_env_t* env);

#ifdef __cplusplus
}
#endif
#endif
