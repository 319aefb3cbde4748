#pragma once

namespace zel::tool {

/// What the process ends with.
enum class ExitCode : int {
  kDone = 0,
  kFailed = 1,      ///< the work could not be done, or a check found faults; one line said why
  kWrongUsage = 2,  ///< the command line makes no sense; one line said what it should be
  kWarnings = 3,    ///< done, but with warnings, and --report-warnings asked to be told
};

}  // namespace zel::tool
