// Whole-file readers: lines as one text, and bytes as decimal or hexadecimal number text.
#include <string>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "files/TextOps.h"
#include "platform/CodePage.h"
#include "platform/FileIO.h"

namespace zrk {
namespace {

// The binary read: every byte of the file. An empty file makes an array with no room for the
// bytes, which is a subscript failure.
std::string readBinary(TextView path) {
  std::string bytes = platform::readAllBytes(path);
  if (bytes.empty()) throw Failure(err::SubscriptOutOfRange);
  return bytes;
}

bool hasNonBlank(TextView s) {
  return s.find_first_not_of(u' ') != TextView::npos;
}

Text notFoundWords(TextView name) {
  return u"File not found [" + Text(name) + u"]";
}

}  // namespace

Text clsKVN::ReadFileToString(Text fileStr) {
  Text result;
  MethodFrame frame(u"ReadFileToString");
  frame.run(
      [&] {
        frame.line(1);
        platform::TextInputFile in(fileStr);
        Text buf;
        int32_t len = 0;
        bool kept = false;  // a line with a non-blank character has been taken
        frame.line(2);
        while (!in.atEnd()) {
          Text line = in.readLine();
          if (!kept) {
            // Blank text so far gives way to the line.
            kept = hasNonBlank(line);
            len = int32_t(line.size());
            buf = std::move(line);
          } else {
            files::appendToBuffer(buf, len, u"\r\n");
            files::appendToBuffer(buf, len, line);
          }
        }
        frame.line(4);
        result = trimBlanks(buf);
      },
      [&](FailureInfo& f) {
        if (f.Number == err::FileNotFound) f.Description = notFoundWords(fileStr);
      });
  return result;
}

Text clsKVN::ReadBinaryFileToString(Text fileStr) {
  Text result;
  MethodFrame frame(u"ReadBinaryFileToString");
  frame.run(
      [&] {
        frame.line(1);
        std::string bytes = readBinary(fileStr);
        frame.line(2);
        Text buf;
        int32_t len = 0;
        files::appendNumberText(buf, len, bytes, 10);
        frame.line(3);
        result = trimBlanks(buf);
      },
      [&](FailureInfo& f) {
        if (f.Number == err::FileNotFound) f.Description = notFoundWords(fileStr);
        f.Description += u"File [" + fileStr + u"]";
      });
  return result;
}

Text clsKVN::BinRead(Text FileName) {
  Text result;
  MethodFrame frame(u"BinRead");  // reports line 0
  frame.run(
      [&] {
        std::string bytes = readBinary(FileName);
        Text buf;
        int32_t len = 0;
        files::appendNumberText(buf, len, bytes, 10);
        result = std::move(buf);
      },
      [&](FailureInfo& f) {
        if (f.Number == err::FileNotFound) f.Description += u" [" + FileName + u"]";
      });
  return result;
}

Text clsKVN::HexRead(Text FileName) {
  Text result;
  MethodFrame frame(u"HexRead");  // reports line 0
  frame.run([&] {
    std::string bytes = readBinary(FileName);
    Text buf;
    int32_t len = 0;
    files::appendNumberText(buf, len, bytes, 16);
    result = std::move(buf);
  });
  return result;
}

static const CallRegistrar kFileReadingCalls{
    {u"ReadFileToString", calls::method<&clsKVN::ReadFileToString>},
    {u"ReadBinaryFileToString", calls::method<&clsKVN::ReadBinaryFileToString>},
    {u"BinRead", calls::method<&clsKVN::BinRead>},
    {u"HexRead", calls::method<&clsKVN::HexRead>},
};

}  // namespace zrk
