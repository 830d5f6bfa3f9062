#include "TransportStream.h"

#include <malloc.h>

#include <cstring>

#include "FrameParser.h"
#include "TSFrame.h"
#include "TSSink.h"
#include "TsBuilder.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

extern "C" std::size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

using namespace testsupport;
using Kelvane::FrameParser;
using Kelvane::TransportStream;
using Kelvane::TSFrameKind;

namespace {

const std::uint8_t* raw(const std::string& bytes) {
  return reinterpret_cast<const std::uint8_t*>(bytes.data());
}

std::vector<std::string> feed(TransportStream& ts, const std::string& packets) {
  std::vector<std::string> payloads;
  ts.feed(raw(packets), packets.size(), [&](AVPacket& pes, AVStream& stream) {
    EXPECT_EQ(pes.stream_index, stream.index);
    payloads.emplace_back(reinterpret_cast<char*>(pes.data), static_cast<std::size_t>(pes.size));
  });
  return payloads;
}

// Not the resident size: a sanitizer keeps what is freed for a while.
long allocatedKb() {
  const std::size_t bytes = __sanitizer_get_current_allocated_bytes != nullptr
                                ? __sanitizer_get_current_allocated_bytes()
                                : mallinfo2().uordblks;
  return static_cast<long>(bytes / 1024);
}

}  // namespace

TEST(TransportStream, EndlessAnnouncementsTakeBoundedMemory) {
  TransportStream ts;
  TsBuilder sender;
  const auto flood = [&](int rounds) {
    for (int i = 0; i < rounds; ++i) {
      // New programs, new tables, new streams, and streams that nobody announced.
      const int program = 1 + i % 60000;
      const int pmtPid = 32 + i % 4000;
      std::vector<TsBuilder::Stream> streams;
      for (int s = 0; s < 30; ++s) streams.push_back({TsBuilder::kH264, 32 + (i * 31 + s) % 8000});
      feed(ts, sender.pat(pmtPid, program, i) + sender.pmt(pmtPid, streams, program, i) +
                   sender.pes(32 + i * 7 % 8000, std::string(300, 'x')));
    }
  };
  flood(1000);
  const long before = allocatedKb();
  const unsigned restarts = ts.restarts();
  EXPECT_GT(restarts, 0U);
  flood(3000);
  EXPECT_GT(ts.restarts(), restarts);
  EXPECT_LT(allocatedKb() - before, 48 * 1024);

  // And it still learns a stream that behaves.
  feed(ts, sender.pat(256, 1, 7) + sender.pmt(256, {{TsBuilder::kPrivate, 300}}, 1, 7));
  const std::string large(5000, 'b');
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(feed(ts, sender.pes(300, large)), testing::ElementsAre(large));
  }
}

TEST(FrameParser, AFrameWithoutEndIsGivenUpAndTheNextOnesCome) {
  FrameParser parser(AV_CODEC_ID_H264);
  ASSERT_TRUE(parser.opened());
  AVPacket* pes = av_packet_alloc();
  ASSERT_EQ(av_new_packet(pes, 100000), 0);
  memset(pes->data, 0x55, 100000);
  int frames = 0;
  int givenUp = 0;
  for (int i = 0; i < 200; ++i) {
    parser.feed(*pes, [&](AVPacket&) { ++frames; });
    if (parser.givenUp() > FrameParser::kMaxFrame) ++givenUp;
  }
  EXPECT_EQ(frames, 0);
  EXPECT_EQ(givenUp, 200 * 100000 / static_cast<int>(FrameParser::kMaxFrame));

  // Access unit delimiter, parameter sets left out, an IDR slice.
  const unsigned char unit[] = {0, 0, 0, 1, 9, 0x10, 0, 0, 0, 1, 0x65, 0x88, 0x84, 0, 0x33, 0xFF};
  av_packet_unref(pes);
  ASSERT_EQ(av_new_packet(pes, sizeof unit), 0);
  memcpy(pes->data, unit, sizeof unit);
  for (int i = 0; i < 3; ++i) parser.feed(*pes, [&](AVPacket&) { ++frames; });
  EXPECT_GE(frames, 1);
  av_packet_free(&pes);
}

TEST(TSSink, FramesWithoutEndInManyStreamsTakeBoundedMemory) {
  struct Producer : Kelvane::CornetMediaProducerImpl {
    using CornetMediaProducerImpl::CornetMediaProducerImpl;
    void feed(std::string packets) {
      tsSink_->addData(reinterpret_cast<unsigned char*>(packets.data()),
                       static_cast<unsigned>(packets.size()), {});
    }
  };
  TestHost host({{"PROTO", "UDP"}, {"CAMERAMODEL", "Cornet"}});
  Producer producer(host.audio(), host.video(), host.metadata(), false);
  TsBuilder sender;
  constexpr int kFirst = 300, kStreams = 20;
  std::vector<TsBuilder::Stream> streams;
  for (int i = 0; i < kStreams; ++i) streams.push_back({TsBuilder::kH264, kFirst + i});
  producer.feed(sender.pat(256) + sender.pmt(256, streams));
  const long before = allocatedKb();
  testing::internal::CaptureStderr();
  const std::string part(60000, 'U');
  for (int round = 0; round < 60; ++round) {
    for (int i = 0; i < kStreams; ++i) producer.feed(sender.pes(kFirst + i, part));
    ASSERT_LT(allocatedKb() - before, 40 * 1024) << round;
  }
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("Video frames without end, "));
  EXPECT_EQ(host.video()->count(), 0U);
}

TEST(TSFrame, FirstBytesTellTheKind) {
  const struct {
    const char* bytes;
    TSFrameKind kind;
  } cases[] = {
      {"FF F0", TSFrameKind::audio},       {"FF FF 00", TSFrameKind::audio},
      {"FF EF", TSFrameKind::metadata},    {"FF", TSFrameKind::metadata},
      {"00 00 01", TSFrameKind::video},    {"00 00 00 01", TSFrameKind::video},
      {"00 00 00", TSFrameKind::metadata}, {"00 00 00 00 01", TSFrameKind::metadata},
      {"00 00 02", TSFrameKind::metadata}, {"06 0E 2B 34", TSFrameKind::metadata},
      {"", TSFrameKind::metadata},
  };
  for (const auto& c : cases) {
    const std::string frame = hex(c.bytes);
    EXPECT_EQ(Kelvane::kindOf(raw(frame), frame.size()), c.kind) << c.bytes;
  }
}

TEST(TSFrame, AdtsHeaderGivesTheAudioConfiguration) {
  const struct {
    const char* header;
    const char* config;
  } cases[] = {
      // Low complexity, 44100 Hz, one channel.
      {"FF F1 50 40 00 1F FC", "12 08"},
      // Index 3 (48000 Hz), six channels: the channel setting's high bit stands in byte 2.
      {"FF F1 4D 80 00 1F FC", "11 B0"},
      // Main profile, index 11 (8000 Hz); private bit and those behind the channels do not count.
      {"FF F9 2E 7F 00 1F FC", "0D 88"},
  };
  for (const auto& c : cases) {
    const std::string header = hex(c.header);
    const auto adts = Kelvane::parseAdts(raw(header), header.size());
    ASSERT_TRUE(adts) << c.header;
    const auto config = adts->config();
    EXPECT_EQ(std::string(config.begin(), config.end()), hex(c.config)) << c.header;
  }
  const std::string whole = hex("FF F1 50 40 00 1F FC");
  EXPECT_FALSE(Kelvane::parseAdts(raw(whole), whole.size() - 1));
  const std::string noSync = hex("FF E1 50 40 00 1F FC");
  EXPECT_FALSE(Kelvane::parseAdts(raw(noSync), noSync.size()));
}
