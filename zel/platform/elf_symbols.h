#pragma once

#include <link.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace zel::platform {

/// The function names of one ELF file: of its full symbol table, or of the dynamic one where the
/// file is stripped.
class ElfSymbols {
 public:
  ElfSymbols() = default;

  /// Reads the file at `path`. It's empty if that can't be read, or isn't the file whose program
  /// headers are `loaded`: a library that was rebuilt meanwhile would give wrong names, which are
  /// worse than none.
  static ElfSymbols read(const char* path, std::span<const ElfW(Phdr)> loaded);

  /// The linker's name of the function that covers `address`, an address as the file has it; null
  /// if none does.
  const char* find(uint64_t address) const;

  bool empty() const { return symbols_.empty(); }

 private:
  struct Symbol {
    uint64_t begin;
    uint64_t size;  // 0 when the file doesn't tell: up to the next symbol then
    uint32_t name;  // offset in names_
    bool global;
  };

  bool load(int file, std::span<const ElfW(Phdr)> loaded);
  void addFunctions(const std::vector<ElfW(Sym)>& entries);

  std::vector<Symbol> symbols_;  // by begin; of several at one address the preferred one is last
  std::string names_;
};

}  // namespace zel::platform
