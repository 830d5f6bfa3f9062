#pragma once

#include <string>

#include "cms/Connection.h"

namespace cms {

// Broker addresses: "tcp://host:port" for one link that is not renewed, or
// "failover:(tcp://host:port,...)" for one that is. Options of an address:
//   soTimeout                         milliseconds for the first connect and
//                                     for each answer; 20000 if absent or 0
//   wireFormat.maxInactivityDuration  milliseconds without traffic before the
//                                     link counts as lost; 0 (and absent): TCP
//                                     keep-alive alone watches it
// Option of the failover part: timeout, milliseconds that a send waits for a
// broker that is away (soTimeout if absent). Other options are passed over.
class ConnectionFactory {
 public:
  virtual ~ConnectionFactory() = default;
  // Connects and logs in.
  virtual Connection* createConnection() = 0;
  virtual Connection* createConnection(const std::string& username,
                                       const std::string& password) = 0;
  static ConnectionFactory* createCMSConnectionFactory(const std::string& brokerURI);
};

}  // namespace cms
