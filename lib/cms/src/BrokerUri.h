#pragma once

#include <string>
#include <vector>

namespace cms::openwire {

struct BrokerUri {
  struct Endpoint {
    std::string host, port;
  };
  std::vector<Endpoint> endpoints;  // tried in turn
  bool failover = false;            // a lost link is renewed
  int firstRounds = 0;              // startupMaxReconnectAttempts; 0: the answer's limit alone
  std::string user, password;       // username, password; empty: none
  int answerLimitMs = 20000;        // soTimeout
  int sendLimitMs = 0;              // timeout; 0: the answer's limit
  int maxInactivityMs = 0;          // wireFormat.maxInactivityDuration

  int sendLimit() const { return sendLimitMs > 0 ? sendLimitMs : answerLimitMs; }
};

// Throws CMSException that names what is wrong.
BrokerUri parseBrokerUri(const std::string& text);

}  // namespace cms::openwire
