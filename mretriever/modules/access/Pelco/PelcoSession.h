#pragma once

#include <axis2_stub.h>
#include <axis2_util.h>

#include <memory>
#include <string>

namespace Kelvane {

constexpr char kClientHome[] = "/opt/orbel/axis2c/home";
constexpr char kWsLog[] = "/tmp/.pelco_ws_log";
// Seconds that the camera is told to keep a session without hearing of it.
constexpr int kRefreshInterval = 30;

// The address of one of the camera's three services, by its name.
std::string pelcoServiceAddress(const std::string& service);

// Finds out with a trial call which login the camera, or a proxy on the way,
// wants, and sets it on the stub's options. Never ends the process: a stub that
// stays without a login fails in its call.
void setupAuth(axis2_stub* stub, const axutil_env_t* env);

// Frees an Axis2/C object or a record at the end of its scope.
template <class T, class R>
auto owned(T* object, const axutil_env_t* env, R (*release)(T*, const axutil_env_t*)) {
  auto free = [env, release](T* held) { release(held, env); };
  return std::unique_ptr<T, decltype(free)>(object, free);
}

// The text of the last error. It stays until the next one, so that both formats of a report read
// it.
inline const char* soapError(const axutil_env_t* env) {
  return axutil_error_get_message(env->error);
}

}  // namespace Kelvane
