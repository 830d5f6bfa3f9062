#pragma once

#include <string>

#include "cms/Destination.h"

namespace cms {

class Queue : public Destination {
 public:
  virtual std::string getQueueName() const = 0;
};

}  // namespace cms
