#pragma once

#include <netinet/in.h>

#include <Groupsock.hh>
#include <cstdint>

namespace Kelvane {

// Sockets on which a device sends without being asked. A port that another
// process holds is a fatal report. The caller owns the result and deletes it
// behind the source that reads from it.

// For itself alone: a second receiver on the port would silently take the
// stream away from the first.
Groupsock* openUnicast(UsageEnvironment& env, std::uint16_t port);

// On a port that many receivers of the host may share. The group is not joined
// yet: joinGroup() does that.
Groupsock* openMulticast(UsageEnvironment& env, in_addr group, std::uint16_t port);

// Joins on the interface that the kernel's routes choose; from now on datagrams
// of no other group arrive, whatever the host has joined. Zero, or the system's
// error code.
int joinGroup(const Groupsock& socket, in_addr group);

}  // namespace Kelvane
