// read_frame() and read_jpg() over streams in memory: what each device form
// becomes. The frames are bytes with a meaning of their own here, no pictures.
#include <functional>
#include <thread>

#include "BoschMediaProducerImpl.h"
#include "DeviceConnection.h"
#include "HTTPMediaProducerImpl.h"
#include "HttpStream.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::AbstractSink;
using testing::ElementsAre;

namespace {

constexpr char kTwoLines[] = "HTTP/1.0 line two\r\nline three\r\n";
constexpr std::uint32_t kSize = AbstractSink::kBufferSize;

// A picture without 0xFF inside: its head and `size` bytes in all.
std::string jpeg(std::size_t size) {
  return bytes({0xFF, 0xD8}) + std::string(size - 4, 'j') + bytes({0xFF, 0xD9});
}

std::unique_ptr<FILE, int (*)(FILE*)> opened(const std::string& text) {
  return {fmemopen(const_cast<char*>(text.data()), text.size(), "r"), fclose};
}

// Reads frame after frame until a read fails.
class Reader {
 public:
  explicit Reader(const std::string& format = "mjpg", const std::string& model = "any")
      : host({{"MEDIA_FORMAT", format}, {"CAMERAMODEL", model}}) {}

  template <class Producer>
  std::vector<std::string> frames(FILE* stream,
                                  int (Producer::*read)(FILE*, std::uint8_t*, std::uint32_t)) {
    Producer producer(host.audio(), host.video());
    std::vector<std::string> all;
    auto* buffer = host.video()->buffer;
    int length = 0;
    while ((length = (producer.*read)(stream, buffer, kSize)) > 0) {
      all.emplace_back(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(length));
    }
    EXPECT_EQ(length, -1);
    return all;
  }
  std::vector<std::string> http(const std::string& text) {
    return frames(opened(text).get(), &Kelvane::HTTPMediaProducerImpl::read_frame);
  }
  std::vector<std::string> bosch(const std::string& text) {
    return frames(opened(text).get(), &Kelvane::BoschMediaProducerImpl::read_jpg);
  }

  TestHost host;
};

std::string with(const std::string& headers, const std::string& body) {
  return kTwoLines + headers + body;
}

}  // namespace

TEST(HttpFrameReader, EveryHeaderFormTellsTheLength) {
  const std::string five = bytes({0x00, 0x00, 0x01, 0x65, 0x88});
  const std::string headers[] = {
      "Content-Length: 5\r\n\r\n",
      "Content-length:5\n\n",
      "DataLen: \t +005kB\r\n\r\n",
      "Server: x\r\nDataLen: 5\r\nX: y\r\n\r\n",
      // The second header that matters ends the lines; the rest is skipped.
      "Content-Length: 5\r\nPragma: trigger=in1\r\nX-Left: over\r\n\r\n",
      "Content-Length: 7\r\nDataLen: 5\r\nContent-Length: 9\r\n\r\n",
      // A number in the response header, the part's own in the skipped rest.
      "Content-Length: 5\r\n\r\n--b\r\nContent-Length: 9\r\n\r\n",
      // A line without end and one with a zero byte in it.
      "X: " + std::string(5000, 'x') + "\r\nContent-Length: 5\r\n\r\n",
      "X: " + std::string(1, '\0') + "\r\nContent-Length: 5\r\n\r\n",
  };
  Reader reader("h264");
  for (const std::string& header : headers) {
    EXPECT_THAT(reader.http(with(header, five)), ElementsAre(five)) << header;
  }
}

TEST(HttpFrameReader, LengthsAtTheEdges) {
  Reader reader;
  const std::string whole = std::string(1, '\0') + std::string(kSize - 1, 'x');
  EXPECT_THAT(reader.http(with("DataLen: 1\r\n\r\n", "\x01\xFF")), ElementsAre("\xFF"));
  EXPECT_THAT(reader.http(with("DataLen: 1000000\r\n\r\n", whole)), ElementsAre(whole));
  // Unknown: nothing, zero, too much, negative, no number, beyond any integer, another name.
  for (const char* length : {"", "DataLen: 0", "DataLen: 1000001", "DataLen: -5", "DataLen: x",
                             "DataLen:", "DataLen: 4294967396", "DataLen: -99999999999999999999",
                             "DataLen : 9", " DataLen: 9", "datalen: 9", "DataLe"}) {
    const std::string header = *length == '\0' ? "\r\n" : std::string(length) + "\r\n\r\n";
    EXPECT_THAT(reader.http(with(header, jpeg(700))), ElementsAre(jpeg(700))) << length;
  }
}

TEST(HttpFrameReader, TriggersBelongToTheirFrame) {
  Reader reader;
  Kelvane::HTTPMediaProducerImpl producer(reader.host.audio(), reader.host.video());
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Kelvane::UniqueFd reading(ends[0]);
  const std::string part = "DataLen: 3\r\nPragma: trigger=";
  const std::string body = with(part + "motion two\r\n", "\xFF two") +
                           with(part + std::string(100, 't') + "\r\n", "\xFFxx") +
                           with("DataLen: 3\r\nPragma: trigger= \r\n\r\n", "\xFFyy");
  ASSERT_EQ(write(ends[1], body.data(), body.size()), static_cast<ssize_t>(body.size()));
  close(ends[1]);
  producer.receive_video(reading.get());
  EXPECT_THAT(reader.host.video()->triggers(), ElementsAre("motion", std::string(64, 't')));
  EXPECT_EQ(reader.host.video()->count(), 3U);
}

TEST(HttpFrameReader, UnknownLengthsEndAtTheMarkBehindTheHead) {
  Reader reader;
  const std::string mark = bytes({0xFF, 0xD9});
  const std::string head = bytes({0xFF, 0xD8}) + mark + std::string(620, 'h');  // 624 bytes
  const std::string doubled = head + bytes({0xFF, 0xFF, 0xD9}) + "goes on" + mark;
  const std::string other = jpeg(900);
  // Two pictures that follow each other without a byte between but their lines.
  EXPECT_THAT(reader.http(with("\r\n", doubled) + with("X: y\r\n\r\n", other) + "rest"),
              ElementsAre(doubled, other));
  // Smaller than the head: the next frame's beginning is taken for its rest.
  const std::string small = jpeg(300) + with("\r\n", jpeg(800));
  EXPECT_THAT(reader.http(with("\r\n", small)), ElementsAre(small));
}

TEST(HttpFrameReader, EndsInEveryPhaseHaveTheirReport) {
  Reader reader;
  for (const std::string& text : {
           std::string("H"),                             // in the lines
           with("DataLen: 9\r\n\r\n", "no first byte"),  // in the skip
           with("DataLen: 9\r\n\r\n", "\xFFshort"),      // in the frame
           with("\r\n", jpeg(500)),                      // in the head
           with("\r\n", jpeg(700).substr(0, 690)),       // in the scan
           with("\r\n", jpeg(700).substr(0, 699)),       // in the mark
       }) {
    EXPECT_THAT(reader.http(text), ElementsAre());
  }
  EXPECT_THAT(reader.host.states(),
              ElementsAre("UNKNOWN UNK", "UNKNOWN UNK", "STREAM_LOST NET_FAILURE",
                          "STREAM_LOST NET_FAILURE", "STREAM_LOST DEV_CLOSED_SOCKET",
                          "STREAM_LOST DEV_CLOSED_SOCKET"));
  Reader pelco("h264", "Pelco");
  EXPECT_THAT(pelco.http(with("DataLen: 9\r\n\r\n", "")), ElementsAre());
  EXPECT_THAT(pelco.host.states(), ElementsAre());
  EXPECT_FATAL_REPORT(pelco.http(with("\r\n", bytes({0, 0, 1}))),
                      "Parse jpeg. (Length unknown). But codec is h264", "STREAM_LOST UNK");
}

TEST(HttpFrameReader, PicturesThatFitBarelyOrNotAtAll) {
  Reader reader;
  // Offset `size` is still looked at: a mark may end one or two bytes behind it.
  for (const std::size_t size : {kSize, kSize + 1, kSize + 2}) {
    EXPECT_THAT(reader.http(with("\r\n", jpeg(size))), ElementsAre(jpeg(size))) << size;
  }
  EXPECT_FATAL_REPORT(reader.http(with("\r\n", jpeg(kSize + 3))),
                      "CRT-5005 Frame has been truncated. Please increase SINK_BUFFER_SIZE",
                      "STREAM_LOST UNK");
  // The last bytes decide: a picture full of fill bytes counts as a lost connection.
  const std::string filled = jpeg(kSize - 8).substr(0, kSize - 10) + std::string(40, '\xFF');
  EXPECT_THAT(reader.http(with("\r\n", filled)), ElementsAre());
  EXPECT_THAT(reader.host.states(), testing::Contains("STREAM_LOST DEV_CLOSED_SOCKET"));
}

// A socket is read in larger pieces, by the length of the picture before, and
// must not lose what follows a smaller one.
TEST(HttpFrameReader, PicturesOfAnyLengthComeWholeFromASocket) {
  std::vector<std::string> pictures;
  std::string stream;
  for (const std::size_t size : {200000U, 200000U, 3000U, 3000U, 190000U, 120000U, 700U, 130000U,
                                 127000U, kSize, kSize + 2, 300000U, 290000U}) {
    pictures.push_back(jpeg(size));
    // Looks like an end: the second of two marks begins none.
    pictures.back().replace(size / 2, 4, bytes({0xFF, 0xFF, 0xD9, 'j'}));
    stream += with("\r\n", pictures.back());
  }
  stream += with("\r\n", jpeg(290000).substr(0, 150000));
  Reader reader;
  TcpPeer camera;
  const Kelvane::DeviceConnection device = Kelvane::connectToDevice("127.0.0.1", camera.port());
  Kelvane::HttpStream source(device.socket.get());
  std::thread sender([&] {
    PeerConnection connection = camera.accept();
    for (std::size_t i = 0; i < stream.size(); i += 70001)
      connection.write(stream.substr(i, 70001));
  });
  EXPECT_TRUE(reader.frames(source.get(), &Kelvane::HTTPMediaProducerImpl::read_frame) == pictures);
  sender.join();
  EXPECT_THAT(reader.host.states(), ElementsAre("STREAM_LOST DEV_CLOSED_SOCKET"));
}

TEST(BoschReader, TheFirstLengthEndsTheHeader) {
  Reader reader;
  const std::string picture = jpeg(40);
  for (const char* header :
       {"Content-Length: 40\r\n", "Content-length: 40\r\nContent-Length: 1\r\n\r\n",
        "DataLen: 3\r\nPragma: trigger=x\r\nContent-Length: 40\r\n\r\n"}) {
    EXPECT_THAT(reader.bosch(with(header, std::string(1, '\0') + picture)), ElementsAre(picture))
        << header;
  }
  EXPECT_THAT(reader.bosch(with("Content-Length: 3\r\n\r\n", "\xFF\xD8\xE0")),
              ElementsAre("\xFF\xD8\xE0"));
  // Too short to count: the mark is looked for behind 625 bytes.
  const std::string late = bytes({0xFF, 0xD8}) + std::string(622, 'x') + bytes({0xFF, 0xD9}) +
                           "more" + bytes({0xFF, 0xD9});
  for (const char* header : {"Content-Length: 2\r\n\r\n", "DataLen: 9\r\n\r\n",
                             "Content-Length: -7\r\n\r\n", "Content-Length: 1000001\r\n\r\n"}) {
    EXPECT_THAT(reader.bosch(with(header, late) + with(header, late)), ElementsAre(late, late))
        << header;
  }
}

TEST(BoschReader, EndsInEveryPhaseHaveTheirReport) {
  Reader reader;
  for (const std::string& text :
       {std::string("H"), with("\r\n", "404, no picture"), with("\r\n", "\xFF\xFF\xD8"),
        with("Content-Length: 9\r\n\r\n", "\xFF\xD8short"), with("\r\n", jpeg(600)),
        with("\r\n", jpeg(700).substr(0, 650))}) {
    EXPECT_THAT(reader.bosch(text), ElementsAre());
  }
  const char* const lost = "STREAM_LOST NET_FAILURE";
  EXPECT_THAT(reader.host.states(),
              ElementsAre(lost, lost, lost, lost, lost, "STREAM_LOST DEV_CLOSED_SOCKET"));
  EXPECT_FATAL_REPORT(reader.bosch(with("\r\n", jpeg(kSize + 3))), "CRT-5005", "STREAM_LOST UNK");
}
