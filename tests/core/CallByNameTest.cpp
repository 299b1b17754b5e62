// Calls by name: any case, argument conversion, by-reference write-back, variables, failures.
#include <algorithm>

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

TEST_F(CallByName, RegistrationsAfterTheFirstUseAreEnteredAtTheNextUse) {
  CallFn echo = [](clsKVN&, Dispatch::CallKind, std::vector<Variant>& a) { return a.at(0); };
  CallTable& table = CallTable::instance();
  ASSERT_NE(table.find(u"DllVersion"), nullptr);
  struct Case {
    const char* use;
    std::function<bool()> sees;
  } cases[] = {
      {"find", [&] { return table.find(u"lateecho") == echo; }},
      {"names",
       [&] {
         std::vector<Text> names = table.names();
         return std::find(names.begin(), names.end(), Text(u"LateEcho")) != names.end();
       }},
      {"replace", [&] { return table.replace(u"LATEECHO", echo) == echo; }},
  };
  for (const Case& c : cases) {
    CallRegistrar late{{u"LateEcho", echo}};
    EXPECT_TRUE(c.sees()) << c.use;
    EXPECT_EQ(table.replace(u"LateEcho", nullptr), echo) << c.use;
    EXPECT_EQ(table.find(u"LateEcho"), nullptr) << c.use;
  }
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

TEST_F(CallByName, AFailingMethodWithoutTrapStillWritesBack) {
  // The buffer grows before the negative count fails the call.
  std::vector<Variant> args{Variant(Text(u"ab")), Variant(int32_t(-1)), Variant(Text(u"12345"))};
  EXPECT_EQ(failureOf([&] { kvn->CallByName(u"ConcatStr", args); }), err::InvalidCall);
  EXPECT_EQ(args[0], Variant(Text(u"ab    ")));
  EXPECT_EQ(args[1], Variant(int32_t(-1)));
}

TEST_F(CallByName, AFormThatIsNoObjectFailsAtTheFirstStep) {
  std::string packed = root / "profiles.bini";
  writeBytes(packed, "not touched");
  struct Case {
    const char16_t* method;
    Variant form;
    int32_t number;
    Variant empty;
  } cases[] = {
      {u"validateProfile", Variant(Text(u"form")), err::TypeMismatch, Variant(Text())},
      {u"validateProfile", Variant(), err::ObjectNotSet, Variant(Text())},
      {u"writeProfile", Variant(int32_t(7)), err::TypeMismatch, Variant(false)},
      {u"writeProfile", Variant(), err::ObjectNotSet, Variant(false)},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(toUtf8(c.method));
    size_t before = dialogs->shown().size();
    std::vector<Variant> args{c.form, Variant(T(packed)), Variant(root.text())};
    if (Text(c.method) == u"validateProfile") args.pop_back();
    Variant result;
    EXPECT_EQ(failureOf([&] { result = kvn->CallByName(c.method, args); }), 0);
    EXPECT_EQ(result, c.empty);
    ASSERT_EQ(dialogs->shown().size(), before + 1);
    Text text = dialogs->shown().back().text;
    EXPECT_TRUE(text.starts_with(u"Error Line: 1\r\nError " + decimal(c.number) + u": "))
        << toUtf8(text);
    EXPECT_NE(text.find(u"Function/Sub: " + Text(c.method)), Text::npos);
  }
  EXPECT_EQ(readBytes(packed), "not touched");
  EXPECT_FALSE(exists(root / "profiles.ini")) << "nothing was unpacked";
}

}  // namespace
}  // namespace zrk::test
