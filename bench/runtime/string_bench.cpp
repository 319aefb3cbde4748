// As the vector kernels have it, so that HWY_TARGETS names the same targets.
#define HWY_WANT_AVX3_DL

#include <benchmark/benchmark.h>
#include <hwy/targets.h>
#include <iconv.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "zel/platform/text_conversion.h"
#include "zel/platform/text_kernels.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/string.h"

// Strings against std::string, and the conversion of text against iconv of the C library.
//
// The peer for conversion is the faster one of two that iconv offers, and both have their rows:
// WCHAR_T has elements of the same size and is one step for it, but leaves characters above U+FFFF
// whole; UTF-16LE splits them into surrogates as this library does. Both sides convert 64 KiB into
// a buffer that is there already; what asking for the size first costs stands in rows of its own.
// Speeds count bytes of UTF-8, in either direction.

namespace {

using Morvalen::Zel::CByteArray;
using Morvalen::Zel::CString;
using namespace zel::platform;

// ---- Text of several kinds

enum Kind { Ascii, Latin, GreekCyrillic, Cjk, Emoji, Mixed, kKinds };
constexpr const char* kKindNames[kKinds] = {"ascii", "latin", "greek-cyrillic",
                                            "cjk",   "emoji", "mixed"};

void append(std::string& text, uint32_t codePoint) {
  const wchar_t element = static_cast<wchar_t>(codePoint);
  char bytes[4];
  text.append(bytes, utf16ToUtf8(&element, 1, bytes));
}

// Words of one script, with the blanks and digits that stand between words in any.
void appendWord(std::string& text, Kind kind, std::mt19937& random) {
  const auto within = [&](uint32_t low, uint32_t high) {
    return low + static_cast<uint32_t>(random() % (high - low + 1));
  };
  const uint32_t letters = within(2, 9);
  for (uint32_t i = 0; i < letters; ++i) {
    switch (kind) {
      case Latin:  // about one letter in six has an accent
        append(text, random() % 6 == 0 ? within(0xE0, 0xFF) : within('a', 'z'));
        break;
      case GreekCyrillic:
        append(text, letters % 2 == 0 ? within(0x3B1, 0x3C9) : within(0x430, 0x44F));
        break;
      case Cjk:
        append(text, random() % 8 == 0 ? within(0x3041, 0x3093) : within(0x4E00, 0x9FA5));
        break;
      case Emoji:  // about three words of Latin to one of emoji
        append(text, letters % 4 == 0 ? within(0x1F600, 0x1F64F) : within('a', 'z'));
        break;
      default:
        append(text, within('a', 'z'));
    }
  }
  append(text, random() % 12 == 0 ? within('0', '9') : ' ');
}

const std::string& narrowText(Kind kind) {
  static const std::vector<std::string> texts = [] {
    std::vector<std::string> made(kKinds);
    for (size_t i = 0; i < kKinds; ++i) {
      std::mt19937 random(20120101);
      while (made[i].size() < 65536) {
        const Kind words = i == Mixed ? static_cast<Kind>(random() % Mixed) : static_cast<Kind>(i);
        appendWord(made[i], words, random);
      }
    }
    return made;
  }();
  return texts[kind];
}

std::wstring wideText(Kind kind) {
  const std::string& narrow = narrowText(kind);
  std::wstring wide(utf16Length(narrow.data(), narrow.size()), L'\0');
  utf8ToUtf16(narrow.data(), narrow.size(), wide.data());
  return wide;
}

void finish(benchmark::State& state, Kind kind) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(narrowText(kind).size()));
}

// ---- Conversion

void toWide(benchmark::State& state, Kind kind, const TextKernels& kernels) {
  const std::string& narrow = narrowText(kind);
  std::wstring wide(narrow.size(), L'\0');
  for (auto _ : state) {
    benchmark::DoNotOptimize(kernels.utf8ToUtf16(narrow.data(), narrow.size(), wide.data()));
    benchmark::ClobberMemory();
  }
  finish(state, kind);
}

void toNarrow(benchmark::State& state, Kind kind, const TextKernels& kernels) {
  const std::wstring wide = wideText(kind);
  std::string narrow(narrowText(kind).size(), '\0');
  for (auto _ : state) {
    benchmark::DoNotOptimize(kernels.utf16ToUtf8(wide.data(), wide.size(), narrow.data()));
    benchmark::ClobberMemory();
  }
  finish(state, kind);
}

void wideSize(benchmark::State& state, Kind kind) {
  const std::string& narrow = narrowText(kind);
  for (auto _ : state) benchmark::DoNotOptimize(utf16Length(narrow.data(), narrow.size()));
  finish(state, kind);
}

void narrowSize(benchmark::State& state, Kind kind) {
  const std::wstring wide = wideText(kind);
  for (auto _ : state) benchmark::DoNotOptimize(utf8Length(wide.data(), wide.size()));
  finish(state, kind);
}

void throughIconv(benchmark::State& state, Kind kind, const char* to, const char* from) {
  const iconv_t prepare = iconv_open(from, "UTF-8");
  const iconv_t handle = iconv_open(to, from);
  std::string input = narrowText(kind);
  std::string output(8 * input.size(), '\0');
  const auto convert = [&output](iconv_t with, std::string& text) {
    char* in = text.data();
    size_t inLeft = text.size();
    char* out = output.data();
    size_t outLeft = output.size();
    if (iconv(with, &in, &inLeft, &out, &outLeft) == static_cast<size_t>(-1)) std::abort();
    return output.size() - outLeft;
  };
  input = std::string(output.data(), convert(prepare, input));
  for (auto _ : state) {
    benchmark::DoNotOptimize(convert(handle, input));
    benchmark::ClobberMemory();
  }
  iconv_close(prepare);
  iconv_close(handle);
  finish(state, kind);
}

// The kernels of a target that is not the best one of this machine.
TextKernels kernelsOf(int64_t target) {
  hwy::SetSupportedTargetsForTest(target);
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  const TextKernels kernels = vectorTextKernels();
  hwy::SetSupportedTargetsForTest(0);
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  return kernels;
}

void registerLesserTargets() {
  int64_t targets = hwy::SupportedTargets() & HWY_TARGETS;
  for (targets &= targets - 1; targets != 0; targets &= targets - 1) {
    const int64_t target = targets & -targets;
    if (target == HWY_EMU128 || target == HWY_SCALAR) continue;
    for (const Kind kind : {Ascii, Mixed}) {
      const std::string row = std::string(hwy::TargetName(target)) + "/" + kKindNames[kind];
      benchmark::RegisterBenchmark(("utf8-to-wide/zel-" + row).c_str(), [=](benchmark::State& s) {
        toWide(s, kind, kernelsOf(target));
      });
      benchmark::RegisterBenchmark(("wide-to-utf8/zel-" + row).c_str(), [=](benchmark::State& s) {
        toNarrow(s, kind, kernelsOf(target));
      });
    }
  }
}

bool registerConversions() {
  for (size_t i = 0; i < kKinds; ++i) {
    const Kind kind = static_cast<Kind>(i);
    const auto add = [&](const char* what, auto run) {
      benchmark::RegisterBenchmark((std::string(what) + "/" + kKindNames[i]).c_str(), run);
    };
    using State = benchmark::State;
    add("utf8-to-wide/zel", [=](State& s) { toWide(s, kind, vectorTextKernels()); });
    add("utf8-to-wide/zel-scalar", [=](State& s) { toWide(s, kind, scalarTextKernels()); });
    add("utf8-to-wide/iconv-wchar_t", [=](State& s) { throughIconv(s, kind, "WCHAR_T", "UTF-8"); });
    add("utf8-to-wide/iconv-utf16le",
        [=](State& s) { throughIconv(s, kind, "UTF-16LE", "UTF-8"); });
    add("utf8-to-wide/size", [=](State& s) { wideSize(s, kind); });
    add("wide-to-utf8/zel", [=](State& s) { toNarrow(s, kind, vectorTextKernels()); });
    add("wide-to-utf8/zel-scalar", [=](State& s) { toNarrow(s, kind, scalarTextKernels()); });
    add("wide-to-utf8/iconv-wchar_t", [=](State& s) { throughIconv(s, kind, "UTF-8", "WCHAR_T"); });
    add("wide-to-utf8/iconv-utf16le",
        [=](State& s) { throughIconv(s, kind, "UTF-8", "UTF-16LE"); });
    add("wide-to-utf8/size", [=](State& s) { narrowSize(s, kind); });
  }
  registerLesserTargets();
  return true;
}
[[maybe_unused]] const bool conversionsAreRegistered = registerConversions();

// ---- Making and releasing
//
// The shared std::string is the peer that does the same: text on the heap with a count of
// references. The plain one is the floor; it holds up to 15 bytes without any memory.

void stringMakeAndRelease(benchmark::State& state) {
  const std::string text(static_cast<size_t>(state.range(0)), 'z');
  for (auto _ : state) {
    auto* string = new CString(text.c_str());
    benchmark::DoNotOptimize(string);
    string->Release();
  }
}
BENCHMARK(stringMakeAndRelease)->Name("string/make-release/zel")->Arg(8)->Arg(64)->Arg(1024);

void sharedStringMakeAndRelease(benchmark::State& state) {
  const std::string text(static_cast<size_t>(state.range(0)), 'z');
  for (auto _ : state) {
    auto string = std::make_shared<std::string>(text.c_str());
    benchmark::DoNotOptimize(string);
  }
}
BENCHMARK(sharedStringMakeAndRelease)
    ->Name("string/make-release/shared-std-string")
    ->Arg(8)
    ->Arg(64)
    ->Arg(1024);

void plainStringMakeAndRelease(benchmark::State& state) {
  const std::string text(static_cast<size_t>(state.range(0)), 'z');
  for (auto _ : state) {
    std::string string(text.c_str());
    benchmark::DoNotOptimize(string);
  }
}
BENCHMARK(plainStringMakeAndRelease)
    ->Name("string/make-release/plain-std-string")
    ->Arg(8)
    ->Arg(64)
    ->Arg(1024);

void stringBothForms(benchmark::State& state) {
  const std::string text(static_cast<size_t>(state.range(0)), 'z');
  for (auto _ : state) {
    auto* string = new CString(text.c_str());
    benchmark::DoNotOptimize(string->GetWChars());
    string->Release();
  }
}
BENCHMARK(stringBothForms)->Name("string/make-widen-release/zel")->Arg(8)->Arg(64)->Arg(1024);

// ---- Byte arrays

void byteArrayMakeAndRelease(benchmark::State& state) {
  for (auto _ : state) {
    auto* array = new CByteArray(4096);
    benchmark::DoNotOptimize(array);
    array->Release();
  }
}
BENCHMARK(byteArrayMakeAndRelease)->Name("byte-array/make-release-without-data");

void byteArrayWindow(benchmark::State& state) {
  auto* array = new CByteArray(4096);
  for (auto _ : state) {
    CByteArray* window = nullptr;
    array->GetData(16, 188, &window);
    benchmark::DoNotOptimize(window);
    window->Release();
  }
  array->Release();
}
BENCHMARK(byteArrayWindow)->Name("byte-array/window");

void byteArrayHash(benchmark::State& state) {
  auto* array = new CByteArray(4096);
  array->Clear();
  for (auto _ : state) benchmark::DoNotOptimize(array->GetHashCode());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 4096);
  array->Release();
}
BENCHMARK(byteArrayHash)->Name("byte-array/hash");

}  // namespace
