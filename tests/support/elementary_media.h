#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "tests/support/external_program.h"

namespace zel::test {

/// An elementary stream that an independent encoder makes, and how an independent demultiplexer is
/// to give it back.
struct ElementaryMedia {
  const char* name;  ///< "avc_mbaff"; a test's name too
  const char* program;
  /// With {out} for the file to be made, {in} for pictures as Y4M where the program takes those,
  /// {seconds} and {frames}.
  const char* arguments;
  const char* section;       ///< of a configuration: "Video"
  const char* warning = "";  ///< what the multiplexer has to say of it, of its message
  const char* keys = "";     ///< lines that its section needs
};

/// Every kind that these encoders write.
std::span<const ElementaryMedia> allElementaryMedia();
const ElementaryMedia* findElementaryMedia(const std::string& name);

/// Makes the stream in `folder`, and gives its path. Empty: the program isn't installed. Throws
/// std::runtime_error with the program's output when it fails. `seconds` at 25 pictures a second.
std::string makeElementaryMedia(const ElementaryMedia& media, const std::string& folder,
                                int seconds);

/// Streams that are made when they are first asked for, and then kept.
class ElementaryMediaShelf {
 public:
  explicit ElementaryMediaShelf(int seconds) : seconds_(seconds) {}
  /// As makeElementaryMedia().
  const std::string& file(const ElementaryMedia& media);

 private:
  int seconds_;
  ScratchFolder folder_;
  std::map<std::string, std::string> made_;
};

}  // namespace zel::test
