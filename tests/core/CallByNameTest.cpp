// Calls by name: any case, argument conversion, by-reference write-back, variables, failures.
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

class CallByName : public LibraryTest {};

TEST_F(CallByName, NamesMatchWithoutCaseAndArgumentsConvert) {
  std::vector<Variant> args{Variant(int32_t(42))};
  EXPECT_EQ(kvn->CallByName(u"DLLVERSION", args), Variant(Text(u"1.4.1")));
  std::string ini = root / "a.ini";
  writeBytes(ini, "[S]\r\nk=v\r\n");
  std::vector<Variant> get{Variant(Text(u"s")), Variant(Text(u"K")), Variant(T(ini))};
  EXPECT_EQ(kvn->CallByName(u"getinikey", get), Variant(Text(u"v")));
}

TEST_F(CallByName, ByReferenceArgumentsAreWrittenBack) {
  std::string ini = root / "a.ini";
  writeBytes(ini, "[S]\r\nk=v\r\n[T]\r\n");
  std::vector<Variant> args{Variant(Text(u"S\u4e00")), Variant(T(ini))};
  kvn->CallByName(u"ClearIniSection", args);
  EXPECT_EQ(args[0], Variant(Text(u"S?"))) << "the section name came back through the code page";
  std::vector<Variant> clear{Variant(Text(u"S")), Variant(T(ini))};
  kvn->CallByName(u"ClearIniSection", clear);
  EXPECT_EQ(readBytes(ini), "[T]\r\n");
}

TEST_F(CallByName, VariablesReadAndWrite) {
  std::vector<Variant> set{Variant(int32_t(9))};
  kvn->invoke(u"ProfileCount", Dispatch::CallKind::Let, set);
  EXPECT_EQ(kvn->ProfileCount, 9);
  std::vector<Variant> none;
  EXPECT_EQ(kvn->invoke(u"profilecount", Dispatch::CallKind::Get, none), Variant(int32_t(9)));
  std::vector<Variant> flag{Variant(Text(u"true"))};
  kvn->invoke(u"MONITOR", Dispatch::CallKind::Let, flag);
  EXPECT_TRUE(kvn->MONITOR);
}

TEST_F(CallByName, FailuresOfTheCallItself) {
  struct Case {
    const char16_t* name;
    std::vector<Variant> args;
    int32_t number;
  } cases[] = {
      {u"NoSuchOperation", {}, err::NoSuchMember},
      {u"GetIniKey", {Variant(Text(u"a"))}, err::ArgumentNotOptional},
      {u"dllVersion", {Variant(Text(u"a")), Variant(Text(u"b"))}, err::WrongArgumentCount},
      {u"reqFolders", {Variant(VariantArray{})}, err::TypeMismatch},
  };
  for (auto& c : cases) {
    EXPECT_EQ(failureOf([&] { kvn->CallByName(c.name, c.args); }), c.number) << toUtf8(c.name);
  }
}

}  // namespace
}  // namespace zrk::test
