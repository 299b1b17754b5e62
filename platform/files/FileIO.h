// File opens of the runtime: text read, output, append and binary, each under a free file
// number, always closed when the object goes, also after a failure. Writers follow the rules
// of SafeFile.h.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <zrkKVL/Text.h>
#include "platform/files/SafeFile.h"

namespace zrk::platform {

// A free file number (1 to 511), held until destruction; failure 67 when none is free.
class FileNumber {
 public:
  FileNumber();
  ~FileNumber();
  FileNumber(const FileNumber&) = delete;
  FileNumber& operator=(const FileNumber&) = delete;
  int value() const { return n_; }

 private:
  int n_;
};

// Owns a POSIX descriptor.
class FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(int fd) : fd_(fd) {}
  ~FileHandle();
  FileHandle(FileHandle&& o) noexcept : fd_(o.fd_) { o.fd_ = -1; }
  FileHandle& operator=(FileHandle&& o) noexcept;
  int fd() const { return fd_; }
  // Closes now; failure 57 (or the errno's) if the close reports a lost write.
  void close();

 private:
  int fd_ = -1;
};

// The whole content of a file as bytes; 53 missing, 75 a folder or a file that is not a regular
// one (a FIFO, socket or device, refused without blocking), 70 refused, 52 bad name.
std::string readAllBytes(TextView path);
// The same for a native path, as it stands.
std::string readNativeBytes(const std::string& nativePath);
// The open of those reads, with what fstat says of the open file; failures as there.
FileHandle openForReading(const std::string& nativePath, struct stat& st);
// The size the file system states for a file: 0 for files whose size shows only by reading
// them, such as those under /proc.
inline size_t statedSize(const struct stat& st) {
  return st.st_size > 0 ? size_t(st.st_size) : 0;
}
// Bytes read into a buffer that is not cleared before the read.
struct FileBytes {
  std::unique_ptr<char[]> data;
  size_t size = 0;
  std::string_view view() const { return {data.get(), size}; }
};
// Reads an open file from where it stands to its end, `stated` bytes expected.
FileBytes readToEnd(int fd, size_t stated);

// The whole content of a file in pages of its own, with the failures of readAllBytes. A reader
// that makes something large of the bytes hands back the pages it has used as it goes, so the
// bytes and what is made of them are not held whole side by side.
class FileImage {
 public:
  explicit FileImage(TextView path);
  ~FileImage();
  FileImage(const FileImage&) = delete;
  FileImage& operator=(const FileImage&) = delete;
  std::string_view bytes() const { return {base_, size_}; }
  // Gives back the whole pages before `offset`; the bytes there must not be read again.
  void release(size_t offset);

 private:
  char* base_ = nullptr;
  size_t size_ = 0;
  size_t mapped_ = 0;
  size_t released_ = 0;
};

// Lines of a text read: CR LF or a lone CR ends a line; a lone LF stays in the line. A last line
// without an end counts; an empty file has no lines.
class TextInputFile {
 public:
  explicit TextInputFile(TextView path);
  bool atEnd() const { return pos_ >= bytes_.size(); }
  // The next line as text through the code page; failure 62 past the end.
  Text readLine();
  // The next line as raw bytes.
  std::string_view readLineBytes();
  // Back to the first line, without reading the file again.
  void rewind() { pos_ = 0; }

 private:
  FileNumber number_;
  std::string bytes_;
  size_t pos_ = 0;
};

// Output or append open; every write goes through the code page. An output open builds the new
// content beside the file and puts it in place at close(), so the file holds its old content
// until then, and keeps it when a write fails or the object goes unclosed. An append whose write
// fails cuts the file back to the length it had at the open.
class OutputFile {
 public:
  enum class Mode { Output, Append };
  OutputFile(TextView path, Mode mode);
  ~OutputFile();
  // The text followed by CR LF.
  void printLine(TextView line);
  void writeText(TextView text);
  void writeBytes(std::string_view bytes);
  // Flushes and closes; reports a failed write. After a failed write nothing is put in place.
  void close();

 private:
  void flush();
  void writeOut(std::string_view bytes);
  void cutAppendBack();
  FileNumber number_;
  std::string path_;
  std::optional<FileReplacement> replacement_;  // output
  FileHandle handle_;                           // append
  off_t appendStart_ = 0;                       // the file's length when the append began
  std::string pending_;
  bool broken_ = false;
};

}  // namespace zrk::platform
