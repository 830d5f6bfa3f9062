#pragma once

#include <string>
#include <string_view>

#include "Message.h"

namespace Kelvane {

// Where a message for this header goes: "bus.ip<IP>.<id>.<classes>", with the
// classes behind the address so that a wildcard catches all of a device's.
std::string subjectOf(const Message::Header& header);
// What to subscribe to for everything sent to a device address.
std::string subjectPattern(const Message::Header::DevID& device);

// The whole message as one block of bytes. Integers are little-endian and 32
// bits wide; texts have their length ahead.
//   byte    1, the version of the form
//   header  ctxType, evtType, procLvl, IP, id, mMessageID, subscriptionID
//   body, sid, userid, number of attachments, each descriptor and content
std::string encode(const Message& message);
// Throws NetworkException for bytes that are no such block.
Message decode(std::string_view bytes);

}  // namespace Kelvane
