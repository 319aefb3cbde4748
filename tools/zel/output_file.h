#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zel/unfinished_files.h"

namespace zel::tool {

/// A file that must not be written to: one that is read, or written already.
class TakenFile {
 public:
  /// The file at `path`, "-" for standard input. `what` is for the message: "the input".
  static TakenFile input(const std::string& path);
  TakenFile(int file, std::string what);

  /// Regular files only: two ends may well share a terminal or /dev/null.
  bool isSame(dev_t device, ino_t inode) const {
    return known_ && device == device_ && inode == inode_;
  }
  const std::string& what() const { return what_; }

 private:
  explicit TakenFile(std::string what) : what_(std::move(what)) {}

  std::string what_;
  bool known_ = false;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

/// A file that the tool makes: whole, or not at all. What goes away before `finish` takes a regular
/// file with it, and so does a signal; what a pipe or a device got cannot be taken back.
class OutputFile {
 public:
  /// Creates or empties the file at `path`, "-" for standard output. Throws WrongUsage, with every
  /// file as it was, when it is one of `taken`; Failure when it can't be opened.
  OutputFile(const std::string& path, std::span<const TakenFile> taken);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Throws Failure when it can't be written. A pipe gets the bytes at once, since somebody may be
  /// waiting for them.
  void write(std::span<const uint8_t> bytes);
  void write(std::string_view text);

  /// The file is whole. Throws Failure when the last of it can't be written.
  void finish();

  /// Itself, to be kept from another output; `what` is for the message.
  TakenFile asTaken(const std::string& what) const;

  /// Whether a run that fails now leaves a file with the beginning of the data: standard output
  /// that the shell sent to a file can't be removed.
  bool leavesBeginning() const { return isRegular_ && !unfinished_ && !finished_; }

 private:
  void check(bool succeeded) const;

  std::string name_;
  std::FILE* file_ = nullptr;
  bool isRegular_ = false;
  bool finished_ = false;
  std::unique_ptr<UnfinishedFile> unfinished_;
};

/// For data that no terminal can show. Throws WrongUsage when `path` is "-" and standard output is
/// a terminal.
void refuseTerminal(const std::string& path, const std::string& option);

}  // namespace zel::tool
