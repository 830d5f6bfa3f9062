#include "AbstractSink.h"

#include <sys/time.h>

#include <RTPSource.hh>
#include <cstdlib>

#include "AccessLog.h"
#include "Cfg.h"
#include "Exceptions.h"
#include "FailureReport.h"
#include "Retriever.h"

namespace Kelvane {

namespace {

constexpr int kUdpWarningMicros = 3000000;
// A larger jump of the source's clock is taken for a new clock.
constexpr Delay_Interval kClockJump{0, 900000};

// A file that will not open rejects the probe; the stream goes on.
FILE* openProbeFile(const char* name, time_t& timeLimit) {
  FILE* file = fopen64(name, "w");
  if (file == nullptr) {
    const auto reason = last_error_message();
    LOG_ERROR("Stream probe is rejected because could not open file %s:%s", name, reason->c_str());
    timeLimit = 0;
  }
  return file;
}

}  // namespace

AbstractSink::AbstractSink(UsageEnvironment& env)
    : MediaSink(env),
      fIsTDXSource(Cfg::value("CAMERAMODEL") == "tdLink"),
      fCameraModel(Cfg::value("CAMERAMODEL")),
      fProto(Cfg::value("PROTO")),
      fFollowRTPTime(Cfg::exist("RTP_TIME") && Cfg::value("RTP_TIME") == "on" && fProto == "RTSP") {
  buffer = static_cast<unsigned char*>(malloc(bufferSize + kSpareBytes));
  if (buffer == nullptr) FATAL_EXIT("Request memory for buffer failed");
}

AbstractSink::~AbstractSink() {
  envir().taskScheduler().unscheduleDelayedTask(fSessionTimeoutTask);
  closeProbe();
  free(buffer);
}

void AbstractSink::init(const char* codec, ...) {
  if (!fCodec.empty()) return;
  fCodec = codec;
  if (Cfg::exist("STREAM_PROBE") && Cfg::i_value("STREAM_PROBE") != 0) startProbe(codec);
  if (Cfg::value("PROTO") == "RTSP" && Cfg::value("RTP_OVER_TCP") == "off") {
    int micros = kUdpWarningMicros;
    if (Cfg::exist("UDP_NO_STREAM_WARNING_TIMEOUT")) {
      // 32 bits, as ever: a long time-out wraps around.
      micros = static_cast<int>(
          static_cast<uint32_t>(Cfg::i_value("UDP_NO_STREAM_WARNING_TIMEOUT")) * 1000000U);
    }
    envir().taskScheduler().unscheduleDelayedTask(fSessionTimeoutTask);
    fSessionTimeoutTask =
        envir().taskScheduler().scheduleDelayedTask(micros, sessionTimeoutHandler, this);
  }
}

void AbstractSink::startProbe(const char* codec) {
  closeProbe();
  fStreamProbeTimeLimit = time(nullptr) + Cfg::i_value("STREAM_PROBE");
  const std::string objId = Cfg::value("OBJID");
  const std::string proto = Cfg::value("PROTO");
  char name[256];
  snprintf(name, sizeof name, "/tmp/%s.probe.%s.%s", objId.c_str(), proto.c_str(), codec);
  fProbe = openProbeFile(name, fStreamProbeTimeLimit);
  snprintf(name, sizeof name, "/tmp/%s.probe.%s.%s.index", objId.c_str(), proto.c_str(), codec);
  fProbeIndex = openProbeFile(name, fStreamProbeTimeLimit);
}

void AbstractSink::closeProbe() {
  if (fProbe != nullptr) fclose(fProbe);
  fProbe = nullptr;
  if (fProbeIndex != nullptr) fclose(fProbeIndex);
  fProbeIndex = nullptr;
}

// The bytes as received, with the wall clock in the index.
void AbstractSink::writeProbe(unsigned frameSize) {
  if (fStreamProbeTimeLimit <= time(nullptr)) {
    closeProbe();
    return;
  }
  timeval now{};
  gettimeofday(&now, nullptr);
  char line[128];
  const int length =
      snprintf(line, sizeof line, "%ld.%06ld %ld\n", now.tv_sec, now.tv_usec, ftell(fProbe));
  const auto rejected = [this] {
    const auto reason = last_error_message();
    LOG_ERROR("Stream probe is rejected because could not write to file: %s", reason->c_str());
    fStreamProbeTimeLimit = 0;
  };
  if (fProbeIndex != nullptr &&
      fwrite(line, static_cast<std::size_t>(length), 1, fProbeIndex) == 0) {
    rejected();
  }
  if (fwrite(buffer, 1, frameSize, fProbe) != frameSize) rejected();
  if (fProbeIndex != nullptr) fflush(fProbeIndex);
  fflush(fProbe);
}

void AbstractSink::setTrigger(char*) {}

void AbstractSink::advance(CPMediaFrame& frame) {
  Retriever::instance(nullptr, nullptr, nullptr, nullptr)->acceptFrame(frame);
}

void AbstractSink::sessionTimeoutHandler(void* clientData) {
  // The token stays: the first frame drops a task that has already run, which is harmless.
  const auto* sink = static_cast<AbstractSink*>(clientData);
  LOG_ERROR("No media stream on UDP channel for \"%s\" (try RTP_OVER_TCP=on?)",
            sink->fCodec.c_str());
}

Boolean AbstractSink::continuePlaying() {
  if (fSource == nullptr) return False;
  fSource->getNextFrame(buffer, bufferSize, afterGettingFrame, this, onSourceClosure, this);
  return True;
}

void AbstractSink::afterGettingFrame(void* clientData, unsigned frameSize, unsigned,
                                     timeval presentationTime, unsigned) {
  static_cast<AbstractSink*>(clientData)->afterGettingFrame1(frameSize, presentationTime);
}

void AbstractSink::afterGettingFrame1(unsigned frameSize, timeval presentationTime) {
  if (fSessionTimeoutTask != nullptr) {
    envir().taskScheduler().unscheduleDelayedTask(fSessionTimeoutTask);
    fSessionTimeoutTask = nullptr;
  }
  if (fProbe != nullptr) writeProbe(frameSize);
  if (followsSourceTime()) {
    presentationTime = correctedTime(Time_Val(presentationTime)).tv();
  } else {
    gettimeofday(&presentationTime, nullptr);
  }
  addData(buffer, frameSize, presentationTime);
  continuePlaying();
}

bool AbstractSink::followsSourceTime() {
  // isRTPSource() is public in FramedSource only.
  return fSource != nullptr && fSource->isRTPSource() && fFollowRTPTime &&
         static_cast<RTPSource*>(fSource)->hasBeenSynchronizedUsingRTCP();
}

Time_Val AbstractSink::correctedTime(const Time_Val& pts) {
  const Time_Val now;
  const bool behind = now > pts;
  const Delay_Interval newDiff = behind ? now - pts : pts - now;
  const auto adjust = [&] { return fRTPTimeDiffPlus ? pts + fRTPTimeDiff : pts - fRTPTimeDiff; };

  if (fRTPTimeDiff == ZERO) {
    fRTPTimeDiff = newDiff;
    if (!behind) fRTPTimeDiffPlus = false;
    LOG_WARN("RTP time diff: %s%ld.%ld", fRTPTimeDiffPlus ? "+" : "-", fRTPTimeDiff.seconds(),
             fRTPTimeDiff.useconds());
  } else if (newDiff - fRTPTimeDiff > kClockJump || fRTPTimeDiff - newDiff > kClockJump) {
    LOG_ERROR("New diff: %ld.%ld, Old diff: %ld.%ld", newDiff.seconds(), newDiff.useconds(),
              fRTPTimeDiff.seconds(), fRTPTimeDiff.useconds());
    fRTPTimeDiff = newDiff;
    fRTPTimeDiffPlus = behind;
    const Time_Val server;
    const Time_Val moved = adjust();
    LOG_ERROR("Server time: %ld.%ld, pts: %ld.%ld", server.seconds(), server.useconds(),
              moved.seconds(), moved.useconds());
  }

  Time_Val adjusted = adjust();
  if (adjusted < fPrevPTS) {
    LOG_DEBUG("Oops, time went backwards (%ld.%ld < %ld.%ld)", adjusted.seconds(),
              adjusted.useconds(), fPrevPTS.seconds(), fPrevPTS.useconds());
    adjusted = fPrevPTS + Delay_Interval(0, 1);
  }
  fPrevPTS = adjusted;
  return adjusted;
}

}  // namespace Kelvane
