// ELF files through libelf.
#include "platform/process/ElfFile.h"

#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <utility>

namespace zrk::platform {
namespace {

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

// The SONAME entry of one dynamic section.
std::optional<std::string> sonameIn(Elf* elf, Elf_Scn* section, const GElf_Shdr& header) {
  Elf_Data* data = elf_getdata(section, nullptr);
  if (!data) return std::nullopt;
  GElf_Dyn entry;
  for (int i = 0; gelf_getdyn(data, i, &entry) && entry.d_tag != DT_NULL; ++i) {
    if (entry.d_tag != DT_SONAME) continue;
    const char* name = elf_strptr(elf, header.sh_link, entry.d_un.d_val);
    if (!name) return std::nullopt;
    return std::string(name);
  }
  return std::nullopt;
}

// Each section of type `type`, until `visit` gives a value.
template <class Visit>
auto firstOfSections(Elf* elf, uint32_t type, Visit visit)
    -> decltype(visit(nullptr, GElf_Shdr{})) {
  for (Elf_Scn* s = elf_nextscn(elf, nullptr); s; s = elf_nextscn(elf, s)) {
    GElf_Shdr header;
    if (!gelf_getshdr(s, &header) || header.sh_type != type) continue;
    if (auto value = visit(s, header)) return value;
  }
  return std::nullopt;
}

}  // namespace

ElfFile::ElfFile(const std::string& path) : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (fd_ >= 0 && elf_version(EV_CURRENT) != EV_NONE) begin(elf_begin(fd_, ELF_C_READ, nullptr));
}

ElfFile::ElfFile(ElfImage image) : image_(std::move(image.bytes)) {
  if (elf_version(EV_CURRENT) != EV_NONE) begin(elf_memory(image_.data(), image_.size()));
}

void ElfFile::begin(Elf* elf) {
  if (elf && elf_kind(elf) != ELF_K_ELF) {
    elf_end(elf);
    elf = nullptr;
  }
  elf_ = elf;
}

ElfFile::~ElfFile() {
  if (elf_) elf_end(elf_);
  if (fd_ >= 0) ::close(fd_);
}

std::optional<std::string> ElfFile::soname() const {
  if (!elf_) return std::nullopt;
  return firstOfSections(elf_, SHT_DYNAMIC,
                         [&](Elf_Scn* s, const GElf_Shdr& h) { return sonameIn(elf_, s, h); });
}

std::optional<ElfSymbol> ElfFile::symbol(std::string_view name) const {
  if (!elf_ || name.empty()) return std::nullopt;
  std::optional<uint64_t> fileBase = fileBaseOf(elf_);
  if (!fileBase) return std::nullopt;
  // The full symbol table first; a stripped file keeps only the dynamic one.
  for (uint32_t type : {uint32_t(SHT_SYMTAB), uint32_t(SHT_DYNSYM)}) {
    auto value = firstOfSections(
        elf_, type, [&](Elf_Scn* s, const GElf_Shdr& h) { return symbolIn(elf_, s, h, name); });
    if (value) return ElfSymbol{*value, *fileBase};
  }
  return std::nullopt;
}

}  // namespace zrk::platform
