#pragma once

#include <sys/time.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "StartCode.h"

namespace Kelvane {

namespace StorageAPI {

struct FrameExtraInfo {
  timeval capturedTime{};
  uint32_t duration = 0;
  unsigned samplingFreq = 0;
  unsigned bitsPerSample = 0;
  unsigned numChannels = 0;
  unsigned frameRate = 0;
  bool toGetMetadata = false;
  bool toGetAnalytics = false;
  bool toGetPlainMetadata = false;
  std::string objectsData;
};

}  // namespace StorageAPI

// Cuts a plain elementary stream file into access units: a picture with the
// headers ahead of it. One reader serves one open file after another; it reads
// ahead, so nothing else may move the file position in between. Not thread-safe.
class ChunkStorageImpl {
 public:
  virtual ~ChunkStorageImpl() = default;
  // The next access unit into `buffer`; its size in bytes, or 0 at the end of
  // the file. One that does not fit into `size` bytes is passed over with an ERROR.
  // `info` may be null and is left alone.
  virtual int readFrame(FILE* file, uint8_t* buffer, uint32_t size,
                        StorageAPI::FrameExtraInfo* info);

 protected:
  // Looks at data[from, size) for the end of the unit that starts at data[0].
  // Returns the offset of the next unit, or 0 when more data are needed; then
  // `from` is where the next look starts.
  virtual std::size_t findEnd(const uint8_t* data, std::size_t size, std::size_t& from) = 0;
  // A new unit begins: forget what findEnd() has seen of the last one.
  virtual void beginUnit() {}

 private:
  int readUnit(FILE* file, uint8_t* buffer, uint32_t size);
  bool fill(FILE* file);

  std::vector<uint8_t> pending_;
  std::size_t begin_ = 0;      // of the current unit in pending_
  long expectedPosition_ = 0;  // of the file, unless another one was opened
};

class MJPGChunkStorageImpl : public ChunkStorageImpl {
 protected:
  std::size_t findEnd(const uint8_t* data, std::size_t size, std::size_t& from) override;
};

// Formats with start codes: a unit ends ahead of the first start code that may
// open a picture, once the unit holds a picture.
class StartCodeChunkStorageImpl : public ChunkStorageImpl {
 protected:
  // `code` points behind 00 00 01 and has at least kUnitLookAhead bytes.
  virtual UnitKind classify(const uint8_t* code) const = 0;
  std::size_t findEnd(const uint8_t* data, std::size_t size, std::size_t& from) override;
  void beginUnit() override { sawPicture_ = false; }

 private:
  bool sawPicture_ = false;
};

class M4VChunkStorageImpl : public StartCodeChunkStorageImpl {
 protected:
  UnitKind classify(const uint8_t* code) const override { return mpeg4Unit(code); }
};

class H264ChunkStorageImpl : public StartCodeChunkStorageImpl {
 protected:
  UnitKind classify(const uint8_t* code) const override { return h264Unit(code); }
};

class MPEG2ChunkStorageImpl : public StartCodeChunkStorageImpl {
 protected:
  UnitKind classify(const uint8_t* code) const override { return mpeg2Unit(code); }
};

}  // namespace Kelvane
