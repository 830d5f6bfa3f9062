#pragma once

#include <sys/time.h>

#include <cstdio>
#include <string>
#include <vector>

#include "NETMediaProducerImpl.h"
#include "PushInHeaders.h"
#include "PushInMediaAnnoncer.h"

namespace Kelvane {

// Media that another local process pushes into a datagram socket named after
// the camera. start() runs everything on the host's thread: the event loop, one
// message a call of processRead(), the snapshot task and the announcer. Reads
// block, so a peer that stops half-way through a message holds up the stop
// flag as well. A faulty message is dropped with an ERROR; a content type out
// of step with the protocol ends the process.
class PushInMediaProducerImpl : public NETMediaProducerImpl {
 public:
  // The camera model "iStream" is announced to the site.
  PushInMediaProducerImpl(AbstractSink* audio, AbstractSink* video);
  // With an announcer of the caller's, owned from here on; null for none.
  PushInMediaProducerImpl(AbstractSink* audio, AbstractSink* video, PushInMediaAnnoncer* annoncer);
  ~PushInMediaProducerImpl() override;

  bool start() override;

  // Event loop handlers; the argument is the producer.
  static void processRead(void* producer);
  static void updateSnapshot(void* producer);

  // A position becomes a metadata frame and a stored record.
  static void prepareGpsInVideo(timeval time, float latitude, float longitude, float altitude);

 private:
  // A longer datagram loses its tail.
  static constexpr std::size_t kStreamBytes = 32000;

  void openSocket(const std::string& path);
  void makeAlias(const std::string& path, const std::string& alias);
  void openStream();
  void stopServing();
  void scheduleSnapshot(int micros);

  void readMessage();
  bool readHeaders(PushInHeaders& headers);
  timeval messageTime(const PushInHeaders& headers);
  bool bodyFits(int contentLength);
  void passOver(long bytes);
  bool findMessage();

  void dispatch(PushInHeaders& headers, const timeval& time);
  bool initialiseAac(char* contentType);
  void handleAac(PushInHeaders& headers, const timeval& time);
  void handleAudio(const PushInHeaders& headers, const timeval& time, const char* codec,
                   const char* marker);
  void handleVideo(PushInHeaders& headers, const timeval& time);

  std::vector<std::string> names_;  // of the socket, in the file system
  int sock_ = -1;                   // owned by fin_ once that is open
  FILE* fin_ = nullptr;
  TaskToken snapshotTask_ = nullptr;
  // Null until the audio sink has been initialised; never read through.
  const unsigned char* audioConfigData_ = nullptr;
  PushInMediaAnnoncer* annoncer_;
  Delay_Interval timeDiff_{0, 0};
  bool timeDiffPlus_ = true;
  Time_Val prevPTS_{0, 0};
  long passOver_ = 0;  // bytes still to come of a message that is dropped
  char streamBuffer_[kStreamBytes];
};

}  // namespace Kelvane
