#pragma once

#include "cms/CMSException.h"

namespace cms {

class Stoppable {
 public:
  virtual ~Stoppable() = default;
  virtual void stop() = 0;
};

}  // namespace cms
