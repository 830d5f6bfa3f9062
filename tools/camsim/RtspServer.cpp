#include "RtspServer.h"

#include <sys/socket.h>

#include <Base64.hh>
#include <algorithm>
#include <memory>
#include <string_view>

using Kelvane::UniqueFd;

namespace {
constexpr char kRealm[] = "camsim";
}

// One client's connection, which can be cut and which knows Basic.
class CameraServer::Connection : public RTSPServer::RTSPClientConnection {
 public:
  Connection(CameraServer& server, int socket, const sockaddr_storage& peer)
      : RTSPClientConnection(server, socket, peer), server_(server) {
    if (server_.faults_.dropAfter > 0) {
      drop_ = envir().taskScheduler().scheduleDelayedTask(
          static_cast<int64_t>(server_.faults_.dropAfter * 1e6), drop, this);
    }
  }
  ~Connection() override { envir().taskScheduler().unscheduleDelayedTask(drop_); }

 private:
  Boolean authenticationOK(const char* command, const char* suffix, const char* request) override {
    if (server_.basicCredentials_.empty()) {
      return RTSPClientConnection::authenticationOK(command, suffix, request);
    }
    const std::string wanted = "Authorization: Basic " + server_.basicCredentials_ + "\r\n";
    if (std::string(request).find(wanted) != std::string::npos) return True;
    snprintf(reinterpret_cast<char*>(fResponseBuffer), sizeof fResponseBuffer,
             "RTSP/1.0 401 Unauthorized\r\nCSeq: %s\r\n"
             "WWW-Authenticate: Basic realm=\"%s\"\r\n\r\n",
             fCurrentCSeq, kRealm);
    return False;
  }

  // Some clients spell out the transport that is meant without saying, which
  // the library refuses.
  void handleRequestBytes(int size) override {
    constexpr std::string_view spelled = "RTP/AVP/UDP;", known = "RTP/AVP;udp;";
    if (size > 0) {
      auto* begin = reinterpret_cast<char*>(fRequestBuffer);
      char* end = begin + fRequestBytesAlreadySeen + size;
      char* at = std::search(begin, end, spelled.begin(), spelled.end());
      if (at != end) std::copy(known.begin(), known.end(), at);
    }
    RTSPClientConnection::handleRequestBytes(size);
  }

  static void drop(void* connection) {
    auto* self = static_cast<Connection*>(connection);
    self->drop_ = nullptr;
    shutdown(self->fClientOutputSocket, SHUT_RDWR);
  }

  CameraServer& server_;
  TaskToken drop_ = nullptr;
};

CameraServer::CameraServer(UsageEnvironment& env, UniqueFd listener, int port,
                           unsigned sessionTimeout, const RtspAccess& access,
                           const RtspFaults& faults)
    : RTSPServer(env, listener.release(), -1, Port(static_cast<portNumBits>(port)), nullptr,
                 sessionTimeout),
      users_(kRealm),
      faults_(faults) {
  if (access.user.empty()) return;
  if (access.basic) {
    const std::string pair = access.user + ":" + access.password;
    const std::unique_ptr<char[]> text(
        base64Encode(pair.data(), static_cast<unsigned>(pair.size())));
    basicCredentials_ = text.get();
  } else {
    users_.addUserRecord(access.user.c_str(), access.password.c_str());
    setAuthenticationDatabase(&users_);
  }
}

CameraServer::~CameraServer() {
  cleanup();
}

GenericMediaServer::ClientConnection* CameraServer::createNewClientConnection(
    int socket, const sockaddr_storage& peer) {
  return new Connection(*this, socket, peer);
}

void CameraServer::serve(const std::string& path, const std::vector<RtspTrack>& tracks) {
  ServerMediaSession* session =
      ServerMediaSession::createNew(envir(), path.c_str(), "camsim", "simulated camera");
  for (const RtspTrack& track : tracks) {
    session->addSubsession(makeCameraSubsession(envir(), track, faults_));
  }
  addServerMediaSession(session);
}
