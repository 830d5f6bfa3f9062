#include "RTSPMediaProducerImpl.h"

#include <stdexcept>

#include "Cfg.h"
#include "FailureReport.h"
#include "Retriever.h"

namespace Kelvane {

namespace {

// What the camera sees as User-Agent, by APP_MODE_NAME.
constexpr const char* applicationName[] = {
    "Norvista Media Retriever v3.9.17",
    "LibVLC/1.1.10 (LIVE555 Streaming Media v2011.05.25)",
};
constexpr const char* clientProtocolName = "RTSP";

constexpr double kLongestTimer = 2147.483647;  // seconds
constexpr int64_t kMicros = 1000000;           // a second
// A camera that closes the connection is noticed within two seconds. What it
// sent last may still be read ahead then: it has a moment to be handed on.
constexpr int64_t kConnectionWatchMicros = 1000000;
constexpr int64_t kLastFramesMicros = 100000;

bool isOn(const char* key) {
  return Cfg::value(key) == "on";
}

bool stopRequested() {
  return Retriever::instance(nullptr, nullptr, nullptr, nullptr)->isStopped();
}

}  // namespace

RTSPMediaProducerImpl::RTSPMediaProducerImpl(AbstractSink* audio, AbstractSink* video,
                                             AbstractSink* metadata, APP_MODE_NAME mode)
    : NETMediaProducerImpl(audio, video, metadata), applicationMode(mode) {
  try {
    // In this order: without the first key the second is not looked at.
    streamUsingTCP = isOn("RTP_OVER_TCP");
    forceMulticast = isOn("RTP_FORCE_MULTICAST");
  } catch (const std::invalid_argument&) {
  }
}

RTSPMediaProducerImpl::~RTSPMediaProducerImpl() {
  shutdown(false);
  for (ClientData* clientData : clientDataList) delete clientData;
}

bool RTSPMediaProducerImpl::start() {
  constructUrl();
  gettimeofday(&startTime, nullptr);
  createClient();
  if (converse()) runEventLoop();
  shutdown(false);
  return true;
}

// False when the stop flag ended it.
bool RTSPMediaProducerImpl::converse() {
  if (!openSession()) return false;
  openReceivers();
  if (streamUsingTCP) watchConnectionIn(kConnectionWatchMicros);
  setupStreams();
  if (stopRequested()) return false;
  attachSinks();
  armKeepAlive();
  startPlayingStreams();
  return !stopRequested();
}

void RTSPMediaProducerImpl::constructUrl() {
  std::string port = "554";
  try {
    port = Cfg::value("RTSP_PORT");
  } catch (const std::invalid_argument&) {
  }
  try {
    const std::string path = Cfg::value("RTSP_URL");
    url = "rtsp://" + Cfg::value("DEVIP") + ":" + port + path;
  } catch (const std::invalid_argument& absent) {
    FATAL_REPORT("Could not construct URL. Required param absent or invalid (%s)", absent.what());
  }
}

void RTSPMediaProducerImpl::createClient() {
  ourClient = BlockingRTSPClient::createNew(*env_, url.c_str(), verbosityLevel,
                                            applicationName[applicationMode]);
  if (ourClient == nullptr) {
    ERROR_REPORT("CRT-5014 Failed to create %s client: %s", clientProtocolName,
                 env_->getResultMsg());
    shutdown(true);
  }
}

RTSPResult RTSPMediaProducerImpl::getSDPDescriptionFromURL(const char*, const char* user,
                                                           const char* pass) {
  RTSPResult result;
  if (user == nullptr || pass == nullptr) {
    result = ourClient->describe(nullptr);
  } else {
    Authenticator authenticator;
    authenticator.setUsernameAndPassword(user, pass, False);
    // This model wants the credentials with the first request already.
    if (Cfg::value("CAMERAMODEL") == "Arecont") {
      authenticator.setRealmAndNonce("Arecont Vision", nullptr);
    }
    result = ourClient->describe(&authenticator);
  }
  statusCode = static_cast<unsigned>(result.status);
  return result;
}

// DESCRIBE. False at the stop flag; a failure ends the process.
bool RTSPMediaProducerImpl::openSession() {
  const std::string user = Cfg::value("USRNAME");
  const std::string pass = Cfg::value("PASSWD");
  const RTSPResult sdp = getSDPDescriptionFromURL(url.c_str(), user.c_str(), pass.c_str());
  if (sdp.end == RTSPResult::stopped) return false;
  if (!sdp.ok() || sdp.text.empty()) {
    ERROR_REPORT("CRT-5015 Failed to get a SDP description from URL \"%s\": %s", url.c_str(),
                 sdp.text.c_str());
    shutdown(true);
  }
  LOG_DEBUG("Opened URL \"%s\", returning a SDP description: %s", url.c_str(), sdp.text.c_str());

  session = MediaSession::createNew(*env_, sdp.text.c_str());
  if (session == nullptr) {
    ERROR_REPORT("CRT-5016 Failed to create a MediaSession object from the SDP description: %s",
                 env_->getResultMsg());
    shutdown(true);
  }
  if (!session->hasSubsessions()) {
    ERROR_REPORT("CRT-5017 This session has no media subsessions (i.e., \"m=\" lines)");
    shutdown(true);
  }
  return true;
}

// Over UDP only: over TCP the connection itself keeps the session.
void RTSPMediaProducerImpl::armKeepAlive() {
  bool wanted = false;
  try {
    wanted = isOn("RTSP_KEEPALIVE");
  } catch (const std::invalid_argument&) {
  }
  const unsigned timeout = ourClient->sessionTimeoutParameter();
  if (!wanted || timeout == 0 || streamUsingTCP) return;
  LOG_DEBUG("Session timeout: %d secs", static_cast<int>(timeout));
  keepAliveTask =
      env_->taskScheduler().scheduleDelayedTask(timeout * kMicros, timeoutPrevention, this);
}

void RTSPMediaProducerImpl::timeoutPrevention(void* producer) {
  auto* self = static_cast<RTSPMediaProducerImpl*>(producer);
  const unsigned timeout = self->ourClient->sessionTimeoutParameter();
  LOG_DEBUG("Timeout prevention (%d)", static_cast<int>(timeout));
  self->keepAliveTask = nullptr;
  self->ourClient->getParameter(*self->session, nullptr);
  self->keepAliveTask =
      self->env_->taskScheduler().scheduleDelayedTask(timeout * kMicros, timeoutPrevention, self);
}

// The library says nothing when the connection that carries the streams is
// gone, or ends within a packet while a request waits: without this the process
// would idle, or spin, for ever.
void RTSPMediaProducerImpl::watchConnectionIn(int64_t micros) {
  connectionWatchTask = env_->taskScheduler().scheduleDelayedTask(micros, watchConnection, this);
}

void RTSPMediaProducerImpl::watchConnection(void* producer) {
  auto* self = static_cast<RTSPMediaProducerImpl*>(producer);
  self->connectionWatchTask = nullptr;
  const bool connected = self->ourClient->connected();
  if (!connected && self->connectionLost) {
    ERROR_REPORT("CRT-5003 Error to read from socket. Seems server closed connection");
    self->shutdown(true);
  }
  self->connectionLost = !connected;
  self->watchConnectionIn(connected ? kConnectionWatchMicros : kLastFramesMicros);
}

void RTSPMediaProducerImpl::startPlayingStreams() {
  const RTSPResult played = clientStartPlayingSession();
  if (played.end == RTSPResult::stopped) return;
  if (!played.ok()) {
    ERROR_REPORT("CRT-5018 Failed to start playing session: %s", played.text.c_str());
    shutdown(true);
  }
  LOG_INFO("Entering to loop to receive stream...");
  if (endTime == 0) endTime = session->playEndTime();
  if (endTime <= 0) return;
  if (endTime > kLongestTimer) {
    LOG_DEBUG("Specified end time %f exceeds maximum %f; will not do a delayed shutdown", endTime,
              kLongestTimer);
    return;
  }
  sessionTimerTask = env_->taskScheduler().scheduleDelayedTask(
      static_cast<int64_t>((endTime + endTimeSlop) * static_cast<double>(kMicros)),
      sessionTimerHandler, this);
  LOG_INFO("%s (for up to %f seconds)...", "Receiving streamed data", endTime);
}

void RTSPMediaProducerImpl::sessionTimerHandler(void* producer) {
  static_cast<RTSPMediaProducerImpl*>(producer)->sessionTimerTask = nullptr;
  sessionAfterPlaying(producer);
}

void RTSPMediaProducerImpl::sessionAfterPlaying(void* producer) {
  static_cast<RTSPMediaProducerImpl*>(producer)->shutdown(true);
}

void RTSPMediaProducerImpl::shutdown(bool exitProcess) {
  if (env_ != nullptr) {
    for (TaskToken* task : {&sessionTimerTask, &keepAliveTask, &connectionWatchTask}) {
      env_->taskScheduler().unscheduleDelayedTask(*task);
    }
  }
  closeMediaSinks();
  tearDownStreams();
  Medium::close(session);
  session = nullptr;
  Medium::close(ourClient);
  ourClient = nullptr;
  if (exitProcess) exit(0);
}

void RTSPMediaProducerImpl::tearDownStreams() {
  if (session != nullptr && ourClient != nullptr) clientTearDownSession();
}

RTSPResult RTSPMediaProducerImpl::getOptionsResponse(const char*) {
  return ourClient->options();
}

RTSPResult RTSPMediaProducerImpl::clientSetupSubsession(MediaSubsession& of) {
  if (ourClient == nullptr) return {};
  return ourClient->setup(of, false, streamUsingTCP, forceMulticast);
}

RTSPResult RTSPMediaProducerImpl::clientStartPlayingSession() {
  if (ourClient == nullptr || session == nullptr) return {};
  return ourClient->play(*session, 0.0, -1.0, 1.0F);
}

void RTSPMediaProducerImpl::clientTearDownSession() {
  ourClient->teardown(*session);
}

RTSPResult RTSPMediaProducerImpl::clientPauseSession() {
  return ourClient->pause(*session);
}

}  // namespace Kelvane
