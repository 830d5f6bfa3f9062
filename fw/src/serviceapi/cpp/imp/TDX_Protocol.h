#pragma once

#include <thrift/protocol/TBinaryProtocol.h>

#include <memory>

#include "TDX_Transport.h"

// The binary protocol of all service calls: lenient reads, strict writes, no
// limit to strings and containers but what the message itself can hold. A size
// that a broken or hostile peer made up is refused (TProtocolException
// SIZE_LIMIT) before anything is allocated for it.
class TDX_Protocol : public apache::thrift::protocol::TBinaryProtocol {
 public:
  explicit TDX_Protocol(const std::shared_ptr<TDX_Transport>& transport);

 protected:
  void checkReadBytesAvailable(apache::thrift::protocol::TSet& set) override;
  void checkReadBytesAvailable(apache::thrift::protocol::TList& list) override;
  void checkReadBytesAvailable(apache::thrift::protocol::TMap& map) override;

 private:
  void checkCount(std::uint64_t elements) const;
  const TDX_Transport& transport_;
};
