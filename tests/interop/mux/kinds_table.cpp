#include "tests/interop/mux/kinds_table.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>

#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"

namespace zel::test {
namespace {

constexpr int kPid = 0x101;

// "FrameRate = 25\nRate = 1500000\n" as the tool takes keys: ",FrameRate=25,Rate=1500000".
std::string keysBehindFile(const std::string& lines) {
  std::string keys;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) {
    line.erase(std::remove(line.begin(), line.end(), ' '), line.end());
    keys.append(",").append(line);
  }
  return keys;
}

// The words behind "zel", for a stream at `path`.
std::vector<std::string> arguments(const ElementaryMedia& media, const std::string& path,
                                   const std::string& out) {
  const bool isVideo = std::string(media.section) == "Video";
  const std::string keys = ",PID=0x101" + keysBehindFile(media.keys);
  std::vector<std::string> words = {"mux"};
  // A PCR waits for a packet of its stream, and sound alone has few.
  if (!isVideo) words.insert(words.end(), {"--program", "1,PCRper=40"});
  words.insert(words.end(), {isVideo ? "--video" : "--audio", path + keys, "--rate",
                             isVideo ? "10M" : "1M", "-o", out});
  return words;
}

std::string counted(double value) {
  const std::string digits = std::to_string(static_cast<long long>(value));
  std::string text;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) text.push_back(',');
    text.push_back(digits[i]);
  }
  return text;
}

// The warning without its place, or that there was none.
std::string toldBy(const std::string& said) {
  const size_t begin = said.find("warning: ");
  if (begin == std::string::npos) return "nothing";
  const size_t text = begin + 9;
  return said.substr(text, said.find_first_of("(\n", text) - text);
}

}  // namespace

std::string kindCommand(const ElementaryMedia& media) {
  const std::string name = media.name;
  std::string command = "zel";
  for (const std::string& word : arguments(media, name + ".es", name + ".ts"))
    command += " " + word;
  return command;
}

KindRun runKind(const ElementaryMedia& media, ElementaryMediaShelf& shelf,
                const ScratchFolder& folder, const std::string& zel) {
  KindRun run;
  const std::string path = shelf.file(media);
  const std::string out = folder.file(std::string(media.name) + ".ts");
  const ProgramResult result = runProgram(zel, arguments(media, path, out));
  run.exitCode = result.exitCode;
  run.said = result.output;
  run.source = fileBytes(path);
  const std::vector<uint8_t> bytes = fileBytes(out);
  run.verdict = judgeTransportStream(bytes);
  run.back = elementaryStream(bytes, kPid);
  return run;
}

std::string kindRowBegin(const ElementaryMedia& media) {
  return "| " + std::string(media.name) + " | " + media.program + " | `" + kindCommand(media) +
         "` | ";
}

std::string kindRow(const ElementaryMedia& media, const KindRun& run) {
  const auto stream = std::find_if(run.verdict.streams.begin(), run.verdict.streams.end(),
                                   [](const StreamVerdict& each) { return each.pid == kPid; });
  std::string row = kindRowBegin(media) + std::to_string(run.verdict.findingCount) + " | ";
  if (stream != run.verdict.streams.end()) {
    std::array<char, 32> delay{};
    std::snprintf(delay.data(), delay.size(), "%.3f", stream->peaks.longestDelay);
    row += counted(stream->peaks.elementary) + " of " + counted(stream->limits.elementaryBuffer) +
           " | " + delay.data() + " | ";
  }
  row += std::string(run.back == run.source ? "yes" : "NO") + " | " + toldBy(run.said);
  while (row.back() == ' ') row.pop_back();
  return row + " |";
}

}  // namespace zel::test
