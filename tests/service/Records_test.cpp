#include <gtest/gtest.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include "elog_types.h"

namespace {

using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::transport::TMemoryBuffer;
using Bytes = std::string;

template <class Record>
Bytes written(const Record& record) {
  const auto buffer = std::make_shared<TMemoryBuffer>();
  TBinaryProtocol protocol(buffer);
  record.write(&protocol);
  return buffer->getBufferAsString();
}

template <class Record>
void readInto(Record& record, const Bytes& bytes) {
  const auto buffer = std::make_shared<TMemoryBuffer>();
  buffer->write(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                static_cast<std::uint32_t>(bytes.size()));
  TBinaryProtocol protocol(buffer);
  record.read(&protocol);
}

// One field's head: type, id. Types: 2 bool, 6 i16, 8 i32, 11 string, 12
// struct, 13 map, 14 set, 15 list.
Bytes field(int type, int id) {
  return {static_cast<char>(type), 0, static_cast<char>(id)};
}
Bytes i32(int value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
          static_cast<char>(value >> 8), static_cast<char>(value)};
}
Bytes text(const std::string& value) {
  return i32(static_cast<int>(value.size())) + value;
}
const Bytes kStop(1, '\0');

}  // namespace

TEST(Records, ActionBytes) {
  NV_TDX::Action action;
  action.name = "create";
  action.parameters = {{"msg", "hi"}};
  action.actions.resize(1);
  action.actions[0].domain = "d";
  EXPECT_EQ(field(11, 1) + text("create") +                                      //
                field(13, 2) + "\x0b\x0b" + i32(1) + text("msg") + text("hi") +  //
                field(15, 3) + "\x0c" + i32(1) +                                 //
                field(11, 1) + text("") + field(11, 2) + text("d") +             //
                field(13, 3) + "\x0b\x0b" + i32(0) + kStop +                     //
                kStop,
            written(action));
}

TEST(Records, ReadingSkipsWhatDoesNotMatchAndReplacesWhatDoes) {
  NV_TDX::Action action;
  action.name = "kept";
  action.parameters = {{"old", "1"}};
  action.actions.resize(3);
  readInto(action, field(8, 1) + i32(5) +                                            // wrong type
                       field(11, 99) + text("newer peer") +                          // unknown id
                       field(13, 2) + "\x0b\x0b" + i32(1) + text("a") + text("b") +  //
                       field(15, 3) + "\x0c" + i32(0) + kStop);
  EXPECT_EQ("kept", action.name);
  EXPECT_FALSE(action.__isset.name);
  EXPECT_EQ((NV_TDX::TParameters{{"a", "b"}}), action.parameters);
  EXPECT_TRUE(action.__isset.parameters);
  EXPECT_TRUE(action.actions.empty());
}

TEST(Records, EventKeepsUnknownEnumValuesAndDropsFieldElevenAndDuplicates) {
  NV_TDX::Event event;
  readInto(event, field(8, 5) + i32(9) + field(8, 4) + i32(-3) +  //
                      field(11, 11) + text("once") +              //
                      field(14, 13) + "\x08" + i32(3) + i32(7) + i32(2) + i32(7) + kStop);
  EXPECT_EQ(9, static_cast<int>(event.priority));
  EXPECT_EQ(-3, static_cast<int>(event.eventtype));
  EXPECT_EQ(
      (std::set<NV_TDX::Tag::type>{NV_TDX::Tag::NEEDS_SUPERVISER_ATTN, NV_TDX::Tag::CLEARABLE}),
      event.tags);
  event.utc.when = 1;
  event.utc.from = 2;
  const Bytes bytes = written(event);
  EXPECT_NE(Bytes::npos, bytes.find(field(8, 5) + i32(9)));
  EXPECT_NE(Bytes::npos, bytes.find(field(14, 13) + "\x08" + i32(2) + i32(2) + i32(7)));
  EXPECT_NE(Bytes::npos, bytes.find(field(12, 9) + field(8, 1) + i32(1) + field(8, 2) + i32(2)));
  EXPECT_EQ(Bytes::npos, bytes.find("once"));
  EXPECT_EQ(field(2, 17) + kStop + kStop, bytes.substr(bytes.size() - 5));
}

TEST(Records, OrderAndFingerprints) {
  NV_TDX::NestedAction a, b;
  a.name = b.name = "same";
  b.parameters["x"] = "1";
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_TRUE(a != b);
  EXPECT_STREQ("63855B6220A62BC25EBF1C31592DB703", NV_TDX::Event::ascii_fingerprint);
  EXPECT_EQ(0x07, NV_TDX::FwException::binary_fingerprint[0]);
  EXPECT_EQ(0x72, NV_TDX::FwException::binary_fingerprint[15]);
}
