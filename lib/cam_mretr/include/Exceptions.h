#pragma once

#include <memory>
#include <stdexcept>
#include <string>

namespace Kelvane {

namespace Types {

using KN_String = std::string;

class KN_Exception : public std::runtime_error {
 public:
  explicit KN_Exception(const std::string& text) : std::runtime_error(text) {}
};

}  // namespace Types

class ThreadException : public Types::KN_Exception {
 public:
  explicit ThreadException(const Types::KN_String& text) : KN_Exception(text) {}
};

class NetworkException : public Types::KN_Exception {
 public:
  explicit NetworkException(const Types::KN_String& text) : KN_Exception(text) {}
};

// Text of the calling thread's errno. Take it before anything else can change errno.
std::shared_ptr<std::string> last_error_message();

}  // namespace Kelvane
