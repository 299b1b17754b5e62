// libdeflate with zlib behind it against zlib alone: on every stream the fuzz corpus holds and on
// made streams, each also damaged, cut, padded and given wrong sizes, a kept work buffer, a fresh
// one and DecompressString give the same bytes, the same whole or failed result and the same
// failure as zlib alone in a fresh buffer.
#include <zlib.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "compress/StringCompression.h"
#include "profiles/Base64.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

namespace fs = std::filesystem;
using compression::Inflater;
using compression::WorkBuffer;

// What one expansion shows: the result's bytes and whether it was whole, or the failure.
struct Expansion {
  std::string bytes;
  bool whole = false;
  std::string failure;
  bool operator==(const Expansion&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Expansion& e) {
  return os << e.bytes.size() << " bytes, " << (e.whole ? "whole" : "not whole") << ", failure \""
            << e.failure << "\"";
}

template <class Expand>
Expansion caught(Expand&& expand) {
  try {
    return expand();
  } catch (const Failure& f) {
    return {"", false, std::to_string(f.number()) + " " + ansi(f.info().Description)};
  }
}

Expansion expandWith(WorkBuffer& buffer, std::string_view stream, int32_t size, Inflater how) {
  return caught([&] {
    WorkBuffer::Result r = buffer.expand(stream, size, how);
    return Expansion{std::string(r.bytes), r.whole, ""};
  });
}

// How many bytes zlib expands `stream` to before it ends or fails, up to 64 MiB.
size_t expandedLength(std::string_view stream) {
  z_stream z{};
  inflateInit(&z);
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(stream.data()));
  z.avail_in = uInt(stream.size());
  std::vector<Bytef> sink(1 << 16);
  size_t total = 0;
  int rc = Z_OK;
  while (rc == Z_OK && total < (size_t(64) << 20)) {
    z.next_out = sink.data();
    z.avail_out = uInt(sink.size());
    rc = inflate(&z, Z_NO_FLUSH);
    total += sink.size() - z.avail_out;
  }
  inflateEnd(&z);
  return total;
}

bool startsZlibStream(std::string_view s, size_t at) {
  auto cmf = static_cast<unsigned char>(s[at]), flg = static_cast<unsigned char>(s[at + 1]);
  return (cmf & 0x0F) == 8 && (cmf >> 4) <= 7 && (cmf * 256 + flg) % 31 == 0;
}

// The streams a corpus file holds: the file itself and every tail that starts with a zlib
// header, in its bytes and in the base64 body of a packed INI file.
void addStreamsOf(const std::string& file, std::set<std::string>& streams) {
  std::vector<std::string> sources{file};
  try {
    if (file.size() > 12 && file.compare(8, 4, "BINI") == 0)
      sources.push_back(base64DecodeBytes(std::string_view(file).substr(12)));
  } catch (const Failure&) {  // a body that is no base64 holds no stream
  }
  for (const std::string& s : sources) {
    streams.insert(s);
    for (size_t i = 0; i + 1 < s.size(); ++i)
      if (startsZlibStream(s, i)) streams.insert(s.substr(i));
  }
}

std::string deflated(const std::string& bytes, int level) {
  uLongf size = compressBound(uLong(bytes.size()));
  std::string out(size, '\0');
  compress2(reinterpret_cast<Bytef*>(out.data()), &size,
            reinterpret_cast<const Bytef*>(bytes.data()), uLong(bytes.size()), level);
  out.resize(size);
  return out;
}

// Streams of text, of every byte value and of runs, stored and at several levels: with
// stored, fixed and dynamic blocks, long matches and more than one block.
void addMadeStreams(std::set<std::string>& streams) {
  std::string words, bytes;
  uint32_t x = 7;
  while (words.size() < 200000) {
    x = x * 1103515245u + 12345u;
    words += "port map kick ban vote team\r\n"[(x >> 16) % 29];
    bytes += char(x >> 24);
  }
  for (const std::string& in : {std::string(), std::string("abc"), words.substr(0, 300), words,
                                bytes.substr(0, 70000), std::string(100000, 'z')}) {
    for (int level : {0, 1, 6, 9})
      streams.insert(deflated(in, level));
  }
}

// The stream as it is, cut, padded and with a byte changed at places from the header to the
// check value.
std::vector<std::string> damaged(const std::string& s) {
  std::vector<std::string> out{s, s + "trailing bytes"};
  for (size_t keep : {s.size() - 1, s.size() - 4, s.size() / 2, size_t(2)})
    if (keep < s.size()) out.push_back(s.substr(0, keep));
  for (size_t at : {size_t(1), size_t(2), s.size() / 3, s.size() / 2, s.size() - 5, s.size() - 1}) {
    if (at >= s.size()) continue;
    for (char mask : {'\x01', '\x80', '\xFF'}) {
      out.push_back(s);
      out.back()[at] ^= mask;
    }
  }
  return out;
}

// Every byte of a short stream changed in each of its bits.
std::vector<std::string> everyBitFlipped(const std::string& s) {
  std::vector<std::string> out;
  for (size_t at = 0; at < s.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      out.push_back(s);
      out.back()[at] ^= char(1 << bit);
    }
  }
  return out;
}

// The sizes a caller may give for a stream that expands to n bytes: right, near, far, negative
// and too large.
std::vector<int32_t> sizesAround(size_t n) {
  int32_t m = int32_t(n);
  return {m, m - 1, m + 1, 0, m / 2, 2 * m + 13, -1, -13, -1000, INT32_MAX};
}

class InflaterAgreement : public LibraryTest {
 protected:
  // Compares each expansion of `stream` at every size with zlib's alone in a fresh buffer.
  void expectSame(const std::string& stream, const std::vector<int32_t>& sizes) {
    for (int32_t size : sizes) {
      WorkBuffer fresh, freshFast;
      Expansion zlib = expandWith(fresh, stream, size, Inflater::ZlibOnly);
      EXPECT_EQ(expandWith(kept_, stream, size, Inflater::LibdeflateFirst), zlib)
          << size << " " << stream.size();
      EXPECT_EQ(expandWith(freshFast, stream, size, Inflater::LibdeflateFirst), zlib) << size;
      Expansion viaText = caught([&] {
        return Expansion{ansi(kvn->DecompressString(bytes(stream), size)), zlib.whole, ""};
      });
      EXPECT_EQ(viaText, zlib) << size;
      whole_ += zlib.whole;
      ++cases_;
    }
  }

  WorkBuffer kept_;  // over every case, so that no earlier result shows through
  size_t whole_ = 0, cases_ = 0;
};

TEST_F(InflaterAgreement, SameBytesAndFailuresOnCorpusAndDamagedStreams) {
  std::set<std::string> streams;
  size_t files = 0;
  for (const auto& dir : fs::directory_iterator(builtFile("ZRK_FUZZ_CORPUS", ZRK_FUZZ_CORPUS))) {
    for (const auto& e : fs::directory_iterator(dir.path())) {
      addStreamsOf(readBytes(e.path().string()), streams);
      ++files;
    }
  }
  addMadeStreams(streams);
  for (const std::string& s : streams) {
    std::vector<int32_t> sizes = sizesAround(expandedLength(s));
    for (const std::string& variant : damaged(s))
      expectSame(variant, sizes);
  }
  EXPECT_GE(files, 30u);
  EXPECT_GE(whole_, 100u);  // libdeflate's own path was taken, not only the fallback
  EXPECT_GT(cases_, whole_ * 2);
}

TEST_F(InflaterAgreement, SameBytesWithEveryBitOfAShortStreamFlipped) {
  for (const char* text : {"abc", "abcabcabcabcabcabc"}) {
    std::string stream = deflated(text, 6);
    for (const std::string& variant : everyBitFlipped(stream))
      expectSame(variant, sizesAround(std::string(text).size()));
  }
}

}  // namespace
}  // namespace zrk::test
