#pragma once

#include <stdexcept>

namespace zel::tool {

/// The work can't be done. The text is one line that says why, without the tool's name and without
/// a full stop: "clip.y4m: No such file or directory".
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The command line makes no sense. The text says what was wrong and what it should be; the hint to
/// --help is added where it is printed.
class WrongUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Whoever reads our standard output has closed it. For a listing that is no failure: the reader
/// has seen what it wanted (`zel keys | head`). What it is for others, they say as a `Failure`.
class ReaderGone : public std::runtime_error {
 public:
  ReaderGone() : std::runtime_error("standard output was closed by its reader") {}
};

}  // namespace zel::tool
