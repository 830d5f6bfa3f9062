#include "TransportStream.h"

#include <malloc.h>

#include <cstring>

#include "FrameParser.h"
#include "TsBuilder.h"
#include "support/TestHost.h"

extern "C" std::size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

using namespace testsupport;
using Kelvane::FrameParser;
using Kelvane::TransportStream;

namespace {

struct Got {
  int stream;
  std::string payload;
};

std::vector<Got> feed(TransportStream& ts, const std::string& packets) {
  std::vector<Got> all;
  ts.feed(reinterpret_cast<const std::uint8_t*>(packets.data()), packets.size(),
          [&](AVPacket& pes, AVStream& stream) {
            EXPECT_EQ(pes.stream_index, stream.index);
            all.push_back({stream.index, std::string(reinterpret_cast<char*>(pes.data),
                                                     static_cast<std::size_t>(pes.size))});
          });
  return all;
}

// Not the resident size: a sanitizer keeps what is freed for a while.
long allocatedKb() {
  const std::size_t bytes = __sanitizer_get_current_allocated_bytes != nullptr
                                ? __sanitizer_get_current_allocated_bytes()
                                : mallinfo2().uordblks;
  return static_cast<long>(bytes / 1024);
}

}  // namespace

TEST(TransportStream, PayloadsComeOutWholeAndInOrder) {
  TransportStream ts;
  TsBuilder sender;
  const std::string small(10, 'a');
  const std::string large(5000, 'b');
  const std::string stream = sender.pat(256) +
                             sender.pmt(256, {{TsBuilder::kH264, 257}, {TsBuilder::kAac, 258}}) +
                             sender.pes(257, large) + sender.pes(258, small);
  const auto got = feed(ts, stream + std::string(187, '\x47'));
  ASSERT_EQ(got.size(), 2U);
  EXPECT_EQ(got[0].payload, large);
  EXPECT_EQ(got[1].payload, small);
  EXPECT_NE(got[0].stream, got[1].stream);

  // No length of its own: it comes out when the next begins.
  EXPECT_TRUE(feed(ts, sender.pes(257, large, true)).empty());
  const auto late = feed(ts, sender.pes(257, small, true));
  ASSERT_EQ(late.size(), 1U);
  EXPECT_EQ(late[0].payload, large);
}

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
  for (int i = 0; i < 3; ++i) {
    const auto got = feed(ts, sender.pes(300, "kept"));
    ASSERT_EQ(got.size(), 1U);
    EXPECT_EQ(got[0].payload, "kept");
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
    if (parser.gaveUp()) ++givenUp;
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
