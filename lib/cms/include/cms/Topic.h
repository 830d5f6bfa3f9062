#pragma once

#include <string>

#include "cms/Destination.h"

namespace cms {

class Topic : public Destination {
 public:
  virtual std::string getTopicName() const = 0;
};

}  // namespace cms
