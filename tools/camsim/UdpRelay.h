#pragma once

#include <random>
#include <string>
#include <vector>

#include "UniqueFd.h"

// What a network does to a stream of datagrams. Percentages of datagrams.
struct UdpFaults {
  double loss = 0;
  double reorder = 0;     // changes places with the next one
  double garbage = 0;     // random bytes of a random length go ahead of it
  double stallAfter = 0;  // seconds; 0 never
};

// Stands between a sender on this host and the receiver, which may be a
// multicast group: that does not leave the host.
class UdpRelay {
 public:
  UdpRelay(const std::string& address, int port, const UdpFaults& faults);

  // Where the sender sends to, on 127.0.0.1.
  int port() const { return port_; }
  // Runs the sender and relays until it ends or the process is killed, which
  // ends the sender too. Returns the sender's exit status.
  int run(const std::vector<std::string>& sender);

 private:
  void relay(const std::string& datagram);
  void send(const std::string& datagram) const;
  bool happens(double percent);

  UdpFaults faults_;
  Kelvane::UniqueFd in_;
  Kelvane::UniqueFd out_;
  int port_;
  std::string held_;  // waits for the next one to overtake it
  std::mt19937 random_{1};
};
