#pragma once

#include <cms/BytesMessage.h>
#include <cms/Connection.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "TDX_Transport.h"

// Carries service calls over a message broker. A service is the queue of its
// name; a client has a private reply queue, which each request names as its
// reply-to. Payloads are the bodies of bytes messages.
//
// As on the bus, a client takes whatever comes next as its reply. Failures of
// the broker leave as std::runtime_error with the broker library's text.
class TDX_CMS_Transport_Impl : public TDX_Transport {
 public:
  // A client of `service_name`; user and password are the broker's login.
  TDX_CMS_Transport_Impl(const std::string& service_name, const std::string& host,
                         std::uint16_t port, const std::string& user, const std::string& passwd);
  // An accepted request, answered through `producer`.
  TDX_CMS_Transport_Impl(std::shared_ptr<cms::Session> session,
                         std::shared_ptr<cms::MessageProducer> producer, const std::string& buf,
                         const std::string& correlation_id, std::uint32_t user_id);

  // Connects anew each time; waits 20 seconds for a broker at most.
  void open() override;
  void on_buffer_ready(const std::string& buf) override;
  // Waits 5 seconds.
  std::string on_buffer_empty() override;
  virtual void connect();

 protected:
  std::string host_;
  std::uint16_t port_ = 0;
  std::string user_, passwd_, service_name_;
  std::shared_ptr<cms::Connection> connection_;
  std::shared_ptr<cms::Session> session_;
  std::shared_ptr<cms::Destination> destination_;
  std::shared_ptr<cms::Destination> response_queue_;  // null on an accepted transport
  std::shared_ptr<cms::MessageConsumer> consumer_;
  std::shared_ptr<cms::MessageProducer> producer_;
  std::string correlation_id_;
};

// Listens on a service's queue.
class TDX_CMS_Server_Transport_Impl : public TDX_Server_Transport, public TDX_CMS_Transport_Impl {
 public:
  using TDX_CMS_Transport_Impl::TDX_CMS_Transport_Impl;

  void open() override;
  // std::runtime_error "Foreign message" for what is no bytes message.
  TDX_Transport* accept() override;
  void interrupt() override;

 private:
  std::atomic<bool> interrupted_{false};
};
