#include "TDX_MBUS_Transport_Impl.h"

#include <ace/ACE.h>
#include <ace/OS_NS_sys_time.h>
#include <thrift/transport/TTransportException.h>

#include <array>
#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <typeinfo>

using apache::thrift::transport::TTransportException;
using Kelvane::Message;

namespace {

// Marks this system's calls on the bus; all three class fields carry it.
constexpr std::uint32_t kServiceClass = 0x4000;
constexpr char kResponseDescriptor[] = "response0";
constexpr int kReplyTimeoutSeconds = 5;

// Runs one step and turns its failure into the std::runtime_error that callers
// know, through `format` with the exception's type name and text.
template <class Step>
auto guarded(const char* format, Step step) -> decltype(step()) {
  try {
    return step();
  } catch (const std::exception& failure) {
    std::array<char, 4096> text;
    std::snprintf(text.data(), text.size(), format, typeid(failure).name(), failure.what());
    throw std::runtime_error(text.data());
  } catch (...) {
    throw std::runtime_error("Unknown exception");
  }
}

Message::Header headerTo(const std::string& ip, int id) {
  Message::Header header;
  header.ctxType = header.evtType = header.procLvl = kServiceClass;
  header.devID.IP = ip;
  header.devID.id = id;
  return header;
}

struct Address {
  std::uint32_t ip, id;
};

// The low bytes come from rand(), as they always did; they alone would let two
// clients meet, so that the rest is really random.
Address randomAddress() {
  const ACE_Time_Value now = ACE_OS::gettimeofday();
  const auto useconds = static_cast<unsigned>(now.usec());
  std::srand(static_cast<unsigned>(now.sec()) ^ useconds);
  std::array<unsigned, 8> turns;
  for (unsigned& turn : turns) turn = static_cast<unsigned>(std::rand()) + useconds;
  std::random_device device;
  return {(device() & ~0xffU) | (turns[0] & 0xff), (device() & ~0xffU) | (turns[4] & 0xff)};
}

Address serviceAddress(const std::string& service) {
  const std::size_t half = service.size() / 2;
  return {ACE::crc32(service.c_str(), half), ACE::crc32(service.c_str() + half)};
}

}  // namespace

TDX_MBUS_Transport_Impl::TDX_MBUS_Transport_Impl(const std::string& service_name,
                                                 const std::string& host, std::uint16_t port,
                                                 const std::string& user, const std::string& passwd)
    : host_(host),
      port_(port),
      user_(user),
      passwd_(passwd),
      request_hdr_(get_subscription_header(service_name)) {}

TDX_MBUS_Transport_Impl::TDX_MBUS_Transport_Impl(std::shared_ptr<Kelvane::Messenger> messenger,
                                                 const std::string& buf,
                                                 const Message::Header& reply_hdr,
                                                 std::uint32_t user_id)
    : TDX_Transport(user_id, buf),
      messenger_(std::move(messenger)),
      request_hdr_(reply_hdr),
      response_key_(kResponseDescriptor) {}

Message::Header TDX_MBUS_Transport_Impl::get_subscription_header(const std::string& service) {
  const Address address = service.empty() ? randomAddress() : serviceAddress(service);
  std::array<char, 16> ip;
  std::snprintf(ip.data(), ip.size(), "%u.%u.%u.%u", address.ip & 0xff, address.ip >> 8 & 0xff,
                address.ip >> 16 & 0xff, address.ip >> 24);
  return headerTo(ip.data(), static_cast<int>(address.id));
}

void TDX_MBUS_Transport_Impl::start_messenger() {
  const std::string rendezvous = host_ + ":" + std::to_string(port_);
  guarded("Failed to create client: : Exception %s: %s", [&] {
    messenger_ = std::make_shared<Kelvane::Messenger>(rendezvous);
    messenger_->start();
  });
}

void TDX_MBUS_Transport_Impl::subscribe(const Message::Header& header) {
  guarded("Subscribe failed: : Exception %s: %s", [&] {
    if (!messenger_->subscribe(header, nullptr, true))
      throw std::runtime_error("Server has not allowed this subscription");
  });
}

void TDX_MBUS_Transport_Impl::open() {
  if (messenger_) return;
  start_messenger();
  const Message::Header response_hdr = get_subscription_header("");
  subscribe(response_hdr);
  response_key_ = "ReplyTo: " + response_hdr.devID.IP + " " + std::to_string(response_hdr.devID.id);
}

void TDX_MBUS_Transport_Impl::on_buffer_ready(const std::string& buf) {
  Message message(request_hdr_, response_key_);
  message.header_.mMessageID = 0;
  message.header_.subscriptionID = -1;
  // Requests carry the reply's descriptor too.
  message.addAttachment(kResponseDescriptor, buf);
  guarded("Send failed: : Exception %s: %s", [&] { messenger_->send(message, nullptr); });
}

std::string TDX_MBUS_Transport_Impl::on_buffer_empty() {
  ACE_Time_Value deadline = ACE_OS::gettimeofday() + ACE_Time_Value(kReplyTimeoutSeconds);
  const std::unique_ptr<Message> msg(get_message(&deadline));
  assert(msg != 0);
  return msg->getAttachment(0).second;
}

Message* TDX_MBUS_Transport_Impl::get_message(ACE_Time_Value* timeout) {
  auto message = std::make_unique<Message>();
  const bool received = guarded("Message receiving failed: : Exception %s: %s",
                                [&] { return messenger_->recv(message.get(), timeout); });
  if (!received) throw TTransportException(TTransportException::TIMED_OUT, "Server read timed out");
  for (const Message::Attachment& attachment : message->mAttachments) {
    if (attachment.second.size() > kMaxMessageBytes)
      throw std::runtime_error("Oversized message: " + std::to_string(attachment.second.size()) +
                               " bytes");
  }
  return message.release();
}

void TDX_MBUS_Server_Transport_Impl::open() {
  if (messenger_) return;
  start_messenger();
  subscribe(request_hdr_);
}

TDX_Transport* TDX_MBUS_Server_Transport_Impl::accept() {
  const std::unique_ptr<Message> request(get_message(nullptr));
  const Message::Header& header = request->header_;
  // One matching class is enough.
  if (header.ctxType != kServiceClass && header.evtType != kServiceClass &&
      header.procLvl != kServiceClass)
    throw std::runtime_error("Foreign message");
  std::array<char, 16> ip{};
  int id = 0, ipEnd = 0;
  // A longer word than an address has room for is no address.
  if (std::sscanf(request->body_.c_str(), "ReplyTo: %15s%n %d", ip.data(), &ipEnd, &id) != 2 ||
      request->body_[static_cast<std::size_t>(ipEnd)] != ' ')
    throw std::runtime_error("Foreign message");
  return new TDX_MBUS_Transport_Impl(messenger_, request->getAttachment(0).second,
                                     headerTo(ip.data(), id), request->userid());
}

void TDX_MBUS_Server_Transport_Impl::interrupt() {
  if (messenger_) messenger_->stop();
}
