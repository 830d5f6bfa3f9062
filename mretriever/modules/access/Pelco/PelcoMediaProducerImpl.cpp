#include "PelcoMediaProducerImpl.h"

#include <arpa/inet.h>

#include <GroupsockHelper.hh>
#include <cstdio>

#include "Cfg.h"
#include "DeviceGroupsock.h"
#include "FailureReport.h"
#include "PelcoSession.h"
#include "ReadAheadScheduler.h"
#include "axis2_stub_StreamControl.h"
#include "axis2_stub_VideoOutput.h"

namespace Kelvane {

namespace {

constexpr unsigned kTimestampFrequency = 90000;

// A setter's refusal loses the stream, as a failed call does.
#define PELCO_SET(format, setter)                                                \
  do {                                                                           \
    if ((setter) != AXIS2_SUCCESS) SESSION_FATAL_REPORT(format, soapError(env)); \
  } while (false)

std::string rtpAddress(UsageEnvironment& env, int port) {
  in_addr own{};
  own.s_addr = ourIPv4Address(env);
  char host[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &own, host, sizeof host);
  char address[256];
  snprintf(address, sizeof address, "rtp://%s:%d", host, port);
  return address;
}

// Where the camera shall send the stream to.
void setTransport(const axutil_env_t* env, adb_StreamParameters_t* stream,
                  const std::string& address) {
  adb_StreamSession_t* session = adb_StreamParameters_get_streamSession(stream, env);
  axutil_uri_t* uri = axutil_uri_parse_string(env, address.c_str());
  if (uri == nullptr) SESSION_FATAL_REPORT("Could not parse URI: %s", soapError(env));
  PELCO_SET("Could not set URI: %s", adb_StreamSession_set_transportURL(session, env, uri));
  PELCO_SET("Could not set iFrameOnly: %s",
            adb_StreamSession_set_iFrameOnly(session, env, AXIS2_FALSE));
  PELCO_SET("Could not set refreshInterval: %s",
            adb_StreamSession_set_refreshInterval(session, env, kRefreshInterval));
}

// The first of the streams that the camera has, taken out of the response: the
// next request owns it.
adb_StreamParameters_t* takeFirstStream(const axutil_env_t* env, adb_QueryResponse_t* response) {
  adb_StreamCatalog_t* catalog = adb_QueryResponse_get_streamCatalog(response, env);
  adb_Entries_t* entries = adb_StreamCatalog_get_entries(catalog, env);
  const bool some = entries != nullptr && adb_Entries_sizeof_streamParameters(entries, env) > 0;
  if (!some) SESSION_FATAL_REPORT("No streams found");
  axutil_array_list_t* streams = adb_Entries_get_streamParameters(entries, env);
  return static_cast<adb_StreamParameters_t*>(axutil_array_list_remove(streams, env, 0));
}

adb_StreamParameters_t* queryStream(const axutil_env_t* env, const std::string& address) {
  const auto stub =
      owned(axis2_stub_create_VideoOutput(env, kClientHome, address.c_str()), env, axis2_stub_free);
  LOG_DEBUG("setting up vout_stub auth...");
  setupAuth(stub.get(), env);
  const auto query = owned(adb_Query_create(env), env, adb_Query_free);
  adb_Query_set_streamQuery(query.get(), env, adb_StreamQuery_create(env));
  const auto response = owned(axis2_stub_op_VideoOutput_Query(stub.get(), env, query.get()), env,
                              adb_QueryResponse_free);
  if (!response) SESSION_FATAL_REPORT("VideoOutput_Query() failed: %s", soapError(env));
  return takeFirstStream(env, response.get());
}

adb_ConnectResponse_t* connectStream(const axutil_env_t* env, const std::string& address,
                                     adb_StreamParameters_t* stream) {
  const auto request = owned(adb_Connect_create(env), env, adb_Connect_free);
  PELCO_SET("Could not set stream parameters: %s",
            adb_Connect_set_streamParameters(request.get(), env, stream));
  const auto stub =
      owned(axis2_stub_create_VideoOutput(env, kClientHome, address.c_str()), env, axis2_stub_free);
  setupAuth(stub.get(), env);
  adb_ConnectResponse_t* response =
      axis2_stub_op_VideoOutput_Connect(stub.get(), env, request.get());
  if (response == nullptr) {
    SESSION_FATAL_REPORT("VideoOutput_Connect() failed: %s\n", soapError(env));
  }
  return response;
}

// Null when the camera named none: the caller's next setter refuses that.
const char* sessionIdOf(const axutil_env_t* env, adb_ConnectResponse_t* response) {
  adb_StreamParameters_t* stream = adb_ConnectResponse_get_streamParameters(response, env);
  if (stream == nullptr) SESSION_FATAL_REPORT("streamParameters == 0: %s\n", soapError(env));
  adb_StreamSession_t* session = adb_StreamParameters_get_streamSession(stream, env);
  if (session == nullptr) SESSION_FATAL_REPORT("streamSession == 0: %s\n", soapError(env));
  const char* id = adb_StreamSession_get_sessionId(session, env);
  LOG_DEBUG("sessionId: %s\n", id == nullptr ? "(null)" : id);
  return id;
}

void play(const axutil_env_t* env, axis2_stub_t* stub, const char* sessionId) {
  const auto request = owned(adb_Play_create(env), env, adb_Play_free);
  adb_Play_t* play = request.get();
  PELCO_SET("Could not set sessionId: %s\n", adb_Play_set_sessionId(play, env, sessionId));
  PELCO_SET("Could not set speed: %s\n", adb_Play_set_speed(play, env, 1.0F));
  PELCO_SET("Could not set maxBytes: %s\n", adb_Play_set_maxBytes(play, env, 65536));
  PELCO_SET("Could not set actionVersion: %s\n", adb_Play_set_actionVersion(play, env, "0"));
  PELCO_SET("Could not set asyncId: %s\n", adb_Play_set_asyncId(play, env, 0));
  const auto response =
      owned(axis2_stub_op_StreamControl_Play(stub, env, play), env, adb_PlayResponse_free);
  if (!response) SESSION_FATAL_REPORT("StreamControl_Play() failed: %s", soapError(env));
}

}  // namespace

PelcoMediaProducerImpl::PelcoMediaProducerImpl(AbstractSink* audio, AbstractSink* video)
    : NETMediaProducerImpl(audio, video, nullptr) {}

PelcoMediaProducerImpl::~PelcoMediaProducerImpl() {
  delete keepAliveHolder_;
  closeReceiver();
}

bool PelcoMediaProducerImpl::start() {
  const int port = openRtpPort();
  createSource();
  readDatagramsAhead(*source_);
  vSink_->startPlaying(*source_, sessionAfterPlaying, this);
  startStream(port);
  runEventLoop();
  return true;
}

// RTP wants an even port.
int PelcoMediaProducerImpl::openRtpPort() {
  Port port(0);
  do {
    delete rtpGroupsock_;
    rtpGroupsock_ = openUnicast(*env_, 0);
    getSourcePort(*env_, rtpGroupsock_->socketNum(), AF_INET, port);
  } while (ntohs(port.num()) % 2 != 0);
  return ntohs(port.num());
}

void PelcoMediaProducerImpl::createSource() {
  const std::string model = Cfg::value("MODELID");
  const bool older =
      model.find("TXB") != std::string::npos || model.find("IM10") != std::string::npos;
  const unsigned char payload = older ? 96 : 97;
  const std::string format = Cfg::value("MEDIA_FORMAT");
  if (format == "mpeg4") {
    source_ = MPEG4ESVideoRTPSource::createNew(*env_, rtpGroupsock_, payload, kTimestampFrequency);
  } else if (format == "h264") {
    source_ = H264VideoRTPSource::createNew(*env_, rtpGroupsock_, payload, kTimestampFrequency);
  } else {
    SESSION_FATAL_REPORT("Media format is not supported (%s)", format.c_str());
  }
}

void PelcoMediaProducerImpl::startStream(int port) {
  const std::string videoOutput = pelcoServiceAddress("VideoOutput");
  const std::string streamControl = pelcoServiceAddress("StreamControl");
  const axutil_env_t* env = axutil_env_create_all(kWsLog, AXIS2_LOG_LEVEL_INFO);

  adb_StreamParameters_t* stream = queryStream(env, videoOutput);
  const std::string address = rtpAddress(*env_, port);
  LOG_DEBUG("Staring stream to port %d", port);
  setTransport(env, stream, address);
  const auto connected =
      owned(connectStream(env, videoOutput, stream), env, adb_ConnectResponse_free);

  const auto control =
      owned(axis2_stub_create_StreamControl(env, kClientHome, streamControl.c_str()), env,
            axis2_stub_free);
  LOG_DEBUG("setting up ctl_stub auth...");
  setupAuth(control.get(), env);
  const char* sessionId = sessionIdOf(env, connected.get());
  play(env, control.get(), sessionId);

  LOG_DEBUG("Starting receiving stream...");
  keepAliveHolder_ = new KeepAliveHolder(env, sessionId);
  keepAliveHolder_->Thread::start();
}

void PelcoMediaProducerImpl::sessionAfterPlaying(void* producer) {
  auto* self = static_cast<PelcoMediaProducerImpl*>(producer);
  Medium::close(self->rtcpInstance_);
  Medium::close(self->vSink_);
  Medium::close(self->source_);
  delete self->rtpGroupsock_;
  self->rtcpInstance_ = nullptr;
  self->vSink_ = nullptr;
  self->source_ = nullptr;
  self->rtpGroupsock_ = nullptr;
}

// What is left open when the stop came before the stream's end. The sink is the host's.
void PelcoMediaProducerImpl::closeReceiver() {
  if (source_ != nullptr && vSink_->source() == source_) vSink_->stopPlaying();
  Medium::close(source_);
  delete rtpGroupsock_;
}

}  // namespace Kelvane

extern "C" Kelvane::NETMediaProducerImpl* mretriever_createPelcoProducer(
    Kelvane::AbstractSink* audio, Kelvane::AbstractSink* video) {
  return new Kelvane::PelcoMediaProducerImpl(audio, video);
}
