/* The description of a service: its operations and their messages. */
#ifndef AXIS2_SVC_H
#define AXIS2_SVC_H

#include <axutil_qname.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axis2_svc axis2_svc_t;
typedef struct axis2_op axis2_op_t;
typedef struct axis2_msg axis2_msg_t;

#define AXIS2_ANON_OUT_IN_OP "__OPERATION_OUT_IN__"
#define AXIS2_MEP_URI_OUT_IN "http://www.w3.org/2004/08/wsdl/out-in"
#define AXIS2_MSG_IN "in"
#define AXIS2_MSG_OUT "out"
#define AXIS2_MSG_IN_FAULT "InFaultMessage"
#define AXIS2_MSG_OUT_FAULT "OutFaultMessage"

AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_svc_set_qname(axis2_svc_t* svc,
                                                           const axutil_env_t* env,
                                                           const axutil_qname_t* qname);
/* The service owns the operation then. */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_svc_add_op(axis2_svc_t* svc, const axutil_env_t* env,
                                                        axis2_op_t* op);
AXIS2_EXTERN axis2_op_t* AXIS2_CALL axis2_svc_get_op_with_name(const axis2_svc_t* svc,
                                                               const axutil_env_t* env,
                                                               const axis2_char_t* op_name);
AXIS2_EXTERN axis2_op_t* AXIS2_CALL axis2_svc_get_op_with_qname(const axis2_svc_t* svc,
                                                                const axutil_env_t* env,
                                                                const axutil_qname_t* op_qname);

AXIS2_EXTERN axis2_op_t* AXIS2_CALL axis2_op_create_with_qname(const axutil_env_t* env,
                                                               const axutil_qname_t* qname);
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_op_set_msg_exchange_pattern(
    axis2_op_t* op, const axutil_env_t* env, const axis2_char_t* pattern);
AXIS2_EXTERN axis2_msg_t* AXIS2_CALL axis2_op_get_msg(const axis2_op_t* op, const axutil_env_t* env,
                                                      const axis2_char_t* label);
/* Takes over one reference to the message. */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_op_add_msg(axis2_op_t* op, const axutil_env_t* env,
                                                        const axis2_char_t* label,
                                                        const axis2_msg_t* msg);
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_msg_increment_ref(axis2_msg_t* msg,
                                                               const axutil_env_t* env);

#ifdef __cplusplus
}
#endif
#endif
