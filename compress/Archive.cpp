// Archives: many texts, each compressed by itself, behind a list of record lengths.
#include <string>

#include <zrkKVL/clsKVN.h>
#include "compress/ArchiveExtraction.h"
#include "compress/ArchiveFormat.h"
#include "compress/StringCompression.h"
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "files/FileWriting.h"
#include "platform/files/FileSystemObject.h"
#include "platform/text/CodePage.h"

namespace zrk {

bool clsKVN::MakeArchive(Variant aFiles, Text sFileName) {
  return noTrap([&] {
    if (!aFiles.isArray()) return false;
    const VariantArray& elements = aFiles.array();
    if (elements.at(0).toText().empty()) return false;
    // The records go straight into one buffer as bytes, the list beside them.
    std::string lengths, records;
    compression::WorkBuffer buffer;
    for (int32_t i = elements.lowerBound; i <= elements.upperBound(); ++i) {
      Text element = elements.at(i).toText();
      if (element.empty()) continue;  // leaves no trace in the file
      const size_t start = records.size();
      records += std::to_string(element.size());
      records += archive::kSeparatorByte;
      records += buffer.compress(platform::toAnsi(element)).bytes;
      lengths += archive::lengthListEntry(int64_t(records.size() - start));
    }
    const char separator[] = {archive::kSeparatorByte};
    const std::string_view sep(separator, 1);
    files::writeLine(sFileName, {archive::kMagic, sep, lengths, sep, records});
    return mdlKVN::SharedFileSystem().FileExists(sFileName);
  });
}

// The bytes are walked where they lie; an archive that cannot be read that way goes through
// the number text, which reports why.
bool clsKVN::ExtractArchive(Text sArchiveName, std::optional<Text> DiffDir) {
  return archive::extract(*this, sArchiveName, DiffDir, {});
}

bool archive::extract(clsKVN& kvn, const Text& archiveName, const std::optional<Text>& diffDir,
                      const MemberRules& rules) {
  return noTrap([&] {
    if (std::optional<bool> done = extractFromBytes(archiveName, diffDir, rules)) return *done;
    return extractFromNumberText(kvn, archiveName, diffDir, rules);
  });
}

static const CallRegistrar kArchiveCalls{
    {u"MakeArchive", calls::method<&clsKVN::MakeArchive>},
    {u"ExtractArchive", calls::method<&clsKVN::ExtractArchive>},
};

}  // namespace zrk
