#include "zel/platform/stack_trace.h"

#include <cxxabi.h>
#include <execinfo.h>
#include <link.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "zel/platform/elf_symbols.h"

namespace zel::platform {

namespace {

// One loaded file. Addresses in the file are addresses in memory less `base`.
struct Module {
  uintptr_t base = 0;
  std::string path;
  std::vector<ElfW(Phdr)> headers;
  std::optional<ElfSymbols> symbols;  // read when the first address of the module is asked for

  bool covers(uintptr_t address) const {
    return std::any_of(headers.begin(), headers.end(), [&](const ElfW(Phdr) & header) {
      return header.p_type == PT_LOAD && address - base - header.p_vaddr < header.p_memsz;
    });
  }

  std::string nameOf(uintptr_t address);
};

std::string readable(const char* mangled) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> text(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), std::free);
  return status == 0 && text != nullptr ? text.get() : mangled;
}

std::string Module::nameOf(uintptr_t address) {
  if (!symbols.has_value()) symbols = ElfSymbols::read(path.c_str(), headers);
  if (const char* name = symbols->find(address - base)) return readable(name);
  char offset[32];
  std::snprintf(offset, sizeof offset, "+0x%zx", static_cast<size_t>(address - base));
  return path.substr(path.rfind('/') + 1) + offset;
}

// The loader's counts of modules that came and went: they tell whether what is known still holds.
struct LoaderState {
  unsigned long long added = 0;
  unsigned long long removed = 0;
};

class Symboliser {
 public:
  std::string_view nameOf(uintptr_t address) {
    refresh();
    const auto [known, isNew] = names_.try_emplace(address);
    if (isNew) known->second = lookUp(address).substr(0, kMaxSymbolName);
    return known->second;
  }

 private:
  void refresh() {
    LoaderState now;
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
          *static_cast<LoaderState*>(data) = {info->dlpi_adds, info->dlpi_subs};
          return 1;
        },
        &now);
    if (now.added == state_.added && now.removed == state_.removed) return;
    // Where a module has gone another may stand, so nothing that was known is sure any more. One
    // that only came takes no address from others, but may give a name to one that had none.
    std::vector<Module> former;
    if (now.removed == state_.removed) former.swap(modules_);
    modules_.clear();
    names_.clear();
    dl_iterate_phdr(addModule, &modules_);
    for (Module& module : modules_) keepSymbols(module, former);
    state_ = now;
  }

  static int addModule(dl_phdr_info* info, size_t, void* data) {
    Module module;
    module.base = info->dlpi_addr;
    // The program itself has no name here.
    module.path = info->dlpi_name[0] != '\0' ? info->dlpi_name : "/proc/self/exe";
    module.headers.assign(info->dlpi_phdr, info->dlpi_phdr + info->dlpi_phnum);
    static_cast<std::vector<Module>*>(data)->push_back(std::move(module));
    return 0;
  }

  static void keepSymbols(Module& module, std::vector<Module>& former) {
    for (Module& old : former) {
      if (old.base == module.base && old.path == module.path) module.symbols.swap(old.symbols);
    }
  }

  std::string lookUp(uintptr_t address) {
    for (Module& module : modules_) {
      if (module.covers(address)) return module.nameOf(address);
    }
    char text[32];
    std::snprintf(text, sizeof text, "0x%zx", static_cast<size_t>(address));
    return text;
  }

  LoaderState state_;
  std::vector<Module> modules_;
  std::unordered_map<uintptr_t, std::string> names_;
};

}  // namespace

__attribute__((noinline)) size_t captureStack(std::span<void*> frames, const void* innermost) {
  // Room for the frames of this function and its caller that are left out again.
  constexpr size_t kOwnFrames = 16;
  void* all[kMaxStackFrames + kOwnFrames];
  const auto end = all + backtrace(all, static_cast<int>(std::size(all)));
  auto first = std::find(all, end, innermost);
  // Without a frame to start at, the caller's: this function's own isn't the first everywhere,
  // since a sanitizer may put one of its own before it.
  if (first == end) first = std::find(all, end, __builtin_return_address(0));
  if (first == end) first = all;
  const auto count = std::min({static_cast<size_t>(end - first), frames.size(), kMaxStackFrames});
  std::copy_n(first, count, frames.begin());
  return count;
}

size_t symbolName(const void* returnAddress, SymbolName& name) {
  // Never destroyed, since threads may outlive the static objects.
  static std::mutex& mutex = *new std::mutex;
  static Symboliser& symboliser = *new Symboliser;
  const std::lock_guard hold(mutex);
  // A call that doesn't return may be its function's last instruction: the address after it belongs
  // to the next function, the one before it to the call.
  const std::string_view text = symboliser.nameOf(reinterpret_cast<uintptr_t>(returnAddress) - 1);
  const size_t length = text.copy(name.data(), kMaxSymbolName);
  name[length] = '\0';
  return length;
}

}  // namespace zel::platform
