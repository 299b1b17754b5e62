// Strings as zlib streams: CompressString and DecompressString over stock zlib.
#include "compress/StringCompression.h"

#include <zlib.h>

#include <algorithm>
#include <limits>
#include <string>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "platform/CodePage.h"

namespace zrk {
namespace {

// The work buffer's size for a length n: 1 percent plus 12 over n, summed in double precision in
// that order and rounded half to even. A negative size cannot be made (failure 5); one beyond the
// 32-bit range overflows (failure 6).
int32_t workBufferSize(double n) {
  int32_t size = roundToLong(n * 0.01 + n + 12);
  if (size < 0) throw Failure(err::InvalidCall);
  return size;
}

using ZlibCall = int (*)(Bytef*, uLongf*, const Bytef*, uLong);

struct ZlibResult {
  std::string bytes;
  bool whole = false;
};

// One zlib call into a work buffer of `size` bytes. The size variable takes zlib's count only
// when the call delivered a whole result; otherwise it keeps the buffer's size, so a bad stream
// gives the whole buffer: what was expanded, then the NULs behind it. Every stored format counts
// on that. The public operations drop the status: it raises nothing.
ZlibResult runZlib(ZlibCall call, std::string_view source, int32_t size) {
  std::string buffer(size_t(size), '\0');
  uLongf delivered = uLongf(size);
  int32_t sizeVariable = size;
  bool whole = call(reinterpret_cast<Bytef*>(buffer.data()), &delivered,
                    reinterpret_cast<const Bytef*>(source.data()), uLong(source.size())) == Z_OK;
  if (whole) sizeVariable = int32_t(delivered);
  buffer.resize(size_t(sizeVariable));
  return {std::move(buffer), whole};
}

int compressDefault(Bytef* dest, uLongf* destLen, const Bytef* source, uLong sourceLen) {
  return compress(dest, destLen, source, sourceLen);
}

int uncompressStream(Bytef* dest, uLongf* destLen, const Bytef* source, uLong sourceLen) {
  return uncompress(dest, destLen, source, sourceLen);
}

}  // namespace

namespace compression {

int32_t maxExpandedLength(size_t streamLength) {
  // Deflate gives at most 258 bytes for two bits; the margin covers headers and block ends.
  constexpr int64_t kMaxRatio = 1032, kMargin = 4096;
  int64_t n = int64_t(std::min<size_t>(streamLength, INT32_MAX)) * kMaxRatio + kMargin;
  return int32_t(std::min<int64_t>(n, std::numeric_limits<int32_t>::max()));
}

std::optional<Text> expandWhole(const Text& stream, int32_t origSize) {
  std::optional<std::string> bytes = expandWhole(platform::toAnsi(stream), origSize);
  if (!bytes) return std::nullopt;
  return platform::fromAnsi(*bytes);
}

std::optional<std::string> expandWhole(std::string_view stream, int32_t origSize) {
  ZlibResult r = runZlib(uncompressStream, stream, workBufferSize(double(origSize)));
  if (!r.whole) return std::nullopt;
  return std::move(r.bytes);
}

std::string compressBytes(std::string_view bytes) {
  return runZlib(compressDefault, bytes, workBufferSize(double(bytes.size()))).bytes;
}

}  // namespace compression

Text clsKVN::CompressString(Text TheString) {
  return noTrap(
      [&] { return platform::fromAnsi(compression::compressBytes(platform::toAnsi(TheString))); });
}

Text clsKVN::DecompressString(Text TheString, int32_t OrigSize) {
  return noTrap([&] {
    int32_t size = workBufferSize(double(OrigSize));
    return platform::fromAnsi(runZlib(uncompressStream, platform::toAnsi(TheString), size).bytes);
  });
}

static const CallRegistrar kCompressionCalls{
    {u"CompressString", calls::method<&clsKVN::CompressString>},
    {u"DecompressString", calls::method<&clsKVN::DecompressString>},
};

}  // namespace zrk
