#include "ReadAheadScheduler.h"

#include <sys/socket.h>

#include <memory>
#include <thread>

#include "RtspSupport.h"

using namespace testsupport;
using Kelvane::ReadAheadScheduler;

namespace {

// Two connected sockets, of which a loop reads the near one ahead.
struct Sockets : SocketPair {
  explicit Sockets(int type) : SocketPair(type), loop(ReadAheadScheduler::createNew(10000)) {}
  TaskScheduler& scheduler() const { return *loop; }
  void listen(TaskScheduler::BackgroundHandlerProc* handler) {
    scheduler().setBackgroundHandling(near.get(), SOCKET_READABLE, handler, this);
  }
  void silence() { scheduler().disableBackgroundHandling(near.get()); }
  void sends(const std::string& data) const {
    ASSERT_EQ(send(far.get(), data.data(), data.size(), 0), static_cast<ssize_t>(data.size()));
  }
  // Runs the loop until `done()` holds.
  template <class Done>
  bool runUntil(Done done) {
    return eventually([&] {
      EventLoopWatchVariable over{0};
      const auto end = [](void* flag) { *static_cast<EventLoopWatchVariable*>(flag) = 1; };
      TaskToken task = scheduler().scheduleDelayedTask(1000, end, &over);
      scheduler().doEventLoop(&over);
      scheduler().unscheduleDelayedTask(task);
      return done();
    });
  }

  std::unique_ptr<ReadAheadScheduler> loop;
};

// Reads a byte a call, up to '!'.
struct Connection : Sockets {
  Connection() : Sockets(SOCK_STREAM) { begin(); }
  void begin() {
    listen(readOne);
    loop->readAhead(near.get());
  }
  static void readOne(void* data, int) {
    auto* self = static_cast<Connection*>(data);
    unsigned char byte = 0;
    self->last = self->loop->read(&byte, 1);
    if (self->last == 1) self->got.push_back(static_cast<char>(byte));
    if (self->last < 0 || byte == '!') self->silence();
  }

  std::string got;
  int last = 1;
};

}  // namespace

TEST(ReadAhead, AByteACallComesFromOneBlock) {
  Connection connection;
  const std::string text(100000, 'x');
  connection.sends(text);
  ASSERT_TRUE(connection.runUntil([&] { return connection.got.size() == text.size(); }));
  EXPECT_LE(connection.loop->blocks(), 4U);
  unsigned char byte = 0;
  EXPECT_EQ(connection.loop->read(&byte, 1), 0) << "nothing there is no failure";
  connection.far.reset();
  EXPECT_TRUE(connection.runUntil([&] { return connection.last == -1; })) << "the end is one";
}

// The library takes the handler away before it closes the socket: bytes of the
// old connection must not turn up in a new one with the same number.
TEST(ReadAhead, IsOverWhenTheHandlerGoes) {
  Connection connection;
  connection.sends("abc!old");
  ASSERT_TRUE(connection.runUntil([&] { return connection.got == "abc!"; }));
  EXPECT_FALSE(connection.loop->readsAhead(connection.near.get()));
  connection.begin();
  connection.sends("new");
  ASSERT_TRUE(connection.runUntil([&] { return connection.got.size() >= 7; }));
  EXPECT_EQ(connection.got, "abc!new");
}

TEST(ReadAhead, TimersHaveTheirTurnWithinALongBlock) {
  Connection connection;
  connection.sends(std::string(50000, 'x'));
  struct Look {
    Connection& connection;
    std::size_t got = std::string::npos;  // not yet
  } look{connection};
  const auto onTimer = [](void* data) {
    auto* now = static_cast<Look*>(data);
    now->got = now->connection.got.size();
  };
  connection.scheduler().scheduleDelayedTask(0, onTimer, &look);
  ASSERT_TRUE(connection.runUntil([&] { return connection.got.size() == 50000; }));
  EXPECT_LT(look.got, 50000U);
}

// Wherever a block ends, it is known whether more of the picture is to come.
TEST(ReadAhead, KnowsWhenAPictureIsUnderWay) {
  const std::string text = "RTSP/1.0 200 OK\r\nSession: $5\r\n\r\n";
  const auto packet = [](int channel, std::size_t size, bool marker) {
    std::string rtp(size, 'x');
    rtp[1] = static_cast<char>(marker ? 0xE0 : 0x60);
    return interleaved(channel, rtp);
  };
  const std::string begun = text + packet(0, 1400, false) + packet(1, 1200, false);
  const std::string whole = packet(0, 1400, false) + packet(0, 50, true);
  const std::string audio = packet(2, 320, false);
  for (const std::size_t cut : {1U, 3U, 1405U, 100000U}) {
    const auto underWay = [cut](const std::string& stream) {
      Kelvane::InterleavedFraming framing;
      for (std::size_t i = 0; i < stream.size(); i += cut) {
        const std::string part = stream.substr(i, cut);
        framing.follow(reinterpret_cast<const unsigned char*>(part.data()), part.size());
      }
      return framing.underWay();
    };
    EXPECT_FALSE(underWay(text)) << cut;
    EXPECT_TRUE(underWay(begun)) << cut;
    EXPECT_FALSE(underWay(begun + whole)) << cut;
    EXPECT_TRUE(underWay(whole + whole.substr(0, whole.size() - 1))) << cut;
    EXPECT_TRUE(underWay(whole + "$")) << cut;
    EXPECT_FALSE(underWay(whole + audio)) << cut;
  }
}

// However the network cuts a connection, and whichever loop the host has, the
// frames are the same.
TEST(ReadAhead, InterleavedFramesSurviveAnyCut) {
  constexpr int kPackets = 600;
  for (const bool ahead : {true, false}) {
    for (const std::size_t piece : {1U, 7U, 1009U, 40000U}) {
      SCOPED_TRACE(std::to_string(piece) + (ahead ? " ahead" : " by the library"));
      std::string stream;
      std::vector<std::string> units;
      for (int i = 1; i <= (piece == 1 ? 20 : kPackets); ++i) {
        units.push_back("\x65" + std::string(static_cast<std::size_t>(i * 37 % 1400), 'x') + "e");
        stream += interleaved(0, rtp(i, units.back()));
      }
      CameraScript script;
      script.afterPlay = [&](PeerConnection& connection) {
        for (std::size_t i = 0; i < stream.size(); i += piece) {
          connection.write(stream.substr(i, piece));
        }
      };
      ScriptedCamera camera(script);
      auto* scheduler = ReadAheadScheduler::createNew(10000);
      TestHost host(camera.keys(), ahead ? static_cast<TaskScheduler*>(scheduler)
                                         : BasicTaskScheduler::createNew());
      Kelvane::RTSPMediaProducerImpl producer(host.audio(), host.video(), host.metadata(),
                                              Kelvane::APP_NV);
      host.run(producer);
      ASSERT_TRUE(host.video()->awaitFrames(units.size()));
      const auto frames = host.video()->frames();
      for (std::size_t i = 0; i < units.size(); ++i) ASSERT_EQ(frames[i].data, units[i]) << i;
      host.stop();
      ASSERT_TRUE(host.awaitEnd());
      if (ahead && piece > 1009) {
        EXPECT_GT(scheduler->blocks(), 0U) << "the library found its own function first";
        EXPECT_LT(scheduler->blocks(), kPackets / 2);
      }
      if (!ahead) delete static_cast<TaskScheduler*>(scheduler);
    }
  }
}

// More than one batch: each datagram alone, in order, cut to the reader's room,
// an empty one in between; none turns up behind the handler's end.
TEST(ReadAhead, DatagramsStayApart) {
  struct Receiver : Sockets {
    using Sockets::Sockets;
    std::vector<std::string> got;
  } self(SOCK_DGRAM);
  std::thread sender([&] {
    for (int i = 0; i < 100; ++i) {
      const std::string text = i == 50 ? "" : i == 70 ? std::string(3000, 'l') : std::to_string(i);
      self.sends(text);
    }
    for (const char* text : {"!", "late", "later"}) self.sends(text);
  });
  const auto read = [](void* data, int) {
    auto* s = static_cast<Receiver*>(data);
    unsigned char room[1500];
    sockaddr_storage from{};
    const int got = s->loop->datagrams(s->near.get())->read(room, sizeof room, from);
    s->got.emplace_back(reinterpret_cast<char*>(room), static_cast<std::size_t>(got));
    if (s->got.back() == "!") s->silence();
  };
  self.listen(read);
  self.loop->readDatagramsAhead(self.near.get(), 96);
  const bool over = self.runUntil([&] { return !self.got.empty() && self.got.back() == "!"; });
  sender.join();
  ASSERT_TRUE(over);
  ASSERT_EQ(self.got.size(), 101U);
  for (std::size_t i = 0; i < 100; ++i) {
    EXPECT_EQ(self.got[i], i == 50 ? "" : i == 70 ? std::string(1500, 'l') : std::to_string(i));
  }
  EXPECT_EQ(self.loop->datagrams(self.near.get()), nullptr);
}
