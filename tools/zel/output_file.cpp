#include "tools/zel/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <fmt/format.h>

#include "tools/zel/console.h"
#include "tools/zel/failure.h"

namespace zel::tool {

TakenFile::TakenFile(int file, std::string what) : what_(std::move(what)) {
  struct stat status {};
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return;
  known_ = true;
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

TakenFile TakenFile::input(const std::string& path) {
  if (path == "-") return TakenFile(STDIN_FILENO, "the input");
  TakenFile taken("the input");
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return taken;
  taken.known_ = true;
  taken.device_ = status.st_dev;
  taken.inode_ = status.st_ino;
  return taken;
}

OutputFile::OutputFile(const std::string& path, std::span<const TakenFile> taken)
    : name_(path == "-" ? "standard output" : path) {
  // Not emptied before it is known to be nobody else's.
  const int file =
      path == "-" ? dup(STDOUT_FILENO) : open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (file < 0) throw Failure(name_ + ": " + errorText(errno));
  file_ = fdopen(file, "wb");
  struct stat status {};
  if (file_ == nullptr || fstat(file, &status) != 0) {
    const int error = errno;
    file_ != nullptr ? std::fclose(file_) : close(file);
    throw Failure(name_ + ": " + errorText(error));
  }
  isRegular_ = S_ISREG(status.st_mode);
  // Written in whole pages and many at once, a file costs the system a third less than in the sizes
  // that happen to come. A pipe's reader waits for no more than before.
  constexpr size_t kFileBuffer = 256 * 1024;
  if (isRegular_) std::setvbuf(file_, nullptr, _IOFBF, kFileBuffer);
  for (const TakenFile& each : taken) {
    if (!isRegular_ || !each.isSame(status.st_dev, status.st_ino)) continue;
    std::fclose(file_);
    throw WrongUsage(fmt::format("{} is {} itself, which it would overwrite; name another file",
                                 name_, each.what()));
  }
  if (path == "-") return;  // what the shell opened is the shell's
  unfinished_ = std::make_unique<UnfinishedFile>(path, file);
  // A new file isn't cut: some file systems write one that was at once when it's closed.
  if (isRegular_ && status.st_size > 0 && ftruncate(file, 0) != 0) {
    const int error = errno;
    std::fclose(file_);
    throw Failure(name_ + ": " + errorText(error));
  }
}

OutputFile::~OutputFile() {
  if (file_ != nullptr) std::fclose(file_);
}

void OutputFile::check(bool succeeded) const {
  if (succeeded) return;
  if (errno == EPIPE) throw Failure(name_ + " was closed by its reader");
  throw Failure(name_ + ": " + errorText(errno));
}

void OutputFile::write(std::span<const uint8_t> bytes) {
  check(std::fwrite(bytes.data(), 1, bytes.size(), file_) == bytes.size());
  if (!isRegular_) check(std::fflush(file_) == 0);
}

void OutputFile::write(std::string_view text) {
  write(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

void OutputFile::finish() {
  std::FILE* const file = file_;
  file_ = nullptr;
  check(std::fclose(file) == 0);
  finished_ = true;
  if (unfinished_) unfinished_->keep();
}

TakenFile OutputFile::asTaken(const std::string& what) const {
  return TakenFile(fileno(file_), what);
}

void refuseTerminal(const std::string& path, const std::string& option) {
  if (path != "-" || isatty(STDOUT_FILENO) == 0) return;
  throw WrongUsage(option +
                   " - would fill the terminal with binary data; send it to a file or a pipe");
}

}  // namespace zel::tool
