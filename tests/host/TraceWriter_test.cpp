#include "TraceWriter.h"

#include <json/reader.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "support/Subprocess.h"
#include "support/TestHost.h"

using namespace testsupport;
using host::TraceWriter;

namespace {

struct Trace {
  Trace() : writer(folder.path() + "/trace") {}
  std::vector<Json::Value> lines() const {
    std::ifstream file(folder.path() + "/trace");
    std::vector<Json::Value> all;
    for (std::string line; std::getline(file, line);) {
      Json::Value value;
      std::istringstream text(line);
      std::string problem;
      EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), text, &value, &problem)) << line;
      all.push_back(value);
    }
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

TEST(TraceWriter, EachEventHasItsFields) {
  Trace trace;
  trace.writer.onInit(Kelvane::AUDIO, "PCMU", std::string("\x00\xFF", 2));
  trace.frame("123456789", Kelvane::AUDIO);
  trace.frame(std::string(40, '\x7F'), Kelvane::VIDEO);
  trace.frame("", Kelvane::METADATA, R"({"a":"b"})");
  trace.writer.onState(Kelvane::StreamState::STREAM_LOST, Kelvane::StreamState::NET_FAILURE);
  trace.writer.onPid(false, true);
  trace.writer.onExtraData("metadata", {1, 2}, R"({"tags":[1]})");
  const auto lines = trace.lines();
  ASSERT_EQ(lines.size(), 7U);
  const struct {
    int line;
    const char *path, *text;  // of one field
  } fields[] = {
      {0, "codec", "PCMU"},
      {0, "config", "00ff"},
      {1, "codec", "PCMU"},
      {1, "crc32", "cbf43926"},
      {1, "head", "313233343536373839"},
      {2, "codec", ""},
      {2, "size", "40"},
      {3, "crc32", "00000000"},
      {3, "objects", R"({"a":"b"})"},
      {4, "state", "STREAM_LOST"},
      {4, "errno", "NET_FAILURE"},
  };
  for (const auto& field : fields) {
    EXPECT_EQ(lines[static_cast<std::size_t>(field.line)][field.path].asString(), field.text)
        << field.path;
  }
  const auto pair = [](const Json::Value& value) {
    return value[0].asString() + " " + value[1].asString();
  };
  EXPECT_EQ(pair(lines[1]["tv"]), "12 34");
  EXPECT_FALSE(lines[1].isMember("objects"));
  EXPECT_EQ(lines[2]["head"].asString().size(), 64U);
  EXPECT_EQ(pair(lines[5]["args"]), "false true");
  EXPECT_EQ(lines[6]["record"]["tags"][0], 1);
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
  std::thread other([&] {
    for (int i = 0; i < kEach; ++i) trace.writer.onTrigger(std::string(3000, 'x'));
  });
  for (int i = 0; i < kEach; ++i) trace.frame("y", Kelvane::VIDEO);
  other.join();
  EXPECT_EQ(trace.lines().size(), 2U * kEach);
}
