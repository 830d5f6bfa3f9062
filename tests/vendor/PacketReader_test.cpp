#include "PacketReader.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <thread>

#include "support/TcpPeer.h"

using namespace testsupport;
using Kelvane::PacketReader;

namespace {

struct Pair : SocketPair {
  Pair() : SocketPair(SOCK_STREAM) {}
  void send(const std::string& data) {
    ASSERT_EQ(write(far.get(), data.data(), data.size()), static_cast<ssize_t>(data.size()));
  }
};

using Read = ssize_t (PacketReader::*)(void*, std::size_t);
std::string got(PacketReader& from, Read read, std::size_t size) {
  std::string data(size, '?');
  const ssize_t count = (from.*read)(data.data(), size);
  return count <= 0 ? "" : data.substr(0, static_cast<std::size_t>(count));
}

}  // namespace

// However the bytes are cut on their way, and however much is taken along.
TEST(PacketReader, GivesTheSameBytesWhateverTheCutsAre) {
  for (const std::size_t ahead : {0U, 1U, 5U, 10U, 32U}) {
    for (const std::size_t cut : {1U, 3U, 7U, 50U, 1000U}) {
      Pair pair;
      PacketReader reader(pair.near.get(), ahead);
      std::string sent;
      for (int i = 0; i < 40; ++i)
        sent += "head" + std::string(1 + i * 3, static_cast<char>('0' + i));
      std::thread device([&] {
        for (std::size_t at = 0; at < sent.size(); at += cut) pair.send(sent.substr(at, cut));
        pair.far.reset();
      });
      for (int i = 0; i < 40; ++i) {
        const std::size_t size = 1 + static_cast<std::size_t>(i) * 3;
        ASSERT_EQ(got(reader, &PacketReader::read, 4), "head") << ahead << " " << cut;
        if (i % 3 == 0) {
          ASSERT_EQ(reader.discard(size), static_cast<ssize_t>(size));
          continue;
        }
        const std::string body(size, static_cast<char>('0' + i));
        const std::size_t seen = std::min<std::size_t>(4, size);
        ASSERT_EQ(got(reader, &PacketReader::peek, seen), body.substr(0, seen));
        ASSERT_EQ(got(reader, &PacketReader::payload, size), body) << ahead << " " << cut;
      }
      EXPECT_EQ(got(reader, &PacketReader::read, 4), "");
      device.join();
    }
  }
}

// Nothing may wait for bytes that were not asked for.
TEST(PacketReader, APayloadDoesNotWaitForTheNextHeader) {
  Pair pair;
  PacketReader reader(pair.near.get(), 12);
  pair.send("payload");
  EXPECT_EQ(got(reader, &PacketReader::payload, 7), "payload");
  pair.send("abpay");
  EXPECT_EQ(got(reader, &PacketReader::peek, 2), "ab");
  EXPECT_EQ(got(reader, &PacketReader::payload, 5), "abpay");
}
