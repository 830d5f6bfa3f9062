#include <H264VideoRTPSink.hh>
#include <H264VideoStreamDiscreteFramer.hh>
#include <JPEGVideoRTPSink.hh>
#include <JPEGVideoSource.hh>
#include <MPEG1or2VideoRTPSink.hh>
#include <MPEG1or2VideoStreamDiscreteFramer.hh>
#include <MPEG4ESVideoRTPSink.hh>
#include <MPEG4GenericRTPSink.hh>
#include <MPEG4VideoStreamDiscreteFramer.hh>
#include <OnDemandServerMediaSubsession.hh>
#include <SimpleRTPSink.hh>
#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>

#include "RtspServer.h"

namespace {

using Seconds = std::chrono::duration<double>;
using Clock = std::chrono::system_clock;

// Delivers a track's frames when they are due, over and over, stamped with the
// camera's clock. `Base` is FramedSource or one of its kinds.
template <class Base>
class LoopSource : public Base {
 public:
  LoopSource(UsageEnvironment& env, const RtspTrack& track, const RtspFaults& faults)
      : Base(env), track_(track), faults_(faults) {
    if (track.samplingFrequency != 0 || track.format.compare(0, 3, "pcm") == 0) {
      byeAfter_ = faults.audioByeAfter;
    }
    if (byeAfter_ == 0) byeAfter_ = faults.byeAfter;
  }

 protected:
  ~LoopSource() override { this->envir().taskScheduler().unscheduleDelayedTask(task_); }
  const RtspTrack& track_;

 private:
  void doGetNextFrame() override {
    if (frames_ == 0 && unit_ == 0) start_ = Clock::now();
    if (unit_ > 0) {
      deliver(this);
      return;
    }
    const double age = frames_ / track_.framesPerSecond / faults_.speed;
    if (faults_.stallAfter > 0 && age >= faults_.stallAfter) return;
    if (byeAfter_ > 0 && age >= byeAfter_) {
      this->handleClosure();
      return;
    }
    due_ = start_ + std::chrono::duration_cast<Clock::duration>(Seconds(age));
    const auto wait = std::chrono::duration_cast<std::chrono::microseconds>(due_ - Clock::now());
    task_ = this->envir().taskScheduler().scheduleDelayedTask(std::max<int64_t>(0, wait.count()),
                                                              deliver, this);
  }

  static void deliver(void* source) {
    auto* self = static_cast<LoopSource*>(source);
    const auto& units = self->track_.frames[self->frame_];
    const std::string& data = units[self->unit_];
    self->fFrameSize = std::min<unsigned>(static_cast<unsigned>(data.size()), self->fMaxSize);
    self->fNumTruncatedBytes = static_cast<unsigned>(data.size()) - self->fFrameSize;
    memcpy(self->fTo, data.data(), self->fFrameSize);
    self->stamp();
    if (++self->unit_ == units.size()) {
      self->unit_ = 0;
      ++self->frames_;
      self->frame_ = (self->frame_ + 1) % self->track_.frames.size();
    }
    self->fDurationInMicroseconds = 0;  // paced here
    FramedSource::afterGetting(self);
  }

  void stamp() {
    double shift = faults_.clockOffset;
    const double age = Seconds(due_ - start_).count();
    if (faults_.clockJumpAfter > 0 && age >= faults_.clockJumpAfter) shift += faults_.clockJump;
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(
        (due_ + std::chrono::duration_cast<Clock::duration>(Seconds(shift))).time_since_epoch());
    this->fPresentationTime.tv_sec = time.count() / 1000000;
    this->fPresentationTime.tv_usec = time.count() % 1000000;
  }

  const RtspFaults& faults_;
  double byeAfter_ = 0;
  Clock::time_point start_, due_;
  double frames_ = 0;  // delivered
  std::size_t frame_ = 0, unit_ = 0;
  TaskToken task_ = nullptr;
};

class LoopJpegSource : public LoopSource<JPEGVideoSource> {
 public:
  using LoopSource::LoopSource;
  u_int8_t type() override { return track_.jpegType; }
  u_int8_t qFactor() override { return 255; }  // tables of its own in each frame
  u_int8_t width() override { return track_.width; }
  u_int8_t height() override { return track_.height; }
  const u_int8_t* quantizationTables(u_int8_t& precision, u_int16_t& length) override {
    precision = 0;
    length = static_cast<u_int16_t>(track_.quantisation.size());
    return reinterpret_cast<const u_int8_t*>(track_.quantisation.data());
  }
};

FramedSource* makeSource(UsageEnvironment& env, const RtspTrack& track, const RtspFaults& faults) {
  if (track.format == "mjpg") return new LoopJpegSource(env, track, faults);
  auto* frames = new LoopSource<FramedSource>(env, track, faults);
  // The framers own it.
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
  if (track.format == "h264") return H264VideoStreamDiscreteFramer::createNew(env, frames);
  if (track.format == "mpeg4") return MPEG4VideoStreamDiscreteFramer::createNew(env, frames, True);
  if (track.format == "mpeg2") {
    return MPEG1or2VideoStreamDiscreteFramer::createNew(env, frames, False, 0.0, True);
  }
  return frames;
}

RTPSink* makeSink(UsageEnvironment& env, Groupsock* socket, unsigned char dynamicType,
                  const RtspTrack& track) {
  constexpr unsigned char kPcmu = 0, kPcma = 8;
  constexpr unsigned kVideoClock = 90000, kPhoneClock = 8000;
  const std::string& format = track.format;
  const char* config = track.config.c_str();
  if (format == "h264") return H264VideoRTPSink::createNew(env, socket, dynamicType, config);
  if (format == "mpeg4") {
    return MPEG4ESVideoRTPSink::createNew(env, socket, dynamicType, kVideoClock, 1, config);
  }
  if (format == "mpeg2") return MPEG1or2VideoRTPSink::createNew(env, socket);
  if (format == "mjpg") return JPEGVideoRTPSink::createNew(env, socket);
  if (format == "aac") {
    return MPEG4GenericRTPSink::createNew(env, socket, dynamicType, track.samplingFrequency,
                                          "audio", "AAC-hbr", config, 1);
  }
  if (format == "metadata") {
    return SimpleRTPSink::createNew(env, socket, dynamicType, kVideoClock, "metadata", "METADATA",
                                    1, False);
  }
  const bool mu = format == "pcmu";
  return SimpleRTPSink::createNew(env, socket, mu ? kPcmu : kPcma, kPhoneClock, "audio",
                                  mu ? "PCMU" : "PCMA", 1, False);
}

class CameraSubsession : public OnDemandServerMediaSubsession {
 public:
  CameraSubsession(UsageEnvironment& env, const RtspTrack& track, const RtspFaults& faults)
      : OnDemandServerMediaSubsession(env, False), track_(track), faults_(faults) {}

 private:
  FramedSource* createNewStreamSource(unsigned, unsigned& estimatedKbps) override {
    estimatedKbps = track_.kbps;
    return makeSource(envir(), track_, faults_);
  }
  RTPSink* createNewRTPSink(Groupsock* socket, unsigned char dynamicType, FramedSource*) override {
    return makeSink(envir(), socket, dynamicType, track_);
  }

  // A sender report ahead of the first frame would pair our clock with its
  // time stamp, whatever clock the frames carry: the first one comes soon
  // behind that frame instead.
  RTCPInstance* createRTCP(Groupsock* socket, unsigned bandwidth, const unsigned char* cname,
                           RTPSink* sink) override {
    sink->enableRTCPReports() = False;
    return OnDemandServerMediaSubsession::createRTCP(socket, bandwidth, cname, sink);
  }
  void startStream(unsigned client, void* stream, TaskFunc* liveness, void* livenessData,
                   unsigned short& sequence, unsigned& timestamp,
                   ServerRequestAlternativeByteHandler* handler, void* handlerData) override {
    OnDemandServerMediaSubsession::startStream(client, stream, liveness, livenessData, sequence,
                                               timestamp, handler, handlerData);
    RTPSink* sink = nullptr;
    RTCPInstance* rtcp = nullptr;
    getRTPSinkandRTCP(stream, sink, rtcp);
    sink->enableRTCPReports() = True;
    envir().taskScheduler().scheduleDelayedTask(kFirstReportMicros, sendReport,
                                                new Report{envir(), rtcp->name()});
  }

  // By name, since the client may be gone by then.
  struct Report {
    UsageEnvironment& env;
    std::string rtcp;
  };
  static void sendReport(void* data) {
    const std::unique_ptr<Report> report(static_cast<Report*>(data));
    RTCPInstance* rtcp = nullptr;
    if (RTCPInstance::lookupByName(report->env, report->rtcp.c_str(), rtcp)) rtcp->sendReport();
  }

  static constexpr int kFirstReportMicros = 200000;
  const RtspTrack& track_;
  const RtspFaults& faults_;
};

}  // namespace

ServerMediaSubsession* makeCameraSubsession(UsageEnvironment& env, const RtspTrack& track,
                                            const RtspFaults& faults) {
  return new CameraSubsession(env, track, faults);
}
