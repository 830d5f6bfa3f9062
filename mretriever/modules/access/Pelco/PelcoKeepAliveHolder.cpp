#include <exception>

#include "FailureReport.h"
#include "PelcoMediaProducerImpl.h"
#include "PelcoSession.h"
#include "axis2_stub_VideoOutput.h"

namespace Kelvane {

namespace {

constexpr long kWaitMicroseconds = 25000;

}  // namespace

int PelcoMediaProducerImpl::KeepAliveHolder::waitsPerRefresh = 1000;

PelcoMediaProducerImpl::KeepAliveHolder::KeepAliveHolder(const axutil_env_t* env,
                                                         const std::string& sessionId)
    : Module("PelcoKeepAliveHolder"), axis2c_env_(env), sessionId_(sessionId) {}

PelcoMediaProducerImpl::KeepAliveHolder::~KeepAliveHolder() {
  stop();
  join();
  try {
    disconnect();
  } catch (const std::exception& failure) {  // a login is wanted now and not configured
    SESSION_FATAL_REPORT("VideoOutput_Disconnect() failed: %s", failure.what());
  }
  axutil_env_free(const_cast<axutil_env_t*>(axis2c_env_));
}

void PelcoMediaProducerImpl::KeepAliveHolder::execute() {
  const std::string address = pelcoServiceAddress("VideoOutput");
  while (waitForRefresh()) refresh(address);
}

bool PelcoMediaProducerImpl::KeepAliveHolder::waitForRefresh() const {
  for (int i = 0; i < waitsPerRefresh && !isStopped(); ++i) {
    timeval tv{0, kWaitMicroseconds};
    select(0, nullptr, nullptr, nullptr, &tv);
  }
  return !isStopped();
}

// A failure is not the stream's: the next refresh comes within the time that
// most cameras grant.
void PelcoMediaProducerImpl::KeepAliveHolder::refresh(const std::string& address) {
  const axutil_env_t* env = axis2c_env_;
  const auto request =
      owned(adb_RefreshSession_create_with_values(env, sessionId_.c_str(), kRefreshInterval), env,
            adb_RefreshSession_free);
  const auto stub =
      owned(axis2_stub_create_VideoOutput(env, kClientHome, address.c_str()), env, axis2_stub_free);
  LOG_DEBUG("setting up vout_stub auth in KeepAliveHolder()::execute()");
  setupAuth(stub.get(), env);
  LOG_DEBUG("VideoOutput_RefreshSession()");
  const auto response =
      owned(axis2_stub_op_VideoOutput_RefreshSession(stub.get(), env, request.get()), env,
            adb_RefreshSessionResponse_free);
  if (!response) LOG_DEBUG("VideoOutput_RefreshSession() failed: %s", soapError(env));
}

void PelcoMediaProducerImpl::KeepAliveHolder::disconnect() {
  const axutil_env_t* env = axis2c_env_;
  LOG_DEBUG("Trying to disconnect our session (%s)", sessionId_.c_str());
  const std::string address = pelcoServiceAddress("VideoOutput");
  const auto request = owned(adb_Disconnect_create_with_values(env, sessionId_.c_str(), 0), env,
                             adb_Disconnect_free);
  const auto stub =
      owned(axis2_stub_create_VideoOutput(env, kClientHome, address.c_str()), env, axis2_stub_free);
  LOG_DEBUG("setting up vout_stub auth in ~KeepAliveHolder()...");
  setupAuth(stub.get(), env);
  const auto response = owned(axis2_stub_op_VideoOutput_Disconnect(stub.get(), env, request.get()),
                              env, adb_DisconnectResponse_free);
  if (!response) SESSION_FATAL_REPORT("VideoOutput_Disconnect() failed: %s", soapError(env));
}

}  // namespace Kelvane
