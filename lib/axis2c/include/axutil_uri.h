/* A parsed URI. Devices name things loosely, so only a port that is no number is refused. */
#ifndef AXUTIL_URI_H
#define AXUTIL_URI_H

#include <axutil_env.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axutil_uri axutil_uri_t;
typedef unsigned short axis2_port_t;

#define AXIS2_URI_UNP_OMITUSERINFO (1 << 0)

AXIS2_EXTERN axutil_uri_t* AXIS2_CALL axutil_uri_parse_string(const axutil_env_t* env,
                                                              const axis2_char_t* uri);
AXIS2_EXTERN void AXIS2_CALL axutil_uri_free(axutil_uri_t* uri, const axutil_env_t* env);
/* The text that was parsed, with flag AXIS2_URI_UNP_OMITUSERINFO without "user:password@". The
 * caller frees it with AXIS2_FREE. */
AXIS2_EXTERN axis2_char_t* AXIS2_CALL axutil_uri_to_string(const axutil_uri_t* uri,
                                                           const axutil_env_t* env, unsigned flags);
/* Null for a part that is not there; owned by the URI. */
AXIS2_EXTERN axis2_char_t* AXIS2_CALL axutil_uri_get_protocol(axutil_uri_t* uri,
                                                              const axutil_env_t* env);
AXIS2_EXTERN axis2_char_t* AXIS2_CALL axutil_uri_get_host(axutil_uri_t* uri,
                                                          const axutil_env_t* env);
AXIS2_EXTERN axis2_port_t AXIS2_CALL axutil_uri_get_port(axutil_uri_t* uri,
                                                         const axutil_env_t* env);
AXIS2_EXTERN axis2_char_t* AXIS2_CALL axutil_uri_get_path(axutil_uri_t* uri,
                                                          const axutil_env_t* env);

#ifdef __cplusplus
}
#endif
#endif
