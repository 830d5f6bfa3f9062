#include "PushInSnapshot.h"

#include <filesystem>

#include "PushInFixture.h"
#include "support/Subprocess.h"

using namespace testsupport;

namespace {

std::string logOf(const std::string& snapshot, const std::string& placeholder) {
  testing::internal::CaptureStderr();
  Kelvane::refreshSnapshot(snapshot, placeholder.c_str());
  return testing::internal::GetCapturedStderr();
}

}  // namespace

TEST(PushInSnapshot, APlaceholderIsCopiedUpTo65536Bytes) {
  const TemporaryFolder folder;
  const std::string snapshot = folder.path() + "/camera.jpg";
  const std::string placeholder = folder.path() + "/noimage.jpg";
  for (const std::size_t size : {1U, 65536U, 65537U, 200000U}) {
    std::string picture(size, 'p');
    for (std::size_t i = 0; i < size; i += 100) picture[i] = static_cast<char>(i / 100);
    writeFile(placeholder, picture);
    std::filesystem::remove(snapshot);
    EXPECT_EQ(logOf(snapshot, placeholder), "");
    EXPECT_EQ(readFile(snapshot), picture.substr(0, 65536));
  }
}

TEST(PushInSnapshot, FailuresAreNamedAndLeaveNoEmptyPicture) {
  const TemporaryFolder folder;
  const std::string snapshot = folder.path() + "/camera.jpg";
  const std::string placeholder = folder.path() + "/noimage.jpg";
  EXPECT_THAT(logOf(snapshot, placeholder),
              testing::HasSubstr("CRT-0004 Failed to file " + placeholder + ": No such file"));
  EXPECT_FALSE(std::filesystem::exists(snapshot));

  writeFile(placeholder, "picture");
  const std::string elsewhere = folder.path() + "/no/camera.jpg";
  EXPECT_THAT(logOf(elsewhere, placeholder),
              testing::HasSubstr("CRT-0005 Failed to file " + elsewhere + ": No such file"));

  EXPECT_THAT(logOf(snapshot, folder.path()),
              testing::HasSubstr("CRT-0006 Failed to read from file " + folder.path() +
                                 ": Is a directory"));
}

// The paths are fixed, but the name of the picture is the test's own.
TEST(PushInSnapshot, AnIStreamDeviceIsKeptFreshAndAlive) {
  PushInServing serving(TestHost::Keys{{"CAMERAMODEL", "iStream"}});
  const std::string snapshot = "/tmp/" + Kelvane::Cfg::value("DEVID") + ".jpg";
  writeFile(snapshot, "somebody's picture");
  const auto now = std::filesystem::file_time_type::clock::now();
  std::filesystem::last_write_time(snapshot, now - std::chrono::hours(1));
  EXPECT_TRUE(eventually([&] { return serving.host.pidUpdates() >= 2; }));
  EXPECT_GT(std::filesystem::last_write_time(snapshot), now - std::chrono::minutes(1));
  serving.stopAndReadLog();
  EXPECT_EQ(readFile(snapshot), "somebody's picture");
  std::filesystem::remove(snapshot);
}
