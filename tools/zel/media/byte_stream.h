#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

namespace zel::media {

/// Where the readers of this folder take bytes from. Not safe for use by several threads at once.
class ByteSource {
 public:
  virtual ~ByteSource() = default;

  /// Fills `out` as far as it can and returns the count of bytes read. Fewer than asked for means
  /// the end, or a failure, which `error` then tells.
  virtual size_t read(std::span<uint8_t> out) = 0;

  /// Passes over `count` bytes; returns how many there were.
  virtual uint64_t skip(uint64_t count);

  /// One byte, or -1 at the end.
  int readByte();

  /// What went wrong, empty when nothing did. The plain end of the data is no error.
  const std::string& error() const { return error_; }

 protected:
  std::string error_;
};

/// Where the writers put bytes.
class ByteSink {
 public:
  virtual ~ByteSink() = default;

  /// Appends all of `bytes`, or returns false, and `error` says why.
  virtual bool write(std::span<const uint8_t> bytes) = 0;

  /// Whether bytes already written can be changed: a regular file yes, a pipe no.
  virtual bool canPatch() const { return false; }

  /// Overwrites bytes at `offset`, all within what has been written; the end stays where it is.
  virtual bool patch(uint64_t offset, std::span<const uint8_t> bytes);

  /// Sends what is still held back. A full disk may show only here, so callers must ask.
  virtual bool close() { return true; }

  const std::string& error() const { return error_; }

 protected:
  std::string error_;
};

/// Reads bytes that the caller keeps alive.
class MemorySource : public ByteSource {
 public:
  explicit MemorySource(std::span<const uint8_t> bytes) : bytes_(bytes) {}
  size_t read(std::span<uint8_t> out) override;
  uint64_t skip(uint64_t count) override;

 private:
  std::span<const uint8_t> bytes_;
};

/// Collects bytes. With `patchable` false it behaves as a pipe does.
class MemorySink : public ByteSink {
 public:
  explicit MemorySink(bool patchable = true) : patchable_(patchable) {}
  bool write(std::span<const uint8_t> bytes) override;
  bool canPatch() const override { return patchable_; }
  bool patch(uint64_t offset, std::span<const uint8_t> bytes) override;
  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
  bool patchable_;
};

/// A file by path; "-" is standard input.
class FileSource : public ByteSource {
 public:
  /// On failure `error` is set and every read yields nothing.
  explicit FileSource(const std::string& path);
  ~FileSource() override;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;
  size_t read(std::span<uint8_t> out) override;
  uint64_t skip(uint64_t count) override;

 private:
  std::FILE* file_ = nullptr;
  std::string path_;
  bool seekable_ = false;
};

/// A file by path, created or emptied; "-" is standard output.
class FileSink : public ByteSink {
 public:
  /// On failure `error` is set and every write fails.
  explicit FileSink(const std::string& path);
  /// Closes without a report; call `close` where it matters.
  ~FileSink() override;
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;
  bool write(std::span<const uint8_t> bytes) override;
  bool canPatch() const override { return seekable_; }
  bool patch(uint64_t offset, std::span<const uint8_t> bytes) override;
  bool close() override;

 private:
  bool fail(const char* what);

  std::FILE* file_ = nullptr;
  std::string path_;
  bool seekable_ = false;
};

}  // namespace zel::media
