#pragma once

#include <thrift/transport/TTransport.h>

#include <cstdint>
#include <sstream>
#include <string>

// Turns a carrier of whole messages into the byte stream that Thrift's binary
// protocol works on: one Thrift message is one carrier message, with nothing
// around it. What is written gathers in the buffer until writeEnd() sends it;
// a read that finds the buffer empty waits for one message of the carrier.
//
// Both directions share the buffer, so readEnd() has to come before a reply is
// written. One thread at a time. Failures are the carrier's: std::runtime_error
// for a send, TTransportException TIMED_OUT for a message that does not come.
class TDX_Transport : public apache::thrift::transport::TTransport {
 public:
  // Messages are small control records. A longer one is refused on arrival,
  // which bounds what a peer can make this process allocate.
  static constexpr std::size_t kMaxMessageBytes = 4 * 1024 * 1024;

  // A client's: nothing to read yet.
  TDX_Transport();
  // An accepted request: `buf` is read first, without the carrier.
  TDX_Transport(std::uint32_t user_id, const std::string& buf);
  ~TDX_Transport() override;

  // Returns `len` whatever the message could deliver: bytes behind its end
  // leave `buf` as it was, and the transport carries nothing from then on.
  std::uint32_t read_virt(std::uint8_t* buf, std::uint32_t len) override;
  // As read(), but bytes behind the message's end come out as 0, so that the
  // protocol does not work on uninitialised memory.
  std::uint32_t readAll_virt(std::uint8_t* buf, std::uint32_t len) override;
  std::uint32_t readEnd() override;
  void write_virt(const std::uint8_t* buf, std::uint32_t len) override;
  std::uint32_t writeEnd() override;

  // The identity that came with the request; 0 on a client's transport.
  virtual std::uint32_t user_id();
  // Sends `buf` as one message.
  virtual void on_buffer_ready(const std::string& buf);
  // Waits for one message and returns its whole body, or throws.
  virtual std::string on_buffer_empty();

  // Bytes of the message at hand that are not read yet.
  std::size_t unread() const;

 protected:
  void reset_buffer();

 private:
  std::uint32_t user_id_;
  std::stringstream buffer_;
  bool empty_;  // of the buffer's whole content, read or not: spares copying it
};

// The accepting side of a carrier.
class TDX_Server_Transport {
 public:
  virtual void open() = 0;
  // Blocks until one request is there. The caller owns the result.
  virtual TDX_Transport* accept() = 0;
  // Makes a blocked accept() and all later ones throw. From any thread.
  virtual void interrupt() = 0;

 protected:
  ~TDX_Server_Transport() = default;
};
