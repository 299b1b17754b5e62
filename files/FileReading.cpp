// Whole-file readers: lines as one text, and bytes as decimal or hexadecimal number text.
#include <string>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "files/NumberText.h"
#include "files/TextOps.h"
#include "platform/files/FileIO.h"
#include "platform/text/CodePage.h"

namespace zrk {
namespace {

// The binary read takes every byte of the file into an array of the file's length; an empty
// file makes an array with no room, which is a subscript failure.
void requireBytes(const platform::FileImage& file) {
  if (file.bytes().empty()) throw Failure(err::SubscriptOutOfRange);
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
        platform::FileImage file(fileStr);
        requireBytes(file);
        frame.line(2);
        // The number text has no blanks of its own, so the trimmed text is its used part.
        result = files::numberText(file, 10, files::SpareTail::Trimmed);
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
        platform::FileImage file(FileName);
        requireBytes(file);
        result = files::numberText(file, 10, files::SpareTail::Kept);
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
    platform::FileImage file(FileName);
    requireBytes(file);
    result = files::numberText(file, 16, files::SpareTail::Kept);
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
