#include <gtest/gtest.h>
#include <thrift/transport/TTransportException.h>

#include "TDX_Protocol.h"
#include "TDX_Transport.h"

namespace {

// Keeps what is sent, and delivers what the test put there.
class Carrier : public TDX_Transport {
 public:
  using TDX_Transport::TDX_Transport;
  void on_buffer_ready(const std::string& buf) override { sent.push_back(buf); }
  std::string on_buffer_empty() override {
    ++fetches;
    return next;
  }
  std::vector<std::string> sent;
  std::string next;
  int fetches = 0;
};

void put(TDX_Transport& transport, const std::string& text) {
  transport.write(reinterpret_cast<const std::uint8_t*>(text.data()),
                  static_cast<std::uint32_t>(text.size()));
}

// Reads over eight '-' and returns them; `read` must claim all of `count`.
std::string get(TDX_Transport& transport, std::uint32_t count) {
  std::string target(8, '-');
  EXPECT_EQ(count, transport.read(reinterpret_cast<std::uint8_t*>(target.data()), count));
  return target;
}

}  // namespace

TEST(Transport, OneMessageFromWritesAndOneIntoReads) {
  Carrier carrier;
  put(carrier, "ab");
  put(carrier, std::string("\0c", 2));
  carrier.flush();
  EXPECT_TRUE(carrier.sent.empty());
  carrier.writeEnd();
  carrier.writeEnd();
  EXPECT_EQ((std::vector<std::string>{std::string("ab\0c", 4), ""}), carrier.sent);

  carrier.next = "reply";
  EXPECT_EQ("re------", get(carrier, 2));
  EXPECT_EQ("ply-----", get(carrier, 3));
  EXPECT_EQ("--------", get(carrier, 0));
  EXPECT_EQ(1, carrier.fetches) << "a message that is read out is still the one at hand";
  carrier.readEnd();
  get(carrier, 0);
  EXPECT_EQ(2, carrier.fetches) << "even a read of nothing waits for a message";
}

TEST(Transport, ReadBehindTheEndClaimsSuccessAndEndsTheTransport) {
  Carrier carrier;
  carrier.next = "abc";
  EXPECT_EQ("abc-----", get(carrier, 8));
  carrier.readEnd();
  put(carrier, "never sent");
  carrier.writeEnd();
  EXPECT_EQ(std::vector<std::string>{""}, carrier.sent);
  EXPECT_EQ("--------", get(carrier, 8));

  Carrier other;
  other.next = "ab";
  std::string target(4, '-');
  other.readAll(reinterpret_cast<std::uint8_t*>(target.data()), 4);
  EXPECT_EQ(std::string("ab\0\0", 4), target);
}

TEST(Transport, AcceptedRequestIsReadWithoutTheCarrier) {
  Carrier accepted(77, "request");
  EXPECT_EQ(77U, accepted.user_id());
  EXPECT_EQ("request-", get(accepted, 7));
  EXPECT_EQ(0, accepted.fetches);
  accepted.readEnd();
  put(accepted, "reply");
  accepted.writeEnd();
  EXPECT_EQ(std::vector<std::string>{"reply"}, accepted.sent);

  Carrier empty(1, "");
  empty.next = "x";
  EXPECT_EQ("x-------", get(empty, 1));
  EXPECT_EQ(1, empty.fetches);
}

TEST(Transport, CarrierFailureKeepsTheBuffer) {
  class Broken : public Carrier {
   public:
    void on_buffer_ready(const std::string& buf) override {
      if (broken) throw std::runtime_error("wire cut");
      Carrier::on_buffer_ready(buf);
    }
    bool broken = true;
  } carrier;
  put(carrier, "kept");
  EXPECT_THROW(carrier.writeEnd(), std::runtime_error);
  carrier.broken = false;
  carrier.writeEnd();
  EXPECT_EQ(std::vector<std::string>{"kept"}, carrier.sent);
  EXPECT_FALSE(carrier.isOpen());
  EXPECT_THROW(carrier.open(), apache::thrift::transport::TTransportException);
  EXPECT_THROW(carrier.close(), apache::thrift::transport::TTransportException);
}

// Counts that only a liar writes, among them those whose product with an
// element's size passes 32 bits.
TEST(Protocol, MadeUpSizesAreRefusedBeforeAnythingIsAllocated) {
  const auto at = [](std::uint32_t count) {
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(count >> shift & 0xff);
    return out;
  };
  namespace tp = apache::thrift::protocol;
  for (const std::uint32_t count : {0x7fffffffU, 0x20000001U, 0x10000001U, 13U, 0xffffffffU}) {
    for (const std::string& element :
         {std::string("\x0a"), std::string("\x0c"), std::string("\x0b")}) {
      const auto carrier = std::make_shared<Carrier>();
      carrier->next = element + at(count) + std::string(12, '\0');
      TDX_Protocol protocol(carrier);
      tp::TType type;
      std::uint32_t size = 0;
      EXPECT_THROW(protocol.readListBegin(type, size), tp::TProtocolException) << count;
    }
    const auto carrier = std::make_shared<Carrier>();
    carrier->next = "\x0b\x0b" + at(count) + std::string(12, '\0');
    TDX_Protocol protocol(carrier);
    tp::TType key, value;
    std::uint32_t size = 0;
    EXPECT_THROW(protocol.readMapBegin(key, value, size), tp::TProtocolException) << count;
  }
  const auto carrier = std::make_shared<Carrier>();
  carrier->next = at(0x7fffffff) + "text";
  TDX_Protocol protocol(carrier);
  std::string text;
  EXPECT_THROW(protocol.readString(text), tp::TProtocolException);
}
