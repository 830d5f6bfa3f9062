#include <cstdio>
#include <filesystem>
#include <fstream>

#include "ChunkStorage.h"
#include "FAKEMediaProducerImpl.h"
#include "KeyFrame.h"
#include "TESTMediaProducerImpl.h"
#include "support/Subprocess.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::FAKEMediaProducerImpl;
using Kelvane::TESTMediaProducerImpl;

namespace {

void writeFile(const std::string& name, const std::string& contents) {
  std::ofstream(name, std::ios::binary) << contents;
}

std::string concat(const std::vector<std::string>& parts) {
  std::string all;
  for (const std::string& part : parts) all += part;
  return all;
}

std::vector<std::string> readAll(Kelvane::ChunkStorageImpl& reader, const std::string& name,
                                 uint32_t room = 1000000) {
  std::vector<std::string> units;
  std::vector<uint8_t> buffer(room);
  FILE* file = fopen(name.c_str(), "r");
  int size = 0;
  while ((size = reader.readFrame(file, buffer.data(), room, nullptr)) > 0) {
    units.emplace_back(reinterpret_cast<char*>(buffer.data()), static_cast<std::size_t>(size));
  }
  fclose(file);
  return units;
}

const std::string kSps = hex("00 00 00 01 67 42");
const std::string kPps = hex("00 00 00 01 68 ce");
const std::string kIdr = hex("00 00 01 65 88 11 22");
const std::string kSlice = hex("00 00 00 01 41 9a 33");
const std::string kSecondSlice = hex("00 00 01 41 1a 44");

}  // namespace

TEST(ChunkStorage, CutsAccessUnitsWithTheirHeaders) {
  const TemporaryFolder folder;
  const std::string name = folder.path() + "/clip";
  Kelvane::H264ChunkStorageImpl h264;
  Kelvane::M4VChunkStorageImpl m4v;
  Kelvane::MPEG2ChunkStorageImpl mpeg2;
  Kelvane::MJPGChunkStorageImpl mjpg;
  const struct {
    Kelvane::ChunkStorageImpl& reader;
    std::vector<std::string> units;
  } cases[] = {
      {h264, {kSps + kPps + kIdr, kSlice + kSecondSlice, kSlice, kSps + kPps + kIdr}},
      {m4v,
       {hex("000001b0f5 000001b509 00000100 00000120aa 000001b3aa 000001b610"),
        hex("000001b650 00aa"), hex("000001b0f5 000001b610")}},
      {mpeg2,
       {hex("000001b3aa 000001b5bb 000001b8cc 00000100 0008 00000101dd 00000102ee"),
        hex("00000100 0010 00000101ff"), hex("000001b3aa 00000100 0008")}},
      {mjpg, {hex("ffd8ff00 11ffd9"), hex("ffd8 22ff00 ffd9"), hex("ffd8ffd9")}},
  };
  for (const auto& c : cases) {
    writeFile(name, concat(c.units));
    EXPECT_EQ(readAll(c.reader, name), c.units);
  }
}

TEST(ChunkStorage, PassesOverAUnitThatDoesNotFit) {
  const TemporaryFolder folder;
  const std::string name = folder.path() + "/clip";
  writeFile(name, kSps + kIdr + kSlice + std::string(300000, 'x') + kSlice + kSps + kIdr);
  Kelvane::H264ChunkStorageImpl reader;
  testing::internal::CaptureStderr();
  EXPECT_THAT(readAll(reader, name, 1000), testing::ElementsAre(kSps + kIdr, kSlice, kSps + kIdr));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("larger than 1000 bytes"));
}

TEST(KeyFrame, RulesOfEachFormat) {
  const struct {
    const char* format;
    const char* frame;
    bool starts;
  } cases[] = {
      {"mjpg", "", true},
      {"mpeg4", "000001b0", true},
      {"mpeg4", "000001b5", true},
      {"mpeg4", "000001b3", true},
      {"mpeg4", "000001b610", false},               // its own start code is not looked at
      {"mpeg4", "000001aa 00 000001b6 3f", true},   // a second one is, behind one more zero
      {"mpeg4", "000001aa 00 000001b6 40", false},  // P
      {"mpeg4", "000001aa 00 000001b6", false},     // cut off
      {"mpeg4", "000001aa 00 000001", false},
      {"mpeg4", "000001aa 11 22", false},
      {"mpeg4", "0000", false},
      {"h264", "00000001 67", true},
      {"h264", "00000001 68", true},
      {"h264", "00000001 65 88", false},
      {"h264", "00000001 06 0011 05 80 00 000001 65", false},  // search begins at byte 7
      {"h264", "00000001 06 0511 80 00 00000001 65", true},
      {"h264", "00000001 09 f0 00 00000001 65", true},
      {"h264", "00000001 09 f0 00 00000001 61", false},
      {"h264", "00000001 09 f0 00 00000001", false},
      {"h264", "000000", false},
      {"mpeg2", "000001b3", true},
      {"mpeg2", "000001b8", true},
      {"mpeg2", "00000100 0008", true},
      {"mpeg2", "00000100 0010", false},
      {"mpeg2", "00000100 00", false},
      {"mpeg2", "000001aa 11 00 000001b3", true},
      {"mpeg2", "000001aa 11 00 00000100 00 08", true},
      {"mpeg2", "000001aa 11 00 00000100 00 10", false},
  };
  for (const auto& c : cases) {
    std::string frame = hex(c.frame);
    // On the heap and exactly as long as it is: a read behind it is seen.
    std::vector<uint8_t> exact(frame.begin(), frame.end());
    EXPECT_EQ(Kelvane::isI_VOP(exact.data(), static_cast<unsigned>(exact.size()), c.format),
              c.starts)
        << c.format << " " << c.frame;
  }
  const TestHost host;
  uint8_t none = 0;
  EXPECT_FATAL_REPORT(Kelvane::isI_VOP(&none, 1, "h265"), "Unsupported media format: h265",
                      "STREAM_LOST UNK");
}

TEST(FileReplay, LoopsFromAKeyFrameOnAtTheConfiguredRate) {
  const TemporaryFolder folder;
  writeFile(folder.path() + "/clip.h264", kSlice + kSps + kIdr + kSlice);
  TestHost host({{"PROTO", "FAKE"},
                 {"MEDIA_FORMAT", "h264"},
                 {"FRAMERATE", "50"},
                 {"SOURCE", folder.path() + "/clip"}});
  FAKEMediaProducerImpl producer(host.audio(), host.video());
  const auto begin = std::chrono::steady_clock::now();
  host.run(producer);
  ASSERT_TRUE(host.video()->awaitFrames(11));
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  host.stop();
  ASSERT_TRUE(host.awaitEnd());
  EXPECT_TRUE(host.result());
  EXPECT_GE(took.count(), 0.18);  // the first frame does not wait, ten more are held
  const auto frames = host.video()->frames();
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(frames[i].data, i % 2 == 0 ? kSps + kIdr : kSlice) << i;
  }
  EXPECT_TRUE(host.states().empty());
}

TEST(FileReplay, WhatCannotBePlayedEndsTheProcess) {
  TestHost host({{"PROTO", "FAKE"}, {"MEDIA_FORMAT", "h264"}, {"SOURCE", "/no/such/clip"}});
  EXPECT_FATAL_REPORT(FAKEMediaProducerImpl(host.audio(), host.video()).start(),
                      "Could not open file /no/such/clip.h264: No such file or directory",
                      "STREAM_LOST UNK");
  Kelvane::Cfg::insert("MEDIA_FORMAT", "h265");
  EXPECT_FATAL_REPORT(FAKEMediaProducerImpl(host.audio(), host.video()).start(),
                      "Unsupported media format: h265", "STREAM_LOST UNK");
}

TEST(FileReplay, FileWithoutKeyFrameOrFrameYieldsNothingAndStops) {
  for (const std::string& contents : {std::string(), kSlice + kSlice}) {
    const TemporaryFolder folder;
    writeFile(folder.path() + "/clip.h264", contents);
    TestHost host(
        {{"PROTO", "FAKE"}, {"MEDIA_FORMAT", "h264"}, {"SOURCE", folder.path() + "/clip"}});
    testing::internal::CaptureStderr();
    FAKEMediaProducerImpl producer(host.audio(), host.video());
    host.run(producer);
    poll(nullptr, 0, 20);
    host.stop();
    EXPECT_TRUE(host.awaitEnd());
    EXPECT_EQ(host.video()->count(), 0U);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.find("Skiping to I-frame") != std::string::npos, !contents.empty());
  }
}

// These share the fixed file of the test picture.
TEST(TestPicture, PlaysOrEndsTheProcess) {
  const std::string name = "/tmp/test.jpg";
  const bool existed = std::filesystem::exists(name);
  if (existed) GTEST_SKIP() << name << " belongs to somebody else";
  TestHost host({{"PROTO", "TEST"}, {"FRAMERATE", "1000"}});
  const auto start = [&] { TESTMediaProducerImpl(host.audio(), host.video()).start(); };
  EXPECT_FATAL_REPORT(start(), "Could not open file /tmp/test.jpg: No such file",
                      "STREAM_LOST UNK");
  writeFile(name, "");
  EXPECT_FATAL_REPORT(start(), "fread() fails: ", "STREAM_LOST UNK");
  writeFile(name, std::string(1000000, 'x'));
  EXPECT_FATAL_REPORT(start(), "frame may or not may be truncated", "STREAM_LOST UNK");
  writeFile(name, std::string(999999, 'x'));
  TESTMediaProducerImpl producer(host.audio(), host.video());
  host.run(producer);
  EXPECT_TRUE(host.video()->awaitFrames(3));
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
  EXPECT_EQ(host.video()->frames()[2].data.size(), 999999U);
  EXPECT_TRUE(host.video()->codecs().empty());
  std::filesystem::remove(name);
}
