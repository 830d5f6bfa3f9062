#pragma once

#include <string>

#include "cms/Destination.h"

namespace cms {

class Message {
 public:
  virtual ~Message() = default;
  virtual Message* clone() const = 0;  // the caller owns it

  virtual std::string getCMSCorrelationID() const = 0;
  virtual void setCMSCorrelationID(const std::string& id) = 0;
  // Owned by the message; null when there is none.
  virtual const Destination* getCMSReplyTo() const = 0;
  virtual void setCMSReplyTo(const Destination* destination) = 0;
  virtual const Destination* getCMSDestination() const = 0;
  virtual void setCMSDestination(const Destination* destination) = 0;
  virtual std::string getCMSMessageID() const = 0;
  virtual std::string getCMSType() const = 0;
  virtual void setCMSType(const std::string& type) = 0;
  virtual int getCMSDeliveryMode() const = 0;
  virtual int getCMSPriority() const = 0;
  virtual bool getCMSRedelivered() const = 0;
  // Milliseconds since 1970; an expiration of 0 is none.
  virtual long long getCMSTimestamp() const = 0;
  virtual long long getCMSExpiration() const = 0;
};

}  // namespace cms
