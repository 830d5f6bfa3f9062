// The streams of an RTSP session: receivers, transport, sinks and their end.

#include <GroupsockHelper.hh>
#include <H264VideoRTPSource.hh>
#include <MPEG4LATMAudioRTPSource.hh>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "Cfg.h"
#include "FailureReport.h"
#include "MediaSinks.h"
#include "RTSPMediaProducerImpl.h"

namespace Kelvane {

namespace {

constexpr unsigned kReorderingMicros = 30000;
constexpr std::string_view kStartCode("\0\0\0\1", 4);

// Socket buffers in bytes; a medium that is not listed is not received.
constexpr struct {
  const char* medium;
  unsigned receiveBuffer;
} kMedia[] = {{"audio", 100000}, {"video", 2000000}, {"metadata", 64000}};

unsigned receiveBufferFor(const char* medium) {
  for (const auto& row : kMedia) {
    if (strcmp(medium, row.medium) == 0) return row.receiveBuffer;
  }
  return 0;
}

bool valueIs(const char* key, const char* value) {
  return Cfg::exist(key) && Cfg::value(key) == value;
}

// The bytes of the "config" attribute; null and 0 when it is absent or no
// hexadecimal number.
struct CodecConfig {
  std::unique_ptr<unsigned char[]> bytes;
  unsigned size = 0;
};

CodecConfig codecConfig(const MediaSubsession& of) {
  CodecConfig config;
  if (*of.fmtp_config() != '\0') {
    config.bytes.reset(parseGeneralConfigStr(of.fmtp_config(), config.size));
  }
  return config;
}

// SPS and PPS from the description, each behind a start code.
std::vector<unsigned char> parameterSets(const char* text) {
  unsigned count = 0;
  const std::unique_ptr<SPropRecord[]> records(parseSPropParameterSets(text, count));
  std::vector<unsigned char> joined;
  for (unsigned i = 0; i < count; ++i) {
    const unsigned char* bytes = records[i].sPropBytes;
    const unsigned size = records[i].sPropLength;
    if (size < kStartCode.size() || memcmp(bytes, kStartCode.data(), kStartCode.size()) != 0) {
      joined.insert(joined.end(), kStartCode.begin(), kStartCode.end());
    }
    joined.insert(joined.end(), bytes, bytes + size);
  }
  return joined;
}

}  // namespace

void RTSPMediaProducerImpl::openReceivers() {
  bool madeProgress = false;
  MediaSubsessionIterator iterator(*session);
  while ((subsession = iterator.next()) != nullptr) {
    socketInputBufferSize = receiveBufferFor(subsession->mediumName());
    if (socketInputBufferSize == 0) continue;
    openReceiver();
    madeProgress = true;
  }
  if (!madeProgress) shutdown(true);
}

void RTSPMediaProducerImpl::openReceiver() {
  const char* medium = subsession->mediumName();
  const char* codec = subsession->codecName();
  const bool plainMetadata = strcmp(medium, "metadata") == 0 && strcmp(codec, "METADATA") == 0;
  if (!subsession->initiate(plainMetadata ? 0 : simpleRTPoffsetArg)) {
    FATAL_REPORT("CRT-5019 Unable to create receiver for \"%s/%s\" subsession: %s", medium, codec,
                 env_->getResultMsg());
  }
  LOG_DEBUG("Created receiver for \"%s/%s\" subsession (client ports %d-%d)", medium, codec,
            subsession->clientPortNum(), subsession->clientPortNum() + 1);
  RTPSource* source = subsession->rtpSource();
  if (source == nullptr) return;
  source->setPacketReorderingThresholdTime(kReorderingMicros);
  const int socket = source->RTPgs()->socketNum();
  const unsigned before = getReceiveBufferSize(*env_, socket);
  const unsigned after = increaseReceiveBufferTo(*env_, socket, socketInputBufferSize);
  LOG_DEBUG("Changed socket receive buffer size for the \"%s/%s\" subsession from %d to %d bytes",
            medium, codec, static_cast<int>(before), static_cast<int>(after));
}

void RTSPMediaProducerImpl::setupStreams() {
  bool madeProgress = false;
  MediaSubsessionIterator iterator(*session);
  while ((subsession = iterator.next()) != nullptr) {
    if (subsession->clientPortNum() == 0) continue;
    const char* medium = subsession->mediumName();
    const char* codec = subsession->codecName();
    const RTSPResult setup = clientSetupSubsession(*subsession);
    if (setup.end == RTSPResult::stopped) return;
    if (!setup.ok()) {
      FATAL_REPORT("CRT-5023 Failed to setup \"%s/%s\" subsession: %s", medium, codec,
                   setup.text.c_str());
    }
    if (streamUsingTCP) {
      LOG_INFO("Setup \"%s/%s\" subsession (transport: TCP)", medium, codec);
    } else {
      LOG_INFO("Setup \"%s/%s\" subsession (transport: UDP, client ports: %d-%d)", medium, codec,
               subsession->clientPortNum(), subsession->clientPortNum() + 1);
    }
    madeProgress = true;
  }
  if (!madeProgress) shutdown(true);
}

void RTSPMediaProducerImpl::attachSinks() {
  bool madeProgress = false;
  MediaSubsessionIterator iterator(*session);
  while ((subsession = iterator.next()) != nullptr) {
    if (subsession->readSource() == nullptr) continue;
    auto clientData = std::make_unique<ClientData>(ClientData{this, subsession});
    if (!attachSink(clientData.get())) continue;
    if (RTCPInstance* rtcp = subsession->rtcpInstance()) {
      rtcp->setByeHandler(subsessionByeHandler, clientData.get());
    }
    clientDataList.push_back(clientData.release());
    madeProgress = true;
  }
  if (!madeProgress) shutdown(true);
}

// False for a subsession whose stream is not wanted.
bool RTSPMediaProducerImpl::attachSink(ClientData* clientData) {
  const std::string_view medium = subsession->mediumName();
  if (medium == "audio") return attachAudio(clientData);
  if (medium == "video") return attachVideo(clientData);
  if (medium == "metadata") return attachMetadata(clientData);
  return false;
}

// A sink plays one stream: the end of a second one of its medium is not its end.
void RTSPMediaProducerImpl::play(AbstractSink* sink, ClientData* clientData) {
  subsession->sink = sink;
  if (!sink->startPlaying(*subsession->readSource(), subsessionAfterPlaying, clientData)) {
    subsession->sink = nullptr;
  }
}

bool RTSPMediaProducerImpl::attachAudio(ClientData* clientData) {
  if (!valueIs("AUDIO", "on")) {
    LOG_DEBUG("AUDIO is disabled");
    return false;
  }
  const CodecConfig config = codecConfig(*subsession);
  LOG_DEBUG("Audio Codec: %s", subsession->codecName());
  if (aSink_ == nullptr) {
    FATAL_REPORT("CRT-5020 Failed to create sink for %s", subsession->codecName());
  }
  aSink_->init(subsession->codecName(), config.bytes.get(), config.size);
  play(aSink_, clientData);
  return true;
}

bool RTSPMediaProducerImpl::attachVideo(ClientData* clientData) {
  const char* codec = subsession->codecName();
  if (vSink_ == nullptr) FATAL_REPORT("CRT-5021 Failed to create sink for %s", codec);
  vSink_->init(codec);
  injectConfiguration();
  LOG_DEBUG("Video Codec: %s", codec);
  bool served = false;
  for (const char* known : {"MP4V-ES", "JPEG", "H264", "MPV"}) {
    served = served || strcmp(codec, known) == 0;
  }
  if (!served) FATAL_REPORT("CRT-5022 Codec: \"%s\" is not implemented", codec);
  play(vSink_, clientData);
  return true;
}

// The description carries what a decoder needs ahead of the first key frame;
// it goes in as a frame, since a camera need not send it in the stream.
void RTSPMediaProducerImpl::injectConfiguration() {
  const std::string_view codec = subsession->codecName();
  timeval now{};
  gettimeofday(&now, nullptr);
  // ACTi cameras describe another stream than they send.
  if (codec == "MP4V-ES" && Cfg::value("CAMERAMODEL") != "ACTi") {
    const CodecConfig config = codecConfig(*subsession);
    if (config.bytes != nullptr) vSink_->addData(config.bytes.get(), config.size, now);
  }
  if (codec == "H264" && *subsession->fmtp_spropparametersets() != '\0') {
    std::vector<unsigned char> sets = parameterSets(subsession->fmtp_spropparametersets());
    vSink_->addData(sets.data(), static_cast<unsigned>(sets.size()), now);
  }
}

bool RTSPMediaProducerImpl::attachMetadata(ClientData* clientData) {
  const bool active = Cfg::exist("VAE_ACTIVE") && Cfg::value("VAE_ACTIVE") != "no";
  if (!active || !valueIs("VAE_EDVA_ACTIVE", "yes")) {
    LOG_DEBUG("Metadata tracker (VCA) or analytics are disabled");
    return false;
  }
  const CodecConfig config = codecConfig(*subsession);
  LOG_DEBUG("Metadata Codec: %s", subsession->codecName());
  if (dynamic_cast<MetadataSink*>(dSink_) == nullptr) {
    Medium::close(dSink_);
    dSink_ = new MetadataSink(*env_);
  }
  dSink_->init(subsession->codecName(), config.bytes.get(), config.size);
  const std::string text(reinterpret_cast<const char*>(config.bytes.get()), config.size);
  LOG_DEBUG("configLen=%d, configData: %s", static_cast<int>(config.size), text.c_str());
  if (dSink_ == nullptr) {
    FATAL_REPORT("CRT-5020 Failed to create sink for %s", subsession->codecName());
  }
  play(dSink_, clientData);
  return true;
}

void RTSPMediaProducerImpl::closeMediaSinks() {
  if (session == nullptr) return;
  MediaSubsessionIterator iterator(*session);
  while (MediaSubsession* of = iterator.next()) closeSink(*of);
}

// Closing deletes the sink.
void RTSPMediaProducerImpl::closeSink(MediaSubsession& of) {
  Medium::close(of.sink);
  of.sink = nullptr;
}

void RTSPMediaProducerImpl::subsessionAfterPlaying(void* clientData) {
  auto* data = static_cast<ClientData*>(clientData);
  RTSPMediaProducerImpl* self = data->mp;
  self->closeSink(*data->mediaSubsession);
  MediaSubsessionIterator iterator(*self->session);
  while (MediaSubsession* other = iterator.next()) {
    if (other->sink != nullptr) return;
  }
  self->shutdown(true);
}

void RTSPMediaProducerImpl::subsessionByeHandler(void* clientData) {
  auto* data = static_cast<ClientData*>(clientData);
  timeval now{};
  gettimeofday(&now, nullptr);
  LOG_INFO("Received RTCP \"BYE\" on \"%s/%s\" subsession (after %d seconds)",
           data->mediaSubsession->mediumName(), data->mediaSubsession->codecName(),
           static_cast<int>(now.tv_sec - data->mp->startTime.tv_sec));
  subsessionAfterPlaying(clientData);
}

}  // namespace Kelvane
