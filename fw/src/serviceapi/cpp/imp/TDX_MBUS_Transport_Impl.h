#pragma once

#include <ace/Time_Value.h>

#include <cstdint>
#include <memory>
#include <string>

#include "Message.h"
#include "Messenger.h"
#include "TDX_Transport.h"

// Carries service calls over the site's message bus. A service's name is
// hashed into a pseudo device address; a client subscribes to a random address
// of its own and writes it into the body of each request ("ReplyTo: IP id").
//
// Replies are not correlated: whatever arrives on the private address is taken
// as the answer, a late one by the next call. One thread at a time.
class TDX_MBUS_Transport_Impl : public TDX_Transport {
 public:
  // A client of `service_name`. The bus has no login: both texts go unused.
  TDX_MBUS_Transport_Impl(const std::string& service_name, const std::string& host,
                          std::uint16_t port, const std::string& user, const std::string& passwd);
  // An accepted request, whose reply goes out on the listener's messenger.
  TDX_MBUS_Transport_Impl(std::shared_ptr<Kelvane::Messenger> messenger, const std::string& buf,
                          const Kelvane::Message::Header& reply_hdr, std::uint32_t user_id);

  // Connects and subscribes, once. std::runtime_error after at most 5 seconds.
  void open() override;
  void on_buffer_ready(const std::string& buf) override;
  // Waits 5 seconds.
  std::string on_buffer_empty() override;

  // The address of a service; of a private one for an empty name. The latter
  // reseeds the process's rand().
  Kelvane::Message::Header get_subscription_header(const std::string& service);
  // The caller owns the result. `timeout` is an absolute deadline, or null.
  Kelvane::Message* get_message(ACE_Time_Value* timeout);

 protected:
  void start_messenger();
  void subscribe(const Kelvane::Message::Header& header);

  std::string host_;
  std::uint16_t port_ = 0;
  std::string user_, passwd_;
  std::string service_name_;  // stays empty: the name only makes request_hdr_
  std::shared_ptr<Kelvane::Messenger> messenger_;
  Kelvane::Message::Header request_hdr_;
  std::string response_key_;
};

// Listens on a service's address.
class TDX_MBUS_Server_Transport_Impl : public TDX_Server_Transport, public TDX_MBUS_Transport_Impl {
 public:
  using TDX_MBUS_Transport_Impl::TDX_MBUS_Transport_Impl;

  void open() override;
  // std::runtime_error "Foreign message" for a message that is no request.
  TDX_Transport* accept() override;
  void interrupt() override;
};
