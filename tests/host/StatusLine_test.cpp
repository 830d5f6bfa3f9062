#include "StatusLine.h"

#include "support/TestHost.h"

using testing::HasSubstr;

namespace {

// What the status line prints at the end, into a file.
struct Status {
  Status() : file(tmpfile(), fclose), line(file.get()) {}
  void frame(const std::string& data, Kelvane::MEDIA_TYPE media = Kelvane::VIDEO) {
    line.onFrame(*testsupport::mediaFrame(data, media));
  }
  std::string finished() {
    line.finish();
    char text[256] = "";
    rewind(file.get());
    EXPECT_NE(fgets(text, sizeof text, file.get()), nullptr);
    return text;
  }
  std::unique_ptr<FILE, int (*)(FILE*)> file;
  host::StatusLine line;
};

}  // namespace

TEST(StatusLine, CountsPicturesWhateverPiecesTheyComeIn) {
  Status h264;
  h264.line.onInit(Kelvane::VIDEO, "H264", "");
  h264.frame(
      std::string("\0\0\0\1\x67\x42\0\0\0\1\x68", 11));  // parameter sets ahead of the stream
  h264.frame("\x67\x42\x10\x10\x10\x10");
  h264.frame("\x65\x88\x10\x10\x10\x10");
  h264.frame("\x65\x40\x10\x10\x10\x10");  // second slice
  h264.frame("\x41\x9A\x10\x10\x10\x10");
  h264.frame("sound", Kelvane::AUDIO);
  EXPECT_THAT(h264.finished(), HasSubstr(" 3 frames\n"));

  Status unnamed;  // whole access units
  unnamed.frame("x");
  unnamed.frame("yyyyyyyyyy");
  unnamed.line.onState(Kelvane::StreamState::STREAM_LOST, Kelvane::StreamState::NET_FAILURE);
  EXPECT_THAT(unnamed.finished(), HasSubstr(" 2 frames  STREAM_LOST NET_FAILURE\n"));
}
