#pragma once

#include <string>

#include "cms/CMSException.h"
#include "cms/Message.h"

namespace cms {

// UTF-8 text; bytes that are not UTF-8 travel as U+FFFD.
class TextMessage : public Message {
 public:
  virtual std::string getText() const = 0;
  virtual void setText(const char* text) = 0;
  virtual void setText(const std::string& text) = 0;
};

}  // namespace cms
