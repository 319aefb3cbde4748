#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/dnxhd/codec_session.h"
#include "tools/zel/dnxhd/compressed_input.h"
#include "tools/zel/dnxhd/frame_range.h"
#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"
#include "tools/zel/subcommands.h"
#include "zel/dnxhd/front_end/avid_compression.h"
#include "zel/dnxhd/front_end/frame_report.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;
using Json = nlohmann::ordered_json;

struct InfoOptions {
  std::string input;
  FrameRange frames;
};

void declareOptions(CLI::App& app, InfoOptions& options) {
  app.add_option("INPUT", options.input, "DNxHD frames; - for standard input")->required();
  addFrameRange(app, options.frames, "look at");
}

// Steps of the quantiser, and how many macroblocks have each.
std::vector<std::pair<uint32_t, uint32_t>> stepsOf(const FrameReport& report) {
  std::vector<std::pair<uint32_t, uint32_t>> steps;
  for (uint32_t q = 0; q < report.quantisers.size(); ++q)
    if (report.quantisers[q] != 0) steps.emplace_back(q, report.quantisers[q]);
  return steps;
}

double meanStep(const FrameReport& report) {
  uint64_t sum = 0;
  for (const auto& [q, count] : stepsOf(report)) sum += uint64_t{q} * count;
  return report.macroblocks == 0 ? 0 : static_cast<double>(sum) / report.macroblocks;
}

std::string nameOf(uint32_t id) {
  const char* const detail = AvidCompression::GetDetail(id);
  return detail == nullptr ? "" : detail;
}

Json streamDocument(const InfoOptions& options, const FrameReport& first) {
  return {{"input", options.input},
          {"id", first.compressionId},
          {"name", nameOf(first.compressionId)},
          {"family", first.familyText},
          {"compression", first.ratioText},
          {"width", first.width},
          {"height", first.lines},
          {"scan", first.scanText},
          {"depth", first.depth},
          {"nominalMegabits", first.nominalMegabits},
          {"frameBytes", first.frameBytes},
          {"pictures", first.pictures}};
}

std::string streamText(const std::string& name, const FrameReport& first) {
  const std::string detail = nameOf(first.compressionId);
  return fmt::format(
      "{}: id {}{}, {}x{} {}, {} bits, {}, {} Mbit/s nominal\n{} bytes a frame, {} {}, {} "
      "macroblocks\n",
      name, first.compressionId, detail.empty() ? "" : " (" + detail + ")", first.width,
      first.lines, first.scanText, first.depth, first.ratioText, first.nominalMegabits,
      first.frameBytes, first.pictures, first.pictures == 1 ? "picture" : "pictures",
      first.macroblocks);
}

Json frameDocument(uint64_t index, const FrameReport& report) {
  Json steps = Json::array();
  for (const auto& [q, count] : stepsOf(report))
    steps.push_back({{"step", q}, {"macroblocks", count}});
  return {{"frame", index},
          {"usedBytes", report.usedBytes},
          {"metadataBytes", report.metadataBytes},
          {"fieldMacroblocks", report.fieldMacroblocks},
          {"meanStep", meanStep(report)},
          {"quantisers", steps}};
}

std::string frameText(uint64_t index, const FrameReport& report) {
  std::string text =
      fmt::format("frame {}: {} bytes used ({:.1f} %), mean step {:.2f};", index, report.usedBytes,
                  100.0 * report.usedBytes / report.frameBytes, meanStep(report));
  if (report.metadataBytes != 0)
    text += fmt::format(" {} bytes of metadata;", report.metadataBytes);
  if (report.fieldMacroblocks != 0)
    text += fmt::format(" {} macroblocks by fields;", report.fieldMacroblocks);
  text += " steps";
  for (const auto& [q, count] : stepsOf(report)) text += fmt::format(" {}:{}", q, count);
  return text + "\n";
}

ExitCode run(const InfoOptions& options, Console& console) {
  CompressedInput input(options.input);
  const std::string name = inputName(options.input);
  input.skip(options.frames.begin);
  Json frames = Json::array();
  Json stream;
  uint64_t seen = 0;
  for (; seen < options.frames.count(); ++seen) {
    const CompressedInput::Read read = input.next();
    if (read == CompressedInput::Read::kEnd) break;
    if (read == CompressedInput::Read::kCutShort) {
      console.warn(fmt::format("{} ends in the midst of frame {}", name, input.index()));
      break;
    }
    auto report = std::make_unique<FrameReport>();
    const int result = ReadFrameReport(input.frame().data(), input.frameBytes(), *report);
    if (result < 0)
      throw Failure(fmt::format("{}: frame {}: {}", name, input.index(), codecResultText(result)));
    if (seen == 0) {
      stream = streamDocument(options, *report);
      if (!console.json) console.print(streamText(name, *report));
    }
    if (console.json)
      frames.push_back(frameDocument(input.index(), *report));
    else
      console.print(frameText(input.index(), *report));
  }
  if (seen == 0) throw Failure(name + " has none of the frames");
  if (console.json) {
    stream["frames"] = frames;
    stream["warnings"] = console.warnings();
    console.printJson(stream);
  }
  return console.done();
}

}  // namespace

Subcommand dnxhdInfoSubcommand() {
  return makeSubcommand<InfoOptions>(
      {"dnxhd",
       "info",
       "[options] INPUT",
       "tell what DNxHD frames are, and how they are quantised",
       "Tells the compression of DNxHD frames, and for each frame the bytes that it uses of its "
       "fixed size and how many macroblocks have each step of the quantiser.",
       {"zel dnxhd info clip.dnxhd", "zel dnxhd info clip.dnxhd --frames :1 --json"}},
      declareOptions, run);
}

}  // namespace zel::tool
