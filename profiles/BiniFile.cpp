// The packed form of a text file: size digits, magic "B" + type word, base64 of the zlib stream.
#include <algorithm>
#include <optional>
#include <string>

#include <zrkKVL/clsKVN.h>
#include "compress/StringCompression.h"
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "platform/files/BinaryFile.h"
#include "platform/files/FileIO.h"
#include "platform/files/FileSystemObject.h"
#include "platform/files/FolderLock.h"
#include "platform/files/Paths.h"
#include "platform/text/CodePage.h"
#include "profiles/Base64.h"
#include "profiles/BiniFormat.h"
#include "settings/LineReader.h"

namespace zrk {
namespace {

constexpr int32_t kSizeDigits = 8;
constexpr size_t kHeaderSize = 12;
constexpr size_t kLargestSize = 99'999'999;  // the largest count of eight digits

Text typeWordOf(const Text* bType) {
  return (bType && !bType->empty()) ? *bType : Text(u"ini");
}

Text upperCase(Text s) {
  for (char16_t& c : s) {
    if ((c >= u'a' && c <= u'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7)) c -= 32;
  }
  return s;
}

Text magicOf(const Text& type) {
  return u"B" + upperCase(type);
}

// The other name of the pair; a name without the `from` part would name the same file, so the
// operation is refused before anything changes.
Text otherName(const Text& name, const Text& from, const Text& to) {
  Text out = replaceAll(name, from, to);
  if (out == name) {
    throw Failure(err::BadFileNameOrNumber,
                  defaultDescription(err::BadFileNameOrNumber) + u" [" + name + u"]");
  }
  return out;
}

// The plain file's text as the line reader takes it. A read the line reader reported leaves no
// lines, which the pack cannot take.
std::string plainText(const Text& plainName) {
  std::optional<std::string> text = readLinesJoined(plainName);
  if (!text) throw Failure(err::TypeMismatch);
  return std::move(*text);
}

// The Size field: the digits' values, units first.
std::string sizeField(const Text& digits) {
  std::string field;
  for (size_t i = digits.size(); i-- > 0;)
    field += char(digits[i] - u'0');
  return field;
}

// The Size field read back: the last byte gives the first digit; a byte above 9 adds digits.
int32_t sizeFromField(std::string_view field) {
  Text digits;
  for (size_t i = field.size(); i-- > 0;)
    digits += decimal(static_cast<unsigned char>(field[i]));
  int64_t n = 0;
  for (char16_t c : digits) {
    n = n * 10 + (c - u'0');
    if (n > INT32_MAX) throw Failure(err::Overflow);
  }
  return int32_t(n);
}

// The bytes the stream expands to. The size read from the file only sizes the buffer, and no
// stream expands beyond what its length allows, so a made-up size costs no more than the file's
// real one. A stream that does not expand whole is damage: reported, and nothing is written.
std::string expandedText(std::string_view stream, int32_t size, const Text& packedName) {
  size = std::min(size, compression::maxExpandedLength(stream.size()));
  std::optional<std::string> text = compression::expandWhole(stream, size);
  if (!text) {
    throw Failure(err::InputPastEndOfFile,
                  defaultDescription(err::InputPastEndOfFile) + u" [" + packedName + u"]");
  }
  return std::move(*text);
}

// Writes the unpacked text as the plain file's whole new content; a failure names the file.
void writePlainFile(const Text& plainName, std::string_view text) {
  try {
    platform::writeFileWhole(platform::nativePath(plainName), text);
  } catch (Failure& f) {
    f.info().Description += u" [" + plainName + u"]";
    throw;
  }
}

// The bytes before the first byte 0, all of them when there is none.
std::string_view beforeFirstZero(std::string_view body) {
  return body.substr(0, body.find('\0'));
}

}  // namespace

Text ZeroPadLeft(TextView text, int32_t width) {
  if (width < 0) throw Failure(err::InvalidCall);
  Text padded(text.size() < size_t(width) ? size_t(width) - text.size() : 0, u'0');
  padded += text;
  return padded.substr(0, size_t(width));
}

Text SizeDigits(size_t length) {
  if (length > kLargestSize) throw Failure(err::Overflow);
  return ZeroPadLeft(decimal(int64_t(length)), kSizeDigits);
}

Text BytesToText(std::string_view bytes) {
  return platform::fromAnsi(beforeFirstZero(bytes));
}

void clsKVN::CompressBINI(Text FileName, std::optional<Text> bType) {
  MethodFrame frame(u"CompressBINI");
  frame.run([&] {
    platform::FileSystemObject& fso = mdlKVN::SharedFileSystem();
    frame.line(1);
    const Text type = typeWordOf(bType ? &*bType : nullptr);
    platform::FolderLock lock = platform::lockOfFile(FileName);
    frame.line(2);
    // Without the plain file there is nothing to pack, and the packed file must stay.
    if (!fso.FileExists(FileName)) {
      throw Failure(err::FileNotFound, u"File not found [" + FileName + u"]");
    }
    std::string text = plainText(FileName);
    frame.line(3);
    Text digits = SizeDigits(text.size());
    frame.line(4);
    std::string compressed = compression::compressBytes(text);
    frame.line(5);
    Text packedName = otherName(FileName, u"." + type, u".b" + type);
    frame.line(6);
    // A read-only packed file refuses, as deleting it would. Otherwise the new file replaces
    // the old one in one step once it is whole, so a failed write leaves the old one.
    if (fso.FileExists(packedName) && fso.GetFile(packedName).ReadOnly) {
      throw Failure(err::PermissionDenied);
    }
    frame.line(8);
    std::string bytes = sizeField(digits);
    frame.line(9);
    bytes += platform::toAnsi(magicOf(type));
    frame.line(10);
    bytes += base64EncodeBytes(compressed);
    platform::writeFileWhole(platform::nativePath(packedName), bytes);
    frame.line(12);
    fso.DeleteFile(FileName, false);
  });
}

bool clsKVN::IsBINIFile(Text FileName) {
  return noTrap([&] {
    platform::BinaryFile file(FileName);
    std::string magic(4, '\0');
    file.readAt(9, magic);
    bool result = BytesToText(magic) == u"BINI";
    file.close();
    return result;
  });
}

bool clsKVN::DecompressBINI(Text FileName, Text* bType) {
  bool result = false;
  MethodFrame frame(u"DecompressBINI");
  frame.run([&] {
    platform::FileSystemObject& fso = mdlKVN::SharedFileSystem();
    frame.line(1);
    const Text type = typeWordOf(bType);
    platform::FolderLock lock =
        platform::lockOfFile(replaceAll(FileName, u".b" + type, u"." + type));
    frame.line(2);
    if (!fso.FileExists(FileName)) return;
    frame.line(3);
    int64_t length = fso.GetFile(FileName).Size;
    if (length < int64_t(kHeaderSize)) throw Failure(err::SubscriptOutOfRange);
    std::string body(size_t(length) - kHeaderSize + 1, '\0');
    frame.line(4);
    platform::BinaryFile in(FileName);
    frame.line(5);
    std::string magic(4, '\0');
    in.readAt(9, magic);
    if (BytesToText(magic) != magicOf(type)) return;
    frame.line(6);
    std::string field(kSizeDigits, '\0');
    in.readAt(1, field);
    frame.line(8);
    in.readAt(13, body);
    frame.line(9);
    std::string_view bodyText = beforeFirstZero(body);
    frame.line(10);
    in.close();
    frame.line(11);
    Text plainName = otherName(FileName, u".b" + type, u"." + type);
    frame.line(12);
    std::string decoded = base64DecodeBytes(bodyText);
    int32_t size = sizeFromField(field);
    frame.line(13);
    // The plain file is replaced whole and in one step, only once its new content is known, so
    // a damaged packed file never costs the plain file beside it.
    writePlainFile(plainName, expandedText(decoded, size, FileName));
    frame.line(14);
    result = true;
  });
  return result;
}

static const CallRegistrar kBiniCalls{
    {u"CompressBINI", calls::method<&clsKVN::CompressBINI>},
    {u"IsBINIFile", calls::method<&clsKVN::IsBINIFile>},
    {u"DecompressBINI", calls::method<&clsKVN::DecompressBINI>},
};

}  // namespace zrk
