#pragma once

#include "cms/CMSException.h"

namespace cms {

class Startable {
 public:
  virtual ~Startable() = default;
  virtual void start() = 0;
};

}  // namespace cms
