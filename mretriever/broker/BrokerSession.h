#pragma once

namespace cms {
class Session;
}

// Connects to the broker at `uri` and opens the session that positions are
// sent on. A lost link is renewed, whatever kind of address was given; a send
// meanwhile fails after 200 ms, since it holds the stream up (with "failover:"
// its `timeout` tells). The login is `username` and `password` in the query of
// the address, percent-encoded; without them none is sent. Throws
// cms::CMSException (a std::exception), at the latest after 20 seconds, with the
// reason; an address without "failover:" is tried once. The session belongs to
// the process.
constexpr char kBrokerLibrary[] = "libmretriever_broker.so";
constexpr char kBrokerFactory[] = "mretriever_openBrokerSession";
extern "C" cms::Session* mretriever_openBrokerSession(const char* uri);
