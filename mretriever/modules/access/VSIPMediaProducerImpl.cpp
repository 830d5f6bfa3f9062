#include "VSIPMediaProducerImpl.h"

#include <unistd.h>

#include <array>
#include <liveMedia.hh>
#include <memory>
#include <stdexcept>
#include <string>

#include "Cfg.h"
#include "DeviceConnection.h"
#include "Exceptions.h"
#include "FailureReport.h"
#include "HttpBasicAuth.h"
#include "Retriever.h"
#include "SocketIo.h"
#include "UniqueFd.h"
#include "VSIPWire.h"
#include "WorkerWait.h"

namespace Kelvane {

namespace {

UniqueFd connectTo(int port) {
  DeviceConnection connection = connectToDevice(Cfg::value("DEVIP"), port);
  if (!connection.failure.empty()) FATAL_EXIT("%s", connection.failure.c_str());
  return std::move(connection.socket);
}

template <class Bytes>
void send(const UniqueFd& connection, const Bytes& bytes) {
  if (write(connection.get(), bytes.data(), bytes.size()) <= 0) {
    const auto reason = last_error_message();
    FATAL_EXIT("CRT-5010 Failed write into socket: %s", reason->c_str());
  }
}

// Longer identifiers are accepted; their first bytes count.
vsip::Request configuredRequest() {
  unsigned size = 0;
  const std::unique_ptr<unsigned char[]> uid(
      parseGeneralConfigStr(Cfg::value("DEFINEDUID").c_str(), size));
  if (size < vsip::kUidSize) {
    FATAL_EXIT("CRT-5050 Failed to parse UID. Size (%d) incorrect", static_cast<int>(size));
  }
  return vsip::streamRequest(uid.get());
}

int keepAlivePort() {
  constexpr int kDefaultPort = 80;
  try {
    return Cfg::i_value("HTTP_PORT");
  } catch (const std::invalid_argument&) {
    return kDefaultPort;
  }
}

std::string configuredKeepAlive() {
  vsip::KeepAliveKeys keys;
  keys.targetGuid = Cfg::value("VSIP_TARGET_GUID");
  keys.targetIp = Cfg::value("VSIP_TARGET_SIP");
  keys.sourceGuid = Cfg::value("VSIP_SOURCE_GUID");
  keys.host = Cfg::value("DEVIP");
  const std::string user = Cfg::value("USRNAME");
  if (!user.empty()) keys.authorization = basicAuthorization(user, Cfg::value("PASSWD"));
  return vsip::keepAliveTemplate(keys);
}

}  // namespace

VSIPMediaProducerImpl::VSIPMediaProducerImpl(AbstractSink* audio, AbstractSink* video)
    : NETMediaProducerImpl(audio, video, nullptr), keepAliveHolder_(new KeepAliveHolder) {
  keepAliveHolder_->Thread::start();
}

VSIPMediaProducerImpl::~VSIPMediaProducerImpl() {
  keepAliveHolder_->stop();
  keepAliveHolder_->join();
  delete keepAliveHolder_;
}

bool VSIPMediaProducerImpl::start() {
  UniqueFd stream = connectTo(Cfg::i_value("VSIP_PORT"));
  LOG_DEBUG("Sending request to Verint...");
  send(stream, configuredRequest());
  LOG_DEBUG("Request sent success");
  if (receiveAll(stream.get(), vSink_->buffer, vsip::kAnswerSize) <= 0) {
    const auto reason = last_error_message();
    FATAL_EXIT("CRT-5051 Failed read from socket: %s", reason->c_str());
  }

  const std::string format = Cfg::value("MEDIA_FORMAT");
  if (format == "mjpg") {
    receive_mjpg(stream.get());
  } else if (format == "mpeg4") {
    receive_mpeg4(stream.get());
  } else {
    FATAL_EXIT("CRT-5013 %s is not currently supported", format.c_str());
  }
  stream.reset();
  LOG_INFO("Connection was lost...");
  return Retriever::instance(nullptr, nullptr, nullptr, nullptr)->isStopped();
}

int VSIPMediaProducerImpl::keepAliveQuarters = 40;

VSIPMediaProducerImpl::KeepAliveHolder::KeepAliveHolder() : Module("KeepAliveHolder") {}

void VSIPMediaProducerImpl::KeepAliveHolder::execute() {
  const int port = keepAlivePort();
  const std::string form = configuredKeepAlive();
  int fakeParam = 2;
  while (!isStopped()) {
    if (!keepAlive(vsip::keepAliveRequest(form, fakeParam), port)) break;
    if (!sleepUnlessStopped(*this, keepAliveQuarters)) break;
    ++fakeParam;
  }
}

// One call of the page on a fresh connection; what it answers does not matter.
// False when stopped meanwhile: a device that keeps silent must not hold up the
// destructor.
bool VSIPMediaProducerImpl::KeepAliveHolder::keepAlive(const std::string& request, int port) {
  const UniqueFd connection = connectTo(port);
  LOG_DEBUG("Sending KeepAlive...");
  send(connection, request);
  if (!readableUnlessStopped(*this, connection.get())) return false;
  std::array<char, 128000> answer;
  if (read(connection.get(), answer.data(), answer.size()) <= 0) {
    const auto reason = last_error_message();
    FATAL_EXIT("CRT-5010 Failed read from socket: %s", reason->c_str());
  }
  return true;
}

}  // namespace Kelvane
