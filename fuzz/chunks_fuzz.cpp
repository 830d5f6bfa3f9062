// Elementary stream files: the units of any input, one behind the other, are
// the input itself, unless one was too large.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "ChunkStorage.h"

namespace {

void check(Kelvane::ChunkStorageImpl& reader, const uint8_t* data, size_t size, uint32_t room) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fmemopen(const_cast<uint8_t*>(data), size, "r"),
                                                   fclose);
  std::vector<uint8_t> buffer(room);
  size_t at = 0;
  int bytes = 0;
  while ((bytes = reader.readFrame(file.get(), buffer.data(), room, nullptr)) > 0) {
    const auto count = static_cast<size_t>(bytes);
    if (count > room) __builtin_trap();
    if (room > size && (at + count > size || memcmp(buffer.data(), data + at, count) != 0)) {
      __builtin_trap();
    }
    at += count;
  }
  if (room > size && at != size) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  Kelvane::H264ChunkStorageImpl h264;
  Kelvane::M4VChunkStorageImpl m4v;
  Kelvane::MPEG2ChunkStorageImpl mpeg2;
  Kelvane::MJPGChunkStorageImpl mjpg;
  for (Kelvane::ChunkStorageImpl* reader : {static_cast<Kelvane::ChunkStorageImpl*>(&h264),
                                            static_cast<Kelvane::ChunkStorageImpl*>(&m4v),
                                            static_cast<Kelvane::ChunkStorageImpl*>(&mpeg2),
                                            static_cast<Kelvane::ChunkStorageImpl*>(&mjpg)}) {
    check(*reader, data, size, static_cast<uint32_t>(size + 1));
    check(*reader, data, size, 64);
  }
  return 0;
}
