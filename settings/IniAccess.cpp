// INI access: section list, one section, one key, writing, clearing, and the line reader.
#include <memory>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "platform/files/FileIO.h"
#include "platform/files/FileSystemObject.h"
#include "platform/ini/ProfileOps.h"
#include "platform/text/CodePage.h"
#include "settings/LineReader.h"

namespace zrk {
namespace {

constexpr int32_t kSectionListSize = 1019;
constexpr int32_t kValueSize = 255;

// A UTF-8 byte-order mark at the start of a file, as its three code-page characters: no part of
// the first line for the lookups, as for the INI engine.
constexpr TextView kByteOrderMark = u"\u00EF\u00BB\u00BF";

// Counts the names in a NUL-separated list the way the buffer is walked: positions from 1,
// 16-bit arithmetic.
int16_t countNames(const Text& buf) {
  auto nulFrom = [&](size_t from) -> int32_t {  // 1-based position of the next NUL, 0 if none
    size_t k = buf.find(u'\0', from);
    return k == Text::npos ? 0 : int32_t(k + 1);
  };
  int16_t count = 0;
  for (int32_t p = nulFrom(0); p > 1;) {
    if (count == INT16_MAX) throw Failure(err::Overflow);
    ++count;
    if (size_t(p) < buf.size() && buf[size_t(p)] == u'\0') break;
    p = nulFrom(size_t(p));
  }
  return count;
}

// Runs `body` in the line reader's frame: a failure is reported as ReadFile's, naming the file.
template <class Body>
void inLineReaderFrame(const Text& fileStr, Body&& body) {
  MethodFrame frame(u"ReadFile");
  frame.run([&] { body(frame); },
            [&](FailureInfo& f) {
              if (f.Number == err::FileNotFound) {
                f.Description = u"File not found [" + fileStr + u"]";
              }
              f.Description += u" [" + fileStr + u"]";
            });
}

// The file opened for its lines, read whole; nothing for a missing file, which has no lines.
std::unique_ptr<platform::TextInputFile> openLines(const Text& fileStr, MethodFrame& frame) {
  frame.line(1);
  if (!mdlKVN::SharedFileSystem().FileExists(fileStr)) return nullptr;
  frame.line(2);
  return std::make_unique<platform::TextInputFile>(fileStr);
}

}  // namespace

Variant clsKVN::GetAllIniSections(Text FName) {
  Variant result;
  MethodFrame frame(u"GetAllIniSections");
  frame.run([&] {
    frame.line(1);
    Text buf(kSectionListSize + 1, u'\0');
    platform::GetPrivateProfileStringA(nullptr, nullptr, u"", buf, kSectionListSize, FName);
    frame.line(2);
    int16_t count = countNames(buf);
    frame.line(3);
    VariantArray names;
    names.items.assign(size_t(count) + 1, Variant(Text()));
    frame.line(4);
    size_t start = 0;
    for (int32_t index = 0;; ++index) {
      size_t nul = buf.find(u'\0', start);
      if (nul == Text::npos || nul == start) break;
      names.at(index) = Variant(buf.substr(start, nul - start));
      start = nul + 1;
      if (start >= buf.size() || buf[start] == u'\0') break;
    }
    result = Variant(std::move(names));
  });
  return result;
}

Variant clsKVN::GetIniSection(Text sName, Text FName) {
  Variant result;
  MethodFrame frame(u"GetIniSection");
  frame.run([&] {
    frame.line(1);
    // One stat answers whether the file exists, its length, and whether its cached content holds.
    platform::ResolvedPath file = platform::ResolvedPath::of(FName);
    if (!mdlKVN::SharedFileSystem().FileExists(file)) return;
    frame.line(2);
    int64_t length = int64_t(file.st.st_size);
    if (length > INT32_MAX) throw Failure(err::Overflow);
    // The file's length minus 1 fits the lines of every section but one: a section named ""
    // whose last line has no line end needs exactly that, and a list that only just fits is cut.
    // One more character keeps it whole.
    Text buf(size_t(length) + 1, u'\0');
    int32_t n = platform::GetPrivateProfileSectionA(sName, buf, int32_t(length), file);
    frame.line(3);
    Text lines = buf.substr(0, size_t(n));
    frame.line(4);
    result = Variant::textArray(split(lines, TextView(u"\0", 1)));
  });
  return result;
}

Text clsKVN::GetIniKey(Text iSect, Text iKey, Text iFile) {
  Text result;
  MethodFrame frame(u"GetIniKey");
  frame.run(
      [&] {
        frame.line(1);
        // One stat answers both whether the file exists and whether its cached content holds.
        platform::ResolvedPath file = platform::ResolvedPath::of(iFile);
        if (!mdlKVN::SharedFileSystem().FileExists(file)) return;
        if (iKey.find(u'=') == Text::npos) {
          frame.line(2);
          result = platform::profileString(iSect, iKey, u"", kValueSize, file);
          return;
        }
        frame.line(3);
        Variant lines = ReadFile(iFile);
        frame.line(4);
        const VariantArray& arr = lines.array();
        for (int32_t i = 0; i <= arr.upperBound(); ++i) {
          Text line = arr.at(i).toText();
          if (i == 0 && line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
          if (line.compare(0, iKey.size(), iKey) == 0) {
            frame.line(5);
            result = replaceAll(line, iKey + u"=", u"");
            return;
          }
        }
      },
      [&](FailureInfo& f) {
        f.Description += u" [" + iSect + u", " + iKey + u", " + iFile + u"]";
      });
  return result;
}

void clsKVN::WriteIniKey(Text iSect, Text iKey, Text iVal, Text iFile) {
  noTrap([&] { platform::WritePrivateProfileStringA(&iSect, &iKey, &iVal, iFile); });
}

void clsKVN::ClearIniSection(Text& iSect, Text& iFile) {
  noTrap([&] {
    platform::WritePrivateProfileStringA(&iSect, nullptr, nullptr, iFile);
    // The caller's variables come back as they crossed the code page.
    iSect = platform::fromAnsi(platform::toAnsi(iSect));
    iFile = platform::fromAnsi(platform::toAnsi(iFile));
  });
}

Variant clsKVN::ReadFile(Text fileStr) {
  Variant result;
  inLineReaderFrame(fileStr, [&](MethodFrame& frame) {
    std::unique_ptr<platform::TextInputFile> in = openLines(fileStr, frame);
    if (!in) {
      result = Variant::textArray({Text()});
      return;
    }
    // The file is read once: its lines are counted, then taken, from the same bytes.
    int32_t count = 0;
    while (!in->atEnd()) {
      if (!in->readLineBytes().empty()) ++count;
    }
    frame.line(3);
    VariantArray lines;
    lines.items.assign(size_t(count) + 1, Variant(Text()));
    frame.line(4);
    in->rewind();
    for (int32_t index = 0; !in->atEnd();) {
      std::string_view line = in->readLineBytes();
      if (!line.empty()) lines.at(index++) = Variant(platform::fromAnsi(line));
    }
    frame.line(5);
    result = Variant(std::move(lines));
  });
  return result;
}

std::optional<std::string> readLinesJoined(const Text& fileStr) {
  std::optional<std::string> joined;
  inLineReaderFrame(fileStr, [&](MethodFrame& frame) {
    std::unique_ptr<platform::TextInputFile> in = openLines(fileStr, frame);
    frame.line(3);
    std::string bytes;
    while (in && !in->atEnd()) {
      std::string_view line = in->readLineBytes();
      if (line.empty()) continue;
      bytes += line;
      bytes += "\r\n";
    }
    frame.line(5);
    joined = std::move(bytes);
  });
  return joined;
}

static const CallRegistrar kIniCalls{
    {u"GetAllIniSections", calls::method<&clsKVN::GetAllIniSections>},
    {u"GetIniSection", calls::method<&clsKVN::GetIniSection>},
    {u"GetIniKey", calls::method<&clsKVN::GetIniKey>},
    {u"WriteIniKey", calls::method<&clsKVN::WriteIniKey>},
    {u"ClearIniSection", calls::method<&clsKVN::ClearIniSection>},
    {u"ReadFile", calls::method<&clsKVN::ReadFile>},
};

}  // namespace zrk
