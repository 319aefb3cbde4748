#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/dnxhd/codec_session.h"
#include "tools/zel/dnxhd/compressed_input.h"
#include "tools/zel/dnxhd/frame_range.h"
#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"
#include "tools/zel/progress.h"
#include "tools/zel/subcommands.h"
#include "zel/dnxhd/front_end/frame_report.h"

namespace zel::tool {
namespace {

using Json = nlohmann::ordered_json;

// A file of another kind has a fault in every frame: no need to print them all.
constexpr size_t kMostFaultsPrinted = 20;

struct CheckOptions {
  std::string input;
  FrameRange frames;
};

void declareOptions(CLI::App& app, CheckOptions& options) {
  app.add_option("INPUT", options.input, "DNxHD frames; - for standard input")->required();
  addFrameRange(app, options.frames, "check");
}

struct Fault {
  uint64_t frame;
  int result;  // 0 where there is no word for it
  std::string text;
};

struct Checked {
  uint64_t frames = 0;
  std::vector<Fault> faults;
};

Checked checkAll(const CheckOptions& options, CompressedInput& input, CodecSession& session,
                 Console& console) {
  Checked checked;
  input.skip(options.frames.begin);
  const std::optional<uint64_t> count = input.frameCount();
  Progress progress(console, count ? std::optional(options.frames.countOf(*count)) : std::nullopt);
  while (checked.frames < options.frames.count()) {
    const CompressedInput::Read read = input.next();
    if (read == CompressedInput::Read::kEnd) break;
    ++checked.frames;
    if (read == CompressedInput::Read::kCutShort) {
      checked.faults.push_back(
          {input.index(), 0,
           fmt::format("it is cut short: {} of {} bytes", input.bytesOfCut(), input.frameBytes())});
      break;
    }
    const uint32_t id = Morvalen::Zel::ReadCompressionId(input.frame().data(), input.frameBytes());
    const int result = session.codec().CheckFrame(input.id(), input.frame().data());
    if (result < 0)
      checked.faults.push_back({input.index(), result, codecResultText(result)});
    else if (id != input.id())
      checked.faults.push_back(
          {input.index(), 0,
           fmt::format("its id is {}, that of the first frame {}", id, input.id())});
    progress.update(checked.frames);
  }
  return checked;
}

ExitCode run(const CheckOptions& options, Console& console) {
  CompressedInput input(options.input);
  CodecSession session;
  const std::string name = inputName(options.input);
  const Checked checked = checkAll(options, input, session, console);
  if (checked.frames == 0) throw Failure(name + " has none of the frames");
  if (console.json) {
    Json faults = Json::array();
    for (const Fault& fault : checked.faults)
      faults.push_back({{"frame", fault.frame}, {"result", fault.result}, {"text", fault.text}});
    console.printJson({{"input", options.input},
                       {"id", input.id()},
                       {"frames", checked.frames},
                       {"faults", faults}});
  } else {
    std::string text;
    for (size_t i = 0; i < std::min(checked.faults.size(), kMostFaultsPrinted); ++i)
      text +=
          fmt::format("{}: frame {}: {}\n", name, checked.faults[i].frame, checked.faults[i].text);
    if (checked.faults.size() > kMostFaultsPrinted)
      text += fmt::format("{}: and {} more\n", name, checked.faults.size() - kMostFaultsPrinted);
    if (checked.faults.empty())
      text = fmt::format("{}: {} {} of id {}, no faults\n", name, checked.frames,
                         checked.frames == 1 ? "frame" : "frames", input.id());
    console.print(text);
  }
  if (checked.faults.empty()) return console.done();
  console.fail(fmt::format("{}: {} of {} frames {} faulty", name, checked.faults.size(),
                           checked.frames, checked.faults.size() == 1 ? "is" : "are"));
  return ExitCode::kFailed;
}

}  // namespace

Subcommand dnxhdCheckSubcommand() {
  return makeSubcommand<CheckOptions>(
      {"dnxhd",
       "check",
       "[options] INPUT",
       "check DNxHD frames without decoding them",
       "Reads the headers and every macroblock row of DNxHD frames, without reconstructing a "
       "picture, and tells each frame that a decoder would refuse or that ends in its midst.",
       {"zel dnxhd check clip.dnxhd", "zel dnxhd check clip.dnxhd --frames 0:2 --json"}},
      declareOptions, run);
}

}  // namespace zel::tool
