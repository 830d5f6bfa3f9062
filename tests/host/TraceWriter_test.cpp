#include "TraceWriter.h"

#include <fstream>
#include <thread>

#include "support/Subprocess.h"
#include "support/TestHost.h"

using namespace testsupport;
using host::TraceWriter;

namespace {

struct Trace {
  Trace() : writer(folder.path() + "/trace") {}
  std::vector<std::string> lines() const {
    std::ifstream file(folder.path() + "/trace");
    std::vector<std::string> all;
    for (std::string line; std::getline(file, line);) all.push_back(line);
    return all;
  }
  void frame(const std::string& data, Kelvane::MEDIA_TYPE media, const std::string& objects = "") {
    const auto frame = mediaFrame(data, media, {12, 34});
    frame->objectsData = objects;
    writer.onFrame(*frame);
  }

  TemporaryFolder folder;
  TraceWriter writer;
};

}  // namespace

TEST(TraceWriter, EachEventIsALineOfJson) {
  Trace trace;
  trace.writer.onInit(Kelvane::AUDIO, "PCMU", std::string("\x00\xFF", 2));
  trace.frame("123456789", Kelvane::AUDIO);
  trace.frame(std::string(40, '1'), Kelvane::VIDEO);
  trace.frame("", Kelvane::METADATA, R"({"a":"b"})");
  trace.writer.onState(Kelvane::StreamState::STREAM_LOST, Kelvane::StreamState::NET_FAILURE);
  trace.writer.onPid(false, true);
  trace.writer.onExtraData("metadata", {1, 2}, R"({"tags":[1]})");
  std::string head;  // of at most 32 bytes
  for (int i = 0; i < 32; ++i) head += "31";
  EXPECT_THAT(trace.lines(),
              testing::ElementsAre(
                  R"({"event":"init","media":"audio","codec":"PCMU","config":"00ff"})",
                  R"({"event":"frame","media":"audio","size":9,"tv":[12,34],"crc32":"cbf43926",)"
                  R"("head":"313233343536373839","codec":"PCMU"})",
                  R"({"event":"frame","media":"video","size":40,"tv":[12,34],"crc32":"492f0064",)"
                  R"("head":")" +
                      head + R"(","codec":""})",
                  R"({"event":"frame","media":"metadata","size":0,"tv":[12,34],"crc32":"00000000",)"
                  R"("head":"","codec":"","objects":"{\"a\":\"b\"}"})",
                  R"({"event":"state","state":"STREAM_LOST","errno":"NET_FAILURE"})",
                  R"({"event":"pid","args":[false,true]})",
                  R"({"event":"extra_data","name":"metadata","tv":[1,2],"record":{"tags":[1]}})"));
}

TEST(TraceWriter, AnyBytesOfADeviceMakeValidJson) {
  const struct {
    std::string text;
    std::string json;
  } cases[] = {
      {"a\"\\/\n\x01", R"("a\"\\/\u000a\u0001")"},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\""},
      {"\xC0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},                  // overlong
      {"\xED\xA0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""},  // surrogate
      {"\xE2\x82", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},                  // cut
      {"\xFF", "\"\xEF\xBF\xBD\""},
  };
  for (const auto& c : cases) EXPECT_EQ(host::jsonString(c.text), c.json);
}

TEST(TraceWriter, LinesOfSeveralThreadsStayWhole) {
  Trace trace;
  constexpr int kEach = 200;
  const std::string text(3000, 'x');
  const auto write = [&] {
    for (int i = 0; i < kEach; ++i) trace.writer.onTrigger(text);
  };
  std::thread other(write);
  write();
  other.join();
  const auto lines = trace.lines();
  EXPECT_EQ(lines.size(), 2U * kEach);
  EXPECT_THAT(lines, testing::Each(R"({"event":"trigger","text":")" + text + "\"}"));
}
