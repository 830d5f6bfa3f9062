#pragma once

#include <BasicUsageEnvironment.hh>
#include <RTPSource.hh>
#include <array>
#include <map>
#include <memory>

#include "DatagramBatch.h"
#include "InterleavedFraming.h"

namespace Kelvane {

// The event loop of the process, which can read one TCP connection and any
// number of UDP sockets ahead.
//
// live555 takes streams that are interleaved in a connection apart with five
// reads and two select() calls a packet, most of them for a single byte. Here
// the module stands in for the library's readSocket() and serves these reads
// from a block, and the loop calls the handler of the connection for as long
// as the block lasts. Of UDP sockets the library takes one datagram a select()
// call; here all that wait come in one call. The library is unchanged; where it
// finds its own readSocket() first, nothing is read ahead and all works as before.
//
// Most of what is left are wake-ups, so the loop avoids them: it turns at its
// tick only where nothing else has turned it, and with a picture half read it
// lets the rest arrive for a millisecond instead of waking for each packet.
//
// Belongs to one thread, like all of live555.
class ReadAheadScheduler final : public BasicTaskScheduler {
 public:
  // `tickMicros`: the loop turns at least this often; 0 for no limit.
  static ReadAheadScheduler* createNew(unsigned tickMicros);

  // Reads `socket` ahead until its handler is taken away, as it is before the
  // library closes it. What has been read ahead by then is dropped.
  void readAhead(int socket);
  bool readsAhead(int socket) const { return socket >= 0 && socket == socket_; }
  // Of the socket that is read ahead, with readSocket()'s results: the number
  // of bytes, 0 when there are none yet, -1 at the end or a failure.
  int read(unsigned char* to, unsigned size);
  // Blocks read so far.
  unsigned long blocks() const { return blocks_; }

  // Reads the datagrams of `socket`, an RTP stream, ahead until its handler is
  // taken away.
  void readDatagramsAhead(int socket, unsigned char payloadType);
  // Null for a socket whose datagrams are not read ahead.
  DatagramBatch* datagrams(int socket);

 private:
  // The library's own tick would come on top of what turns the loop anyway.
  explicit ReadAheadScheduler(unsigned tickMicros)
      : BasicTaskScheduler(0), tickMicros_(tickMicros) {}

  // As in the library, whose binary may have been built for another type of
  // the watch variable (NO_STD_LIB), so that there is nothing to link to.
  void doEventLoop(EventLoopWatchVariable* watchVariable) override;
  void SingleStep(unsigned maxDelayTime) override;
  void setBackgroundHandling(int socket, int conditions, BackgroundHandlerProc* handler,
                             void* clientData) override;
  void moveSocketHandling(int from, int to) override;
  bool pending() const { return begin_ < end_; }
  void forget();
  void settle();
  void gather();
  // A socket with a handler for what has been read ahead; -1 if there is none.
  int waiting() const;

  struct Handler {
    BackgroundHandlerProc* call;
    void* clientData;
  };
  std::map<int, Handler> readers_;
  std::map<int, std::unique_ptr<DatagramBatch>> batches_;
  const unsigned tickMicros_;
  int socket_ = -1;
  InterleavedFraming framing_;
  std::size_t begin_ = 0, end_ = 0;  // unread part of the block
  unsigned long blocks_ = 0;
  bool unsettled_ = false;  // a block has come since settle()
  bool gathers_ = false;    // a block has come since gather(), and it took all there was
  bool settling_ = false;   // nothing is read meanwhile
  std::array<unsigned char, 65536> block_;
};

// Of a source over UDP, where its loop can.
void readDatagramsAhead(const RTPSource& source);

}  // namespace Kelvane
