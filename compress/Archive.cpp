// Archives: many texts, each compressed by itself, behind a list of record lengths.
#include <future>
#include <string>
#include <thread>

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

namespace {

// The records of the elements [from, to) and their entries in the list of lengths; an empty
// element leaves no trace.
struct Records {
  std::string lengths, records;
};

Records recordsOf(const VariantArray& elements, int32_t from, int32_t to) {
  Records out;
  compression::WorkBuffer buffer;
  for (int32_t i = from; i < to; ++i) {
    Text element = elements.at(i).toText();
    if (element.empty()) continue;
    const size_t start = out.records.size();
    out.records += std::to_string(element.size());
    out.records += archive::kSeparatorByte;
    out.records += buffer.compress(platform::toAnsi(element)).bytes;
    out.lengths += archive::lengthListEntry(int64_t(out.records.size() - start));
  }
  return out;
}

// The first element of the second half, when there are two cores and two elements or more, all
// texts; else the end. Any other value converts on the caller's thread, an object's by a call to
// its host.
int32_t secondHalf(const VariantArray& elements) {
  const int32_t end = elements.upperBound() + 1;
  if (elements.items.size() < 2 || std::thread::hardware_concurrency() < 2) return end;
  for (const Variant& v : elements.items) {
    if (v.kind() != Variant::Kind::Text) return end;
  }
  return elements.lowerBound + int32_t(elements.items.size() / 2);
}

}  // namespace

// Each stream is made by itself, so the two halves are compressed at once (on the caller's
// thread alone where no thread can be had) and joined in order.
bool clsKVN::MakeArchive(Variant aFiles, Text sFileName) {
  return noTrap([&] {
    if (!aFiles.isArray()) return false;
    const VariantArray& elements = aFiles.array();
    if (elements.at(0).toText().empty()) return false;
    const int32_t middle = secondHalf(elements);
    const int32_t end = elements.upperBound() + 1;
    std::future<Records> second = std::async(
        middle < end ? std::launch::async | std::launch::deferred : std::launch::deferred,
        recordsOf, std::cref(elements), middle, end);
    Records first = recordsOf(elements, elements.lowerBound, middle);
    Records rest = second.get();
    const char separator[] = {archive::kSeparatorByte};
    const std::string_view sep(separator, 1);
    files::writeLine(sFileName, {archive::kMagic, sep, first.lengths, rest.lengths, sep,
                                 first.records, rest.records});
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
