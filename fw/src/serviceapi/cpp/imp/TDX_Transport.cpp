#include "TDX_Transport.h"

#include <algorithm>
#include <cstring>

TDX_Transport::TDX_Transport()
    : user_id_(0), buffer_(std::ios::in | std::ios::out | std::ios::binary), empty_(true) {}

TDX_Transport::TDX_Transport(std::uint32_t user_id, const std::string& buf)
    : user_id_(user_id),
      buffer_(buf, std::ios::in | std::ios::out | std::ios::binary),
      empty_(buf.empty()) {}

TDX_Transport::~TDX_Transport() = default;

std::uint32_t TDX_Transport::read_virt(std::uint8_t* buf, std::uint32_t len) {
  if (empty_) {
    const std::string message = on_buffer_empty();
    buffer_.str(message);
    empty_ = message.empty();
  }
  buffer_.read(reinterpret_cast<char*>(buf), len);
  return len;
}

std::uint32_t TDX_Transport::readAll_virt(std::uint8_t* buf, std::uint32_t len) {
  std::memset(buf, 0, len);
  return TTransport::readAll_virt(buf, len);
}

std::uint32_t TDX_Transport::readEnd() {
  reset_buffer();
  return 0;
}

void TDX_Transport::write_virt(const std::uint8_t* buf, std::uint32_t len) {
  if (buffer_.write(reinterpret_cast<const char*>(buf), len) && len > 0) empty_ = false;
}

std::uint32_t TDX_Transport::writeEnd() {
  on_buffer_ready(buffer_.str());
  reset_buffer();
  return 0;
}

std::uint32_t TDX_Transport::user_id() {
  return user_id_;
}

void TDX_Transport::on_buffer_ready(const std::string&) {}

std::string TDX_Transport::on_buffer_empty() {
  return {};
}

std::size_t TDX_Transport::unread() const {
  if (buffer_.fail()) return 0;
  return static_cast<std::size_t>(std::max<std::streamsize>(0, buffer_.rdbuf()->in_avail()));
}

void TDX_Transport::reset_buffer() {
  buffer_.seekp(0);
  buffer_.seekg(0);
  buffer_.str({});
  empty_ = true;
}
