#include "TDX_Protocol.h"

using apache::thrift::protocol::TProtocolException;

// The string limit only stops sizes that no message can have.
TDX_Protocol::TDX_Protocol(const std::shared_ptr<TDX_Transport>& transport)
    : TBinaryProtocolT(transport, TDX_Transport::kMaxMessageBytes, 0, false, true),
      transport_(*transport) {}

// Every element takes a byte at least, also a record: its stop.
void TDX_Protocol::checkCount(std::uint64_t elements) const {
  if (elements > transport_.unread())
    throw TProtocolException(
        TProtocolException::SIZE_LIMIT,
        "container of " + std::to_string(elements) + " elements does not fit into the message");
}

void TDX_Protocol::checkReadBytesAvailable(apache::thrift::protocol::TSet& set) {
  checkCount(set.size_);
}

void TDX_Protocol::checkReadBytesAvailable(apache::thrift::protocol::TList& list) {
  checkCount(list.size_);
}

void TDX_Protocol::checkReadBytesAvailable(apache::thrift::protocol::TMap& map) {
  checkCount(map.size_ * 2ULL);
}
