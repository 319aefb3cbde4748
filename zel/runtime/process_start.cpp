// Process start: the steps that static start-up runs, in their order, before any exported function
// can be called. The order is part of the interface:
//
//   1. class locks of front ends
//   2. the root class
//   3. the leak tracker's instance
//   4. the encodings
//
// To add a step, write a function `void Start...()` beside the thing that it makes, declare it in
// that thing's header, and put its row in the table. The steps run before the library's other
// static objects are constructed. So a step may rely on constants, on `constinit` objects and on
// function local statics, and it stores what it makes in a `constinit` pointer, which nothing
// initialises again behind it. What steps make lives until the process ends: nothing is destroyed,
// so that other modules may use it in their own static destructors.

#include "zel/runtime/process_start.h"

#include <pthread.h>

#include <cstdlib>
#include <ctime>

#include "zel/runtime/encoding.h"
#include "zel/runtime/leak_hooks.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

namespace {

struct StartStep {
  char const* name;
  void (*run)();
};

}  // namespace

constinit bool CDependenciesObjectVS2012::initialized = false;

void CDependenciesObjectVS2012::Initialize() {
  auto const thread = static_cast<uint64_t>(pthread_self());
  std::srand(static_cast<unsigned>(std::time(nullptr)) + static_cast<unsigned>(thread));
  initialized = true;
}

void ProcessStart::Run() {
  static constexpr StartStep kSteps[] = {
      {"root class", &CDependenciesObjectVS2012::Initialize},
      {"leak tracker", &StartLeakTracker},
      {"encodings", &CEncoding::Start},
  };
  static constinit bool done = false;
  if (done) return;
  done = true;
  for (StartStep const& step : kSteps) step.run();
}

bool ProcessStart::RootInitialized() {
  return CDependenciesObjectVS2012::initialized;
}

}  // namespace Morvalen::Zel
