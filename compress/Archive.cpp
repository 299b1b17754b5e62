// Archives: many texts, each compressed by itself, behind a list of record lengths.
#include <algorithm>
#include <limits>

#include <zrkKVL/clsKVN.h>
#include "compress/ArchiveFormat.h"
#include "compress/StringCompression.h"
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "files/FileWriting.h"
#include "files/TextOps.h"
#include "platform/CodePage.h"
#include "platform/Dialogs.h"
#include "platform/ExtractionFolder.h"
#include "platform/FileSystemObject.h"
#include "platform/Paths.h"

namespace zrk {
namespace {

using archive::kSeparator;
using archive::left;
using archive::mid;
using archive::right;

constexpr TextView kQuestionTitle = u"Confirmation Required!";

// 1-based position of the first `c` at or after the 1-based `from`; 0 when there is none.
int64_t position(TextView s, char16_t c, int64_t from = 1) {
  size_t k = s.find(c, size_t(from - 1));
  return k == TextView::npos ? 0 : int64_t(k) + 1;
}

// The folder that holds a file, as the file object names it.
Text folderOf(const platform::FileInfo& file) {
  return file.ParentFolderPath.empty() ? Text(u".") : file.ParentFolderPath;
}

// The archive's bytes as characters, rebuilt from its hexadecimal number text.
Text readImage(clsKVN& kvn, const Text& archiveName) {
  Text numbers = trimBlanks(kvn.HexRead(archiveName));
  return trimBlanks(archive::bytesFromHexText(numbers));
}

// Writes one member as WriteFile writes a line, and reports a failure as WriteFile does; the
// walk goes on with the next member.
void writeMember(platform::ExtractionFolder& out, const Text& folder, const Text& name,
                 const Text& content) {
  try {
    out.writeFile(name, platform::toAnsi(content) + "\r\n");
  } catch (const Failure& f) {
    files::reportWriteFailure(folder + u"/" + name, f.info());
  }
}

}  // namespace

bool clsKVN::MakeArchive(Variant aFiles, Text sFileName) {
  return noTrap([&] {
    if (!aFiles.isArray()) return false;
    const VariantArray& elements = aFiles.array();
    if (elements.at(0).toText().empty()) return false;
    Text lengths, records;
    for (int32_t i = elements.lowerBound; i <= elements.upperBound(); ++i) {
      Text element = elements.at(i).toText();
      if (element.empty()) continue;  // leaves no trace in the file
      Text record = decimal(int64_t(element.size())) + kSeparator + CompressString(element);
      lengths += archive::lengthListEntry(int64_t(record.size()));
      records += record;
    }
    Text whole = Text(archive::kMagic) + kSeparator + lengths + kSeparator + records;
    WriteFile(sFileName, Variant(std::move(whole)));
    return mdlKVN::SharedFileSystem().FileExists(sFileName);
  });
}

bool clsKVN::ExtractArchive(Text sArchiveName, std::optional<Text> DiffDir) {
  return noTrap([&] {
    Text image = readImage(*this, sArchiveName);

    // The magic is skipped unread: the list lies between the first two separators.
    int64_t p1 = position(image, kSeparator) + 1;
    int64_t p2 = position(image, kSeparator, p1);
    const Text lengths = mid(image, p1, p2 - p1);
    const Text records = mid(image, p2 + 1, int64_t(image.size()));

    platform::FileInfo file = mdlKVN::SharedFileSystem().GetFile(sArchiveName);
    Text folder = DiffDir && !DiffDir->empty() ? *DiffDir : folderOf(file);

    platform::ExtractionFolder out(folder);
    int64_t recordPos = 1;
    int32_t damaged = 0;
    bool agreed = false;
    const int64_t listLength = int64_t(lengths.size());
    for (int64_t i = 1; i <= listLength;) {
      int32_t digits = files::numberFromText(mid(lengths, i, 1));
      int32_t recordLength = files::numberFromText(mid(lengths, i + 1, digits));
      Text record = mid(records, recordPos, recordLength);

      int64_t s = position(record, kSeparator);
      int32_t elementLength = files::numberFromText(left(record, s - 1));
      Text stream = mid(record, s + 1, int64_t(record.size()));
      // No stream expands beyond the cap, so capping a length read from a damaged file changes
      // nothing for a good stream and keeps a bad one from asking for gigabytes.
      int32_t origSize = std::min(elementLength, compression::maxExpandedLength(stream.size()));
      Text element = DecompressString(std::move(stream), origSize);

      int64_t bar = position(element, u'|');
      if (bar >= 1 && bar <= 11) {
        int32_t nameLength = files::numberFromText(left(element, bar - 1));
        Text name = mid(element, bar + 1, nameLength);
        Text content = right(element, int64_t(element.size()) - nameLength - bar);
        if (archive::isSafeMemberName(name)) {
          writeMember(out, folder, name, content);
        } else {
          // A name that would leave the output folder is never written anywhere.
          files::reportWriteFailure(folder + u"/" + name, Failure(err::PathFileAccessError).info());
        }
      } else {
        ++damaged;
        Text archiveFile = platform::fileNameOf(sArchiveName);
        Text base = left(archiveFile, int64_t(archiveFile.size()) - 4);
        if (!agreed &&
            mdlKVN::ShowMessageBox(archive::damagedArchiveQuestion(sArchiveName),
                                   platform::mb::YesNo, kQuestionTitle) != platform::mb::Yes) {
          return false;
        }
        writeMember(out, folder, archive::damagedRecordName(base, damaged, !agreed), element);
        agreed = true;
      }

      recordPos += recordLength;
      if (recordPos > std::numeric_limits<int32_t>::max()) throw Failure(err::Overflow);
      i += digits + 1;
    }
    for (auto& [name, failure] : out.finish())
      files::reportWriteFailure(folder + u"/" + name, failure.info());
    return true;
  });
}

static const CallRegistrar kArchiveCalls{
    {u"MakeArchive", calls::method<&clsKVN::MakeArchive>},
    {u"ExtractArchive", calls::method<&clsKVN::ExtractArchive>},
};

}  // namespace zrk
