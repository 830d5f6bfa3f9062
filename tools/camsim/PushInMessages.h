#pragma once

#include <string>
#include <vector>

// One pushed message but for its time: what the header block says of the body.
struct PushedMedia {
  std::string contentType;  // empty: no such header
  std::string body;
};

// Messages of equal length in time.
struct PushedTrack {
  std::vector<PushedMedia> messages;
  double perSecond = 0;
};

PushedTrack makePushedVideo(int seconds, int framerate, int kbps);
// "aac" (four raw packets a message), "pcmu", "l16" or "l8". Throws
// std::runtime_error.
PushedTrack makePushedAudio(const std::string& codec, int seconds);

// The message's bytes: `lines` are further headers, each ended by CR LF.
std::string pushedMessage(const PushedMedia& media, const std::string& lines);

// A message that a recorder should never send, by name; the names are
// "no-length", "negative", "oversized", "lying-length", "endless-header",
// "bad-offset", "short-config" and "bad-type" (which ends the retriever).
std::string faultyMessage(const std::string& name);
