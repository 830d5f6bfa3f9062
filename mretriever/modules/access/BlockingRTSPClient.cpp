#include "BlockingRTSPClient.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

#include <Groupsock.hh>
#include <RTPSource.hh>

#include "ReadAheadScheduler.h"
#include "Retriever.h"

namespace Kelvane {

namespace {
constexpr int kStopWatchMicros = 50000;
constexpr int kStatusOk = 200;
}  // namespace

BlockingRTSPClient::BlockingRTSPClient(UsageEnvironment& env, const char* url, int verbosityLevel,
                                       const char* userAgent)
    : RTSPClient(env, url, verbosityLevel, nullptr, 0, -1) {
  // The constructor would put the library's name and version behind it.
  setUserAgentString(userAgent);
}

BlockingRTSPClient* BlockingRTSPClient::createNew(UsageEnvironment& env, const char* url,
                                                  int verbosityLevel, const char* userAgent) {
  return new BlockingRTSPClient(env, url, verbosityLevel, userAgent);
}

void BlockingRTSPClient::onResponse(RTSPClient* client, int code, char* text) {
  auto* self = static_cast<BlockingRTSPClient*>(client);
  self->result_.end = code == 0 ? RTSPResult::answered : RTSPResult::failed;
  // Below 0 the code means nothing, whatever the library says of errno.
  self->result_.status = code == 0 ? kStatusOk : (code > 0 ? code : 0);
  if (text != nullptr) self->result_.text = text;
  delete[] text;
  self->done_ = 1;
}

void BlockingRTSPClient::watchStopFlag(void* client) {
  auto* self = static_cast<BlockingRTSPClient*>(client);
  if (Retriever::instance(nullptr, nullptr, nullptr, nullptr)->isStopped()) {
    self->stopWatch_ = nullptr;
    self->result_.end = RTSPResult::stopped;
    self->done_ = 1;
    return;
  }
  self->stopWatch_ =
      self->envir().taskScheduler().scheduleDelayedTask(kStopWatchMicros, watchStopFlag, self);
}

template <class Send>
RTSPResult BlockingRTSPClient::await(Send send) {
  result_ = {};
  done_ = 0;  // ahead of the request: the answer may come from within
  const unsigned cseq = send();
  if (done_ == 0) {
    stopWatch_ = nullptr;
    watchStopFlag(this);
    envir().taskScheduler().doEventLoop(&done_);
    envir().taskScheduler().unscheduleDelayedTask(stopWatch_);
  }
  if (result_.end == RTSPResult::stopped) changeResponseHandler(cseq, nullptr);
  return result_;
}

RTSPResult BlockingRTSPClient::options() {
  return await([this] { return sendOptionsCommand(onResponse); });
}

RTSPResult BlockingRTSPClient::describe(Authenticator* authenticator) {
  return await([&] { return sendDescribeCommand(onResponse, authenticator); });
}

RTSPResult BlockingRTSPClient::setup(MediaSubsession& subsession, bool streamOutgoing,
                                     bool streamUsingTCP, bool forceMulticast) {
  auto* scheduler = dynamic_cast<ReadAheadScheduler*>(&envir().taskScheduler());
  if (streamUsingTCP && scheduler != nullptr) scheduler->readAhead(socketNum());
  RTSPResult result = await([&] {
    return sendSetupCommand(subsession, onResponse, streamOutgoing, streamUsingTCP, forceMulticast);
  });
  if (!streamUsingTCP && subsession.rtpSource() != nullptr) {
    readDatagramsAhead(*subsession.rtpSource());
  }
  return result;
}

RTSPResult BlockingRTSPClient::play(MediaSession& session, double start, double end, float scale) {
  return await([&] {
    const unsigned cseq = sendPlayCommand(session, onResponse, start, end, scale);
    acknowledgeAtOnce();
    return cseq;
  });
}

// Asks the socket itself: where the connection ends within a packet the library
// does not notice, and calls its handler again and again.
bool BlockingRTSPClient::connected() const {
  if (socketNum() < 0) return false;
  char byte = 0;
  const ssize_t got = recv(socketNum(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

// A camera that sends its first packets in small pieces waits for the one
// before to be acknowledged: 40 ms, unless the kernel is told not to delay that.
void BlockingRTSPClient::acknowledgeAtOnce() const {
  const int on = 1;
  setsockopt(socketNum(), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
}

RTSPResult BlockingRTSPClient::pause(MediaSession& session) {
  return await([&] { return sendPauseCommand(session, onResponse); });
}

RTSPResult BlockingRTSPClient::getParameter(MediaSession& session, const char* name) {
  if (done_ == 0) return {};
  return await([&] { return sendGetParameterCommand(session, onResponse, name); });
}

void BlockingRTSPClient::teardown(MediaSession& session) {
  if (connected()) sendTeardownCommand(session, nullptr);
}

}  // namespace Kelvane
