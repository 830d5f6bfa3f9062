#include <arpa/inet.h>

#include <BasicUsageEnvironment.hh>
#include <CLI/CLI.hpp>
#include <GroupsockHelper.hh>
#include <MediaSink.hh>
#include <cstdio>

#include "Net.h"
#include "RtspServer.h"

namespace {

struct RtspOptions {
  std::string address = "127.0.0.1";
  int port = 554;
  std::string path = "live";
  unsigned timeout = 65;
  RtspAccess access;
  RtspMediaOptions media;
  RtspFaults faults;
};

void addOptions(CLI::App& app, RtspOptions& o) {
  app.add_option("--address", o.address, "where to listen, also for RTP");
  app.add_option("--port", o.port, "RTSP port; 0 takes a free one");
  app.add_option("--path", o.path, "path of the stream, without the slash");
  app.add_option("--timeout", o.timeout, "session time-out in seconds; 0 names none");
  app.add_option("--user", o.access.user, "user name that is asked for");
  app.add_option("--password", o.access.password, "its password");
  app.add_flag("--basic", o.access.basic, "Basic authentication instead of Digest");
  app.add_option("--video", o.media.video, "h264, mpeg4, mjpg, mpeg2 or none");
  app.add_option("--audio", o.media.audio, "none, pcmu, pcma or aac");
  app.add_flag("--metadata", o.media.metadata, "a metadata stream");
  app.add_option("--seconds", o.media.seconds, "length of the clip, which repeats");
  app.add_option("--framerate", o.media.framerate, "video frames a second");
  app.add_option("--kbps", o.media.kbps, "video bit rate; 0 leaves it to the encoder");
  app.add_option("--gop", o.media.gop, "frames from key frame to key frame");
  app.add_option("--width", o.media.width, "video width");
  app.add_option("--height", o.media.height, "video height");
  app.add_option("--bye-after", o.faults.byeAfter,
                 "end the streams with BYE after so many seconds");
  app.add_option("--audio-bye-after", o.faults.audioByeAfter, "the same for audio alone");
  app.add_option("--stall", o.faults.stallAfter, "send no more after so many seconds");
  app.add_option("--drop-after", o.faults.dropAfter, "cut each connection after so many seconds");
  app.add_option("--clock-offset", o.faults.clockOffset, "seconds the camera's clock is ahead");
  app.add_option("--clock-jump", o.faults.clockJump, "seconds it jumps by");
  app.add_option("--clock-jump-after", o.faults.clockJumpAfter, "when it jumps, in seconds");
  app.add_option("--speed", o.faults.speed, "send so many times faster than real time");
}

std::vector<RtspTrack> makeTracks(const RtspMediaOptions& media) {
  std::vector<RtspTrack> tracks;
  if (media.video != "none") tracks.push_back(makeVideoTrack(media));
  if (media.audio != "none") tracks.push_back(makeAudioTrack(media));
  if (media.metadata) tracks.push_back(makeMetadataTrack());
  return tracks;
}

}  // namespace

int runRtsp(int argc, char** argv) {
  CLI::App app("An RTSP camera with any number of clients, over UDP and TCP.", "camsim rtsp");
  RtspOptions options;
  addOptions(app, options);
  CLI11_PARSE(app, argc, argv);
  const std::vector<RtspTrack> tracks = makeTracks(options.media);

  Kelvane::UniqueFd listener = listenTcp(options.address, options.port);
  const int port = boundPort(listener);
  ReceivingInterfaceAddr = SendingInterfaceAddr = inet_addr(options.address.c_str());
  OutPacketBuffer::maxSize = 4000000;  // the largest frame
  TaskScheduler* scheduler = BasicTaskScheduler::createNew();
  UsageEnvironment* env = BasicUsageEnvironment::createNew(*scheduler);
  // Both live until the process is killed.
  auto* server = new CameraServer(*env, std::move(listener), port, options.timeout, options.access,
                                  options.faults);
  server->serve(options.path, tracks);
  printf("rtsp://%s:%d/%s\n", options.address.c_str(), port, options.path.c_str());
  scheduler->doEventLoop();
  return 0;
}
