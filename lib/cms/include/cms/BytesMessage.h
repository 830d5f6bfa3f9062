#pragma once

#include <vector>

#include "cms/CMSException.h"
#include "cms/Message.h"

namespace cms {

// A received message is read from its start; a new one is written at its end.
class BytesMessage : public Message {
 public:
  virtual void setBodyBytes(const unsigned char* buffer, int numBytes) = 0;
  // A copy made with new[], owned by the caller; null for an empty body.
  virtual unsigned char* getBodyBytes() const = 0;
  virtual int getBodyLength() const = 0;
  virtual void reset() = 0;  // from writing to reading, from the start
  // Bytes read, at most the room there is; -1 at the end.
  virtual int readBytes(std::vector<unsigned char>& value) const = 0;
  virtual int readBytes(unsigned char* buffer, int length) const = 0;
  virtual void writeBytes(const std::vector<unsigned char>& value) = 0;
  virtual void writeBytes(const unsigned char* value, int offset, int length) = 0;
};

}  // namespace cms
