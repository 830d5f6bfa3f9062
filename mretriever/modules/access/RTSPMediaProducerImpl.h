#pragma once

#include <sys/time.h>

#include <list>
#include <string>

#include "BlockingRTSPClient.h"
#include "NETMediaProducerImpl.h"

namespace Kelvane {

// Which client the camera gets to see: APP_VLC for one that serves no other.
enum APP_MODE_NAME { APP_NV = 0, APP_VLC = 1 };

// An RTSP camera: described, set up and played; its streams go to the sinks
// until the host's stop flag. Every other end leaves the process: 0 for a
// session that could not start or is over, 1 for a stream that cannot be
// received. Runs on the host's thread, inside the event loop. shutdown()
// closes the sinks that were attached, though they are the host's.
class RTSPMediaProducerImpl : public NETMediaProducerImpl {
 public:
  RTSPMediaProducerImpl(AbstractSink* audio, AbstractSink* video, AbstractSink* metadata,
                        APP_MODE_NAME mode);
  ~RTSPMediaProducerImpl() override;

  bool start() override;
  // Closes sinks, session and client in this order, the session with a
  // TEARDOWN that is not waited for; may be called again. Does not return
  // when it exits the process (status 0).
  void shutdown(bool exitProcess);

  // The steps of start(). Where one waits for the camera it returns early at
  // the stop flag.
  void setupStreams();
  void startPlayingStreams();
  void tearDownStreams();
  void closeMediaSinks();
  RTSPResult getOptionsResponse(const char* url);
  RTSPResult getSDPDescriptionFromURL(const char* url, const char* user, const char* pass);
  RTSPResult clientSetupSubsession(MediaSubsession& of);
  RTSPResult clientStartPlayingSession();
  void clientTearDownSession();
  RTSPResult clientPauseSession();

  // Callbacks: of a subsession with its ClientData, of the session with the producer.
  static void subsessionAfterPlaying(void* clientData);
  static void subsessionByeHandler(void* clientData);
  static void sessionTimerHandler(void* producer);
  static void sessionAfterPlaying(void* producer);
  static void timeoutPrevention(void* producer);

 private:
  struct ClientData {
    RTSPMediaProducerImpl* mp;
    MediaSubsession* mediaSubsession;
  };

  void constructUrl();
  void createClient();
  bool converse();
  bool openSession();
  void armKeepAlive();
  void watchConnectionIn(int64_t micros);
  static void watchConnection(void* producer);

  void openReceivers();
  void openReceiver();
  void attachSinks();
  bool attachSink(ClientData* clientData);
  bool attachAudio(ClientData* clientData);
  bool attachVideo(ClientData* clientData);
  bool attachMetadata(ClientData* clientData);
  void injectConfiguration();
  void play(AbstractSink* sink, ClientData* clientData);
  void closeSink(MediaSubsession& of);

  std::string url;
  BlockingRTSPClient* ourClient = nullptr;
  MediaSession* session = nullptr;
  MediaSubsession* subsession = nullptr;  // the one in hand
  TaskToken sessionTimerTask = nullptr;
  TaskToken keepAliveTask = nullptr;
  TaskToken connectionWatchTask = nullptr;
  unsigned socketInputBufferSize = 0;  // bytes
  unsigned statusCode = 0;             // of the last DESCRIBE
  int verbosityLevel = 0;
  double endTime = 2000000.0;  // seconds; longer than a timer, so no stream is limited
  double endTimeSlop = -1.0;
  int simpleRTPoffsetArg = -1;
  timeval startTime{};
  bool streamUsingTCP = true;
  bool connectionLost = false;  // at the last look
  bool forceMulticast = false;
  std::list<ClientData*> clientDataList;
  APP_MODE_NAME applicationMode;
};

}  // namespace Kelvane
