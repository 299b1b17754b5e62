// ParseIniKey: the plain form and the two indexed forms.
#include "support/LoggedFailures.h"

namespace zrk::test {
namespace {

using IndexedKey = ReportingTest;

std::vector<Text> textsOf(const Variant& v) {
  std::vector<Text> out;
  for (const Variant& item : v.array().items)
    out.push_back(item.toText());
  return out;
}

TEST_F(IndexedKey, FormsAndParts) {
  struct Case {
    const char16_t* line;
    std::vector<Text> parts;
  } cases[] = {
      {u"Port=80", {u"Port", u"80"}},
      {u"Motd=a=b=c", {u"Motd", u"a=b=c", u"b", u"c"}},
      {u"Opt=", {u"Opt", u""}},
      {u"Seen[1]=2008-05-01", {u"Seen[1]", u"2008-05-01"}},
      {u"Seen[2]=2009=x", {u"Seen[2]", u"2009=x"}},
      {u"Seen[1]=1999", {u"Seen[1]", u"1999"}},
      {u"A[1]=20[1]=30", {u"A[1]", u"20", u"30"}},
      {u"B[2]=20x[1]=20y", {u"B[2]=20x[1]", u"20y"}},
      {u"x=y[1]=20", {u"x=y[1]", u"20"}},
      {u"=x", {u"", u"x"}},
      {u"k=v=w", {u"k", u"v=w", u"w"}},
      {u"abc", {u"abc"}},
      {u"", {}},
  };
  for (const auto& c : cases) {
    Variant all = kvn->ParseIniKey(c.line, true);
    ASSERT_TRUE(all.isArray()) << toUtf8(c.line);
    EXPECT_EQ(all.array().lowerBound, 0);
    EXPECT_EQ(textsOf(all), c.parts) << toUtf8(c.line);
    if (c.parts.size() >= 2) {
      EXPECT_EQ(kvn->ParseIniKey(c.line), Variant(c.parts[1])) << toUtf8(c.line);
      EXPECT_EQ(kvn->ParseIniKey(c.line, false), Variant(c.parts[1]));
    }
  }
  EXPECT_EQ(failureCount(), 0u);
}

TEST_F(IndexedKey, NoValueIsReportedWhenTheValueIsAskedFor) {
  for (const char16_t* line : {u"abc", u""}) {
    loggedFailures().clear();
    EXPECT_TRUE(kvn->ParseIniKey(line).isEmpty());
    LoggedFailure f = onlyFailure();
    EXPECT_EQ(f.func, u"ParseIniKey");
    EXPECT_EQ(f.failure.Number, 9);
  }
}

}  // namespace
}  // namespace zrk::test
