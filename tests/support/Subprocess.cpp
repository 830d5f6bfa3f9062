#include "Subprocess.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

extern char** environ;

namespace testsupport {

Subprocess::Subprocess(const std::vector<std::string>& command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  // A child goes with the test's process, also where that leaves in the middle.
  std::vector<std::string> words{"setpriv", "--pdeathsig", "KILL"};
  words.insert(words.end(), command.begin(), command.end());
  std::vector<char*> arguments(words.size() + 1);
  std::transform(words.begin(), words.end(), arguments.begin(),
                 [](std::string& word) { return word.data(); });
  const int error = posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  pipe_ = ends[0];
  fcntl(pipe_, F_SETFL, O_NONBLOCK);
  if (error != 0) throw std::runtime_error("could not start " + command[0]);
}

Subprocess::~Subprocess() {
  if (running()) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(pipe_);
}

void Subprocess::signal(int number) const {
  if (status_ < 0) kill(pid_, number);
}

void Subprocess::drain() {
  char block[65536];
  ssize_t got = 0;
  while ((got = read(pipe_, block, sizeof block)) > 0) {
    output_.append(block, static_cast<std::size_t>(got));
  }
}

bool Subprocess::reap() {
  if (status_ >= 0) return true;
  int status = 0;
  if (waitpid(pid_, &status, WNOHANG) != pid_) return false;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  drain();
  return true;
}

bool Subprocess::running() {
  return !reap();
}

int Subprocess::wait(std::chrono::milliseconds patience) {
  eventually(
      [this] {
        drain();  // a full pipe would hold the child up
        return reap();
      },
      patience);
  return status_;
}

std::string Subprocess::output() {
  drain();
  return output_;
}

bool Subprocess::awaitOutput(const std::string& text, std::chrono::milliseconds patience) {
  return eventually([&] { return output().find(text) != std::string::npos; }, patience);
}

HeldPort::HeldPort(int type) : fd(socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(fd.get(), generic, length) != 0 || getsockname(fd.get(), generic, &length) != 0) {
    throw std::runtime_error("no free port");
  }
  port = ntohs(address.sin_port);
}

bool portServed(const char* protocol, int port) {
  char entry[32];
  snprintf(entry, sizeof entry, ":%04X 00000000:0000 ", port);
  return occurrences(readFile(std::string("/proc/net/") + protocol), entry) > 0;
}

bool awaitPort(const char* protocol, int port) {
  return eventually([=] { return portServed(protocol, port); });
}

int freeTcpPort() {
  return HeldPort(SOCK_STREAM).port;
}

int freeUdpPort() {
  for (int tries = 0; tries < 1000; ++tries) {
    const int port = HeldPort(SOCK_DGRAM).port;
    if (port % 2 == 0) return port;
  }
  throw std::runtime_error("no free even port");
}

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "mretriever-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& name, const std::string& contents) {
  std::ofstream(name, std::ios::binary) << contents;
}

int occurrences(const std::string& text, const std::string& word) {
  int count = 0;
  for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++count;
  return count;
}

}  // namespace testsupport
