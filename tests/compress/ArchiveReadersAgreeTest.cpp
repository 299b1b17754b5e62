// The direct archive reader against the number-text reader: on the fuzz corpus and on random
// archives, good, damaged, cut and oddly numbered, both return the same, fail the same way,
// ask the same questions, report the same failures and leave the same files behind.
#include <zlib.h>

#include <filesystem>
#include <map>
#include <random>

#include "compress/ArchiveExtraction.h"
#include "core/MethodFrame.h"
#include "support/LoggedFailures.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

namespace fs = std::filesystem;

// Everything one extraction shows to its caller and leaves on disk.
struct Outcome {
  std::string result;  // "true", "false" or the failure's number and words
  std::map<std::string, std::string> files;
  std::vector<std::string> reports;
  std::vector<std::string> questions;

  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Outcome& o) {
  os << "result " << o.result << "; files";
  for (const auto& [name, bytes] : o.files)
    os << " " << name << "(" << bytes.size() << ")";
  os << "; " << o.reports.size() << " reports; " << o.questions.size() << " questions";
  for (const std::string& r : o.reports)
    os << "\n  " << r;
  return os;
}

std::string zlibStream(const std::string& bytes) {
  uLongf size = compressBound(uLong(bytes.size()));
  std::string out(size, '\0');
  compress(reinterpret_cast<Bytef*>(out.data()), &size,
           reinterpret_cast<const Bytef*>(bytes.data()), uLong(bytes.size()));
  out.resize(size);
  return out;
}

// Random archives in the writer's layout, with faults put in at every level.
class ArchiveMaker {
 public:
  explicit ArchiveMaker(uint32_t seed) : rng_(seed) {}

  std::string archive() {
    std::string list, records;
    int count = pick(0, 6);
    for (int i = 0; i < count; ++i) {
      std::string r = record();
      list += listEntry(r.size());
      records += r;
    }
    std::string file = oneIn(8) ? pickOf({" ", "  ZRK", "x"}) : "";
    file += oneIn(10) ? "NOTMAGIC" : "ZRKArch";
    file += '\x10' + list + '\x10' + records;
    file += oneIn(6) ? pickOf({"", "  ", "\r\n  ", " \r\n"}) : "\r\n";
    if (oneIn(6)) file.resize(size_t(pick(0, int(file.size()))));
    if (oneIn(8) && !file.empty())
      file[size_t(pick(0, int(file.size()) - 1))] ^= char(pick(1, 255));
    return file;
  }

  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }
  bool oneIn(int n) { return pick(1, n) == 1; }

 private:
  std::string pickOf(std::initializer_list<const char*> choices) {
    return *(choices.begin() + pick(0, int(choices.size()) - 1));
  }

  std::string randomBytes(int n, bool withBars) {
    std::string s;
    int alphabet = pick(0, 2);  // few letters, all bytes, blanks and bars
    for (int i = 0; i < n; ++i) {
      char c = alphabet == 0   ? char('a' + pick(0, 3))
               : alphabet == 1 ? char(pick(0, 255))
                               : " |x"[pick(0, 2)];
      s += (!withBars && c == '|') ? '_' : c;
    }
    return s;
  }

  std::string content() {
    int n = oneIn(5) ? pick(5000, 40000) : pick(0, 300);
    return randomBytes(n, true);
  }

  std::string element() {
    switch (pick(0, 9)) {
      case 0:
        return randomBytes(pick(0, 200), false);  // no bar
      case 1:
        return "00000000001|y" + content();  // bar too late
      case 2:
        return "0000000001|x" + content();  // bar as late as it may be
      case 3: {
        std::string name = pickOf({"..", ".", "a/b", "..\\z", "", "sub/x.txt"});
        return std::to_string(name.size()) + "|" + name + content();
      }
      case 4:
        return pickOf({"|abc", "x|abc", "9|abc", " 3|abcdef", "&H3|abcdef", "+3|abcdef",
                       "3.4|abcdef", "-1|abc", "1e1|abcdefghijkl"});
      default: {
        std::string name = randomBytes(pick(1, 12), false);
        for (char& c : name) {
          if (c == '/' || c == '\\' || c == '\0') c = '_';
        }
        if (oneIn(3)) name = pickOf({"a.txt", "A.TXT", "b.txt"});
        return std::to_string(name.size()) + "|" + name + content();
      }
    }
  }

  std::string record() {
    std::string e = element();
    std::string declared = std::to_string(e.size());
    if (oneIn(4)) {
      declared =
          pickOf({"0", "1", "-5", "-12", "-13", "x", "", " 12 ", "1e3", "&H40", "99999999999"});
      if (oneIn(2)) declared = std::to_string(e.size() / 2);  // too small a buffer
    }
    std::string stream = zlibStream(e);
    if (oneIn(5)) stream.resize(stream.size() - size_t(pick(0, int(stream.size()))));
    if (oneIn(8) && !stream.empty()) stream[size_t(pick(0, int(stream.size()) - 1))] ^= 0x55;
    if (oneIn(12)) stream = randomBytes(pick(0, 40), true);
    std::string r = oneIn(20) ? stream : declared + '\x10' + stream;
    return r;
  }

  std::string listEntry(size_t length) {
    std::string digits = std::to_string(length);
    if (oneIn(15)) {
      return pickOf({"0", "x", "15", "2-5", "3 12", "1A", "41e10"});
    }
    if (oneIn(10)) digits = std::to_string(int64_t(length) + pick(-3, 3));
    return std::to_string(digits.size()) + digits;
  }

  std::mt19937 rng_;
};

class ArchiveReaders : public ReportingTest {
 protected:
  void SetUp() override {
    ReportingTest::SetUp();
    makeDir(root / "in");
  }

  // One extraction of the archive `name` holding `bytes`, with fresh folders `in` and `out` and
  // `answer` to the question when it comes.
  template <class Extract>
  Outcome run(const std::string& name, const std::string& bytes, Extract&& extract,
              int32_t answer) {
    for (const char* dir : {"in", "out"}) {
      fs::remove_all(root / dir);
      makeDir(root / dir);
    }
    writeBytes(root / ("in/" + name), bytes);
    loggedFailures().clear();
    auto scripted = std::make_shared<platform::ScriptedDialogs>();
    scripted->answer(answer);
    platform::setDialogBackend(scripted);

    Outcome o;
    try {
      o.result = noTrap(extract) ? "true" : "false";
    } catch (const Failure& f) {
      o.result = std::to_string(f.number()) + " " + toUtf8(f.info().Description);
    }
    for (const auto& e : fs::recursive_directory_iterator(root.path())) {
      if (e.is_regular_file()) o.files[e.path().string()] = readBytes(e.path().string());
    }
    for (const LoggedFailure& f : loggedFailures()) {
      o.reports.push_back(toUtf8(f.func) + " " + std::to_string(f.failure.Number) + " " +
                          toUtf8(f.failure.Description) + " @" + std::to_string(f.line));
    }
    for (const auto& q : scripted->shown())
      o.questions.push_back(toUtf8(q.title + u": " + q.text) + std::to_string(q.buttons));
    platform::setDialogBackend(dialogs);
    return o;
  }

  // Both readers on the same file, into `out` or, without `diffDir`, beside the archive; true
  // when the direct one could read it.
  bool expectSameOutcome(const std::string& bytes, const std::string& name, int32_t answer,
                         const std::string& what,
                         const std::optional<Text>& diffDir = std::nullopt) {
    const Text path = root.text("in/" + name);
    bool direct = true;
    Outcome viaBytes = run(
        name, bytes,
        [&] {
          std::optional<bool> r = archive::extractFromBytes(path, diffDir);
          direct = r.has_value();
          return r.value_or(false);
        },
        answer);
    Outcome viaText = run(
        name, bytes, [&] { return archive::extractFromNumberText(*kvn, path, diffDir); }, answer);
    if (direct) {
      EXPECT_EQ(viaBytes, viaText) << what;
    }
    return direct;
  }
};

TEST_F(ArchiveReaders, AgreeOnTheFuzzCorpus) {
  size_t seen = 0;
  for (const auto& e :
       fs::directory_iterator(builtFile("ZRK_ARCHIVE_CORPUS", ZRK_ARCHIVE_CORPUS))) {
    std::string bytes = readBytes(e.path().string());
    for (int32_t answer : {platform::mb::Yes, platform::mb::No}) {
      EXPECT_TRUE(expectSameOutcome(bytes, "a.arc", answer, e.path().filename().string(),
                                    root.text("out")));
    }
    ++seen;
  }
  EXPECT_GE(seen, 5u);
}

TEST_F(ArchiveReaders, AgreeOnRandomArchives) {
  const char* names[] = {"arc.zrk", "ab", "x.arc"};
  size_t direct = 0;
  const int kArchives = 300;
  for (int i = 0; i < kArchives; ++i) {
    ArchiveMaker maker{uint32_t(i)};
    std::string bytes = maker.archive();
    std::string name = names[maker.oneIn(10) ? maker.pick(1, 2) : 0];
    int32_t answer = maker.oneIn(4) ? platform::mb::No : platform::mb::Yes;
    std::optional<Text> diffDir = root.text("out");
    if (maker.oneIn(10)) diffDir = maker.oneIn(2) ? std::nullopt : std::optional<Text>(u"");
    bool read = expectSameOutcome(bytes, name, answer, "archive " + std::to_string(i), diffDir);
    EXPECT_EQ(read, !bytes.empty()) << "archive " << i;
    direct += read;
  }
  EXPECT_GT(direct, size_t(kArchives) * 9 / 10);
}

// A missing or empty archive is left to the number text, which reports it.
TEST_F(ArchiveReaders, MissingAndEmptyArchivesAreLeftToTheNumberText) {
  writeBytes(root / "in/empty.zrk", "");
  for (const char* name : {"in/none.zrk", "in/empty.zrk"}) {
    EXPECT_EQ(archive::extractFromBytes(root.text(name), root.text("out")), std::nullopt) << name;
    loggedFailures().clear();
    EXPECT_EQ(failureOf([&] { kvn->ExtractArchive(root.text(name), root.text("out")); }), 5);
    EXPECT_EQ(onlyFailure().func, u"HexRead") << name;
  }
}

}  // namespace
}  // namespace zrk::test
