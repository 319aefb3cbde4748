#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "tools/zel/exit_code.h"

namespace zel::tool {

/// What the user reads: results on standard output, everything else on standard error. Used by one
/// thread.
class Console {
 public:
  /// The streams are borrowed.
  Console(std::FILE* out, std::FILE* err);

  /// The subcommand's name, which every message opens with: "zel: hevc encode: ...".
  void setCommand(std::string name) { command_ = std::move(name); }

  bool json = false;            ///< --json: one document on standard output, no text
  bool quiet = false;           ///< --quiet: no status line and no notes
  bool reportWarnings = false;  ///< --report-warnings: `done` tells of them

  /// Writes to standard output, as it stands. Throws Failure when that fails, ReaderGone when
  /// nobody reads any more.
  void print(std::string_view text);
  /// The document of --json.
  void printJson(const nlohmann::ordered_json& document);
  /// Sends what is held back; the last chance for a full disk to be noticed. Throws as `print`.
  void flush();

  /// Text for the user that is no result, on standard error: silent with --quiet.
  void note(std::string_view text);
  /// Something is odd but the work goes on. Told even with --quiet, and kept for the summary.
  void warn(std::string text);
  /// The one line before exit code 1.
  void fail(std::string_view why);
  /// The lines before exit code 2; the hint names the --help of the subcommand.
  void wrongUsage(std::string_view why);

  /// Rewrites the status line. Shown on a terminal only, and not with --quiet.
  void status(std::string_view text);
  void clearStatus();
  bool showsStatus() const { return errIsTerminal_ && !quiet; }
  /// For tests, which have no terminal.
  void pretendTerminal(bool is) { errIsTerminal_ = is; }

  const std::vector<std::string>& warnings() const { return warnings_; }

  /// The exit code of work that was done.
  ExitCode done() const;

 private:
  void line(std::string_view kind, std::string_view text);

  std::FILE* out_;
  std::FILE* err_;
  bool errIsTerminal_;
  bool statusShown_ = false;
  std::string command_;
  std::vector<std::string> warnings_;
};

/// Whether the stream's file is a terminal.
bool isTerminal(std::FILE* stream);

/// Text of the C library for an error number.
std::string errorText(int number);

}  // namespace zel::tool
