#pragma once

#include "cms/Closeable.h"
#include "cms/DeliveryMode.h"
#include "cms/Message.h"

namespace cms {

// Persistent messages wait for the broker's answer, others do not. While the
// broker is away a send waits for it, up to the connection's limit.
class MessageProducer : public Closeable {
 public:
  // Throws when the producer was made without a destination.
  virtual void send(Message* message) = 0;
  virtual void send(Message* message, int deliveryMode, int priority, long long timeToLive) = 0;
  virtual void send(const Destination* destination, Message* message) = 0;
  virtual void send(const Destination* destination, Message* message, int deliveryMode,
                    int priority, long long timeToLive) = 0;
  virtual void setDeliveryMode(int mode) = 0;
  virtual int getDeliveryMode() const = 0;
  virtual void setPriority(int priority) = 0;
  virtual int getPriority() const = 0;
  virtual void setTimeToLive(long long milliseconds) = 0;
  virtual long long getTimeToLive() const = 0;
};

}  // namespace cms
