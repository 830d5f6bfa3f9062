#include "BrokerSession.h"

#include <activemq/library/ActiveMQCPP.h>
#include <cms/ConnectionFactory.h>

#include <atomic>
#include <memory>
#include <string>

cms::Session* mretriever_openBrokerSession(const char* uri) {
  activemq::library::ActiveMQCPP::initializeLibrary();
  const std::string given = uri;
  const bool renewed = given.compare(0, 9, "failover:") == 0;
  const std::unique_ptr<cms::ConnectionFactory> factory(
      cms::ConnectionFactory::createCMSConnectionFactory(
          renewed ? given : "failover:(" + given + ")?timeout=200&startupMaxReconnectAttempts=1"));
  std::unique_ptr<cms::Connection> connection(factory->createConnection());
  std::unique_ptr<cms::Session> session(connection->createSession());
  connection->start();
  // Never destroyed: a report may run while the process exits.
  static std::atomic<cms::Connection*> kept{nullptr};
  kept = connection.release();
  return session.release();
}
