#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cms::openwire {

// OpenWire in loose encoding. Integers are big-endian; everything that may be
// null has a byte ahead that says whether it is there.

class Writer {
 public:
  Writer& u8(std::uint8_t value);
  Writer& boolean(bool value) { return u8(value ? 1 : 0); }
  Writer& u16(std::uint16_t value);
  Writer& u32(std::uint32_t value);
  Writer& u64(std::uint64_t value);
  // Of UTF-8; throws CMSException when it takes more than 65535 bytes.
  Writer& string(const std::string& text);
  Writer& string(const std::optional<std::string>& text);
  Writer& bytes(std::string_view value);
  Writer& null() { return u8(0); }  // of a string, bytes, object or array
  Writer& nulls(int count);
  // Bytes that are in the encoding already.
  Writer& raw(std::string_view encoded);

  const std::string& data() const { return out_; }

 private:
  std::string out_;
};

// Throws CMSException where the input ends early or is not understood.
class Reader {
 public:
  explicit Reader(std::string_view data) : rest_(data) {}

  std::uint8_t u8();
  bool boolean() { return u8() != 0; }
  std::uint16_t u16();
  std::uint32_t u32();
  std::uint64_t u64();
  std::optional<std::string> string();  // as UTF-8
  std::optional<std::string_view> bytes();
  std::string_view take(std::size_t count);
  // A whole nested object with its type, or its null, as it stands.
  std::string_view object();
  void objectArray();  // read over
  // The text of a throwable: "class: message".
  std::string throwable();

 private:
  void skipFields(std::uint8_t type);
  std::string_view rest_;
};

}  // namespace cms::openwire
