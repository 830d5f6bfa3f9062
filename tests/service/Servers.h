#pragma once

#include <memory>
#include <string>

#include "support/Subprocess.h"

namespace testsupport {

// A real message bus on loopback.
class BusServer {
 public:
  // Port 0: a free one. `config`: more of the server's configuration file.
  explicit BusServer(const std::string& address = "127.0.0.1", int port = 0,
                     const std::string& config = {});
  const std::string& address() const { return address_; }
  int port() const { return port_; }
  void stop();
  void restart();  // on the same port

 private:
  const std::string address_;
  int port_;
  TemporaryFolder folder_;
  std::unique_ptr<Subprocess> process_;
};

// A real ActiveMQ broker on 127.0.0.1 with the login kBrokerUser.
constexpr char kBrokerUser[] = "monitor", kBrokerPassword[] = "s3cret";
class BrokerServer {
 public:
  BrokerServer();
  int port() const { return port_; }
  std::string uri() const { return "tcp://127.0.0.1:" + std::to_string(port_); }
  void stop();
  void restart();  // on the same port

 private:
  int port_;
  TemporaryFolder folder_;
  std::unique_ptr<Subprocess> process_;
};

// The broker's own Java client: BrokerClient.java tells the modes.
std::unique_ptr<Subprocess> javaClient(const BrokerServer& broker, const std::string& mode,
                                       const std::string& destination, const std::string& argument);

std::string toHex(const std::string& bytes);

}  // namespace testsupport
