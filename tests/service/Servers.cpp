#include "Servers.h"

#include <signal.h>

#include <stdexcept>

namespace testsupport {
namespace {

constexpr char kJars[] = "/usr/share/activemq/lib/*:/usr/share/activemq/lib/optional/*";

std::vector<std::string> java(std::vector<std::string> arguments) {
  std::vector<std::string> command{"java", "-Xmx64m", "-XX:TieredStopAtLevel=1", "-XX:+UseSerialGC",
                                   "-Djava.awt.headless=true"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

}  // namespace

BusServer::BusServer(const std::string& address, int port, const std::string& config)
    : address_(address), port_(port) {
  writeFile(folder_.path() + "/nats.conf", config);
  restart();
}

void BusServer::restart() {
  process_ = std::make_unique<Subprocess>(std::vector<std::string>{
      "nats-server", "-a", address_, "-p", std::to_string(port_ == 0 ? -1 : port_), "-c",
      folder_.path() + "/nats.conf"});
  if (!process_->awaitOutput("Server is ready"))
    throw std::runtime_error("nats-server: " + process_->output());
  const std::string output = process_->output();
  const std::string before = "client connections on " + address_ + ":";
  port_ = std::stoi(output.substr(output.find(before) + before.size()));
}

void BusServer::stop() {
  process_->signal(SIGINT);
  process_->wait();
}

BrokerServer::BrokerServer() : port_(freeTcpPort()) {
  writeFile(folder_.path() + "/log4j.properties",
            "log4j.rootLogger=INFO, out\n"
            "log4j.appender.out=org.apache.log4j.ConsoleAppender\n"
            "log4j.appender.out.layout=org.apache.log4j.SimpleLayout\n");
  writeFile(folder_.path() + "/broker.xml",
            R"(<beans xmlns="http://www.springframework.org/schema/beans"
  xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
  xsi:schemaLocation="http://www.springframework.org/schema/beans
    http://www.springframework.org/schema/beans/spring-beans.xsd
    http://activemq.apache.org/schema/core http://activemq.apache.org/schema/core/activemq-core.xsd">
<broker xmlns="http://activemq.apache.org/schema/core" brokerName="t" useJmx="false"
  persistent="false" schedulerSupport="false" dataDirectory=")" +
                folder_.path() + R"(">
  <plugins><simpleAuthenticationPlugin anonymousAccessAllowed="false"><users>
    <authenticationUser username=")" +
                kBrokerUser + R"(" password=")" + kBrokerPassword + R"(" groups="all"/>
  </users></simpleAuthenticationPlugin></plugins>
  <transportConnectors><transportConnector uri="tcp://127.0.0.1:)" +
                std::to_string(port_) + R"("/></transportConnectors>
</broker></beans>)");
  restart();
}

void BrokerServer::restart() {
  const std::string folder = folder_.path();
  process_ = std::make_unique<Subprocess>(
      java({"-Dlog4j.configuration=file:" + folder + "/log4j.properties",
            "-Dactivemq.home=/usr/share/activemq", "-Dactivemq.base=" + folder, "-cp", kJars,
            "org.apache.activemq.console.Main", "start", "xbean:file:" + folder + "/broker.xml"}));
  if (!process_->awaitOutput("Listening for connections at"))
    throw std::runtime_error("activemq: " + process_->output());
}

void BrokerServer::stop() {
  process_->signal(SIGTERM);
  process_->wait();
}

std::unique_ptr<Subprocess> javaClient(const BrokerServer& broker, const std::string& mode,
                                       const std::string& destination,
                                       const std::string& argument) {
  return std::make_unique<Subprocess>(
      java({"-cp", std::string(MRETRIEVER_BROKER_CLIENT) + ":" + kJars, "BrokerClient",
            broker.uri(), kBrokerUser, kBrokerPassword, mode, destination, argument}));
}

std::string toHex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (const unsigned char c : bytes) out += {kDigits[c >> 4], kDigits[c & 15]};
  return out;
}

}  // namespace testsupport
