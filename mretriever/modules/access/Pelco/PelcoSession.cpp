#include "PelcoSession.h"

#include <axis2_client.h>

#include "Cfg.h"
#include "FailureReport.h"

namespace Kelvane {

namespace {

using SetLogin = axis2_status_t(axis2_options_t*, const axutil_env_t*, const axis2_char_t*,
                                const axis2_char_t*, const axis2_char_t*);

// `kind` is "http" or "proxy".
void setLogin(const char* kind, SetLogin* set, axis2_svc_client_t* client, axis2_options_t* options,
              const axutil_env_t* env) {
  const axis2_char_t* wanted = axis2_svc_client_get_auth_type(client, env);
  const std::string type = wanted == nullptr ? "Basic" : wanted;
  if (wanted == nullptr) {
    LOG_ERROR("%s auth is (null). Using \"%s\" auth type", kind, type.c_str());
  } else {
    LOG_INFO("%s %s auth is required", type.c_str(), kind);
  }
  set(options, env, Cfg::value("USRNAME").c_str(), Cfg::value("PASSWD").c_str(), type.c_str());
}

void testLogins(axis2_options_t* options, const axutil_env_t* env, axis2_bool_t test) {
  axis2_options_set_test_http_auth(options, env, test);
  axis2_options_set_test_proxy_auth(options, env, test);
}

}  // namespace

std::string pelcoServiceAddress(const std::string& service) {
  return "http://" + Cfg::value("DEVIP") + ":" + Cfg::value("PELCO_SOAP_PORT") + "/control/" +
         service + "-1";
}

void setupAuth(axis2_stub* stub, const axutil_env_t* env) {
  axis2_svc_client_t* client = axis2_stub_get_svc_client(stub, env);
  if (client == nullptr) {
    ERROR_REPORT("svc_client is NULL");
    return;
  }
  axis2_options_t* options = axis2_svc_client_get_options(client, env);
  axis2_options_set_http_auth_info(options, env, "", "", nullptr);
  axis2_options_set_proxy_auth_info(options, env, "", "", nullptr);
  testLogins(options, env, AXIS2_TRUE);
  axis2_svc_client_send_robust(client, env, nullptr);
  const bool proxy = axis2_svc_client_get_proxy_auth_required(client, env) != AXIS2_FALSE;
  if (proxy) {
    setLogin("proxy", axis2_options_set_proxy_auth_info, client, options, env);
    testLogins(options, env, AXIS2_FALSE);
    // The camera behind the proxy has not been asked yet.
    axis2_svc_client_send_robust(client, env, nullptr);
  }
  const bool http = axis2_svc_client_get_http_auth_required(client, env) != AXIS2_FALSE;
  if (http) {
    setLogin("http", axis2_options_set_http_auth_info, client, options, env);
    testLogins(options, env, AXIS2_FALSE);
  }
  if (!proxy && !http) {
    LOG_INFO("proxy auth is not required");
    LOG_INFO("http auth is not required");
  }
}

}  // namespace Kelvane
