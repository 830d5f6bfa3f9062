// What becomes of a message that has been read: audio, video and positions.
#include <json/writer.h>

#include <MPEG4LATMAudioRTPSource.hh>
#include <memory>

#include "AccessLog.h"
#include "Cfg.h"
#include "FailureReport.h"
#include "PushInMedia.h"
#include "PushInMediaProducerImpl.h"
#include "Retriever.h"
#include "StorageMetaDataWriter.h"

namespace Kelvane {

namespace {

constexpr unsigned kAacConfigBytes = 2;

// How a position is shown over the picture.
constexpr Json::UInt kTextColour = 16777215;  // white
constexpr int kTextSeconds = 60;
constexpr int kTextHeight = 18;

std::string frameText(const Json::Value& record) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  std::string text = Json::FastWriter().write(record);
#pragma GCC diagnostic pop
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace

void PushInMediaProducerImpl::dispatch(PushInHeaders& headers, const timeval& time) {
  const PushInType type = typeOf(headers.contentType);
  switch (type.kind) {
    case PushInKind::aac:
      handleAac(headers, time);
      break;
    case PushInKind::pcmu:
      handleAudio(headers, time, "PCMU", "PCMU");
      break;
    case PushInKind::l16WithRate:
      if (!hasRateAndChannels(type.at)) {
        FATAL_EXIT("Invalid content type: %s", headers.contentType);
      }
      // The sink reads rate and channels out of the name.
      handleAudio(headers, time, type.at, "L16");
      break;
    case PushInKind::l16:  // without a rate the samples are taken for 8-bit ones
    case PushInKind::l8:
      handleAudio(headers, time, "L8", "L8");
      break;
    case PushInKind::video:
      handleVideo(headers, time);
      break;
  }
}

// The first audio message decides on the codec, for good. `marker` is constant.
void PushInMediaProducerImpl::handleAudio(const PushInHeaders& headers, const timeval& time,
                                          const char* codec, const char* marker) {
  if (audioConfigData_ == nullptr) {
    audioConfigData_ = reinterpret_cast<const unsigned char*>(marker);
    aSink_->init(codec, static_cast<const unsigned char*>(nullptr), 0U);
  }
  aSink_->addData(vSink_->buffer, static_cast<unsigned>(headers.contentLength), time);
}

// False when the message has to be dropped. Digits that do not decode leave
// the sink without configuration, and the next message tries again.
bool PushInMediaProducerImpl::initialiseAac(char* contentType) {
  const AacConfig config = takeAacConfig(contentType);
  if (config.outcome == AacConfig::Outcome::missing) {
    FATAL_EXIT("No configuration data for AAC");
  }
  if (config.outcome == AacConfig::Outcome::cutShort) {
    LOG_ERROR("AAC configuration is cut short: %s: message dropped", contentType);
    return false;
  }
  unsigned size = 0;
  const std::unique_ptr<const unsigned char[]> bytes(parseGeneralConfigStr(config.digits, size));
  if (bytes) LOG_DEBUG("AAC config: 0x%02x 0x%02x", bytes[0], bytes[1]);
  aSink_->init("MPEG4-GENERIC", bytes.get(), bytes ? kAacConfigBytes : 0U);
  audioConfigData_ = bytes.get();  // dangles from here on: only a mark
  return true;
}

void PushInMediaProducerImpl::handleAac(PushInHeaders& headers, const timeval& time) {
  if (audioConfigData_ == nullptr && !initialiseAac(headers.contentType)) return;
  const AacPackets packets =
      splitAac(headers.contentType, static_cast<std::size_t>(headers.contentLength));
  switch (packets.outcome) {
    case AacPackets::Outcome::noCount:
      FATAL_EXIT("Number of AAC raw packets is missing");
    case AacPackets::Outcome::incorrect:
      FATAL_EXIT("Incorrect header: %s", headers.contentType);
    case AacPackets::Outcome::badOffset:
      LOG_ERROR("AAC offsets do not fit: %s: message dropped", packets.fault.c_str());
      break;
    case AacPackets::Outcome::split:
      for (const auto& range : packets.ranges) {
        aSink_->addData(vSink_->buffer + range.begin,
                        static_cast<unsigned>(range.end - range.begin), time);
      }
      break;
  }
}

void PushInMediaProducerImpl::handleVideo(PushInHeaders& headers, const timeval& time) {
  const bool hasPosition = headers.latitude != 0 || headers.longitude != 0 || headers.altitude != 0;
  if (hasPosition) {
    prepareGpsInVideo(time, headers.latitude, headers.longitude, headers.altitude);
  }
  vSink_->addData(vSink_->buffer, static_cast<unsigned>(headers.contentLength), time);
  if (annoncer_ == nullptr) return;
  annoncer_->annonceAlive(time, headers.message);
  if (hasPosition) {
    annoncer_->annonceGPS(time, headers.latitude, headers.longitude, headers.altitude);
  }
}

void PushInMediaProducerImpl::prepareGpsInVideo(timeval time, float latitude, float longitude,
                                                float altitude) {
  CPMediaFrame frame(new MediaFrame(nullptr, 0, METADATA));
  const struct {
    const char* tag;
    const char* description;
    float value;
  } measurements[] = {
      {"UAS13", "Latitude", latitude},
      {"UAS14", "Longitude", longitude},
      {"UAS15", "Altitude", altitude},
  };
  Json::Value tags(Json::arrayValue);
  Json::Value text(Json::objectValue);
  for (const auto& m : measurements) {
    const double value = m.value;
    Json::Value tag;
    tag["tag"] = m.tag;
    tag["value"] = value;
    tag["descr"] = m.description;
    tags.append(tag);

    char line[64];
    snprintf(line, sizeof line, "%s: %g", m.description, value);
    Json::Value& shown = text[m.tag];
    shown["id"] = m.tag;
    shown["msg"] = line;
    shown["v"] = value;
    shown["c"] = kTextColour;
    shown["t"] = kTextSeconds;
    shown["h"] = kTextHeight;
  }
  Json::Value shownRecord;
  shownRecord["text"] = text;
  frame->objectsData = frameText(shownRecord);
  Retriever::instance(nullptr, nullptr, nullptr, nullptr)->acceptFrame(frame);

  Json::Value storedRecord;
  storedRecord["tags"] = tags;
  storedRecord["timestamp"] = static_cast<Json::UInt>(time.tv_sec);
  storedRecord["timestamp_usec"] = static_cast<Json::UInt>(time.tv_usec);
  StorageMetaDataWriter writer;
  if (writer.openCache(Cfg::value("DEVID"), nullptr)) {
    writer.writeExtraData(time, "metadata", storedRecord);
  }
}

}  // namespace Kelvane
