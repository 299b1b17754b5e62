// Lookups through the tables built over a kept file give what the plain search of the file
// gives, and what a line-by-line reading of the rules gives, on files made at random.
#include <optional>
#include <random>

#include "platform/ini/ProfileCache.h"
#include "platform/ini/ProfileOps.h"
#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::T;

std::string trimmed(std::string s) {
  size_t b = s.find_first_not_of(" \t"), e = s.find_last_not_of(" \t");
  return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

std::string upper(std::string s) {
  for (char& c : s)
    c = char(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

// The reading rules, line by line: the first section of the name, its first key of the name,
// blanks and a pair of quotes taken off the value; nothing when either is missing.
std::optional<std::string> expectedValue(const std::string& file, const std::string& section,
                                         const std::string& key) {
  std::vector<std::string> lines;
  std::string line;
  for (size_t i = 0; i < file.size(); ++i) {
    if (file[i] != '\r' && file[i] != '\n') {
      line += file[i];
      continue;
    }
    if (file[i] == '\r' && i + 1 < file.size() && file[i + 1] == '\n') ++i;
    lines.push_back(std::exchange(line, {}));
  }
  if (!line.empty()) lines.push_back(line);
  bool inSection = false, seen = false;
  for (const auto& raw : lines) {
    std::string t = trimmed(raw);
    if (!t.empty() && t[0] == '[') {
      if (t.find(']') == std::string::npos) continue;  // no head, and no key either
      if (seen) break;
      inSection = upper(trimmed(t.substr(1, t.find(']') - 1))) == upper(section);
      seen = inSection;
      continue;
    }
    size_t eq = t.find('=');
    if (!inSection || t.empty() || t[0] == ';' || eq == std::string::npos) continue;
    if (upper(trimmed(t.substr(0, eq))) != upper(key)) continue;
    std::string v = trimmed(t.substr(eq + 1));
    if (v.size() >= 2 && (v[0] == '"' || v[0] == '\'') && v.back() == v[0]) {
      v = v.substr(1, v.size() - 2);
    }
    return v;
  }
  return std::nullopt;
}

std::string randomFile(std::mt19937& rng) {
  static const char* const kLines[] = {
      "[A]",    "[ a ]",       "[B]",  "  [b]  ", "[]",    "[ ]",     "[A",
      "[A][B]", "\t[C] after", "x[A]", "k=1",     "K = 2", " k=3 ",   "x=\"q\"",
      "y='s'",  "z=\"half",    ";k=c", "k",       "=v",    "a=b=c",   "",
      "  ",     "[c]",         "k=",   "kk=4",    "[AA]",  "[A ]x=1", "x = [A]"};
  static const char* const kEnds[] = {"\r\n", "\n", "\r", "\r\n"};
  std::uniform_int_distribution<size_t> line(0, std::size(kLines) - 1), end(0, 3), count(0, 40);
  std::string out;
  for (size_t n = count(rng); n > 0; --n)
    out.append(kLines[line(rng)]).append(kEnds[end(rng)]);
  if (!out.empty() && rng() % 2) out.pop_back();
  return out;
}

TEST(ProfileCache, StampStepIsNoFinerThanTheFileSystems) {
  struct Case {
    const char* fileSystem;
    long granularityNs;  // 0: whole seconds, two on FAT
    long sampleNs;       // a stamp's nanoseconds there
    int64_t step;        // the step that stamp gets
  } cases[] = {
      {"ext4, tmpfs", 1, 123456789, 10},
      {"ext4, a stamp ending in zeros", 1, 123456000, 10000},
      {"ntfs3", 100, 123456700, 1000},
      {"microseconds", 1000, 999999000, 10000},
      {"milliseconds", 1000000, 5000000, 10000000},
      {"exFAT", 10000000, 130000000, 100000000},
      {"exFAT, a stamp on a tenth", 10000000, 100000000, 1000000000},
      {"FAT, whole seconds", 0, 0, 2000000000},
  };
  std::mt19937 rng(7);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fileSystem);
    EXPECT_EQ(stampStep({1700000000, c.sampleNs}), c.step);
    // Every stamp the file system can give gets a step no finer than its granularity.
    long ticks = c.granularityNs ? 1000000000 / c.granularityNs : 1;
    for (int i = 0; i < 2000; ++i) {
      struct timespec stamp = {1700000000 + 2 * i, c.granularityNs * long(rng() % ticks)};
      ASSERT_GE(stampStep(stamp), c.granularityNs ? c.granularityNs : 2000000000) << stamp.tv_nsec;
    }
  }
}

TEST(ProfileCache, KeepsAFewFilesAndOneStateOfEach) {
  test::TempDir d;
  const size_t files = ProfileCache::kEntries + 2;
  for (size_t i = 0; i < files; ++i)
    test::writeBytes(d / ("f" + std::to_string(i) + ".ini"), "[S]\r\nk=" + std::to_string(i));
  test::waitTillStampsLieBehind(d / ("f" + std::to_string(files - 1) + ".ini"));
  ProfileCache& cache = ProfileCache::forThread();
  cache.clear();
  auto lookup = [&](size_t i) {
    return profileString(u"S", u"k", u"", 255,
                         ResolvedPath::of(T(d / ("f" + std::to_string(i) + ".ini"))));
  };
  EXPECT_EQ(lookup(0), u"0");
  EXPECT_EQ(lookup(1), u"1");
  EXPECT_EQ(cache.entryCount(), 2u);
  // A new state of a kept file takes the place of the old one.
  test::writeBytes(d / "f1.ini", "[S]\r\nk=changed");
  test::waitTillStampsLieBehind(d / "f1.ini");
  EXPECT_EQ(lookup(1), u"changed");
  EXPECT_EQ(cache.entryCount(), 2u);
  for (size_t i = 0; i < files; ++i)
    EXPECT_EQ(lookup(i), i == 1 ? Text(u"changed") : T(std::to_string(i)));
  EXPECT_EQ(cache.entryCount(), ProfileCache::kEntries);
  cache.clear();
  EXPECT_EQ(cache.entryCount(), 0u);
}

TEST(ProfileCache, AFileLargerThanTheBoundIsReadButNotKept) {
  test::TempDir d;
  std::string big = "[S]\r\nk=big\r\n;" + std::string(ProfileCache::kMaxBytes, 'x');
  test::writeBytes(d / "small.ini", "[S]\r\nk=small");
  test::writeBytes(d / "big.ini", big);
  test::waitTillStampsLieBehind(d / "big.ini");
  ProfileCache& cache = ProfileCache::forThread();
  cache.clear();
  ResolvedPath small = ResolvedPath::of(T(d / "small.ini")),
               large = ResolvedPath::of(T(d / "big.ini"));
  EXPECT_EQ(profileString(u"S", u"k", u"", 255, small), u"small");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(profileString(u"S", u"k", u"", 255, large), u"big");
    EXPECT_EQ(cache.entryCount(), 1u) << "the small file stays, the large one is not kept";
  }
  EXPECT_EQ(profileString(u"S", u"k", u"", 255, small), u"small");
}

TEST(ProfileCache, TablesGiveWhatTheSearchGives) {
  test::TempDir d;
  std::mt19937 rng(20261123);
  std::vector<std::string> files;
  for (int i = 0; i < 60; ++i) {
    files.push_back(randomFile(rng));
    test::writeBytes(d / ("f" + std::to_string(i) + ".ini"), files.back());
  }
  test::waitTillStampsLieBehind(d / ("f" + std::to_string(files.size() - 1) + ".ini"));
  const Text sections[] = {u"A", u"a", u"B", u"C", u"c", u"", u"AA", u"[A", u"none"};
  const Text keys[] = {u"k", u"K", u"x", u"y", u"z", u"a", u"kk", u"none"};
  ProfileCache& cache = ProfileCache::forThread();
  for (size_t i = 0; i < files.size(); ++i) {
    ResolvedPath file = ResolvedPath::of(T(d / ("f" + std::to_string(i) + ".ini")));
    for (const Text& s : sections) {
      for (const Text& k : keys) {
        SCOPED_TRACE("file " + std::to_string(i) + " [" + toUtf8(s) + "] " + toUtf8(k));
        cache.clear();
        Text searched = profileString(s, k, u"-", 255, file);
        Text fromTables = profileString(s, k, u"-", 255, file);
        ASSERT_EQ(cache.entryCount(), s.empty() ? 0u : 1u) << "a section is needed to look";
        EXPECT_EQ(searched, fromTables);
        std::optional<std::string> expected = expectedValue(files[i], toUtf8(s), toUtf8(k));
        EXPECT_EQ(toUtf8(searched), s.empty() ? "-" : expected.value_or("-"));
      }
      Text a(4096, u'#'), b(4096, u'#');
      Text path = T(d / ("f" + std::to_string(i) + ".ini"));
      cache.clear();
      int32_t na = GetPrivateProfileSectionA(s, a, 4096, path);
      int32_t nb = GetPrivateProfileSectionA(s, b, 4096, path);
      EXPECT_EQ(a.substr(0, size_t(na) + 1), b.substr(0, size_t(nb) + 1)) << toUtf8(s);
    }
  }
}

}  // namespace
}  // namespace zrk::platform
