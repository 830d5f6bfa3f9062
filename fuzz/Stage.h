#pragma once

#include <UsageEnvironment.hh>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "AbstractSink.h"
#include "Retriever.h"
#include "UniqueFd.h"

namespace fuzz {

// The host around a producer for one input: configuration, event loop, sinks,
// log lines that are written to nowhere. The device's side is the input: each
// connection that the producer makes, by whatever name, yields the next
// section of it and then the end of the stream; when there are no more
// sections the device cannot be reached. Sections are parted by kPart. Worker
// threads of the producers do not run.
class Stage {
 public:
  static constexpr std::string_view kPart = "\n--part--\n";

  using Keys = std::initializer_list<std::pair<const char*, std::string>>;
  Stage(const std::uint8_t* input, std::size_t size, const Keys& keys);
  ~Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  Kelvane::AbstractSink* audio() { return audio_; }
  Kelvane::AbstractSink* video() { return video_; }
  Kelvane::AbstractSink* metadata() { return metadata_; }
  Kelvane::Retriever& retriever() { return retriever_; }

  // The next section of the input; false when there is none.
  bool nextPart(std::string& part);
  // A connection to the device; an empty descriptor when it cannot be reached.
  Kelvane::UniqueFd connect();

  // Calls `peer` once a turn of the event loop until it returns false, then
  // stops the loop.
  void eachTurn(std::function<bool()> peer);

  // Runs what may end the process, up to there.
  static void run(const std::function<void()>& producer);

 private:
  static void turn(void* stage);

  std::string_view rest_;
  bool ended_ = false;
  Kelvane::Retriever retriever_;
  Kelvane::AbstractSink* audio_;
  Kelvane::AbstractSink* video_;
  Kelvane::AbstractSink* metadata_;
  std::vector<std::string> sinkNames_;
  std::vector<Kelvane::UniqueFd> deviceSides_;
  std::function<bool()> peer_;
  TaskToken turn_ = nullptr;
};

}  // namespace fuzz
