// Line writers: WriteFile replaces a file, AppendFile adds to one; every string is a line.
#include "files/FileWriting.h"

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "platform/files/FileIO.h"
#include "platform/files/FileSystemObject.h"

namespace zrk {
namespace {

constexpr int32_t kOpenLine = 1, kWriteLine = 2, kCloseLine = 3;

// A string is one line; an array is walked from index 0, whatever its lower bound, to its upper
// bound, one line per element.
void writeLines(platform::OutputFile& out, const Variant& data) {
  if (!data.isArray()) {
    out.printLine(data.toText());
    return;
  }
  const VariantArray& items = data.array();
  for (int32_t i = 0; i <= items.upperBound(); ++i)
    out.printLine(items.at(i).toText());
}

// An element that cannot be written ends WriteFile with the lines before it as the file's
// content, as if the open had emptied the file. A failed write of the file itself puts nothing
// in place, and the old content stays.
void keepWhatWasWritten(platform::OutputFile& out) {
  try {
    out.close();
  } catch (const Failure&) {
    // The failure on its way is the one reported.
  }
}

void addFileName(FailureInfo& f, TextView name) {
  f.Description += u" [" + Text(name) + u"]";
}

// Replaces the file with what `write` puts into it, reporting a failure as WriteFile, with the
// step that was running.
template <class Write>
void writeWhole(TextView name, Write&& write) {
  MethodFrame frame(u"WriteFile");
  frame.run(
      [&] {
        frame.line(kOpenLine);
        platform::OutputFile out(name, platform::OutputFile::Mode::Output);
        frame.line(kWriteLine);
        try {
          write(out);
        } catch (const Failure&) {
          keepWhatWasWritten(out);
          throw;
        }
        frame.line(kCloseLine);
        out.close();
      },
      [&](FailureInfo& f) { addFileName(f, name); });
}

}  // namespace

void files::reportWriteFailure(TextView name, FailureInfo failure) {
  addFileName(failure, name);
  mdlKVN::HandleFailure(u"WriteFile", std::move(failure), kOpenLine);
}

void clsKVN::WriteFile(Text FName, Variant fData) {
  writeWhole(FName, [&](platform::OutputFile& out) { writeLines(out, fData); });
}

void files::writeLine(TextView name, std::initializer_list<std::string_view> pieces) {
  writeWhole(name, [&](platform::OutputFile& out) {
    for (std::string_view piece : pieces)
      out.writeBytes(piece);
    out.writeBytes("\r\n");
  });
}

void clsKVN::AppendFile(Text FName, Variant fData) {
  if (FName.empty()) return;
  MethodFrame frame(u"AppendFile on file " + FName);
  frame.run([&] {
    // A missing file is no failure; a name the system cannot take (52) is reported.
    if (!mdlKVN::SharedFileSystem().FileExists(FName)) return;
    frame.line(kOpenLine);
    platform::OutputFile out(FName, platform::OutputFile::Mode::Append);
    frame.line(kWriteLine);
    writeLines(out, fData);
    frame.line(kCloseLine);
    out.close();
  });
}

static const CallRegistrar kFileWritingCalls{
    {u"WriteFile", calls::method<&clsKVN::WriteFile>},
    {u"AppendFile", calls::method<&clsKVN::AppendFile>},
};

}  // namespace zrk
