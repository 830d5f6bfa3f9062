#pragma once

#include <axis2_util.h>

#include <Groupsock.hh>
#include <liveMedia.hh>
#include <string>

#include "Module.h"
#include "NETMediaProducerImpl.h"

namespace Kelvane {

// Video from a Pelco camera. SOAP calls make it send its first stream as plain
// RTP to a local port; start() makes them on the host's thread, and ends the
// process where one fails. A holder's thread refreshes the session from then
// on. Deleting the producer disconnects the session.
class PelcoMediaProducerImpl : public NETMediaProducerImpl {
 public:
  class KeepAliveHolder;

  PelcoMediaProducerImpl(AbstractSink* audio, AbstractSink* video);
  ~PelcoMediaProducerImpl() override;

  bool start() override;
  // Connects the camera's first stream to this port and starts it.
  void startStream(int port);
  // Of a producer: closes what received. Deletes the host's video sink, too.
  static void sessionAfterPlaying(void* producer);

 private:
  int openRtpPort();
  void createSource();
  void closeReceiver();

  Groupsock* rtpGroupsock_ = nullptr;
  RTPSource* source_ = nullptr;
  RTCPInstance* rtcpInstance_ = nullptr;  // never made: the camera is told nothing but by SOAP
  KeepAliveHolder* keepAliveHolder_ = nullptr;
};

// Refreshes a session while it plays and disconnects it at the end. Takes over
// the environment: from start() on only its own thread uses it, and once that
// is joined the destructor's thread.
class PelcoMediaProducerImpl::KeepAliveHolder : public Module {
 public:
  KeepAliveHolder(const axutil_env_t* env, const std::string& sessionId);
  ~KeepAliveHolder() override;  // ends the process where the camera refuses

  void execute() override;

  // Waits of 25 ms between two refreshes. 1000 of them are five seconds less
  // than the camera is told; tests make them fewer.
  static int waitsPerRefresh;

 private:
  bool waitForRefresh() const;  // false when stopped
  void refresh(const std::string& address);
  void disconnect();

  const axutil_env_t* axis2c_env_;
  const std::string sessionId_;
};

}  // namespace Kelvane
