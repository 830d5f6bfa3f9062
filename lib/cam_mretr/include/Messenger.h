#pragma once

#include <ace/Time_Value.h>

#include <memory>
#include <string>

#include "Message.h"

namespace Kelvane {

// One party on the site's message bus. A lost bus comes back by itself, with
// the subscriptions; what is sent meanwhile is kept (up to 8 MB) and follows.
//
// start() and subscribe() belong to one thread; after them one thread may
// recv() while others send(). Failures throw NetworkException.
class Messenger {
 public:
  explicit Messenger(const std::string& rendezvous);  // "host:port"; connects nothing
  ~Messenger();
  Messenger(const Messenger&) = delete;
  Messenger& operator=(const Messenger&) = delete;

  // Connects; throws after 4 seconds at the latest.
  void start();
  // From a true on, messages for the header's devID arrive here, whatever
  // their classes; false when the server refuses. `timeout` is a duration, null
  // for 4 seconds. The last argument has no meaning here.
  bool subscribe(const Message::Header& header, ACE_Time_Value* timeout, bool exclusive);
  // Hands the message to the bus, which may carry up to 1 MB. Always true.
  bool send(const Message& message, ACE_Time_Value* timeout);
  // Waits until the absolute deadline, or without limit when it is null. False
  // when nothing came in time, or when stop() was called.
  bool recv(Message* message, ACE_Time_Value* deadline);
  // Wakes a blocked recv() and ends receiving for good. From any thread.
  void stop();

 private:
  class Connection;
  const std::string rendezvous_;
  std::unique_ptr<Connection> connection_;
};

}  // namespace Kelvane
