#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace zel::tool {

/// A file without a name that goes with its owner: for the library's readers and writers, which
/// take a stream that they can go back in, and for bytes that nobody knows yet where to put. What
/// fails (a full disk) throws Failure. Used by one thread.
class TemporaryFile {
 public:
  TemporaryFile();

  std::FILE* get() const { return file_.get(); }

  /// Appends.
  void write(std::span<const uint8_t> bytes);
  void write(std::string_view text);
  /// Back to the start, everything written.
  void rewind();
  /// All there is, from the start, in pieces.
  void readAll(const std::function<void(std::span<const uint8_t>)>& take);
  std::string text();

 private:
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
};

}  // namespace zel::tool
