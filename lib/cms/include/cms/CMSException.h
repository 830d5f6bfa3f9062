#pragma once

#include <exception>
#include <string>

namespace cms {

// Whatever goes wrong between a program and its broker.
class CMSException : public std::exception {
 public:
  CMSException() = default;
  explicit CMSException(const std::string& message) : message_(message) {}

  const char* what() const noexcept override { return message_.c_str(); }
  virtual std::string getMessage() const { return message_; }

 private:
  std::string message_;
};

}  // namespace cms
