#pragma once

#include <string>
#include <vector>

namespace zel::tool {

/// Catches what an engine prints on standard error while this object lives: x265 says there, and
/// nowhere else, why it refuses a configuration or changes it. Process-wide, since standard error
/// is; meant for the short time of an engine's set-up.
class EngineLog {
 public:
  EngineLog();
  /// Gives standard error back. Lines that nobody asked for are lost.
  ~EngineLog();
  EngineLog(const EngineLog&) = delete;
  EngineLog& operator=(const EngineLog&) = delete;

  /// Gives standard error back, and returns the lines.
  std::vector<std::string> finish();

 private:
  int saved_ = -1;    // standard error as it was
  int catcher_ = -1;  // what stands in for it
};

/// A line of x265 in its parts: "x265 [warning]: --psnr used" is a warning that says "--psnr used".
struct EngineMessage {
  enum class Level { kError, kWarning, kOther };
  Level level = Level::kOther;
  std::string text;
};
EngineMessage parseEngineLine(const std::string& line);

}  // namespace zel::tool
