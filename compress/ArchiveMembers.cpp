// The members of one extraction: stored names, damaged records and the question before them.
#include "compress/ArchiveMembers.h"

#include "compress/ArchiveFormat.h"
#include "core/mdlKVN.h"
#include "files/FileWriting.h"
#include "platform/desktop/Dialogs.h"
#include "platform/files/FileSystemObject.h"
#include "platform/files/Paths.h"

namespace zrk::archive {
namespace {

constexpr TextView kQuestionTitle = u"Confirmation Required!";

// The folder that holds a file, as the file object names it.
Text folderOf(const platform::FileInfo& file) {
  return file.ParentFolderPath.empty() ? Text(u".") : file.ParentFolderPath;
}

Text outputFolder(const Text& archiveName, const std::optional<Text>& diffDir) {
  platform::FileInfo file = mdlKVN::SharedFileSystem().GetFile(archiveName);
  return diffDir && !diffDir->empty() ? *diffDir : folderOf(file);
}

}  // namespace

MemberOutput::MemberOutput(const Text& archiveName, const std::optional<Text>& diffDir,
                           const MemberRules& rules)
    : archiveName_(archiveName),
      folder_(outputFolder(archiveName, diffDir)),
      rules_(rules),
      out_(folder_) {}

void MemberOutput::write(const Text& name, std::string_view line) {
  try {
    bool repeated = out_.wrote(name);
    if (repeated && rules_.notice) rules_.notice(name, MemberRules::Event::Repeated);
    using Existing = platform::ExtractionFolder::Existing;
    Existing existing = !repeated && rules_.keepExisting ? Existing::Keep : Existing::Replace;
    if (!out_.writeFile(name, line, existing) && rules_.notice) {
      rules_.notice(name, MemberRules::Event::Kept);
    }
  } catch (const Failure& f) {
    files::reportWriteFailure(folder_ + u"/" + name, f.info());
  }
}

void MemberOutput::writeNamed(const Text& name, std::string_view line) {
  if (platform::isEntryName(name)) {
    write(name, line);
  } else {
    files::reportWriteFailure(folder_ + u"/" + name, Failure(err::PathFileAccessError).info());
  }
}

bool MemberOutput::writeDamaged(std::string_view line) {
  ++damaged_;
  Text archiveFile = platform::fileNameOf(archiveName_);
  Text base = left(archiveFile, int64_t(archiveFile.size()) - 4);
  if (!agreed_) flush();  // what came before the question is in place while it is open
  if (!agreed_ && mdlKVN::ShowMessageBox(damagedArchiveQuestion(archiveName_), platform::mb::YesNo,
                                         kQuestionTitle) != platform::mb::Yes) {
    return false;
  }
  write(damagedRecordName(base, damaged_, !agreed_), line);
  agreed_ = true;
  return true;
}

void MemberOutput::flush() {
  for (auto& [name, failure] : out_.flush())
    files::reportWriteFailure(folder_ + u"/" + name, failure.info());
}

}  // namespace zrk::archive
