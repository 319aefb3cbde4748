#pragma once

#include <string>
#include <vector>

namespace zel::test {

/// The full path of a program that PATH finds, empty where there is none. Tests against
/// independent programs skip, and say so, without it:
///   if (programPath("ffmpeg").empty()) GTEST_SKIP() << "ffmpeg is not installed";
std::string programPath(const std::string& name);

struct ProgramResult {
  int exitCode = -1;   // -1: could not be started, or ended by a signal
  std::string output;  // standard output and standard error, as they came
};

/// Runs a program with these arguments (no shell in between) to its end.
ProgramResult runProgram(const std::string& path, const std::vector<std::string>& arguments);

/// A new folder, removed with everything in it at the end of the scope.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace zel::test
