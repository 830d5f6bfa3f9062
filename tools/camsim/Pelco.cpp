#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "Clip.h"
#include "HttpLogin.h"
#include "Net.h"
#include "PelcoSoap.h"
#include "RtpSender.h"

namespace {

using Clock = std::chrono::steady_clock;
using Kelvane::UniqueFd;

struct PelcoOptions {
  std::string address = "127.0.0.1";
  int port = 49152;
  LoginOptions login;
  bool namelessAuth = false;
  ClipOptions clip;
  int payload = 97;
  double session = 0;
  bool noStreams = false;
  bool noSessionId = false;
  std::string fault, mute, hangUp, hostile;
  std::string hostileKind = "malformed";
};

void addOptions(CLI::App& app, PelcoOptions& o) {
  app.add_option("--address", o.address, "address to listen on");
  app.add_option("--port", o.port, "SOAP port; 0 takes a free one");
  app.add_option("--auth", o.login.scheme, "none, basic or digest")
      ->check(CLI::IsMember({"none", "basic", "digest"}));
  app.add_option("--user", o.login.user, "user name");
  app.add_option("--password", o.login.password, "password");
  app.add_flag("--nameless-auth", o.namelessAuth, "asks for a login without naming a scheme");
  app.add_option("--format", o.clip.format, "h264 or mpeg4")
      ->check(CLI::IsMember({"h264", "mpeg4"}));
  app.add_option("--framerate", o.clip.framerate, "frames a second")->check(CLI::Range(1, 120));
  app.add_option("--kbps", o.clip.kbps, "bit rate; 0 leaves it to the encoder");
  app.add_option("--payload", o.payload, "RTP payload type; 96 for TXB and IM10 models");
  app.add_option("--session", o.session, "seconds until an unrefreshed session ends; 0: as asked");
  app.add_flag("--no-streams", o.noStreams, "an empty catalogue");
  app.add_flag("--no-session-id", o.noSessionId, "sessions without a name");
  app.add_option("--fault", o.fault, "answers this operation with a SOAP fault");
  app.add_option("--mute", o.mute, "never answers this operation");
  app.add_option("--hang-up", o.hangUp, "closes the connection at this operation");
  app.add_option("--hostile", o.hostile, "answers this operation with hostile XML");
  app.add_option("--hostile-kind", o.hostileKind, "malformed, entities, deep or flood");
}

// Sends one session's video until it is disconnected or not refreshed in time.
class Stream {
 public:
  Stream(const pelco::Session& session, const Clip& clip, const PelcoOptions& options)
      : session_(session),
        clip_(clip),
        options_(options),
        limit_(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
            options.session > 0 ? options.session : session.refreshInterval))) {
    refresh();
  }
  ~Stream() { stop(); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  const pelco::Session& session() const { return session_; }
  bool alive() const { return Clock::now() < until_.load(); }
  void refresh() { until_ = Clock::now() + limit_; }
  void play() {
    if (!thread_.joinable()) thread_ = std::thread(&Stream::run, this);
  }
  void stop() {
    stopped_ = true;
    if (thread_.joinable()) thread_.join();
  }

 private:
  void run() {
    const auto host = session_.transport.find("//") + 2;
    const auto colon = session_.transport.rfind(':');
    RtpSender sender(session_.transport.substr(host, colon - host),
                     std::atoi(session_.transport.c_str() + colon + 1), options_.clip.format,
                     options_.payload);
    Ticker ticker(clip_.framerate);
    for (std::uint32_t n = 0; !stopped_ && alive(); ++n) {
      const auto step = 90000U / static_cast<std::uint32_t>(clip_.framerate);
      sender.send(clip_.frames[n % clip_.frames.size()], n * step);
      ticker.wait();
    }
    if (!stopped_) printf("session %d expired\n", session_.id);
  }

  const pelco::Session session_;
  const Clip& clip_;
  const PelcoOptions& options_;
  const Clock::duration limit_;
  std::atomic<Clock::time_point> until_{};
  std::atomic<bool> stopped_{false};
  std::thread thread_;
};

class Camera {
 public:
  explicit Camera(const PelcoOptions& options)
      : options_(options), login_(options.login), clip_(makeClip(options.clip)) {}

  // One connection, for as many requests as the client likes.
  void serve(UniqueFd connection) {
    for (;;) {
      const std::string head = readUntil(connection, "\r\n\r\n");
      if (head.find("\r\n\r\n") == std::string::npos) return;
      const auto length = head.find("Content-Length: ");
      const auto size = length == std::string::npos ? 0 : std::atoi(head.c_str() + length + 16);
      const std::string body = readExactly(connection, static_cast<std::size_t>(size));
      if (!login_.accepts(head)) {
        sendAll(connection,
                http("401 Unauthorized", "", options_.namelessAuth ? "" : login_.challenge()));
        continue;
      }
      const std::string operation = pelco::operationOf(body);
      if (!operation.empty() && operation == options_.hangUp) return;
      if (!operation.empty() && operation == options_.mute) {
        readUntil(connection, "\r\n\r\n");  // until the client has enough
        return;
      }
      if (!sendAll(connection, answer(operation, body))) return;
    }
  }

 private:
  static std::string http(const std::string& status, const std::string& body,
                          const std::string& headers = "") {
    return "HTTP/1.1 " + status + "\r\nServer: camsim\r\nContent-Type: text/xml\r\n" + headers +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  }
  static std::string fault(int code, const char* text) {
    return http("500 Internal Server Error", pelco::fault(code, text));
  }

  std::string answer(const std::string& operation, const std::string& body) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int id = std::atoi(pelco::textOf(body, "sessionId").c_str());
    if (!operation.empty()) printf("%s %d\n", operation.c_str(), id);
    if (operation.empty()) return fault(401, "Invalid Action");
    if (operation == options_.fault) return fault(501, "Action Failed");
    if (operation == options_.hostile) {
      return http("200 OK", pelco::hostile(options_.hostileKind));
    }
    pelco::Session session{0, "", 0};
    if (operation == "Connect") {
      session = connect(body);
    } else if (id != 0) {
      const auto found = streams_.find(id);
      if (found == streams_.end() || !found->second->alive()) return fault(701, "No Such Session");
      session = found->second->session();
      if (operation == "Play") found->second->play();
      if (operation == "RefreshSession") found->second->refresh();
      if (operation == "Disconnect") streams_.erase(found);
    }
    const std::string reply =
        pelco::answer(operation, session, static_cast<int>(streams_.size()), !options_.noStreams);
    return reply.empty() ? fault(401, "Invalid Action") : http("200 OK", pelco::envelope(reply));
  }

  pelco::Session connect(const std::string& body) {
    pelco::Session session{++lastId_, pelco::textOf(body, "transportURL"),
                           std::atoi(pelco::textOf(body, "refreshInterval").c_str())};
    printf("transport %s\n", session.transport.c_str());
    streams_[session.id] = std::make_unique<Stream>(session, clip_, options_);
    if (options_.noSessionId) session.id = 0;
    return session;
  }

  const PelcoOptions& options_;
  HttpLogin login_;
  const Clip clip_;
  std::mutex mutex_;
  int lastId_ = 16;
  std::map<int, std::unique_ptr<Stream>> streams_;
};

}  // namespace

int runPelco(int argc, char** argv) {
  CLI::App app(
      "A Pelco camera: three SOAP services on one port, video as RTP to where the client "
      "asks for it. Prints each operation with its session.",
      "camsim pelco");
  PelcoOptions options;
  addOptions(app, options);
  CLI11_PARSE(app, argc, argv);
  Camera camera(options);
  const UniqueFd listener = listenTcp(options.address, options.port);
  printf("listening on %s:%d\n", options.address.c_str(), boundPort(listener));
  for (;;) {
    UniqueFd connection = acceptTcp(listener);
    std::thread([&camera](UniqueFd c) { camera.serve(std::move(c)); }, std::move(connection))
        .detach();
  }
}
