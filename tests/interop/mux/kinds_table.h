#pragma once

#include <string>

#include "tests/support/elementary_media.h"
#include "tests/support/transport_judge/transport_judge.h"

namespace zel::test {

/// One kind of stream through the tool as a user calls it, and what the judge says of it. The page
/// docs/multiplexed-kinds.md is made of these rows, and the test holds it against them.

/// "zel mux --video mpeg2_b.es,PID=0x101 --rate 10M -o mpeg2_b.ts"
std::string kindCommand(const ElementaryMedia& media);

struct KindRun {
  int exitCode = -1;
  std::string said;  // by the tool, warnings and errors
  Verdict verdict;
  std::vector<uint8_t> source;  // the elementary stream
  std::vector<uint8_t> back;    // the same out of the transport stream
};
/// Runs the command with `zel`, the tool's path, in `folder`.
KindRun runKind(const ElementaryMedia& media, ElementaryMediaShelf& shelf,
                const ScratchFolder& folder, const std::string& zel);

/// The beginning of a row of the page, up to the command; and the whole.
std::string kindRowBegin(const ElementaryMedia& media);
std::string kindRow(const ElementaryMedia& media, const KindRun& run);

}  // namespace zel::test
