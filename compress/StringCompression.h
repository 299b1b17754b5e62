// The zlib helpers behind CompressString and DecompressString that other readers share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <zrkKVL/Text.h>

namespace zrk::compression {

// The libraries opened at the first stream (overrideLibraryFile names others, for tests). Without
// zlib a stream can be neither made nor expanded: failure 429 (a component that cannot be
// created). Without libdeflate zlib expands every stream.
inline constexpr const char* kZlibLibrary = "libz.so.1";
inline constexpr const char* kLibdeflateLibrary = "libdeflate.so.0";

// The work buffer's size for a length n: 1 percent plus 12 over n, summed in double precision in
// that order and rounded half to even. A negative size cannot be made (failure 5); one beyond the
// 32-bit range overflows (failure 6).
int32_t workBufferSize(double n);

// The longest text a zlib stream of `streamLength` bytes can expand to: a bound for a length
// read from a file, which may be damaged or made up.
int32_t maxExpandedLength(size_t streamLength);

// What the stream expands to in the work buffer for `origSize`, or nothing when zlib could not
// expand it whole (damaged, cut short, or larger than the buffer).
std::optional<std::string> expandWhole(std::string_view stream, int32_t origSize);

// The stream that CompressString makes of the same characters, on bytes.
std::string compressBytes(std::string_view bytes);

// How a stream is expanded. libdeflate is tried first and trusted only when it expands the
// stream whole to exactly `origSize` bytes; anything else is expanded again by zlib, whose result
// and failures every reader keeps. Zlib alone is there to hold the two against each other.
enum class Inflater { LibdeflateFirst, ZlibOnly };

// zlib's output buffer, kept from one call to the next so that a run over many streams
// allocates once. Its bytes are not cleared before a call: only a failed call clears what zlib
// left unwritten, which is what the result then shows.
class WorkBuffer {
 public:
  struct Result {
    std::string_view bytes;  // the size variable's first bytes of the buffer
    bool whole = false;      // the stream expanded whole
  };

  // The zlib stream of `bytes` in a work buffer sized for their length.
  Result compress(std::string_view bytes);
  // What `stream` expands to in the work buffer for `origSize`. On a failed call the result is
  // the whole buffer: what was expanded, then NULs.
  Result expand(std::string_view stream, int32_t origSize,
                Inflater inflater = Inflater::LibdeflateFirst);

  // Puts CR LF behind the first `used` bytes, in the room kept behind every result, and gives
  // the bytes from `from` to that line end.
  std::string_view lineFrom(size_t from, size_t used);

 private:
  using ZlibCall = int (*)(unsigned char*, unsigned long*, const unsigned char*, unsigned long);
  Result run(ZlibCall call, std::string_view source, int32_t size);
  char* reserve(size_t size);

  static constexpr size_t kLineEnd = 2;  // room kept behind a result for CR LF
  std::unique_ptr<char[]> bytes_;
  size_t capacity_ = 0;
};

}  // namespace zrk::compression
