#pragma once

#include "cms/Closeable.h"
#include "cms/Message.h"

namespace cms {

class MessageConsumer : public Closeable {
 public:
  // The caller owns the message. Null when the consumer was closed, or nothing
  // came in time.
  virtual Message* receive() = 0;
  virtual Message* receive(int millisecs) = 0;
  virtual Message* receiveNoWait() = 0;
};

}  // namespace cms
