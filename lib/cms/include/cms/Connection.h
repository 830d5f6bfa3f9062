#pragma once

#include <string>

#include "cms/Closeable.h"
#include "cms/ExceptionListener.h"
#include "cms/Session.h"
#include "cms/Startable.h"
#include "cms/Stoppable.h"

namespace cms {

// One link to the broker. Sessions and what they made stay valid objects when
// the connection is closed or deleted; their calls then throw.
class Connection : public Closeable, public Startable, public Stoppable {
 public:
  virtual Session* createSession() = 0;
  virtual Session* createSession(Session::AcknowledgeMode mode) = 0;
  virtual std::string getClientID() const = 0;
  virtual ExceptionListener* getExceptionListener() const = 0;
  virtual void setExceptionListener(ExceptionListener* listener) = 0;
};

}  // namespace cms
