#pragma once

namespace cms {

class Destination {
 public:
  enum DestinationType { TOPIC, QUEUE, TEMPORARY_TOPIC, TEMPORARY_QUEUE };
  virtual ~Destination() = default;
  virtual DestinationType getDestinationType() const = 0;
  virtual Destination* clone() const = 0;  // the caller owns it
  virtual bool equals(const Destination& other) const = 0;
};

}  // namespace cms
