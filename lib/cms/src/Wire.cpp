#include "Wire.h"

#include "ModifiedUtf8.h"
#include "cms/CMSException.h"

namespace cms::openwire {
namespace {

// The fields of the objects that come nested in others: 's'tring, 'b'ytes,
// 'o'bject, 'l'ong, 'i'nt.
const char* fieldsOf(std::uint8_t type) {
  switch (type) {
    case 100:
    case 101:
    case 102:
    case 103:
      return "s";  // queue, topic, temporary ones
    case 110:
      return "soll";  // message id
    case 111:
      return "lo";  // local transaction id
    case 112:
      return "ibb";  // XA transaction id
    case 120:
    case 124:
      return "s";  // connection id, broker id
    case 121:
      return "sl";  // session id
    case 122:
    case 123:
      return "sll";  // consumer id, producer id
    default:
      return nullptr;
  }
}

}  // namespace

Writer& Writer::u8(std::uint8_t value) {
  out_ += static_cast<char>(value);
  return *this;
}

Writer& Writer::u16(std::uint16_t value) {
  return u8(static_cast<std::uint8_t>(value >> 8)).u8(static_cast<std::uint8_t>(value));
}

Writer& Writer::u32(std::uint32_t value) {
  return u16(static_cast<std::uint16_t>(value >> 16)).u16(static_cast<std::uint16_t>(value));
}

Writer& Writer::u64(std::uint64_t value) {
  return u32(static_cast<std::uint32_t>(value >> 32)).u32(static_cast<std::uint32_t>(value));
}

Writer& Writer::string(const std::string& text) {
  const std::string encoded = toModifiedUtf8(text);
  if (encoded.size() > 0xffff)
    throw CMSException("a text of " + std::to_string(encoded.size()) +
                       " bytes is too long for a message field");
  return boolean(true).u16(static_cast<std::uint16_t>(encoded.size())).raw(encoded);
}

Writer& Writer::string(const std::optional<std::string>& text) {
  return text ? string(*text) : null();
}

Writer& Writer::bytes(std::string_view value) {
  return boolean(true).u32(static_cast<std::uint32_t>(value.size())).raw(value);
}

Writer& Writer::nulls(int count) {
  out_.append(static_cast<std::size_t>(count), '\0');
  return *this;
}

Writer& Writer::raw(std::string_view encoded) {
  out_ += encoded;
  return *this;
}

std::string_view Reader::take(std::size_t count) {
  if (count > rest_.size()) throw CMSException("malformed data from the broker: it ends too early");
  const std::string_view taken = rest_.substr(0, count);
  rest_.remove_prefix(count);
  return taken;
}

std::uint8_t Reader::u8() {
  return static_cast<std::uint8_t>(take(1).front());
}

std::uint16_t Reader::u16() {
  const unsigned high = u8();
  return static_cast<std::uint16_t>(high << 8 | u8());
}

std::uint32_t Reader::u32() {
  const std::uint32_t high = u16();
  return high << 16 | u16();
}

std::uint64_t Reader::u64() {
  const std::uint64_t high = u32();
  return high << 32 | u32();
}

std::optional<std::string> Reader::string() {
  if (!boolean()) return std::nullopt;
  return fromModifiedUtf8(take(u16()));
}

std::optional<std::string_view> Reader::bytes() {
  if (!boolean()) return std::nullopt;
  return take(u32());
}

// Ends for every input: only a message id holds another object, of fixed form.
void Reader::skipFields(std::uint8_t type) {
  const char* fields = fieldsOf(type);
  if (fields == nullptr)
    throw CMSException("malformed data from the broker: unknown object " + std::to_string(type));
  for (; *fields != '\0'; ++fields) {
    switch (*fields) {
      case 's':
        string();
        break;
      case 'b':
        bytes();
        break;
      case 'l':
        u64();
        break;
      case 'i':
        u32();
        break;
      default: {
        if (!boolean()) break;
        const std::uint8_t nested = u8();
        if (nested != 120 && nested != 123)
          throw CMSException("malformed data from the broker: misplaced object " +
                             std::to_string(nested));
        skipFields(nested);
      }
    }
  }
}

std::string_view Reader::object() {
  const std::string_view start = rest_;
  if (boolean()) skipFields(u8());
  return start.substr(0, start.size() - rest_.size());
}

void Reader::objectArray() {
  if (!boolean()) return;
  for (unsigned left = u16(); left > 0; --left) object();
}

std::string Reader::throwable() {
  if (!boolean()) return "unknown error";
  const std::string name = string().value_or("");
  return name + ": " + string().value_or("");  // a stack trace follows, unread
}

}  // namespace cms::openwire
