#include <axis2_options.h>

#include "internal.h"

namespace {

std::string orEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

axis2c::Credentials credentials(const char* user, const char* password, const char* type) {
  return {orEmpty(user), orEmpty(password), orEmpty(type)};
}

}  // namespace

axis2_options_t* axis2c::copyOptions(const axis2_options_t& options, const axutil_env_t* env) {
  auto* copy = new axis2_options(options);
  copy->soapAction = nullptr;
  axis2_options_set_soap_action(copy, env, options.soapAction);
  return copy;
}

void axis2c::freeOptions(axis2_options_t* options) {
  axutil_string_free(options->soapAction, nullptr);
  delete options;
}

axis2_endpoint_ref_t* axis2_endpoint_ref_create(const axutil_env_t*, const axis2_char_t* address) {
  return new axis2_endpoint_ref{orEmpty(address)};
}

void axis2_endpoint_ref_free(axis2_endpoint_ref_t* ref, const axutil_env_t*) {
  delete ref;
}

axis2_status_t axis2_options_set_soap_action(axis2_options_t* options, const axutil_env_t* env,
                                             axutil_string_t* action) {
  axutil_string_t* copy = action == nullptr
                              ? nullptr
                              : axutil_string_create(env, axutil_string_get_buffer(action, env));
  axutil_string_free(options->soapAction, env);
  options->soapAction = copy;
  return AXIS2_SUCCESS;
}

axutil_string_t* axis2_options_get_soap_action(const axis2_options_t* options,
                                               const axutil_env_t*) {
  return options->soapAction;
}

axis2_status_t axis2_options_set_action(axis2_options_t* options, const axutil_env_t*,
                                        const axis2_char_t* action) {
  options->action = orEmpty(action);
  return AXIS2_SUCCESS;
}

axis2_status_t axis2_options_set_soap_version(axis2_options_t*, const axutil_env_t* env,
                                              int soap_version) {
  if (soap_version == AXIOM_SOAP11) return AXIS2_SUCCESS;
  axis2c::fail(env, AXIS2_ERROR_INVALID_SOAP_ENVELOPE_STATE, "Only SOAP 1.1 is supported");
  return AXIS2_FAILURE;
}

axis2_status_t axis2_options_set_timeout_in_milli_seconds(axis2_options_t* options,
                                                          const axutil_env_t*, const long timeout) {
  options->timeoutMs = timeout;
  return AXIS2_SUCCESS;
}

axis2_status_t axis2_options_set_http_auth_info(axis2_options_t* options, const axutil_env_t*,
                                                const axis2_char_t* username,
                                                const axis2_char_t* password,
                                                const axis2_char_t* auth_type) {
  options->http = credentials(username, password, auth_type);
  return AXIS2_SUCCESS;
}

axis2_status_t axis2_options_set_proxy_auth_info(axis2_options_t* options, const axutil_env_t*,
                                                 const axis2_char_t* username,
                                                 const axis2_char_t* password,
                                                 const axis2_char_t* auth_type) {
  options->proxy = credentials(username, password, auth_type);
  return AXIS2_SUCCESS;
}

axis2_status_t axis2_options_set_test_http_auth(axis2_options_t* options, const axutil_env_t*,
                                                const axis2_bool_t test) {
  options->testHttp = test != AXIS2_FALSE;
  return AXIS2_SUCCESS;
}

axis2_status_t axis2_options_set_test_proxy_auth(axis2_options_t* options, const axutil_env_t*,
                                                 const axis2_bool_t test) {
  options->testProxy = test != AXIS2_FALSE;
  return AXIS2_SUCCESS;
}
