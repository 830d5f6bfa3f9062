#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "PushInFixture.h"
#include "support/Subprocess.h"

using namespace testsupport;
using Kelvane::Cfg;
using Kelvane::Time_Val;

TEST(PushInFraming, DoesNotDependOnDatagramBoundaries) {
  std::vector<std::string> bodies;
  // Around the stream's buffer, around the sink's buffer, with every byte value.
  for (const std::size_t size :
       {1U, 2U, 31999U, 32000U, 32001U, 64000U, 100000U, 999999U, 1000000U}) {
    std::string body(size, '\n');
    for (std::size_t i = 0; i < size; ++i) body[i] = static_cast<char>(i * 7 + i / 256);
    bodies.push_back(body);
  }
  std::string stream;
  for (const std::string& body : bodies) {
    stream += pushMessage(body, {"Content-Type: video/H264", "Unknown: header", "X"});
  }
  std::mt19937 random(1);
  for (const std::size_t limit : {32000U, 3000U, 300U}) {
    PushInServing serving;
    PushInPeer peer(serving.path);
    for (std::size_t at = 0; at < stream.size();) {
      const std::size_t size = 1 + random() % limit;
      peer.send(stream.substr(at, size));
      at += size;
    }
    // Whatever still stands in the stream's buffer moves on with the next datagram.
    std::vector<std::string> expected = bodies;
    for (int i = 0; i < 4; ++i) {
      peer.send(pushMessage("last"));
      expected.emplace_back("last");
    }
    ASSERT_TRUE(serving.host.video()->awaitFrames(bodies.size()));
    EXPECT_EQ(serving.stopAndReadLog(), "");
    expected.resize(serving.host.video()->count());
    EXPECT_TRUE(serving.host.video()->data() == expected) << limit;
  }
}

TEST(PushInFraming, ASecondMessageInADatagramWaitsForTheNextDatagram) {
  PushInServing serving;
  PushInPeer peer(serving.path);
  peer.send(pushMessage("first") + pushMessage("second"));
  EXPECT_TRUE(serving.host.video()->awaitFrames(1));
  EXPECT_FALSE(eventually([&] { return serving.host.video()->count() > 1; },
                          std::chrono::milliseconds(200)));
  peer.send(pushMessage("third"));
  EXPECT_TRUE(serving.host.video()->awaitFrames(3));
  EXPECT_THAT(serving.host.video()->data(), testing::ElementsAre("first", "second", "third"));
}

TEST(PushInFraming, AnEmptyDatagramEndsTheHeadersAndBreaksABodyOff) {
  PushInServing serving;
  PushInPeer peer(serving.path);
  peer.send("Content-Length: 3\n");
  peer.send("");
  peer.send("abc");
  EXPECT_TRUE(serving.host.video()->awaitFrames(1));
  peer.send("Content-Length: 10\n\nabcd");
  peer.send("");
  peer.send(pushMessage("next"));
  EXPECT_TRUE(serving.host.video()->awaitFrames(2));
  EXPECT_THAT(serving.host.video()->data(), testing::ElementsAre("abc", "next"));
  const std::string log = serving.stopAndReadLog();
  EXPECT_THAT(log, testing::HasSubstr("CRT-5001 Error to read from socket: "));
  EXPECT_THAT(log, testing::HasSubstr(". Aready read: 4\n"));
  EXPECT_THAT(serving.host.states(), testing::IsEmpty());
}

TEST(PushInMessages, ContentTypesFindTheirSink) {
  const std::string aac = "MPEG4-GENERIC";
  const std::string tail = ";numpackets=0;offsets=-;config=1210";
  const struct {
    std::string contentType;
    std::string codec;  // of the audio sink; empty for video
    std::string config;
    std::vector<std::string> frames;
  } cases[] = {
      {"audio/MPEG4-GENERIC;config=1210;numpackets=2;offsets=0002,0003",
       aac,
       "\x12\x10",
       {"ab", "c", "def"}},
      // Digits that do not decode: no configuration.
      {"audio/MPEG4-GENERIC;config=12x0;numpackets=0;offsets=-", aac, "", {"abcdef"}},
      {"PCMU;MPEG4-GENERIC;config=1210;numpackets=0;offsets=-", aac, "\x12\x10", {"abcdef"}},
      // The digits end with the 255th character: the separator goes behind the word.
      {aac + std::string(255 - aac.size() - tail.size(), 'x') + tail, aac, "\x12\x10", {"abcdef"}},
      {"audio/PCMU", "PCMU", "", {"abcdef"}},
      {"audio/L16/16000/2", "L16/16000/2", "", {"abcdef"}},
      {"audio/L16", "L8", "", {"abcdef"}},
      {"audio/L8", "L8", "", {"abcdef"}},
      {"audio/pcmu", "", "", {"abcdef"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.contentType);
    PushInServing serving;
    CapturingSink* sink = c.codec.empty() ? serving.host.video() : serving.host.audio();
    CapturingSink* other = c.codec.empty() ? serving.host.audio() : serving.host.video();
    PushInPeer(serving.path).send(pushMessage("abcdef", {"Content-Type: " + c.contentType}));
    ASSERT_TRUE(sink->awaitFrames(c.frames.size()));
    serving.stopAndReadLog();
    EXPECT_EQ(sink->data(), c.frames);
    EXPECT_EQ(other->count(), 0U);
    if (c.codec.empty()) {
      EXPECT_THAT(sink->codecs(), testing::IsEmpty()) << "no message names the video's codec";
    } else {
      EXPECT_THAT(sink->codecs(), testing::ElementsAre(c.codec));
      EXPECT_THAT(sink->configs(), testing::ElementsAre(c.config));
    }
    // One time for all packets of a message.
    EXPECT_TRUE(Time_Val(sink->frames().front().tv) == Time_Val(sink->frames().back().tv));
  }
}

TEST(PushInMessages, TheFirstAudioMessageDecidesOnTheCodec) {
  PushInServing serving;
  PushInPeer peer(serving.path);
  const std::string aac = "Content-Type: MPEG4-GENERIC;";
  peer.send(pushMessage("a", {aac + "config=zzzz;numpackets=0;offsets=-"}));  // tries again
  peer.send(pushMessage("b", {aac + "config=1210;numpackets=0;offsets=-"}));
  peer.send(pushMessage("c", {aac + "numpackets=0;offsets=-"}));
  peer.send(pushMessage("d", {"Content-Type: PCMU"}));
  peer.send(pushMessage("e", {"Content-Type: L16/8000/1"}));
  ASSERT_TRUE(serving.host.audio()->awaitFrames(5));
  EXPECT_THAT(serving.host.audio()->codecs(),
              testing::ElementsAre("MPEG4-GENERIC", "MPEG4-GENERIC"));
  EXPECT_THAT(serving.host.audio()->configs(), testing::ElementsAre("", "\x12\x10"));
}

TEST(PushInMessages, TimestampsKeepThePeersSpacingOnTheLocalClock) {
  PushInServing serving;
  PushInPeer peer(serving.path);
  const Time_Val begin;
  peer.send(pushMessage("a", {"Timestamp: 1000.000000"}));
  peer.send(pushMessage("b", {"Timestamp: 1000.040000"}));
  peer.send("Content-Length: 0\r\nTimestamp: 5000.0\r\n\r\n");  // measures anew, then is refused
  peer.send(pushMessage("c", {"Timestamp: 5003.5"}));
  peer.send(pushMessage("d"));
  ASSERT_TRUE(serving.host.video()->awaitFrames(4));
  const Time_Val end;
  std::vector<Time_Val> times;
  for (const SinkFrame& frame : serving.host.video()->frames()) times.emplace_back(frame.tv);
  EXPECT_TRUE(times[0] >= begin && times[0] <= end);
  EXPECT_TRUE(times[1] - times[0] == Kelvane::Delay_Interval(0, 40000));
  // c lies 3 s and 5 us behind the moment at which the refused message came.
  const Time_Val refused = times[2] - Kelvane::Delay_Interval(3, 5);
  EXPECT_TRUE(refused >= begin && refused <= end);
  EXPECT_TRUE(times[3] >= refused && times[3] <= end);
  const std::string log = serving.stopAndReadLog();
  EXPECT_THAT(log, testing::ContainsRegex("INFO - .* Time diff: \\+[0-9]+\\.[0-9]+\n"));
  EXPECT_THAT(log, testing::HasSubstr("Content-Length == 0\n"));
}

namespace {

// Notes the order of everything that a video message sets off.
class NotingAnnoncer : public Kelvane::PushInMediaAnnoncer {
 public:
  explicit NotingAnnoncer(std::vector<std::string>& notes) : notes_(notes) {}
  void annonceGPS(const timeval&, float latitude, float longitude, float altitude) override {
    char note[100];
    snprintf(note, sizeof note, "gps %g %g %g", latitude, longitude, altitude);
    notes_.emplace_back(note);
  }
  void annonceAlive(const timeval&, char* message) override {
    notes_.push_back(std::string("alive ") + message);
  }

 private:
  std::vector<std::string>& notes_;
};

class NotingStore : public Kelvane::MetadataStore {
 public:
  void write(const std::string& deviceId, const timeval&, const std::string& name,
             const std::string&) override {
    written.push_back(deviceId + " " + name);
  }
  std::vector<std::string> written;
};

}  // namespace

TEST(PushInPositions, OfVideoAreAnnouncedShownAndStored) {
  NotingStore store;
  Kelvane::setMetadataStore(&store);
  std::vector<std::string> notes;  // read once the producer has ended
  PushInServing serving({}, new NotingAnnoncer(notes));
  PushInPeer peer(serving.path);
  serving.host.video()->onFrame([&](const SinkFrame& frame) { notes.push_back(frame.data); });
  serving.host.audio()->onFrame([&](const SinkFrame& frame) { notes.push_back(frame.data); });
  const std::vector<std::string> position = {"GEO_Latitude: 55.75", "GEO_Longitude: -37.5",
                                             "GEO_Altitude: 0.1"};
  peer.send(pushMessage("v1", {position[0], position[1], position[2], "Message: two words"}));
  peer.send(pushMessage("a1", {position[0], "Message: x", "Content-Type: PCMU"}));
  peer.send(pushMessage("v2", {"GEO_Latitude: 0", "GEO_Longitude: 0.0"}));
  peer.send(pushMessage("v3", {"GEO_Altitude: 12.5"}));
  ASSERT_TRUE(serving.host.video()->awaitFrames(3));
  serving.stopAndReadLog();
  Kelvane::setMetadataStore(nullptr);
  EXPECT_THAT(notes, testing::ElementsAre("v1", "alive two words\r\n", "gps 55.75 -37.5 0.1", "a1",
                                          "v2", "alive ", "v3", "alive ", "gps 0 0 12.5"));

  ASSERT_EQ(serving.host.intake().size(), 2U);
  const auto frame = serving.host.intake()[0];
  EXPECT_EQ(frame.media, Kelvane::METADATA);
  EXPECT_EQ(frame.data, "");
  EXPECT_EQ(frame.tv.tv_sec, 0);
  EXPECT_EQ(
      frame.objects,
      R"({"text":{)"
      R"("UAS13":{"c":16777215,"h":18,"id":"UAS13","msg":"Latitude: 55.75","t":60,"v":55.75},)"
      R"("UAS14":{"c":16777215,"h":18,"id":"UAS14","msg":"Longitude: -37.5","t":60,"v":-37.5},)"
      R"("UAS15":{"c":16777215,"h":18,"id":"UAS15","msg":"Altitude: 0.1","t":60,)"
      R"("v":0.10000000149011612}}})");

  const timeval tv = serving.host.video()->frames()[0].tv;
  const std::string seconds = std::to_string(tv.tv_sec);
  const std::string useconds = std::to_string(tv.tv_usec);
  EXPECT_EQ(serving.host.extraData().at(0),
            "metadata " + seconds + "." + useconds +
                R"( {"tags":[{"descr":"Latitude","tag":"UAS13","value":55.75},)"
                R"({"descr":"Longitude","tag":"UAS14","value":-37.5},)"
                R"({"descr":"Altitude","tag":"UAS15","value":0.10000000149011612}],)"
                R"("timestamp":)" +
                seconds + R"(,"timestamp_usec":)" + useconds + "}");
  EXPECT_EQ(serving.host.extraData().size(), 2U);
  const std::string name = Cfg::value("DEVID") + " metadata";
  EXPECT_THAT(store.written, testing::ElementsAre(name, name));
}

TEST(PushInHostilePeers, AFaultyMessageIsNamedAndDroppedAndTheNextIsTaken) {
  const std::string junk(2500000, 'j');
  std::string lines;
  while (lines.size() < 1500000) lines += "X-Header: never ends\r\n";
  const struct {
    const char* what;
    std::string sent;
    const char* error;
  } cases[] = {
      {"no length", "Content-Type: x\r\n\r\n", "Content-Length == 0"},
      {"negative", "Content-Length: -1\r\n\r\n", "Content-Length -1 is negative"},
      {"negative with a body", "Content-Length: -5\r\n\r\nhello", "Content-Length -5 is negative"},
      {"one too many", "Content-Length: 1000001\r\n\r\n" + junk.substr(0, 1000001),
       "Content-Length 1000001 exceeds the buffer of 1000000 bytes"},
      {"a lie", "Content-Length: 2147483647\r\n\r\nlittle", "exceeds the buffer"},
      {"endless line", junk, "Header block is longer than 999999 bytes"},
      {"endless zeros", std::string(2500000, '\0'), "Header block is longer than"},
      {"endless lines", lines, "Header block is longer than"},
      {"offset behind the body",
       pushMessage("abc", {"Content-Type: MPEG4-GENERIC;config=1210;numpackets=1;offsets=0004"}),
       "AAC offsets do not fit: offset 4"},
      {"offsets that are not there",
       pushMessage("abc", {"Content-Type: MPEG4-GENERIC;config=1210;numpackets=2000000000;"
                           "offsets=0001"}),
       "AAC offsets do not fit: entry 1"},
      {"configuration cut short", pushMessage("abc", {"Content-Type: MPEG4-GENERIC;config=12"}),
       "AAC configuration is cut short"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    PushInServing serving;
    PushInPeer peer(serving.path);
    for (std::size_t at = 0; at < c.sent.size(); at += 32000) peer.send(c.sent.substr(at, 32000));
    peer.send(pushMessage("good", {"Content-Type: video/H264"}));
    ASSERT_TRUE(serving.host.video()->awaitFrames(1));
    const std::string log = serving.stopAndReadLog();
    EXPECT_THAT(serving.host.video()->data(), testing::ElementsAre("good"));
    EXPECT_EQ(serving.host.audio()->count(), 0U);
    EXPECT_THAT(log, testing::HasSubstr(c.error));
    EXPECT_EQ(log.find(" ERROR - "), log.rfind(" ERROR - ")) << "one fault, one line: " << log;
  }
}

TEST(PushInFatal, ContentTypesOutOfStepEndTheProcess) {
  const std::string id = "pushin" + std::to_string(getpid());
  const struct {
    const char* contentType;
    const char* text;
  } cases[] = {
      {"MPEG4-GENERIC;numpackets=0;offsets=-", "No configuration data for AAC"},
      {"MPEG4-GENERIC;config=1210", "Number of AAC raw packets is missing"},
      {"MPEG4-GENERIC;config=1210;numpackets=1",
       "Incorrect header: MPEG4-GENERIC;config=1210;numpackets=1"},
      {"audio/L16/8000", "Invalid content type: audio/L16/8000"},
      {"audio/L16/a/b", "Invalid content type: audio/L16/a/b"},
  };
  for (const auto& c : cases) {
    const auto push = [&] {
      std::filesystem::remove(recorderSocket(id));  // of the case before
      TestHost host(TestHost::Keys{{"DEVID", id}});
      Kelvane::PushInMediaProducerImpl producer(host.audio(), host.video(), nullptr);
      host.run(producer);
      PushInPeer peer(recorderSocket(id));
      peer.send(pushMessage("abc", {std::string("Content-Type: ") + c.contentType}));
      host.awaitEnd();
      _exit(9);
    };
    EXPECT_FATAL_EXIT(push(), c.text);
  }
  std::filesystem::remove(recorderSocket(id));
}

TEST(PushInSocket, AnyUserMaySendUnderEachName) {
  const std::string id = "pushin" + std::to_string(getpid());
  const std::string audio = recorderSocket(id + "a");
  const std::string hardware = "/tmp/" + id + "h.sock";
  writeFile(audio, "stale");
  writeFile(recorderSocket(id), "stale");
  PushInServing serving({{"DEVID", id}, {"AUDIO_DEVID", id + "a"}, {"HWID", id + "h"}});
  for (const std::string& name : {serving.path, audio, hardware}) {
    EXPECT_TRUE(eventually([&] { return std::filesystem::is_socket(name); })) << name;
    PushInPeer(name).send(pushMessage(name));
  }
  ASSERT_TRUE(serving.host.video()->awaitFrames(3));
  EXPECT_THAT(serving.host.video()->data(), testing::ElementsAre(serving.path, audio, hardware));
  EXPECT_EQ(std::filesystem::read_symlink(audio), serving.path);
  EXPECT_EQ(std::filesystem::read_symlink(hardware), serving.path);
  struct stat found {};
  ASSERT_EQ(stat(serving.path.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 07777, 0777U);
  EXPECT_EQ(serving.stopAndReadLog(), "");
  EXPECT_TRUE(serving.host.result());
  for (const std::string& name : {serving.path, audio, hardware}) {
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(name))) << name;
  }
}

TEST(PushInSocket, AnAliasThatCannotBeMadeIsDoneWithout) {
  PushInServing serving(TestHost::Keys{{"AUDIO_DEVID", "no/such/folder"}});
  PushInPeer(serving.path).send(pushMessage("frame"));
  ASSERT_TRUE(serving.host.video()->awaitFrames(1));
  EXPECT_THAT(serving.stopAndReadLog(),
              testing::HasSubstr("CRT-0003 symlink() failed: No such file or directory\n"));
}

TEST(PushInSocket, WithoutItsSocketTheProcessEnds) {
  const std::string self = "pushin" + std::to_string(getpid());
  const struct {
    TestHost::Keys keys;
    const char* text;
  } cases[] = {
      {{{"DEVID", "no/such/folder"}}, "CRT-0031 bind() fails: No such file or directory"},
      {{{"DEVID", std::string(200, 'd')}}, "CRT-0031 bind() fails: Invalid argument"},
      // One byte more than the address holds.
      {{{"DEVID", std::string(109 - recorderSocket("").size(), 'd')}},
       "CRT-0031 bind() fails: Invalid argument"},
      // The alias takes the socket's place and points at itself.
      {{{"DEVID", self}, {"AUDIO_DEVID", self}},
       "CRT-0031 chmod() fails: Too many levels of symbolic links"},
  };
  for (const auto& c : cases) {
    const auto serve = [&] {
      TestHost host(c.keys);
      Kelvane::PushInMediaProducerImpl(host.audio(), host.video(), nullptr).start();
    };
    EXPECT_FATAL_EXIT(serve(), c.text);
  }
  std::filesystem::remove(recorderSocket(self));
}
