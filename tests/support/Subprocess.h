#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "Deadline.h"
#include "UniqueFd.h"

namespace testsupport {

// A child process with its output captured; killed and reaped by the destructor.
class Subprocess {
 public:
  // `command[0]` is looked up in PATH. Throws std::runtime_error.
  explicit Subprocess(const std::vector<std::string>& command);
  ~Subprocess();
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;

  pid_t pid() const { return pid_; }
  void signal(int number) const;
  // Exit status, 128 + signal for a killed one, or -1 when it still runs.
  int wait(std::chrono::milliseconds patience = kPatience);
  bool running();
  // Standard output and standard error so far, in one.
  std::string output();
  // False when `text` did not show up in the output in time.
  bool awaitOutput(const std::string& text, std::chrono::milliseconds patience = kPatience);

 private:
  void drain();
  bool reap();

  pid_t pid_ = -1;
  int pipe_ = -1;
  int status_ = -1;
  std::string output_;
};

// A socket that holds a port of any address, not shared. Throws std::runtime_error.
struct HeldPort {
  explicit HeldPort(int type);  // SOCK_DGRAM, SOCK_STREAM
  Kelvane::UniqueFd fd;
  int port = 0;
};
// Whether some socket of this machine receives on the port ("udp") or listens there ("tcp"),
// found out without a connection.
bool portServed(const char* protocol, int port);
bool awaitPort(const char* protocol, int port);
// A TCP port of 127.0.0.1 that is free now.
int freeTcpPort();
// A free even UDP port whose successor is free too.
int freeUdpPort();
// A folder under the temporary folder, removed with its contents by the destructor.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};
// Empty for a file that is not there.
std::string readFile(const std::string& name);
void writeFile(const std::string& name, const std::string& contents);
int occurrences(const std::string& text, const std::string& word);

}  // namespace testsupport
