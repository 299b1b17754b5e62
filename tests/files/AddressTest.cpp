// validateUrl and isIpAdd: which addresses pass, how they are normalised, when a dialog shows.
#include "support/LoggedFailures.h"

namespace zrk::test {
namespace {

using Address = ReportingTest;

TEST_F(Address, ValidateUrl) {
  struct Case {
    Text in;
    const char16_t* out;
    bool dialog;
  } cases[] = {
      {u"1.2.3.4", u"1.2.3.4", false},
      {u"  http://1.2.3.4/stats  ", u"  http://1.2.3.4/stats  ", false},
      {u"example.com", u"http://example.com", false},
      {u"HTTP://Example.COM/Path", u"http://example.com/Path", false},
      {u"HTTP://.example.com", u"http://example.com", false},
      {u"http://.example.com", u"http://example.com", false},
      {u"www.example.com/a/", u"http://www.example.com/a/", false},
      {u"www.example.c", u"", false},
      {u"www.example", u"", true},
      {u"example.c", u"", false},
      {u"a.bc.d", u"http://a.bc.d", false},
      {u"example", u"", false},
      {u"LocalHost/Admin", u"http://LocalHost/Admin", false},
      {u"localhost", u"http://localhost", false},
      {u"https://example.com", u"", false},
      {u"http://", u"", false},
      {u"", u"", false},
      {u".example.com", u"http://example.com", false},
      {u"example..com", u"", false},
      {u"a.bc..d/x", u"http://a.bc..d/x", false},
      {u"Www.Example.Org/Q", u"http://www.example.org/Q", false},
      {u"Http://Www.A.org", u"http://www.a.org", false},
      // Every capital of the code page, the four outside Latin-1 too; the path keeps its case.
      {u"\u0160\u0152\u017D\u0178\u00C9.Example.DE/\u0160",
       u"http://\u0161\u0153\u017E\u00FF\u00E9.example.de/\u0160", false},
  };
  for (const auto& c : cases) {
    loggedFailures().clear();
    EXPECT_EQ(kvn->validateUrl(c.in), c.out) << toUtf8(c.in);
    EXPECT_EQ(failureCount(), c.dialog ? 1u : 0u) << toUtf8(c.in);
    if (c.dialog && failureCount() == 1) {
      EXPECT_EQ(loggedFailures()[0].func, u"validateUrl");
      EXPECT_EQ(loggedFailures()[0].failure.Number, 9);
    }
  }
}

TEST_F(Address, IsIpAdd) {
  struct Case {
    const char16_t* in;
    bool ip;
  } cases[] = {
      {u"1.2.3.4", true},
      {u"HTTP://1.2.3.4/x", true},
      {u" 1.2.3.4 ", true},
      {u"http://.1.2.3.4", true},
      {u"1.2.3", false},
      {u"1.2.3.4.5", false},
      {u"1.2.3.1000", false},
      {u"1.2..4", false},
      {u"a.b.c.d", false},
      {u"", false},
      {u"/1.2.3.4", false},
      {u"999.999.999.999", true},
      {u"1.2.3.4:80", false},
      // The numeric-text test accepts sign, exponent and radix forms within three characters.
      {u"+1.-2.3.4", true},
      {u"1e2.1.1.1", true},
      {u"&h1.1.1.1", true},
      {u"&hff.1.1.1", false},
      {u"1e.1.1.1", false},
      {u"+.1.1.1", false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(kvn->isIpAdd(c.in), c.ip) << toUtf8(c.in);
  EXPECT_EQ(failureCount(), 0u) << "isIpAdd reports nothing";
  EXPECT_TRUE(dialogs->shown().empty());
}

}  // namespace
}  // namespace zrk::test
