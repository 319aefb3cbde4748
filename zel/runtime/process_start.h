#pragma once

namespace Morvalen::Zel {

/// What has to be there before anything else of the library can be called. The steps, and how to
/// add one, are in process_start.cpp.
class ProcessStart {
 public:
  /// Runs the steps, once in a process; later calls do nothing. The library calls it while it is
  /// loaded, before any of its other static objects is made.
  static void Run();

  /// Whether the step of the root class has been done.
  static bool RootInitialized();
};

}  // namespace Morvalen::Zel
