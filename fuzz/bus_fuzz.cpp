// Messages of the bus: what is understood is the one form of its content.
#include <cstdint>
#include <string_view>

#include "Exceptions.h"
#include "MessageCodec.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Kelvane::Message message;
  try {
    message = Kelvane::decode(bytes);
  } catch (const Kelvane::NetworkException&) {
    return 0;
  }
  if (Kelvane::encode(message) != bytes) __builtin_trap();
  const std::string subject = Kelvane::subjectOf(message.header_);
  if (subject.find_first_of(" *>\r\n") != std::string::npos) __builtin_trap();
  return 0;
}
