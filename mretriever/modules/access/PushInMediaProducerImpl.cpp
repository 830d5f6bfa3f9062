#include "PushInMediaProducerImpl.h"

#include <stdio_ext.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>

#include "AccessLog.h"
#include "Cfg.h"
#include "Exceptions.h"
#include "FailureReport.h"
#include "OnDemand.h"

namespace Kelvane {

namespace {

constexpr int kReceiveBuffer = 0x40000;
constexpr int kFirstSnapshotMicros = 2000000;

bool isIStream() {
  return Cfg::value("CAMERAMODEL") == "iStream";
}

PushInMediaAnnoncer* createAnnoncer() {
  if (!isIStream()) return nullptr;
  return onDemand<PushInMediaAnnoncer*()>(kAnnouncerLibrary, kAnnouncerFactory)();
}

std::string socketPath(const std::string& id) {
  return "/tmp/." + id + ".media.recorder.sock";
}

// What stands in the stream's buffer, unread: the rest of the last datagram.
// There is no portable call for it.
std::string_view unread(const FILE* stream) {
  return {stream->_IO_read_ptr,
          static_cast<std::size_t>(stream->_IO_read_end - stream->_IO_read_ptr)};
}

}  // namespace

PushInMediaProducerImpl::PushInMediaProducerImpl(AbstractSink* audio, AbstractSink* video)
    : PushInMediaProducerImpl(audio, video, createAnnoncer()) {}

PushInMediaProducerImpl::PushInMediaProducerImpl(AbstractSink* audio, AbstractSink* video,
                                                 PushInMediaAnnoncer* annoncer)
    : NETMediaProducerImpl(audio, video, nullptr), annoncer_(annoncer) {}

PushInMediaProducerImpl::~PushInMediaProducerImpl() {
  stopServing();
  delete annoncer_;
}

bool PushInMediaProducerImpl::start() {
  const std::string path = socketPath(Cfg::value("DEVID"));
  openSocket(path);
  if (Cfg::exist("AUDIO_DEVID")) makeAlias(path, socketPath(Cfg::value("AUDIO_DEVID")));
  if (Cfg::exist("HWID")) makeAlias(path, "/tmp/" + Cfg::value("HWID") + ".sock");
  // Peers run under other users.
  if (chmod(path.c_str(), 0777) != 0) {
    const auto reason = last_error_message();
    FATAL_EXIT("CRT-0031 chmod() fails: %s", reason->c_str());
  }
  openStream();
  if (isIStream()) scheduleSnapshot(kFirstSnapshotMicros);
  env_->taskScheduler().turnOnBackgroundReadHandling(
      sock_, [](void* producer, int) { processRead(producer); }, this);

  runEventLoop();

  stopServing();
  return true;
}

void PushInMediaProducerImpl::openSocket(const std::string& path) {
  sock_ = socket(AF_UNIX, SOCK_DGRAM, 0);
  if (sock_ < 0) {
    const auto reason = last_error_message();
    FATAL_EXIT("CRT-0030 socket() fails: %s", reason->c_str());
  }
  if (setsockopt(sock_, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer) != 0) {
    const auto reason = last_error_message();
    LOG_ERROR("CRT-5004 Failed to set SO_RCVBUF size: %s", reason->c_str());
  }
  names_.push_back(path);
  unlink(path.c_str());
  // The length covers the whole path, so that one which does not fit is refused.
  union {
    sockaddr_storage room;
    sockaddr_un name;
  } address{};
  address.name.sun_family = AF_UNIX;
  memcpy(address.name.sun_path, path.data(), std::min(path.size(), sizeof address.name.sun_path));
  const auto length = static_cast<socklen_t>(sizeof address.name.sun_family + path.size());
  if (bind(sock_, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    const auto reason = last_error_message();
    FATAL_EXIT("CRT-0031 bind() fails: %s", reason->c_str());
  }
}

// A second name of the socket. The stream does without it when it cannot be made.
void PushInMediaProducerImpl::makeAlias(const std::string& path, const std::string& alias) {
  names_.push_back(alias);
  unlink(alias.c_str());
  if (symlink(path.c_str(), alias.c_str()) != 0) {
    const auto reason = last_error_message();
    LOG_ERROR("CRT-0003 symlink() failed: %s", reason->c_str());
  }
}

void PushInMediaProducerImpl::openStream() {
  fin_ = fdopen(sock_, "r");
  if (fin_ == nullptr) {
    const auto reason = last_error_message();
    FATAL_EXIT("fdopen() fails: %s", reason->c_str());
  }
  // The library would take another size for a buffer of its own.
  setvbuf(fin_, streamBuffer_, _IOFBF, sizeof streamBuffer_);
}

void PushInMediaProducerImpl::stopServing() {
  if (sock_ < 0) return;
  env_->taskScheduler().unscheduleDelayedTask(snapshotTask_);
  env_->taskScheduler().disableBackgroundHandling(sock_);
  if (fin_ == nullptr) {
    close(sock_);
  } else {
    fclose(fin_);
  }
  fin_ = nullptr;
  sock_ = -1;
  for (const std::string& name : names_) unlink(name.c_str());
  names_.clear();
}

void PushInMediaProducerImpl::scheduleSnapshot(int micros) {
  snapshotTask_ = env_->taskScheduler().scheduleDelayedTask(micros, updateSnapshot, this);
}

void PushInMediaProducerImpl::processRead(void* producer) {
  static_cast<PushInMediaProducerImpl*>(producer)->readMessage();
}

void PushInMediaProducerImpl::readMessage() {
  clearerr_unlocked(fin_);  // an empty datagram reads as an end of the stream, which sticks
  if (passOver_ > 0 && !findMessage()) return;
  PushInHeaders headers;
  if (!readHeaders(headers)) return;
  if (headers.contentLength == 0) timeDiff_ = ZERO;
  const timeval time = messageTime(headers);
  if (!bodyFits(headers.contentLength)) return;

  clearerr_unlocked(fin_);  // it ends the headers like an empty line
  const auto size = static_cast<std::size_t>(headers.contentLength);
  const std::size_t got = fread_unlocked(vSink_->buffer, 1, size, fin_);
  if (got < size) {
    const auto reason = last_error_message();
    LOG_ERROR("CRT-5001 Error to read from socket: %s. Aready read: %d", reason->c_str(),
              static_cast<int>(got));
    return;
  }
  dispatch(headers, time);
}

// False when the block is dropped: it does not end within the line buffer's size.
bool PushInMediaProducerImpl::readHeaders(PushInHeaders& headers) {
  char* line = reinterpret_cast<char*>(vSink_->buffer);
  const std::size_t room = vSink_->bufferSize;
  std::size_t total = 0;
  for (;;) {
    // Tells a line that fills the buffer, whatever zeros it holds.
    line[room - 1] = '\n';
    if (fgets_unlocked(line, static_cast<int>(room), fin_) == nullptr || endsHeaders(line)) {
      return true;
    }
    parseHeaderLine(line, headers);
    total += line[room - 1] == '\0' ? room - 1 : strlen(line);
    if (total >= room - 1) {
      LOG_ERROR("Header block is longer than %zu bytes: message dropped", room - 1);
      passOver(LONG_MAX);
      return false;
    }
  }
}

timeval PushInMediaProducerImpl::messageTime(const PushInHeaders& headers) {
  const Time_Val now;
  if (!headers.hasTimestamp) return now.tv();
  Time_Val time(headers.seconds, headers.useconds);
  if (correctTime(time, now, timeDiff_, timeDiffPlus_)) {
    LOG_INFO("Time diff: %s%ld.%ld", timeDiffPlus_ ? "+" : "-", timeDiff_.seconds(),
             timeDiff_.useconds());
  }
  prevPTS_ = time;
  return time.tv();
}

bool PushInMediaProducerImpl::bodyFits(int contentLength) {
  if (contentLength == 0) {
    LOG_ERROR("Content-Length == 0");
    return false;
  }
  if (contentLength < 0) {
    LOG_ERROR("Content-Length %d is negative: message dropped", contentLength);
    passOver(0);
    return false;
  }
  if (static_cast<unsigned>(contentLength) > vSink_->bufferSize) {
    LOG_ERROR("Content-Length %d exceeds the buffer of %u bytes: message dropped", contentLength,
              vSink_->bufferSize);
    passOver(contentLength);
    return false;
  }
  return true;
}

// The next `bytes` belong to a dropped message. The rest of the datagram goes
// now and further ones as they come, but what looks like a message is kept: the
// peer's word on the length has been wrong already.
void PushInMediaProducerImpl::passOver(long bytes) {
  const std::string_view rest = unread(fin_);
  if (startsMessage(rest)) return;
  passOver_ = std::max(0L, bytes - static_cast<long>(rest.size()));
  __fpurge(fin_);
}

// Looks at the next datagram while a message is passed over. True when a
// message begins with it, or within it behind the last byte to pass over.
bool PushInMediaProducerImpl::findMessage() {
  char* head = reinterpret_cast<char*>(vSink_->buffer);
  const ssize_t got = recv(sock_, head, kStreamBytes, MSG_PEEK | MSG_DONTWAIT);
  if (got < 0) return false;
  const auto size = static_cast<std::size_t>(got);
  if (startsMessage({head, size})) {
    passOver_ = 0;
    return true;
  }
  if (got > passOver_) {
    fread_unlocked(head, 1, static_cast<std::size_t>(passOver_), fin_);
    passOver_ = 0;
    return true;
  }
  recv(sock_, head, size, MSG_DONTWAIT);
  passOver_ -= got;
  return false;
}

}  // namespace Kelvane

extern "C" Kelvane::NETMediaProducerImpl* mretriever_createPushInMediaProducer(
    Kelvane::AbstractSink* audio, Kelvane::AbstractSink* video) {
  return new Kelvane::PushInMediaProducerImpl(audio, video);
}
