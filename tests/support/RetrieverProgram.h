#pragma once

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

#include "Subprocess.h"

namespace testsupport {

// The retriever program as a child process, with its trace. CAMERAMODEL,
// DEVID, OBJID, MODELID and MEDIA_FORMAT have defaults that `keys` overrides.
// Its tests live in tests/scenarios, whose target depends on mretriever and camsim.
class RetrieverProgram {
 public:
  using Keys = std::map<std::string, std::string>;
  explicit RetrieverProgram(const Keys& keys, const std::vector<std::string>& options = {});

  // The events of that name so far; all of them for an empty name.
  std::vector<Json::Value> events(const std::string& name = "");
  // False when fewer came within the deadline.
  bool awaitEvents(const std::string& name, std::size_t count);
  // "STREAM_LOST NET_FAILURE"
  std::vector<std::string> states();

  Subprocess& process() { return process_; }
  // Exit status, as Subprocess::wait().
  int wait() { return process_.wait(); }
  int stop(int signal);  // sends it and waits
  std::string output() { return process_.output(); }
  // Of this program alone, removed with it.
  const std::string& folder() const { return folder_.path(); }

 private:
  TemporaryFolder folder_;
  Subprocess process_;
};

// A device of camsim's or of another program of the build, ready for its connections.
struct SimulatedDevice {
  // `ready` stands in the line that tells its address. Throws std::runtime_error.
  explicit SimulatedDevice(const std::vector<std::string>& options,
                           const std::string& ready = "listening on ",
                           const std::string& program = "camsim");
  std::string output() { return process.output(); }

  Subprocess process;
  std::string port;  // the number behind that line's last colon
};

// The recordings in a folder, by name.
std::vector<std::string> recordingsIn(const std::string& folder);
// What ffprobe reads from a file: `entries` of one stream ("v", "a") or of all, one row a line.
std::string probed(const std::string& file, const std::string& entries,
                   const std::string& stream = "");
// What a decoder complains of in it; empty for a file that plays whole.
std::string complaintsOf(const std::string& file);

// A program of the build's bin folder.
std::string builtProgram(const std::string& name);
// Runs a command to its end and gives its output; throws when it fails.
std::string outputOf(const std::vector<std::string>& command);

}  // namespace testsupport
