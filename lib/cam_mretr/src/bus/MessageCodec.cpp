#include "MessageCodec.h"

#include <cctype>
#include <cstdint>

#include "Exceptions.h"

namespace Kelvane {
namespace {

constexpr char kVersion = 1;

// Dots part a subject, and blanks and wildcards must not come into one.
std::string subjectToken(const std::string& text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string token = "ip";
  for (const unsigned char c : text) {
    if (std::isalnum(c)) {
      token += static_cast<char>(c);
    } else if (c == '.') {
      token += '-';
    } else {
      token += {'_', kDigits[c >> 4], kDigits[c & 15]};
    }
  }
  return token;
}

std::string addressSubject(const Message::Header::DevID& device) {
  return "bus." + subjectToken(device.IP) + "." + std::to_string(device.id) + ".";
}

void putInt(std::string& out, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out += static_cast<char>(value >> shift & 0xff);
}

void putText(std::string& out, const std::string& text) {
  putInt(out, static_cast<std::uint32_t>(text.size()));
  out += text;
}

class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_(bytes) {}

  std::string_view take(std::size_t count) {
    if (count > rest_.size()) throw NetworkException("malformed bus message: it ends too early");
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return taken;
  }
  std::uint32_t number() {
    std::uint32_t value = 0;
    int shift = 0;
    for (const unsigned char c : take(4)) {
      value |= static_cast<std::uint32_t>(c) << shift;
      shift += 8;
    }
    return value;
  }
  int signedNumber() { return static_cast<int>(number()); }
  std::string text() { return std::string(take(number())); }
  bool atEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

}  // namespace

std::string subjectOf(const Message::Header& header) {
  return addressSubject(header.devID) + std::to_string(header.ctxType) + "-" +
         std::to_string(header.evtType) + "-" + std::to_string(header.procLvl);
}

std::string subjectPattern(const Message::Header::DevID& device) {
  return addressSubject(device) + ">";
}

std::string encode(const Message& message) {
  std::string out(1, kVersion);
  const Message::Header& header = message.header_;
  putInt(out, header.ctxType);
  putInt(out, header.evtType);
  putInt(out, header.procLvl);
  putText(out, header.devID.IP);
  putInt(out, static_cast<std::uint32_t>(header.devID.id));
  putInt(out, header.mMessageID);
  putInt(out, static_cast<std::uint32_t>(header.subscriptionID));
  putText(out, message.body_);
  putInt(out, static_cast<std::uint32_t>(message.sid_));
  putInt(out, message.userid_);
  putInt(out, static_cast<std::uint32_t>(message.mAttachments.size()));
  for (const auto& [descriptor, content] : message.mAttachments) {
    putText(out, descriptor);
    putText(out, content);
  }
  return out;
}

Message decode(std::string_view bytes) {
  Reader in(bytes);
  if (in.take(1).front() != kVersion)
    throw NetworkException("malformed bus message: unknown version");
  Message message;
  Message::Header& header = message.header_;
  header.ctxType = in.number();
  header.evtType = in.number();
  header.procLvl = in.number();
  header.devID.IP = in.text();
  header.devID.id = in.signedNumber();
  header.mMessageID = in.number();
  header.subscriptionID = in.signedNumber();
  message.body_ = in.text();
  message.sid_ = in.signedNumber();
  message.userid_ = in.number();
  // The count is not trusted: each attachment has to be there.
  for (std::uint32_t left = in.number(); left > 0; --left) {
    std::string descriptor = in.text();
    message.mAttachments.emplace_back(std::move(descriptor), in.text());
  }
  if (!in.atEnd()) throw NetworkException("malformed bus message: bytes behind its end");
  return message;
}

}  // namespace Kelvane
