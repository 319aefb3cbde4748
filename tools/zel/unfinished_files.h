#pragma once

#include <sys/types.h>

#include <string>

namespace zel::tool {

/// The files that are being written. Whatever ends the work before they are whole (an error, or a
/// signal) removes them, so that no half of a file is ever taken for the whole.

/// A file among them. Regular files only are ever removed: a pipe or a device stays.
class UnfinishedFile {
 public:
  /// `path` names the file that the descriptor `file` is open on.
  UnfinishedFile(const std::string& path, int file);
  /// Removes the file, unless `keep` was called.
  ~UnfinishedFile();
  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;

  /// The file is whole.
  void keep();

 private:
  int slot_ = -1;  // -1: not to be removed
};

/// From here on SIGINT, SIGTERM and SIGHUP remove the unfinished files, and then end the process as
/// the signal does by default, so that a shell sees it. SIGPIPE and SIGXFSZ are ignored: a write
/// tells of them.
void removeUnfinishedFilesOnSignals();

}  // namespace zel::tool
