#pragma once

#include <RTSPServer.hh>
#include <string>

#include "RtspMedia.h"
#include "UniqueFd.h"

// Seconds from a stream's start; 0 for never.
struct RtspFaults {
  double byeAfter = 0;
  double audioByeAfter = 0;
  double stallAfter = 0;
  double dropAfter = 0;    // from the connection's first PLAY
  double clockOffset = 0;  // of the camera's clock against ours
  double clockJump = 0;    // added to the offset
  double clockJumpAfter = 0;
  double speed = 1;  // faster than the camera's frame rate
};

struct RtspAccess {
  std::string user, password;  // no user: open to all
  bool basic = false;          // else Digest
};

// The camera's RTSP side on a listening socket: live555's server with the two
// things that cameras have and it has not: Basic authentication and faults.
class CameraServer : public RTSPServer {
 public:
  CameraServer(UsageEnvironment& env, Kelvane::UniqueFd listener, int port, unsigned sessionTimeout,
               const RtspAccess& access, const RtspFaults& faults);
  ~CameraServer() override;

  // `tracks` must outlive the server.
  void serve(const std::string& path, const std::vector<RtspTrack>& tracks);

 private:
  class Connection;
  ClientConnection* createNewClientConnection(int socket, const sockaddr_storage& peer) override;

  UserAuthenticationDatabase users_;
  std::string basicCredentials_;  // empty: Digest or open
  RtspFaults faults_;
};

// One stream of the camera, on demand, each client from its first frame on.
ServerMediaSubsession* makeCameraSubsession(UsageEnvironment& env, const RtspTrack& track,
                                            const RtspFaults& faults);
