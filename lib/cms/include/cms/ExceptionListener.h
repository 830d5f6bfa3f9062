#pragma once

#include "cms/CMSException.h"

namespace cms {

// Told of trouble that no call waits for, on the connection's own thread.
class ExceptionListener {
 public:
  virtual ~ExceptionListener() = default;
  virtual void onException(const CMSException& exception) = 0;
};

}  // namespace cms
