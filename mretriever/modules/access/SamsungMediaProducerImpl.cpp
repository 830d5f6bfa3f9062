#include "SamsungMediaProducerImpl.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

#include "Cfg.h"
#include "DeviceConnection.h"
#include "Exceptions.h"
#include "FailureReport.h"
#include "Retriever.h"
#include "SamsungWire.h"
#include "SocketIo.h"
#include "WorkerWait.h"

namespace Kelvane {

namespace {

constexpr int kKeepAliveQuarters = 8;  // 2 seconds

samsung::ConnReq configuredLogin() {
  const std::string user = Cfg::value("USRNAME");
  const std::string password = Cfg::value("PASSWD");
  if (user.empty() || user.size() > samsung::kLoginFieldSize) {
    FATAL_EXIT("Incorrect USRNAME length: %d", static_cast<int>(user.size()));
  }
  if (password.size() > samsung::kLoginFieldSize) {
    FATAL_EXIT("PASSWD length (%d) too big", static_cast<int>(password.size()));
  }
  return samsung::connectRequest(user, password);
}

samsung::ConfReq configuredStream() {
  const std::string format = Cfg::value("MEDIA_FORMAT");
  const auto mediaType = samsung::mediaType(format);
  if (!mediaType) FATAL_EXIT("CRT-5013 %s is not currently supported", format.c_str());
  samsung::Configuration values{};
  values.mediaType = *mediaType;
  values.imageSize = samsung::imageSize(Cfg::value("IMAGESIZE"));
  values.frameRate = samsung::frameRate(Cfg::i_value("FRAMERATE"));
  values.compression = samsung::compression(Cfg::i_value("CAMCOMPRESSION"));
  return samsung::configurationRequest(values);
}

}  // namespace

SamsungMediaProducerImpl::SamsungMediaProducerImpl(AbstractSink* audio, AbstractSink* video)
    : NETMediaProducerImpl(audio, video, nullptr) {}

SamsungMediaProducerImpl::~SamsungMediaProducerImpl() {
  if (keepAliveHolder_ == nullptr) return;
  keepAliveHolder_->stop();
  keepAliveHolder_->join();
  delete keepAliveHolder_;
}

bool SamsungMediaProducerImpl::start() {
  const int control = get_conn(samsung::kControlPort);
  sendConnectAndConfRequests(control);
  keepAliveHolder_ = new KeepAliveHolder(control);
  keepAliveHolder_->Thread::start();

  const int stream = get_conn(samsung::kStreamPort);
  const std::string format = Cfg::value("MEDIA_FORMAT");
  if (format == "mjpg") {
    receive_mjpg(stream);
  } else if (format == "mpeg4") {
    receive_mpeg4(stream);
  } else {
    FATAL_EXIT("CRT-5013 %s is not currently supported", format.c_str());
  }
  close(stream);
  LOG_INFO("Connection was lost...");
  return Retriever::instance(nullptr, nullptr, nullptr, nullptr)->isStopped();
}

int SamsungMediaProducerImpl::get_conn(int port) {
  DeviceConnection connection = connectToDevice(Cfg::value("DEVIP"), port);
  if (!connection.failure.empty()) FATAL_EXIT("%s", connection.failure.c_str());
  return connection.socket.release();
}

void SamsungMediaProducerImpl::expectWritten(ssize_t put) {
  if (put <= 0) {
    const auto reason = last_error_message();
    FATAL_EXIT("CRT-5010 Failed write into socket: %s", reason->c_str());
  }
}

void SamsungMediaProducerImpl::expectRead(ssize_t got) {
  if (got <= 0) {
    const auto reason = last_error_message();
    FATAL_EXIT("CRT-5010 Failed read from socket: %s", reason->c_str());
  }
}

void SamsungMediaProducerImpl::sendConnectAndConfRequests(int sockfd) {
  std::array<std::uint8_t, samsung::kReqAnswerSize> answer;
  LOG_DEBUG("Sending connect request to Samsung...");
  sendRequest(sockfd, configuredLogin());
  LOG_DEBUG("Request sent success");
  expectRead(receiveAll(sockfd, answer.data(), samsung::kAnswerSize));
  LOG_DEBUG("Response received success");

  LOG_DEBUG("Sending configuration request to Samsung...");
  sendRequest(sockfd, configuredStream());
  expectRead(receiveAll(sockfd, answer.data(), samsung::kAnswerSize));

  LOG_DEBUG("Sending request to Samsung...");
  sendRequest(sockfd, samsung::req);
  expectRead(receiveAll(sockfd, answer.data(), samsung::kReqAnswerSize));
}

SamsungMediaProducerImpl::KeepAliveHolder::KeepAliveHolder(int sock)
    : Module("KeepAliveHolder"), sock_(sock) {}

void SamsungMediaProducerImpl::KeepAliveHolder::execute() {
  while (!isStopped()) {
    LOG_DEBUG("Sending KeepAlive...");
    sendRequest(sock_, samsung::keepAlive_req);
    if (!receiveAnswer()) break;
    if (!sleepUnlessStopped(*this, kKeepAliveQuarters)) break;
  }
  close(sock_);
  LOG_INFO("Configuration connection was lost...");
}

// Whole, or what there is at the end of the connection; false when stopped
// meanwhile: a device that keeps silent must not hold up the destructor.
bool SamsungMediaProducerImpl::KeepAliveHolder::receiveAnswer() {
  std::array<std::uint8_t, samsung::kAnswerSize> answer;
  std::size_t have = 0;
  while (have < answer.size()) {
    if (!readableUnlessStopped(*this, sock_)) return false;
    const ssize_t got = recv(sock_, answer.data() + have, answer.size() - have, 0);
    if (have == 0) expectRead(got);
    if (got <= 0) break;
    have += static_cast<std::size_t>(got);
  }
  return true;
}

}  // namespace Kelvane
