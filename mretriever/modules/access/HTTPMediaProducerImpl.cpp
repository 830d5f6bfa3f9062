#include "HTTPMediaProducerImpl.h"

#include <unistd.h>

#include <stdexcept>

#include "Cfg.h"
#include "FailureReport.h"
#include "HttpDigestAuth.h"
#include "HttpRequest.h"
#include "Retriever.h"

namespace Kelvane {

namespace {

constexpr int kLineRoom = 1000000;
constexpr char kDigestHeader[] = "WWW-Authenticate: Digest";
constexpr std::size_t kDigestValueAt = 18;  // of "Digest"

bool startsWith(const std::string& line, const char* text) {
  return line.rfind(text, 0) == 0;
}

bool hasStatus(const std::string& line, const std::string& code) {
  return startsWith(line, ("HTTP/1.0 " + code).c_str()) ||
         startsWith(line, ("HTTP/1.1 " + code).c_str());
}

}  // namespace

HTTPMediaProducerImpl::HTTPMediaProducerImpl(AbstractSink* audio, AbstractSink* video)
    : NETMediaProducerImpl(audio, video, nullptr),
      trigger_type(std::make_unique<char[]>(kTriggerSize)),
      cameraModel(Cfg::value("CAMERAMODEL")),
      modelID(Cfg::value("MODELID")) {}

HTTPMediaProducerImpl::~HTTPMediaProducerImpl() = default;

bool HTTPMediaProducerImpl::start() {
  const Retriever* retriever = Retriever::instance(nullptr, nullptr, nullptr, nullptr);
  std::string request = buildRequest();
  while (true) {
    UniqueFd socket = connectToHttpDevice();
    LOG_DEBUG("Request string:\n%s", request.c_str());
    sendRequest(socket.get(), request);
    LOG_DEBUG("Checking main HTTP-state header...");
    std::string line = readStatusLine(socket.get());
    // The answer goes over a new connection.
    if (hasStatus(line, "401") && answerChallenge(socket.get(), line, request)) continue;
    if (!hasStatus(line, "200")) {
      FATAL_REPORT("CRT-5011 Request failed. Server response: %s", line.c_str());
    }
    LOG_DEBUG("Request sent success");
    receive(socket.get());
    socket.reset();
    if (retriever->isStopped()) return true;
    LOG_INFO("Connection was lost. Reconnecting...");
  }
}

std::string HTTPMediaProducerImpl::buildRequest() {
  try {
    const std::string authorization = configuredAuthorization();
    LOG_DEBUG("Building GET string to server");
    return buildGetRequest(authorization);
  } catch (const std::invalid_argument& failure) {
    FATAL_REPORT("Could not construct URL. Required param absent or invalid (%s)", failure.what());
  }
}

int HTTPMediaProducerImpl::readline(int fd, char* buf, int max) {
  const int limit = max - 2;
  int stored = 0;
  int result = 1;
  while (stored < limit) {
    const ssize_t got = read(fd, buf + stored, 1);
    if (got <= 0) {
      result = got < 0 ? -1 : stored > 0 ? stored + 1 : 0;
      break;
    }
    const bool lineFeed = buf[stored++] == '\n';
    result = lineFeed ? stored : stored + 1;
    if (lineFeed) break;
  }
  if (max > 0) buf[stored] = '\0';
  return result;
}

// Keeps the line before when there is no other.
bool HTTPMediaProducerImpl::nextLine(int fd, int max, std::string& line) {
  const std::unique_ptr<char[]> room(new char[static_cast<std::size_t>(max)]);
  if (readline(fd, room.get(), max) <= 0) return false;
  line = room.get();
  return true;
}

std::string HTTPMediaProducerImpl::readStatusLine(int fd) {
  std::string line;
  if (!nextLine(fd, kLineRoom, line)) FATAL_REPORT("CRT-5012 Server return no data");
  return line;
}

// Behind a 401: looks for a Digest challenge and puts the answer into the
// request. False when there is nothing more to try; `line` is then what the
// server said last. A request is answered once, so a nonce that has run out on
// a later connection is a refusal.
bool HTTPMediaProducerImpl::answerChallenge(int fd, std::string& line, std::string& request) {
  if (request.find(" Digest ") != std::string::npos) return false;
  do {
    if (!nextLine(fd, kLineRoom, line)) return false;
  } while (!startsWith(line, kDigestHeader));
  LOG_DEBUG("Found digest header");
  const auto challenge = parseDigestChallenge(line.substr(kDigestValueAt));
  if (!challenge) return false;
  try {
    const std::string password = Cfg::value("PASSWD");
    const std::string login = Cfg::value("USRNAME") + ":" + password;
    const auto header =
        digestAuthHeader(*challenge, login, Cfg::value("HTTP_URL"), "GET", newClientNonce());
    if (!header) {
      LOG_ERROR("Digest algorithm %s is not supported", challenge->algorithm.c_str());
      return false;
    }
    request = buildGetRequest(*header);
  } catch (const std::invalid_argument& failure) {
    FATAL_REPORT("Could not construct URL. Required param absent or invalid (%s)", failure.what());
  }
  return true;
}

void HTTPMediaProducerImpl::receive(int fd) {
  const std::string format = Cfg::value("MEDIA_FORMAT");
  for (const char* video : {"mjpg", "mpeg2", "mpeg4", "h264"}) {
    if (format != video) continue;
    vSink_->init(format.c_str());
    receive_video(fd);
    return;
  }
  if (format != "audio") FATAL_REPORT("CRT-5013 %s is not currently supported", format.c_str());
  receive_audio(fd);
}

}  // namespace Kelvane
