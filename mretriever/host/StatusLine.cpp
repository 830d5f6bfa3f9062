#include "StatusLine.h"

#include <poll.h>
#include <unistd.h>

#include "StartCode.h"

namespace host {

using Kelvane::StreamState;

StatusLine::StatusLine(FILE* to)
    : to_(to), terminal_(isatty(fileno(to)) != 0), interval_(terminal_ ? 1000 : 5000) {
  begin_ = last_ = now();
}

StatusLine::Counts StatusLine::now() const {
  return {frames_.load(), bytes_.load(), Clock::now()};
}

void StatusLine::tick() {
  const Counts current = now();
  // The cursor goes back to the head of the line: a log line overwrites it.
  print(last_, current, terminal_ ? "\033[K\r" : "\n");
  last_ = current;
}

void StatusLine::finish() {
  print(begin_, now(), terminal_ ? "\033[K\n" : "\n");
}

void StatusLine::print(const Counts& from, const Counts& to, const char* end) {
  // A reader that has stopped reading must not hold up who takes the signals.
  pollfd output{fileno(to_), POLLOUT, 0};
  if (poll(&output, 1, 0) != 1 || (output.revents & POLLOUT) == 0) return;
  const double seconds = std::chrono::duration<double>(to.when - from.when).count();
  const auto rate = [&](uint64_t amount) {
    return seconds > 0 ? static_cast<double>(amount) / seconds : 0.0;
  };
  const auto up = std::chrono::duration_cast<std::chrono::seconds>(to.when - begin_.when).count();
  fprintf(to_, "%02ld:%02ld:%02ld  %5.1f frames/s  %7.0f kbit/s  %llu frames", up / 3600,
          up / 60 % 60, up % 60, rate(to.frames - from.frames),
          rate(to.bytes - from.bytes) * 8 / 1000, static_cast<unsigned long long>(to.frames));
  const int state = state_.load();
  if (state >= 0) {
    fprintf(to_, "  %s %s", StreamState::name(static_cast<StreamState::STATE>(state / 256)),
            StreamState::name(static_cast<StreamState::ERRNO>(state % 256)));
  }
  fputs(end, to_);
  fflush(to_);
}

void StatusLine::onInit(Kelvane::MEDIA_TYPE media, const std::string& codec, const std::string&) {
  if (media == Kelvane::VIDEO) setVideoCodec(codec);
}

void StatusLine::setVideoCodec(const std::string& name) {
  const bool h264 = name == "H264" || name == "h264";
  const bool mpeg2 = name == "MPV" || name == "mpeg2";
  pieces_.store(h264 ? Pieces::h264 : mpeg2 ? Pieces::mpeg2 : Pieces::none);
}

bool StatusLine::beginsPicture(const Kelvane::MediaFrame& frame) const {
  constexpr uint32_t kCodeSize = 3;
  const Pieces pieces = pieces_.load(std::memory_order_relaxed);
  if (pieces == Pieces::none || frame.size < kCodeSize + Kelvane::kUnitLookAhead) return true;
  const bool startCode = Kelvane::findStartCode(frame.data, kCodeSize + 1, 0) <= 1;
  if (pieces == Pieces::h264) {
    return startCode || Kelvane::h264Unit(frame.data) == Kelvane::UnitKind::picture;
  }
  return startCode && Kelvane::mpeg2Unit(frame.data + kCodeSize) != Kelvane::UnitKind::other;
}

void StatusLine::onFrame(const Kelvane::MediaFrame& frame) {
  if (frame.mediaType == Kelvane::VIDEO && beginsPicture(frame)) {
    frames_.fetch_add(1, std::memory_order_relaxed);
  }
  bytes_.fetch_add(frame.size, std::memory_order_relaxed);
}

void StatusLine::onState(StreamState::STATE state, StreamState::ERRNO error) {
  state_.store(256 * state + error);
}

}  // namespace host
