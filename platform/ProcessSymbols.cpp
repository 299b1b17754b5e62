// Symbol lookup in ELF files through libelf.
#include "platform/ProcessSymbols.h"

#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <memory>

#include "platform/ProcessObject.h"

namespace zrk::platform {
namespace {

struct ElfCloser {
  void operator()(Elf* e) const { elf_end(e); }
};
using ElfPtr = std::unique_ptr<Elf, ElfCloser>;

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// The lowest loadable segment's address less its file offset: where the file's first byte goes.
std::optional<uint64_t> fileBaseOf(Elf* elf) {
  size_t count = 0;
  if (elf_getphdrnum(elf, &count) != 0) return std::nullopt;
  std::optional<uint64_t> base;
  for (size_t i = 0; i < count; ++i) {
    GElf_Phdr ph;
    if (!gelf_getphdr(elf, int(i), &ph) || ph.p_type != PT_LOAD) continue;
    uint64_t start = ph.p_vaddr - ph.p_offset;
    if (!base || start < *base) base = start;
  }
  return base;
}

// The defined, non-thread-local symbol `name` in one symbol table section.
std::optional<uint64_t> symbolIn(Elf* elf, Elf_Scn* section, const GElf_Shdr& header,
                                 std::string_view name) {
  Elf_Data* data = elf_getdata(section, nullptr);
  if (!data || header.sh_entsize == 0) return std::nullopt;
  size_t count = header.sh_size / header.sh_entsize;
  for (size_t i = 0; i < count; ++i) {
    GElf_Sym sym;
    if (!gelf_getsym(data, int(i), &sym) || sym.st_shndx == SHN_UNDEF) continue;
    if (GELF_ST_TYPE(sym.st_info) == STT_TLS) continue;
    const char* symName = elf_strptr(elf, header.sh_link, sym.st_name);
    if (symName && name == symName) return sym.st_value;
  }
  return std::nullopt;
}

}  // namespace

std::optional<ElfSymbol> findElfSymbol(const std::string& path, std::string_view name) {
  if (name.empty() || elf_version(EV_CURRENT) == EV_NONE) return std::nullopt;
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) return std::nullopt;
  ElfPtr elf(elf_begin(fd.get(), ELF_C_READ, nullptr));
  if (!elf || elf_kind(elf.get()) != ELF_K_ELF) return std::nullopt;
  std::optional<uint64_t> fileBase = fileBaseOf(elf.get());
  if (!fileBase) return std::nullopt;
  // The full symbol table first; a stripped file keeps only the dynamic one.
  for (uint32_t type : {uint32_t(SHT_SYMTAB), uint32_t(SHT_DYNSYM)}) {
    for (Elf_Scn* s = elf_nextscn(elf.get(), nullptr); s; s = elf_nextscn(elf.get(), s)) {
      GElf_Shdr header;
      if (!gelf_getshdr(s, &header) || header.sh_type != type) continue;
      if (std::optional<uint64_t> value = symbolIn(elf.get(), s, header, name)) {
        return ElfSymbol{*value, *fileBase};
      }
    }
  }
  return std::nullopt;
}

std::optional<ElfSymbol> findModuleSymbol(HANDLE process, const std::string& path,
                                          std::string_view name) {
  auto p = HandleTable::instance().get<ProcessObject>(process);
  if (!p || path.empty() || path.front() != '/') return std::nullopt;
  auto symbol = findElfSymbol("/proc/" + std::to_string(p->pid) + "/root" + path, name);
  if (!p->alive()) return std::nullopt;
  return symbol;
}

}  // namespace zrk::platform
