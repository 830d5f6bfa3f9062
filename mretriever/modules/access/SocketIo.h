#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>

namespace Kelvane {

// Blocks until `size` bytes have come, the peer has closed or the connection
// has failed: the bytes read, which at the end of the stream may be fewer.
// Zero or less is a lost connection. The stop flag does not interrupt it.
inline ssize_t receiveAll(int socket, void* to, std::size_t size) {
  return recv(socket, to, size, MSG_WAITALL);
}

}  // namespace Kelvane
