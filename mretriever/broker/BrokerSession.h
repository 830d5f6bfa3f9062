#pragma once

namespace cms {
class Session;
}

// Connects to the broker at `uri` and opens the session that positions are
// sent on. A lost link is renewed, whatever kind of address was given; a send
// meanwhile fails after a second. Throws cms::CMSException (a std::exception)
// after 20 seconds without a broker. The session belongs to the process.
constexpr char kBrokerLibrary[] = "libmretriever_broker.so";
constexpr char kBrokerFactory[] = "mretriever_openBrokerSession";
extern "C" cms::Session* mretriever_openBrokerSession(const char* uri);
