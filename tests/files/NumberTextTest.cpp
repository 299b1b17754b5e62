// Number texts against the growing buffer they stand for: spare blanks at the points where the
// buffer grows, random files, and buffers that already hold text or fail.
#include <algorithm>
#include <charconv>
#include <random>

#include "files/NumberText.h"
#include "files/TextOps.h"
#include "support/LoggedFailures.h"

namespace zrk::test {
namespace {

using NumberText = ReportingTest;

// The piece of one byte, formatted here independently of the library.
Text pieceOf(unsigned char b, int radix) {
  char digits[8];
  char* end = std::to_chars(digits, digits + sizeof digits, int(b), radix).ptr;
  Text piece;
  for (char* c = digits; c < end; ++c)
    piece += char16_t(std::toupper(static_cast<unsigned char>(*c)));
  return piece + u"/";
}

// The buffer that appending the pieces one by one leaves, and its fill level.
std::pair<Text, int32_t> pieceByPiece(std::string_view bytes, int radix, Text buf = {},
                                      int32_t len = 0) {
  for (unsigned char b : bytes)
    files::appendToBuffer(buf, len, pieceOf(b, radix));
  return {buf, len};
}

// Where two long texts first differ ("" when they are equal), so a failure prints little.
std::string difference(const Text& got, const Text& want) {
  if (got == want) return "";
  size_t at = std::mismatch(got.begin(), got.end(), want.begin(), want.end()).first - got.begin();
  return "sizes " + std::to_string(got.size()) + " and " + std::to_string(want.size()) +
         ", first difference at " + std::to_string(at) + ": " +
         toUtf8(got.substr(at > 8 ? at - 8 : 0, 16)) + " | " +
         toUtf8(want.substr(at > 8 ? at - 8 : 0, 16));
}

TEST_F(NumberText, SpareBlanksAtTheGrowthPoints) {
  // A file of n bytes 0x41 gives n pieces of three characters ("65/" and "41/"). The buffer
  // grows at n = 1, 2, 4, 8, ... to 3 * (2n - 1) characters, so it is full at n = 2^k - 1 and
  // has 3 * (2^k - 1) blanks at n = 2^k.
  struct Case {
    size_t bytes;
    size_t blanks;
  } cases[] = {
      {1, 0},
      {2, 3},
      {3, 0},
      {4, 9},
      {5, 6},
      {255, 0},
      {256, 3 * 255},
      {257, 3 * 254},
      {8191, 0},
      {8192, 3 * 8191},
      {8193, 3 * 8190},
      {(1 << 21) - 1, 0},
      {1 << 21, 3 * ((1 << 21) - 1)},
      {(1 << 21) + 1, 3 * ((1 << 21) - 2)},
  };
  for (const auto& c : cases) {
    std::string path = root / "a.bin";
    writeBytes(path, std::string(c.bytes, 'A'));
    Text bin = kvn->BinRead(T(path)), hex = kvn->HexRead(T(path));
    Text trimmed = kvn->ReadBinaryFileToString(T(path));
    size_t used = 3 * c.bytes;
    ASSERT_EQ(bin.size(), used + c.blanks) << c.bytes;
    ASSERT_EQ(hex.size(), used + c.blanks) << c.bytes;
    ASSERT_EQ(trimmed.size(), used) << c.bytes;
    for (size_t i = 0; i < used; i += 3) {
      ASSERT_EQ(bin.compare(i, 3, u"65/"), 0) << c.bytes << " at " << i;
      ASSERT_EQ(hex.compare(i, 3, u"41/"), 0) << c.bytes << " at " << i;
    }
    EXPECT_EQ(bin.find_first_not_of(u' ', used), Text::npos) << c.bytes;
    EXPECT_EQ(hex.find_first_not_of(u' ', used), Text::npos) << c.bytes;
    EXPECT_EQ(difference(trimmed, bin.substr(0, used)), "") << c.bytes;
  }
  EXPECT_EQ(failureCount(), 0u);
}

TEST_F(NumberText, OnePassEqualsPieceByPieceOverRandomFiles) {
  std::mt19937 rng(20261123);
  // Byte ranges that give pieces of one length only, and of all lengths mixed.
  struct Range {
    int low, high;
  } ranges[] = {{0, 255}, {0, 9}, {10, 15}, {100, 255}, {0, 15}};
  size_t sizes[] = {1, 2, 255, 256, 257, 8191, 8193, 40000, (size_t(2) << 20) + 333};
  for (size_t n : sizes) {
    for (const auto& r : ranges) {
      std::uniform_int_distribution<int> byte(r.low, r.high);
      std::string bytes(n, '\0');
      for (char& b : bytes)
        b = char(byte(rng));
      std::string path = root / "r.bin";
      writeBytes(path, bytes);
      auto [dec, decLen] = pieceByPiece(bytes, 10);
      auto [hex, hexLen] = pieceByPiece(bytes, 16);
      std::string what =
          std::to_string(n) + " bytes in " + std::to_string(r.low) + ".." + std::to_string(r.high);
      EXPECT_EQ(difference(kvn->BinRead(T(path)), dec), "") << what;
      EXPECT_EQ(difference(kvn->HexRead(T(path)), hex), "") << what;
      EXPECT_EQ(difference(kvn->ReadBinaryFileToString(T(path)), dec.substr(0, size_t(decLen))), "")
          << what;
    }
  }
  EXPECT_EQ(failureCount(), 0u);
}

}  // namespace
}  // namespace zrk::test
