// Strings as zlib streams: exact bytes, the work buffer, bad streams, round trips.
#include <string>

#include "compress/StringCompression.h"
#include "platform/loader/SharedLibrary.h"
#include "platform/text/CodePage.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

class StringCompression : public LibraryTest {};

TEST_F(StringCompression, KnownStreams) {
  EXPECT_EQ(ansi(kvn->CompressString(u"")), std::string("\x78\x9C\x03\x00\x00\x00\x00\x01", 8));
  EXPECT_EQ(ansi(kvn->CompressString(u"abc")),
            std::string("\x78\x9C\x4B\x4C\x4A\x06\x00\x02\x4D\x01\x27", 11));
}

TEST_F(StringCompression, OrigSizeOnlySizesTheBuffer) {
  Text abc = kvn->CompressString(u"abc");
  for (int32_t origSize : {3, 0, 1, 1000}) {
    EXPECT_EQ(kvn->DecompressString(abc, origSize), u"abc") << origSize;
  }
  EXPECT_EQ(kvn->DecompressString(kvn->CompressString(u""), 0), u"");
}

// A text that is no stream gives the whole work buffer of NULs, whose size shows the formula:
// 1 percent plus 12, rounded half to even.
TEST_F(StringCompression, BadStreamGivesTheWholeWorkBuffer) {
  struct Case {
    int32_t origSize;
    size_t bufferSize;
  } cases[] = {{0, 12},    {1, 13},    {10, 22},   {50, 62},     {99, 112},
               {100, 113}, {150, 164}, {250, 264}, {1000, 1022}, {-12, 0}};
  for (const Case& c : cases) {
    Text out = kvn->DecompressString(u"no stream here", c.origSize);
    EXPECT_EQ(out, Text(c.bufferSize, u'\0')) << c.origSize;
  }
}

// A stream that breaks off keeps what was expanded, followed by the rest of the buffer.
TEST_F(StringCompression, TruncatedStreamKeepsExpandedTextAndBuffer) {
  Text text(200, u'x');
  Text stream = kvn->CompressString(text);
  Text cut = kvn->DecompressString(stream.substr(0, stream.size() - 4), 200);  // no checksum
  ASSERT_EQ(cut.size(), 214u);
  EXPECT_EQ(cut.substr(0, 200), text);
  EXPECT_EQ(cut.substr(200), Text(14, u'\0'));
}

TEST_F(StringCompression, SizesOutsideTheRangeFailToTheCaller) {
  struct Case {
    int32_t origSize;
    int32_t number;
  } cases[] = {{-13, err::InvalidCall}, {-1000, err::InvalidCall}, {INT32_MAX, err::Overflow}};
  for (const Case& c : cases) {
    try {
      kvn->DecompressString(u"x", c.origSize);
      ADD_FAILURE() << c.origSize;
    } catch (const Failure& f) {
      EXPECT_EQ(f.number(), c.number) << c.origSize;
    }
  }
}

TEST_F(StringCompression, EveryByteRoundTrips) {
  std::string all;
  for (int i = 0; i < 256; ++i)
    all += char(i);
  const std::string inputs[] = {std::string(3, '\0'), all, all + all + std::string(5000, '\xFF'),
                                std::string("\0a\0b\0", 5)};
  for (const std::string& in : inputs) {
    Text text = bytes(in);
    Text stream = kvn->CompressString(text);
    EXPECT_EQ(ansi(kvn->DecompressString(stream, int32_t(text.size()))), in);
  }
}

// One buffer kept over many streams gives what a fresh one gives: a failed stream behind a large
// good one shows NULs behind what it expanded, never the bytes of the earlier result.
TEST_F(StringCompression, AKeptWorkBufferGivesWhatAFreshOneGives) {
  std::string big;
  for (int i = 0; i < 50000; ++i)
    big += char('a' + i % 23);
  const std::string bigStream = ansi(kvn->CompressString(bytes(big)));
  const std::string abcStream = ansi(kvn->CompressString(u"abc"));
  struct Case {
    std::string stream;
    int32_t origSize;
    bool whole;
  } cases[] = {
      {bigStream, 50000, true},
      {"no stream here", 10, false},                              // 22 NULs
      {bigStream.substr(0, bigStream.size() / 2), 40000, false},  // cut: then NULs
      {bigStream, 100, false},                                    // too large for the buffer
      {abcStream, 0, true},
      {abcStream.substr(0, abcStream.size() - 4), 1000, false},  // no check value
      {"", 0, false},
  };
  compression::WorkBuffer kept;
  for (const Case& c : cases) {
    compression::WorkBuffer::Result r = kept.expand(c.stream, c.origSize);
    EXPECT_EQ(r.whole, c.whole) << c.origSize;
    EXPECT_EQ(bytes(r.bytes), kvn->DecompressString(bytes(c.stream), c.origSize)) << c.origSize;
    const size_t used = r.bytes.size();
    EXPECT_EQ(kept.lineFrom(used / 2, used), std::string(r.bytes.substr(used / 2)) + "\r\n");
  }
  EXPECT_EQ(std::string(kept.compress("abc").bytes), abcStream);
}

TEST_F(StringCompression, ReachableByName) {
  std::vector<Variant> args{Variant(Text(u"abc"))};
  Variant stream = kvn->CallByName(u"compressstring", args);
  std::vector<Variant> back{stream, Variant(int32_t(3))};
  EXPECT_EQ(kvn->CallByName(u"DecompressString", back).toText(), u"abc");
}

// Without zlib no stream is made or expanded (failure 429); without libdeflate zlib expands
// every stream to the same result.
TEST_F(StringCompression, MissingLibraries) {
  const Text abc = kvn->CompressString(u"abc");
  struct Case {
    const char* library;
    int32_t number;  // the failure of both operations, 0 for none
  } cases[] = {{compression::kZlibLibrary, err::CantCreateObject},
               {compression::kLibdeflateLibrary, 0}};
  for (const Case& c : cases) {
    platform::overrideLibraryFile(c.library, "libzrk-missing.so.1");
    for (int op = 0; op < 2; ++op) {
      try {
        Text out = op == 0 ? kvn->CompressString(u"abc") : kvn->DecompressString(abc, 3);
        EXPECT_EQ(c.number, 0) << c.library << " " << op;
        EXPECT_EQ(out, op == 0 ? abc : Text(u"abc")) << c.library;
      } catch (const Failure& f) {
        EXPECT_EQ(f.number(), c.number) << c.library << " " << op;
      }
    }
    platform::overrideLibraryFile(c.library, "");
  }
  EXPECT_EQ(kvn->DecompressString(abc, 3), u"abc") << "the usual libraries again";
}

}  // namespace
}  // namespace zrk::test
