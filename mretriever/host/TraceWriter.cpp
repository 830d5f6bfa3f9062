#include "TraceWriter.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>

#include "AccessLog.h"
#include "Exceptions.h"

namespace host {

using Kelvane::MEDIA_TYPE;
using Kelvane::StreamState;

namespace {

constexpr uint32_t kHeadSize = 32;  // bytes of a frame that the trace shows

const char* mediaName(MEDIA_TYPE media) {
  constexpr const char* kNames[] = {"audio", "video", "metadata"};
  return kNames[media];
}

std::string hex(const uint8_t* data, std::size_t size) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * size);
  for (std::size_t i = 0; i < size; ++i) {
    text += kDigits[data[i] >> 4];
    text += kDigits[data[i] & 0x0F];
  }
  return text;
}

// Bytes of the well-formed UTF-8 character that `text` begins with, or 0.
std::size_t utf8Length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<uint8_t>(text[i]); };
  const uint8_t lead = byte(0);
  std::size_t length = 0;
  uint8_t low = 0x80;  // bounds of the second byte: no overlong forms, no surrogates
  uint8_t high = 0xBF;
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) length = 2;
  if (lead >= 0xE0 && lead <= 0xEF) length = 3;
  if (lead >= 0xF0 && lead <= 0xF4) length = 4;
  if (lead == 0xE0) low = 0xA0;
  if (lead == 0xED) high = 0x9F;
  if (lead == 0xF0) low = 0x90;
  if (lead == 0xF4) high = 0x8F;
  if (length == 0 || text.size() < length || byte(1) < low || byte(1) > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return length;
}

}  // namespace

std::string jsonString(const std::string& text) {
  std::string out = "\"";
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t length = utf8Length(rest);
    const char c = rest[0];
    if (length == 0) {
      out += "\xEF\xBF\xBD";
    } else if (c == '"' || c == '\\') {
      out += {'\\', c};
    } else if (static_cast<uint8_t>(c) < 0x20) {
      char escape[8];
      snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      out += escape;
    } else {
      out += rest.substr(0, length);
    }
    rest.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return out += '"';
}

// One line while it is made; holds the lock and writes the line at its end.
class TraceWriter::Line {
 public:
  Line(TraceWriter& trace, const char* event) : trace_(trace), held_(trace.mutex_) {
    trace_.text_ = "{\"event\":\"";
    trace_.text_ += event;
    trace_.text_ += '"';
  }
  ~Line() {
    trace_.text_ += "}\n";
    write();
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  // `json` is a value already.
  Line& raw(const char* name, std::string_view json) {
    ((trace_.text_ += ",\"") += name) += "\":";
    trace_.text_ += json;
    return *this;
  }
  Line& text(const char* name, const std::string& value) { return raw(name, jsonString(value)); }
  Line& number(const char* name, long value) { return raw(name, std::to_string(value)); }
  Line& flag(const char* name, bool value) { return raw(name, value ? "true" : "false"); }
  Line& time(const timeval& tv) {
    return raw("tv", "[" + std::to_string(tv.tv_sec) + "," + std::to_string(tv.tv_usec) + "]");
  }

 private:
  void write() {
    if (trace_.failed_) return;
    std::string_view rest = trace_.text_;
    while (!rest.empty()) {
      const ssize_t written = ::write(trace_.fd_, rest.data(), rest.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) {
        const auto reason = Kelvane::last_error_message();
        trace_.failed_ = true;
        LOG_ERROR("The trace ends here, it could not be written: %s", reason->c_str());
        return;
      }
      rest.remove_prefix(static_cast<std::size_t>(written));
    }
  }

  TraceWriter& trace_;
  std::lock_guard<std::mutex> held_;
};

TraceWriter::TraceWriter(const std::string& file)
    : fd_(file == "-"
              ? STDOUT_FILENO
              : open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666)) {
  if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "trace file " + file);
}

TraceWriter::~TraceWriter() {
  if (fd_ != STDOUT_FILENO) close(fd_);
}

void TraceWriter::started(const std::string& producer) {
  Line(*this, "start").text("producer", producer).number("pid", getpid());
}

void TraceWriter::stopped(const char* reason) {
  Line(*this, "stop").text("reason", reason);
}

void TraceWriter::ended(bool result) {
  Line(*this, "end").flag("result", result);
}

void TraceWriter::onInit(MEDIA_TYPE media, const std::string& codec, const std::string& config) {
  Line line(*this, "init");
  codecs_[media] = codec;
  line.text("media", mediaName(media))
      .text("codec", codec)
      .text("config", hex(reinterpret_cast<const uint8_t*>(config.data()), config.size()));
}

void TraceWriter::onFrame(const Kelvane::MediaFrame& frame) {
  char crc[16];
  // A null pointer would ask for the initial value, which is that of no bytes too.
  snprintf(crc, sizeof crc, "\"%08lx\"", crc32_z(crc32_z(0, nullptr, 0), frame.data, frame.size));
  Line line(*this, "frame");
  line.text("media", mediaName(frame.mediaType))
      .number("size", frame.size)
      .time(frame.tv)
      .raw("crc32", crc)
      .text("head", hex(frame.data, std::min(frame.size, kHeadSize)))
      .text("codec", codecs_[frame.mediaType]);
  if (!frame.objectsData.empty()) line.text("objects", frame.objectsData);
}

void TraceWriter::onTrigger(const std::string& text) {
  Line(*this, "trigger").text("text", text);
}

void TraceWriter::onState(StreamState::STATE state, StreamState::ERRNO error) {
  Line(*this, "state")
      .text("state", StreamState::name(state))
      .text("errno", StreamState::name(error));
}

void TraceWriter::onPid(bool first, bool second) {
  Line(*this, "pid")
      .raw("args",
           std::string("[") + (first ? "true" : "false") + "," + (second ? "true" : "false") + "]");
}

void TraceWriter::onExtraData(const std::string& name, const timeval& tv,
                              const std::string& record) {
  Line(*this, "extra_data").text("name", name).time(tv).raw("record", record);
}

}  // namespace host
