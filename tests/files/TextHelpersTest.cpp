// The growing buffer, array look-up and URL decoding.
#include "files/TextOps.h"
#include "support/LoggedFailures.h"

namespace zrk::test {
namespace {

using TextHelpers = ReportingTest;

TEST_F(TextHelpers, BufferGrowsByTheNewFillLevelUnderBothNames) {
  for (auto op : {&clsKVN::BuildString, &clsKVN::ConcatStr}) {
    struct Step {
      const char16_t* add;
      Text buf;
      int32_t len;
    } steps[] = {
        {u"abc", u"abc", 3},
        {u"de", u"abcde   ", 5},
        {u"fgh", u"abcdefgh", 8},
        {u"", u"abcdefgh", 8},  // empty piece at a full buffer: nothing changes
        {u"i", u"abcdefghi" + Text(8, u' '), 9},
    };
    Text buf;
    int32_t len = 0;
    for (const auto& s : steps) {
      Text add = s.add;
      ((*kvn).*op)(buf, len, add);
      EXPECT_EQ(buf, s.buf);
      EXPECT_EQ(len, s.len);
      EXPECT_EQ(add, s.add) << "the piece is left as it was";
    }
  }
}

TEST_F(TextHelpers, BufferGrowsRarely) {
  Text buf;
  int32_t len = 0;
  int growths = 0;
  for (int i = 0; i < 200000; ++i) {
    size_t before = buf.size();
    files::appendToBuffer(buf, len, u"xy");
    growths += buf.size() != before;
  }
  EXPECT_EQ(len, 400000);
  EXPECT_EQ(buf.substr(0, 6), u"xyxyxy");
  EXPECT_LE(growths, 20) << "the buffer must at least double on each growth";
}

TEST_F(TextHelpers, BufferFailuresReachTheCaller) {
  Text buf = u"abc", add = u"x";
  int32_t len = -1;
  try {
    kvn->ConcatStr(buf, len, add);
    ADD_FAILURE() << "a negative count must fail";
  } catch (const Failure& f) {
    EXPECT_EQ(f.number(), 5);
  }
  len = INT32_MAX;
  try {
    kvn->BuildString(buf, len, add);
    ADD_FAILURE() << "a fill level beyond 32 bits must fail";
  } catch (const Failure& f) {
    EXPECT_EQ(f.number(), 6);
  }
  EXPECT_EQ(failureCount(), 0u) << "no trap, no report";
}

TEST_F(TextHelpers, ByNameWritesTheBufferBack) {
  std::vector<Variant> args{Variant(Text(u"ab")), Variant(int32_t(2)), Variant(Text(u"cd"))};
  kvn->CallByName(u"ConcatStr", args);
  EXPECT_EQ(args[0].toText(), u"abcd  ");
  EXPECT_EQ(args[1].toLong(), 4);
}

TEST_F(TextHelpers, IsInArrayMatchesWholeElementsExactly) {
  Variant abc = Variant::textArray({u"a", u"b", u"c"});
  struct Case {
    Variant value, array;
    bool found;
  } cases[] = {
      {Variant(Text(u"b")), abc, true},
      {Variant(Text(u"B")), abc, false},
      {Variant(Text(u"b")), Variant::textArray({u"abc"}), false},
      {Variant(Text(u"b")), Variant(Text(u"b")), false},
      {Variant(), Variant::textArray({}), true},
      {Variant(Text(u"a")), Variant::textArray({}), false},
      {Variant(int32_t(2)), Variant::textArray({u"1", u"2"}), true},
      {Variant(Text(u"")), Variant::textArray({u"x", u""}), true},
  };
  for (const auto& c : cases)
    EXPECT_EQ(kvn->IsInArray(c.value, c.array), c.found);
}

TEST_F(TextHelpers, UrlDecode) {
  struct Case {
    const char16_t* in;
    Text out;
  } cases[] = {
      {u"a+b", u"a b"},
      {u"a%20b", u"a b"},
      {u"100%", u"100%"},
      {u"50%2", u"50%2"},
      {u"%41%42", u"AB"},
      {u"", u""},
      {u"%c3%a9", u"\u00C3\u00A9"},  // each escape is one code-page character
      {u"%80", u"\u20AC"},
      {u"x%00y", Text(u"x\0y", 3)},
  };
  for (const auto& c : cases)
    EXPECT_EQ(kvn->URLDecode(c.in), c.out) << toUtf8(c.in);
  EXPECT_EQ(failureCount(), 0u);
}

TEST_F(TextHelpers, UrlDecodeOfABadEscapeReportsAndGivesEmpty) {
  for (const char16_t* in : {u"ok%zz", u"%2g"}) {
    loggedFailures().clear();
    EXPECT_EQ(kvn->URLDecode(in), u"");
    LoggedFailure f = onlyFailure();
    EXPECT_EQ(f.func, u"URLDecode");
    EXPECT_EQ(f.failure.Number, 13);
  }
}

}  // namespace
}  // namespace zrk::test
