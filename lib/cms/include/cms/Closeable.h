#pragma once

#include "cms/CMSException.h"

namespace cms {

class Closeable {
 public:
  virtual ~Closeable() = default;
  // Releases what the object holds at the broker. Again: no effect.
  virtual void close() = 0;
};

}  // namespace cms
