#include "TDX_CMS_Transport_Impl.h"

#include <activemq/library/ActiveMQCPP.h>
#include <cms/ConnectionFactory.h>
#include <thrift/transport/TTransportException.h>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

using apache::thrift::transport::TTransportException;

namespace {

constexpr int kReplyTimeoutMs = 5000;

template <class Step>
auto guarded(Step step) -> decltype(step()) {
  try {
    return step();
  } catch (const cms::CMSException& failure) {
    throw std::runtime_error(failure.getMessage());
  }
}

std::string brokerUri(const std::string& host, std::uint16_t port) {
  return "failover:(tcp://" + host + ":" + std::to_string(port) +
         "?wireFormat.maxInactivityDuration=0&soTimeout=20000)";
}

std::shared_ptr<cms::MessageProducer> makeProducer(cms::Session& session,
                                                   const cms::Destination* destination) {
  std::shared_ptr<cms::MessageProducer> producer(session.createProducer(destination));
  producer->setDeliveryMode(cms::DeliveryMode::NON_PERSISTENT);
  return producer;
}

// Anything else than a bytes message is nobody's call.
std::string bodyOf(const cms::Message& message) {
  const auto* bytes = dynamic_cast<const cms::BytesMessage*>(&message);
  if (bytes == nullptr) throw std::runtime_error("Foreign message");
  const auto length = static_cast<std::size_t>(bytes->getBodyLength());
  if (length > TDX_Transport::kMaxMessageBytes)
    throw std::runtime_error("Oversized message: " + std::to_string(length) + " bytes");
  std::vector<unsigned char> body(length);
  bytes->readBytes(body);
  return std::string(body.begin(), body.end());
}

}  // namespace

TDX_CMS_Transport_Impl::TDX_CMS_Transport_Impl(const std::string& service_name,
                                               const std::string& host, std::uint16_t port,
                                               const std::string& user, const std::string& passwd)
    : host_(host), port_(port), user_(user), passwd_(passwd), service_name_(service_name) {}

TDX_CMS_Transport_Impl::TDX_CMS_Transport_Impl(std::shared_ptr<cms::Session> session,
                                               std::shared_ptr<cms::MessageProducer> producer,
                                               const std::string& buf,
                                               const std::string& correlation_id,
                                               std::uint32_t user_id)
    : TDX_Transport(user_id, buf),
      session_(std::move(session)),
      producer_(std::move(producer)),
      correlation_id_(correlation_id) {}

void TDX_CMS_Transport_Impl::connect() {
  guarded([this] {
    activemq::library::ActiveMQCPP::initializeLibrary();
    const std::unique_ptr<cms::ConnectionFactory> factory(
        cms::ConnectionFactory::createCMSConnectionFactory(brokerUri(host_, port_)));
    connection_.reset(factory->createConnection(user_, passwd_));
    session_.reset(connection_->createSession(cms::Session::AUTO_ACKNOWLEDGE));
    destination_.reset(session_->createQueue(service_name_));
    connection_->start();
  });
}

void TDX_CMS_Transport_Impl::open() {
  connect();
  guarded([this] {
    producer_ = makeProducer(*session_, destination_.get());
    response_queue_.reset(
        session_->createQueue("CPP_" + to_string(boost::uuids::random_generator()())));
    consumer_.reset(session_->createConsumer(response_queue_.get()));
  });
}

void TDX_CMS_Transport_Impl::on_buffer_ready(const std::string& buf) {
  guarded([&] {
    const std::unique_ptr<cms::BytesMessage> message(session_->createBytesMessage());
    message->writeBytes(reinterpret_cast<const unsigned char*>(buf.data()), 0,
                        static_cast<int>(buf.size()));
    if (response_queue_) message->setCMSReplyTo(response_queue_.get());
    message->setCMSCorrelationID(correlation_id_);
    producer_->send(message.get());
  });
}

std::string TDX_CMS_Transport_Impl::on_buffer_empty() {
  return guarded([this] {
    const std::unique_ptr<cms::Message> message(consumer_->receive(kReplyTimeoutMs));
    if (!message)
      throw TTransportException(TTransportException::TIMED_OUT, "Server read timed out");
    return bodyOf(*message);
  });
}

void TDX_CMS_Server_Transport_Impl::open() {
  connect();
  guarded([this] { consumer_.reset(session_->createConsumer(destination_.get())); });
}

TDX_Transport* TDX_CMS_Server_Transport_Impl::accept() {
  return guarded([this] {
    const std::unique_ptr<cms::Message> msg(consumer_->receive());
    if (!msg) {
      if (interrupted_) throw std::runtime_error("The service was shut down");
      // Nobody closes the consumer: the broker library is out of order.
      std::fprintf(stderr, "TDX_CMS_Server_Transport_Impl: no message from a blocking receive\n");
      std::abort();
    }
    const std::string body = bodyOf(*msg);
    return new TDX_CMS_Transport_Impl(session_, makeProducer(*session_, msg->getCMSReplyTo()), body,
                                      msg->getCMSCorrelationID(), 0);
  });
}

void TDX_CMS_Server_Transport_Impl::interrupt() {
  interrupted_ = true;
  if (consumer_) guarded([this] { consumer_->close(); });
}
