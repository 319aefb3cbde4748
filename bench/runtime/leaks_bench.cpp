// What tracking costs an object's life: creation, one more reference, the end. Without the option
// ZEL_LEAK_HOOKS all modes are the same row.

#include "zel/runtime/leaks.h"

#include <benchmark/benchmark.h>

#include "zel/runtime/debug_output.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {

namespace {

void objectLife(benchmark::State& state) {
  DebugOutput::SetSink([](void*, int32_t, char const*) {}, nullptr);
  CLeaks::Mark(static_cast<int32_t>(state.range(0)), 0);
  for (auto _ : state) {
    auto* text = new CString("text");
    text->Acquire();
    text->Release();
    text->Release();
  }
  CLeaks::ShowLeaksSinceMark(0);
}
BENCHMARK(objectLife)
    ->ArgName("mode")
    ->Arg(CLeaks::Off)
    ->Arg(CLeaks::Object)
    ->Arg(CLeaks::Stack)
    ->Arg(CLeaks::ReferenceCountInfo)
    ->Arg(CLeaks::ReferenceCountStack);

}  // namespace

}  // namespace Morvalen::Zel
