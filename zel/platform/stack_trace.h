#pragma once

#include <array>
#include <cstddef>
#include <span>

/// Where a thread is: the addresses of its calls, and the functions' names.
///
/// Names come from the symbol table of the file that a module was loaded from, not from what the
/// loader keeps in memory: nearly everything in this library is hidden, and a program's `main` is
/// rarely exported, so the loader's table would leave most frames nameless and attribute none. The
/// file's full table has them all, as long as it isn't stripped; of a stripped file the exported
/// names are left, and a frame without one reads "module+0x1a2b", which addr2line understands.
/// C++ names are given in readable form.

namespace zel::platform {

inline constexpr size_t kMaxStackFrames = 128;
inline constexpr size_t kMaxSymbolName = 255;

/// Room for a name and its terminator.
using SymbolName = std::array<char, kMaxSymbolName + 1>;

/// Captures the return addresses of the calling thread, innermost first, at most as many as
/// `frames` has room for and no more than kMaxStackFrames; the result is their number. Frames
/// before the first that returns to `innermost` are left out, so that a diagnostic function can
/// hide what is its own by giving its return address; if there is no such frame all are kept.
size_t captureStack(std::span<void*> frames, const void* innermost = nullptr);

/// Writes the name of the function that would be returned to at `returnAddress`, cut at
/// kMaxSymbolName characters, and gives its length. Safe on every thread; allocates, but calls
/// nothing of the layers above. Slow for an address that it sees first, fast from then on.
size_t symbolName(const void* returnAddress, SymbolName& name);

}  // namespace zel::platform
