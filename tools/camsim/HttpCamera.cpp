#include "HttpCamera.h"

#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <random>
#include <stdexcept>
#include <thread>

using Kelvane::UniqueFd;

namespace {

constexpr char kBoundary[] = "--camsim\r\n";

std::string lengthLine(const std::string& name, std::size_t size) {
  return name == "none" ? "" : name + ": " + std::to_string(size) + "\r\n";
}

// A frame behind its boundary and its own header.
std::string videoPart(const CameraOptions& options, const std::string& frame) {
  std::string part = kBoundary;
  part += options.clip.format == "mjpg" ? "Content-Type: image/jpeg\r\n"
                                        : "Content-Type: video/" + options.clip.format + "\r\n";
  part += lengthLine(options.length, frame.size());
  if (!options.trigger.empty()) part += "Pragma: trigger=" + options.trigger + "\r\n";
  return part + "\r\n" + frame + "\r\n";
}

// Raw audio as the content type says.
std::string audioOf(const std::string& type) {
  const auto has = [&](const char* text) { return type.find(text) != std::string::npos; };
  std::string encoder = "-c:a pcm_mulaw -f mulaw";
  if (has("32KADPCM") || has("g.726-32k") || has("g726")) encoder = "-c:a g726 -b:a 32k -f g726";
  if (has("G723")) encoder = "-c:a g726 -b:a 24k -f g726";
  if (has("g.726-16k")) encoder = "-c:a g726 -b:a 16k -f g726";
  if (has("mpeg4-generic")) encoder = "-c:a aac -f adts";
  return ffmpegOutput("-f lavfi -i sine=frequency=440:sample_rate=8000 -t 4 -ac 1 " + encoder);
}

std::string noise(std::size_t size) {
  std::mt19937 random(1);
  std::string text(size, '\0');
  for (char& c : text) c = static_cast<char>(random());
  return text;
}

}  // namespace

HttpCamera::HttpCamera(const CameraOptions& options, const LoginOptions& login)
    : options_(options), login_(login) {
  if (options.clip.format == "audio") {
    constexpr std::size_t kBlock = 240;
    const std::string audio = audioOf(options.contentType);
    for (std::size_t at = 0; at + kBlock <= audio.size(); at += kBlock) {
      std::string item = audio.substr(at, kBlock);
      if (options.multipart) {
        item = kBoundary + ("Content-Type: " + options.contentType + "\r\n") +
               lengthLine("Content-Length", kBlock) + "\r\n" + item + "\r\n";
      }
      items_.push_back(std::move(item));
    }
    return;
  }
  const Clip clip = options.file.empty()
                        ? makeClip(options.clip)
                        : loadClip(options.file, options.clip.format, options.clip.framerate);
  for (const std::string& frame : clip.frames) {
    items_.push_back(options.perRequest ? lengthLine(options.length, frame.size()) + "\r\n" + frame
                                        : videoPart(options, frame));
  }
  firstLength_ = lengthLine(options.length, clip.frames.front().size());
}

void HttpCamera::serve(const UniqueFd& connection) {
  if (options_.hangUp) return;
  do {
    const std::string request = readUntil(connection, "\r\n\r\n");
    if (request.size() < 4 || request.compare(request.size() - 4, 4, "\r\n\r\n") != 0) return;
    if (!answer(connection, request)) return;
  } while (options_.perRequest);
  if (options_.stallAfter >= 0 || options_.mute) readUntil(connection, "never");
}

bool HttpCamera::answer(const UniqueFd& connection, const std::string& request) {
  const bool accepted = login_.accepts(request);
  printf("%s %s\n", request.substr(0, request.find("\r\n")).c_str(),
         accepted ? "accepted" : "refused");
  if (options_.mute) return true;
  if (!accepted) {
    send(connection, "HTTP/1.0 401 Unauthorized\r\nServer: camsim\r\n" + login_.challenge() +
                         "Content-Length: 0\r\n\r\n");
    return false;
  }
  return stream(connection);
}

bool HttpCamera::send(const UniqueFd& connection, const std::string& data) const {
  if (options_.bytesPerWrite == 0) return sendAll(connection, data);
  const auto step = static_cast<std::size_t>(options_.bytesPerWrite);
  for (std::size_t at = 0; at < data.size(); at += step) {
    if (!sendAll(connection, data.substr(at, step))) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Motion JPEG announces its lengths with the parts only, so the first picture's
// is not seen by a reader of two discarded lines. Other formats cannot do
// without: they carry the first frame's length in the response header.
std::string HttpCamera::responseHeader() const {
  std::string header = options_.status + "\r\nServer: camsim\r\n";
  if (options_.perRequest) return header + "Content-Type: image/jpeg\r\nConnection: Keep-Alive\r\n";
  const bool audio = options_.clip.format == "audio";
  if (audio && !options_.multipart) {
    return header + "Content-Type: " + options_.contentType + "\r\nCache-Control: no-cache\r\n\r\n";
  }
  header += "Content-Type: multipart/x-mixed-replace; boundary=camsim\r\n";
  if (!audio && options_.clip.format != "mjpg") header += firstLength_;
  return header + "\r\n";
}

bool HttpCamera::stream(const UniqueFd& connection) const {
  if (options_.endlessHeader) {
    if (!send(connection, options_.status + "\r\n")) return false;
    while (send(connection, "X-More: and more of it\r\n")) {
    }
    return false;
  }
  if (!send(connection, responseHeader())) return false;
  if (options_.garbage) {
    const std::string body = noise(1 << 20);
    while (send(connection, body)) {
    }
    return false;
  }
  if (options_.perRequest) {
    static thread_local int number = 0;
    const std::string& item = items_[static_cast<std::size_t>(number) % items_.size()];
    return sendItem(connection, item, number++);
  }
  if (options_.fps <= 0 && !hasFault()) {
    sendUnpaced(connection);
    return false;
  }
  Ticker ticker(options_.fps);
  for (int number = 0;; ++number) {
    const std::string& item = items_[static_cast<std::size_t>(number) % items_.size()];
    if (!sendItem(connection, item, number)) return false;
    ticker.wait();
  }
}

bool HttpCamera::hasFault() const {
  return options_.dropAfter >= 0 || options_.cutInside >= 0 || options_.stallAfter >= 0 ||
         options_.bytesPerWrite > 0;
}

bool HttpCamera::sendItem(const UniqueFd& connection, const std::string& item, int number) const {
  if (number == options_.dropAfter) return false;
  if (number == options_.cutInside) {
    send(connection, item.substr(0, item.size() / 2));
    return false;
  }
  if (number == options_.stallAfter) {
    readUntil(connection, "never");
    return false;
  }
  return send(connection, item);
}

// Large writes, so that the sender is not what a benchmark measures.
void HttpCamera::sendUnpaced(const UniqueFd& connection) const {
  std::string all;
  for (const std::string& item : items_) all += item;
  std::size_t sent = 0;
  while (sendAll(connection, all)) sent += all.size();
  printf("sent %zu bytes\n", sent);
}
