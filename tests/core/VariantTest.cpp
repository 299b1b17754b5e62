// Variant conversions, numeric text and array bounds.
#include <gtest/gtest.h>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Variant.h>
#include "support/TestSupport.h"

namespace zrk {
namespace {

using test::failureOf;

TEST(Variant, TextToNumberConversions) {
  struct Case {
    const char16_t* text;
    std::optional<double> value;
  } cases[] = {
      {u"12", 12},    {u" -3.5 ", -3.5}, {u"+7", 7},          {u"1e3", 1000}, {u"2D2", 200},
      {u"&HFF", 255}, {u"&hFFFF", -1},   {u"&H10000", 65536}, {u"&O17", 15},  {u"&17", 15},
      {u".5", 0.5},   {u"", {}},         {u"abc", {}},        {u"1e", {}},    {u"1.2.3", {}},
      {u"&HG", {}},   {u"- 1", {}},      {u"&O8", {}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(parseNumericText(c.text), c.value) << toUtf8(c.text);
  }
}

TEST(Variant, WholeNumbersRoundHalfToEvenAndOverflow) {
  EXPECT_EQ(Variant(2.5).toLong(), 2);
  EXPECT_EQ(Variant(3.5).toLong(), 4);
  EXPECT_EQ(Variant(-2.5).toLong(), -2);
  EXPECT_EQ(Variant(Text(u"2147483647")).toLong(), INT32_MAX);
  EXPECT_EQ(failureOf([] { Variant(Text(u"2147483648")).toLong(); }), err::Overflow);
  EXPECT_EQ(failureOf([] { Variant(int32_t(40000)).toInteger(); }), err::Overflow);
  EXPECT_EQ(failureOf([] { Variant(Text(u"x")).toLong(); }), err::TypeMismatch);
}

TEST(Variant, BooleansAndText) {
  EXPECT_TRUE(Variant(Text(u"TRUE")).toBool());
  EXPECT_FALSE(Variant(Text(u"false")).toBool());
  EXPECT_TRUE(Variant(Text(u"-2")).toBool());
  EXPECT_FALSE(Variant(Text(u"0")).toBool());
  EXPECT_EQ(failureOf([] { Variant(Text(u"yes")).toBool(); }), err::TypeMismatch);
  EXPECT_EQ(Variant(true).toText(), u"True");
  EXPECT_EQ(Variant(0.25).toText(), u"0.25");
  EXPECT_EQ(Variant(1e20).toText(), u"1E+20");
  EXPECT_EQ(Variant().toText(), u"");
  EXPECT_EQ(failureOf([] { Variant::textArray({}).toText(); }), err::TypeMismatch);
}

TEST(Variant, ArraysKeepTheirBounds) {
  VariantArray empty;
  EXPECT_EQ(empty.upperBound(), -1);
  VariantArray a{5, {Variant(Text(u"x")), Variant(Text(u"y"))}};
  EXPECT_EQ(a.upperBound(), 6);
  EXPECT_EQ(a.at(6).toText(), u"y");
  EXPECT_EQ(failureOf([&] { a.at(4); }), err::SubscriptOutOfRange);
  EXPECT_EQ(failureOf([&] { a.at(7); }), err::SubscriptOutOfRange);
  EXPECT_EQ(failureOf([] { Variant().array(); }), err::TypeMismatch);
  EXPECT_EQ(failureOf([] { Variant().object(); }), err::ObjectNotSet);
}

}  // namespace
}  // namespace zrk
