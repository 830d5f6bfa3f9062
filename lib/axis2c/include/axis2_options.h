/* Where a client sends to, and how. Setters copy what they are given. */
#ifndef AXIS2_OPTIONS_H
#define AXIS2_OPTIONS_H

#include <axutil_env.h>
#include <axutil_string.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axis2_endpoint_ref axis2_endpoint_ref_t;
typedef struct axis2_options axis2_options_t;

/* Limit of one call, connecting and waiting for a second answer to a login included. Axis2/C has a
 * minute: too long for a thread that someone waits for. */
#define AXIS2_DEFAULT_TIMEOUT_MILLISECONDS 10000

AXIS2_EXTERN axis2_endpoint_ref_t* AXIS2_CALL
axis2_endpoint_ref_create(const axutil_env_t* env, const axis2_char_t* address);
AXIS2_EXTERN void AXIS2_CALL axis2_endpoint_ref_free(axis2_endpoint_ref_t* ref,
                                                     const axutil_env_t* env);

/* Sent as SOAPAction; null takes it away. The SOAP action goes before the plain action. */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_options_set_soap_action(axis2_options_t* options,
                                                                     const axutil_env_t* env,
                                                                     axutil_string_t* action);
/* Null when none is set; owned by the options. */
AXIS2_EXTERN axutil_string_t* AXIS2_CALL
axis2_options_get_soap_action(const axis2_options_t* options, const axutil_env_t* env);
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_options_set_action(axis2_options_t* options,
                                                                const axutil_env_t* env,
                                                                const axis2_char_t* action);
/* Only AXIOM_SOAP11 is spoken; another version fails. */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_options_set_soap_version(axis2_options_t* options,
                                                                      const axutil_env_t* env,
                                                                      int soap_version);
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_options_set_timeout_in_milli_seconds(
    axis2_options_t* options, const axutil_env_t* env, const long timeout);

/* An empty or null user name clears the credentials. auth_type is "Basic" or "Digest". */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_options_set_http_auth_info(
    axis2_options_t* options, const axutil_env_t* env, const axis2_char_t* username,
    const axis2_char_t* password, const axis2_char_t* auth_type);
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_options_set_proxy_auth_info(
    axis2_options_t* options, const axutil_env_t* env, const axis2_char_t* username,
    const axis2_char_t* password, const axis2_char_t* auth_type);
/* While a test is on, the credentials of that kind are not sent. */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_options_set_test_http_auth(axis2_options_t* options,
                                                                        const axutil_env_t* env,
                                                                        const axis2_bool_t test);
AXIS2_EXTERN axis2_status_t AXIS2_CALL axis2_options_set_test_proxy_auth(axis2_options_t* options,
                                                                         const axutil_env_t* env,
                                                                         const axis2_bool_t test);

#ifdef __cplusplus
}
#endif
#endif
