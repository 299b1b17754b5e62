// Strings as zlib streams: CompressString over stock zlib; DecompressString expands through
// libdeflate, with zlib taking over whatever libdeflate does not expand whole. Both libraries
// are opened at the first stream, so a program that makes none never loads them.
#include "compress/StringCompression.h"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "platform/loader/SharedLibrary.h"
#include "platform/text/CodePage.h"

// A failed uncompress reports how much it wrote from zlib 1.2.9 on; the clearing relies on that.
static_assert(ZLIB_VERNUM >= 0x1290, "zlib 1.2.9 or later is needed");

namespace zrk {
namespace compression {
namespace {

// The zlib and libdeflate functions in use, looked up when the first stream is made or expanded.
struct Zlib {
  decltype(&::compress) compress;
  decltype(&::uncompress) uncompress;
};

struct Libdeflate {
  decltype(&::libdeflate_alloc_decompressor) alloc_decompressor;
  decltype(&::libdeflate_free_decompressor) free_decompressor;
  decltype(&::libdeflate_zlib_decompress) zlib_decompress;
};

bool bindZlib(const platform::LibrarySymbols& l, Zlib& z) {
  return l.bind(z.compress, "compress") && l.bind(z.uncompress, "uncompress");
}

bool bindLibdeflate(const platform::LibrarySymbols& l, Libdeflate& d) {
  return l.bind(d.alloc_decompressor, "libdeflate_alloc_decompressor") &&
         l.bind(d.free_decompressor, "libdeflate_free_decompressor") &&
         l.bind(d.zlib_decompress, "libdeflate_zlib_decompress");
}

// zlib, which every stream needs: failure 429 (a component that cannot be created) without it.
const Zlib& zlib() {
  static platform::OnDemandLibrary<Zlib> library(kZlibLibrary, bindZlib);
  const Zlib* z = library.get();
  if (!z) throw Failure(err::CantCreateObject);
  return *z;
}

// libdeflate, only ever a faster way to the same result: null without it, and zlib expands.
const Libdeflate* libdeflate() {
  static platform::OnDemandLibrary<Libdeflate> library(kLibdeflateLibrary, bindLibdeflate);
  return library.get();
}

// One libdeflate decompressor per thread, with the library that made it: making one costs an
// allocation and its clearing.
struct Decompressor {
  const Libdeflate& api;
  libdeflate_decompressor* d = api.alloc_decompressor();
  ~Decompressor() {
    if (d) api.free_decompressor(d);
  }
};

// Whether libdeflate expanded `stream` whole to exactly `size` bytes at `out`. On false it may
// have written anything into those bytes.
bool expandExactly(char* out, std::string_view stream, size_t size) {
  const Libdeflate* api = libdeflate();
  if (!api) return false;
  thread_local Decompressor decompressor{*api};
  return decompressor.d &&
         decompressor.api.zlib_decompress(decompressor.d, stream.data(), stream.size(), out, size,
                                          nullptr) == LIBDEFLATE_SUCCESS;
}

}  // namespace

int32_t workBufferSize(double n) {
  int32_t size = roundToLong(n * 0.01 + n + 12);
  if (size < 0) throw Failure(err::InvalidCall);
  return size;
}

int32_t maxExpandedLength(size_t streamLength) {
  // Deflate gives at most 258 bytes for two bits; the margin covers headers and block ends.
  constexpr int64_t kMaxRatio = 1032, kMargin = 4096;
  int64_t n = int64_t(std::min<size_t>(streamLength, INT32_MAX)) * kMaxRatio + kMargin;
  return int32_t(std::min<int64_t>(n, std::numeric_limits<int32_t>::max()));
}

char* WorkBuffer::reserve(size_t size) {
  if (size + kLineEnd > capacity_) {
    bytes_.reset();  // the old bytes are not needed: give their memory back first
    capacity_ = 0;
    bytes_.reset(new char[size + kLineEnd]);
    capacity_ = size + kLineEnd;
  }
  return bytes_.get();
}

// One zlib call into a work buffer of `size` bytes. The size variable takes zlib's count only
// when the call delivered a whole result; otherwise it keeps the buffer's size, so a bad stream
// gives the whole buffer: what was expanded, then the NULs behind it. Every stored format counts
// on that. zlib writes nothing beyond the count it reports, also on a failed call, so only the
// bytes behind that count need clearing then.
WorkBuffer::Result WorkBuffer::run(ZlibCall call, std::string_view source, int32_t size) {
  char* out = reserve(size_t(size));
  uLongf delivered = uLongf(size);
  bool whole = call(reinterpret_cast<Bytef*>(out), &delivered,
                    reinterpret_cast<const Bytef*>(source.data()), uLong(source.size())) == Z_OK;
  if (whole) return {std::string_view(out, size_t(delivered)), true};
  size_t written = std::min<size_t>(delivered, size_t(size));
  std::memset(out + written, 0, size_t(size) - written);
  return {std::string_view(out, size_t(size)), false};
}

WorkBuffer::Result WorkBuffer::compress(std::string_view bytes) {
  return run(zlib().compress, bytes, workBufferSize(double(bytes.size())));
}

// zlib writes every byte of the result it reports and clears the rest of the buffer on a
// failure, so what libdeflate left behind when it gave up never shows.
WorkBuffer::Result WorkBuffer::expand(std::string_view stream, int32_t origSize,
                                      Inflater inflater) {
  int32_t size = workBufferSize(double(origSize));
  const Zlib& z = zlib();  // needed whenever libdeflate gives up, so always
  if (inflater == Inflater::LibdeflateFirst && origSize >= 0) {
    char* out = reserve(size_t(size));
    if (expandExactly(out, stream, size_t(origSize)))
      return {std::string_view(out, size_t(origSize)), true};
  }
  return run(z.uncompress, stream, size);
}

std::string_view WorkBuffer::lineFrom(size_t from, size_t used) {
  bytes_[used] = '\r';
  bytes_[used + 1] = '\n';
  return std::string_view(bytes_.get() + from, used + kLineEnd - from);
}

std::optional<std::string> expandWhole(std::string_view stream, int32_t origSize) {
  WorkBuffer buffer;
  WorkBuffer::Result r = buffer.expand(stream, origSize);
  if (!r.whole) return std::nullopt;
  return std::string(r.bytes);
}

std::string compressBytes(std::string_view bytes) {
  WorkBuffer buffer;
  return std::string(buffer.compress(bytes).bytes);
}

}  // namespace compression

// The public operations drop zlib's status: it raises nothing.
Text clsKVN::CompressString(Text TheString) {
  return noTrap([&] {
    compression::WorkBuffer buffer;
    return platform::fromAnsi(buffer.compress(platform::toAnsi(TheString)).bytes);
  });
}

Text clsKVN::DecompressString(Text TheString, int32_t OrigSize) {
  return noTrap([&] {
    compression::WorkBuffer buffer;
    return platform::fromAnsi(buffer.expand(platform::toAnsi(TheString), OrigSize).bytes);
  });
}

static const CallRegistrar kCompressionCalls{
    {u"CompressString", calls::method<&clsKVN::CompressString>},
    {u"DecompressString", calls::method<&clsKVN::DecompressString>},
};

}  // namespace zrk
