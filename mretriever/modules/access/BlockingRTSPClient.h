#pragma once

#include <RTSPClient.hh>
#include <string>

namespace Kelvane {

// What came of one request. `text` is the answer's payload (the SDP of a
// DESCRIBE) or the reason of a failure.
struct RTSPResult {
  enum End { answered, failed, stopped };
  End end = failed;
  int status = 0;  // RTSP status; 0 when the camera did not answer
  std::string text;

  bool ok() const { return end == answered; }
};

// live555's client with calls that wait for the answer. While one waits, the
// event loop runs on, so frames may arrive; the host's stop flag ends the wait.
// The library has no time limits: a mute camera is waited for until the stop.
// Belongs to the event loop's thread; released with Medium::close().
class BlockingRTSPClient : public RTSPClient {
 public:
  static BlockingRTSPClient* createNew(UsageEnvironment& env, const char* url, int verbosityLevel,
                                       const char* userAgent);

  RTSPResult options();
  RTSPResult describe(Authenticator* authenticator);
  RTSPResult setup(MediaSubsession& subsession, bool streamOutgoing, bool streamUsingTCP,
                   bool forceMulticast);
  RTSPResult play(MediaSession& session, double start, double end, float scale);
  RTSPResult pause(MediaSession& session);
  // Sends nothing while another request waits: that one keeps the session alive as well.
  RTSPResult getParameter(MediaSession& session, const char* name);
  // Does not wait, and sends nothing over a lost connection.
  void teardown(MediaSession& session);

  // False once the camera has closed the connection.
  bool connected() const;

 protected:
  BlockingRTSPClient(UsageEnvironment& env, const char* url, int verbosityLevel,
                     const char* userAgent);

 private:
  template <class Send>
  RTSPResult await(Send send);
  static void onResponse(RTSPClient* client, int code, char* text);
  static void watchStopFlag(void* client);
  void acknowledgeAtOnce() const;

  RTSPResult result_;
  TaskToken stopWatch_ = nullptr;
  EventLoopWatchVariable done_{1};
};

}  // namespace Kelvane
