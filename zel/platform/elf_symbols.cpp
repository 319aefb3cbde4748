#include "zel/platform/elf_symbols.h"

#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace zel::platform {

namespace {

// Tables larger than this are taken for damage rather than read.
constexpr uint64_t kMaxTableBytes = uint64_t{1} << 30;

bool readAt(int file, uint64_t offset, void* into, size_t bytes) {
  auto* out = static_cast<char*>(into);
  while (bytes > 0) {
    const ssize_t got = pread(file, out, bytes, static_cast<off_t>(offset));
    if (got <= 0) return false;
    out += got;
    offset += static_cast<uint64_t>(got);
    bytes -= static_cast<size_t>(got);
  }
  return true;
}

template <typename T>
bool readTable(int file, uint64_t offset, uint64_t count, std::vector<T>& table) {
  if (count > kMaxTableBytes / sizeof(T)) return false;
  table.resize(count);
  return readAt(file, offset, table.data(), count * sizeof(T));
}

bool isThisMachines(const ElfW(Ehdr) & header) {
  return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
         header.e_ident[EI_CLASS] == (sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32) &&
         header.e_phentsize == sizeof(ElfW(Phdr)) && header.e_shentsize == sizeof(ElfW(Shdr));
}

const ElfW(Shdr) * findSection(const std::vector<ElfW(Shdr)>& sections, uint32_t type) {
  const auto at = std::find_if(sections.begin(), sections.end(),
                               [type](const ElfW(Shdr) & s) { return s.sh_type == type; });
  return at == sections.end() || at->sh_link >= sections.size() ? nullptr : &*at;
}

}  // namespace

ElfSymbols ElfSymbols::read(const char* path, std::span<const ElfW(Phdr)> loaded) {
  ElfSymbols symbols;
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return symbols;
  if (!symbols.load(file, loaded)) symbols = ElfSymbols();
  close(file);
  return symbols;
}

bool ElfSymbols::load(int file, std::span<const ElfW(Phdr)> loaded) {
  ElfW(Ehdr) header;
  if (!readAt(file, 0, &header, sizeof header) || !isThisMachines(header)) return false;

  std::vector<ElfW(Phdr)> programs;
  if (header.e_phnum != loaded.size()) return false;
  if (!readTable(file, header.e_phoff, header.e_phnum, programs)) return false;
  if (std::memcmp(programs.data(), loaded.data(), loaded.size_bytes()) != 0) return false;

  std::vector<ElfW(Shdr)> sections;
  if (!readTable(file, header.e_shoff, header.e_shnum, sections)) return false;
  const auto* table = findSection(sections, SHT_SYMTAB);
  if (table == nullptr) table = findSection(sections, SHT_DYNSYM);
  if (table == nullptr) return false;

  const ElfW(Shdr)& strings = sections[table->sh_link];
  if (strings.sh_size > kMaxTableBytes) return false;
  names_.resize(strings.sh_size);
  if (!readAt(file, strings.sh_offset, names_.data(), names_.size())) return false;
  std::vector<ElfW(Sym)> entries;
  if (!readTable(file, table->sh_offset, table->sh_size / sizeof(ElfW(Sym)), entries)) return false;
  addFunctions(entries);
  return true;
}

void ElfSymbols::addFunctions(const std::vector<ElfW(Sym)>& entries) {
  for (const ElfW(Sym) & entry : entries) {
    // The type and binding fields have the same places in both widths of ELF.
    const auto type = ELF64_ST_TYPE(entry.st_info);
    const bool function = type == STT_FUNC || type == STT_GNU_IFUNC;
    if (!function || entry.st_shndx == SHN_UNDEF || entry.st_name >= names_.size()) continue;
    symbols_.push_back(
        {entry.st_value, entry.st_size, entry.st_name, ELF64_ST_BIND(entry.st_info) == STB_GLOBAL});
  }
  // Of several names for one address a global one is what people know the function by; beyond that
  // any rule does that gives the same name in each run.
  std::sort(symbols_.begin(), symbols_.end(), [this](const Symbol& a, const Symbol& b) {
    if (a.begin != b.begin) return a.begin < b.begin;
    if (a.global != b.global) return b.global;
    return std::strcmp(&names_[a.name], &names_[b.name]) > 0;
  });
}

const char* ElfSymbols::find(uint64_t address) const {
  auto after = std::upper_bound(symbols_.begin(), symbols_.end(), address,
                                [](uint64_t value, const Symbol& s) { return value < s.begin; });
  if (after == symbols_.begin()) return nullptr;
  const Symbol& symbol = *std::prev(after);
  if (symbol.size != 0 && address - symbol.begin >= symbol.size) return nullptr;
  return &names_[symbol.name];
}

}  // namespace zel::platform
