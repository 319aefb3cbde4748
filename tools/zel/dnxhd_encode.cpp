#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/dnxhd/codec_session.h"
#include "tools/zel/dnxhd/compressed_input.h"
#include "tools/zel/dnxhd/form_option.h"
#include "tools/zel/dnxhd/frame_input.h"
#include "tools/zel/dnxhd/frame_range.h"
#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"
#include "tools/zel/option_values.h"
#include "tools/zel/output_file.h"
#include "tools/zel/progress.h"
#include "tools/zel/subcommands.h"
#include "zel/dnxhd/front_end/comp_info.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;
using Json = nlohmann::ordered_json;

// A fixed number: the encoder cuts a frame into as many jobs as there are threads, rounded down to
// a power of two, and each keeps to its share of the bits.
constexpr int32_t kDefaultThreads = 2;

struct DnxhdEncodeOptions {
  std::string input;
  std::string output;
  std::optional<int64_t> id;
  const FrameForm* form = nullptr;
  std::optional<PictureSize> size;
  FrameRange frames;
  std::optional<int64_t> threads;
  bool tentFilter = false;
};

void declareOptions(CLI::App& app, DnxhdEncodeOptions& options) {
  app.add_option(
         "INPUT", options.input,
         "frames: a Y4M file of 4:2:2 or 4:4:4, or raw ones with --format and --size; - for "
         "standard input")
      ->required();
  app.add_option("-o,--output", options.output, "the DNxHD frames; - for standard output")
      ->type_name("FILE")
      ->required();
  addWholeNumber(app, "--id", options.id, {1, 65535}, "the compression id, as zel dnxhd ids lists")
      ->required();
  addFrameForm(app, options.form, "INPUT has raw frames of this form");
  const auto takeSize = [&options](const std::string& text) {
    options.size = parsePictureSize(text);
    if (!options.size) throwBadValue("--size", text, "a width and a height, such as 1920x1080");
  };
  app.add_option_function<std::string>("--size", takeSize, "INPUT has raw frames of this size")
      ->type_name("WxH")
      ->take_last();
  addFrameRange(app, options.frames, "encode");
  addWholeNumber(
      app, "--threads", options.threads, {1, 8},
      fmt::format("encoder threads, 1 to 8 (default {}); the frames depend on it, rounded "
                  "down to a power of two",
                  kDefaultThreads));
  app.add_flag("--tent-filter", options.tentFilter,
               "make chroma of RGB frames with a filter over three pixels instead of two");
}

void checkOptions(const DnxhdEncodeOptions& options) {
  if ((options.form != nullptr) != options.size.has_value())
    throw WrongUsage("--format and --size go together: raw frames need both, Y4M needs neither");
  refuseTerminal(options.output, "--output");
}

const CompInfo& rowOf(int64_t id) {
  const CompInfo* const row = FindCompInfo(static_cast<uint32_t>(id));
  if (row == nullptr)
    throw WrongUsage(
        fmt::format("--id {} can't be encoded; zel dnxhd ids lists those that can", id));
  return *row;
}

// Frames have the id's full raster, or the width that its thin raster is coded with.
UnCompInfo describe(const std::string& name, const FrameInput& input, const CompInfo& row) {
  UnCompInfo record = recordOf(input.form());
  const uint32_t lines = row.lines * row.fieldsPerFrame;
  const bool full = input.width() == row.width;
  if (input.height() != lines || (!full && input.width() != row.rasterWidth)) {
    const std::string thin =
        row.rasterWidth != row.width ? fmt::format(" or {}x{}", row.rasterWidth, lines) : "";
    throw Failure(fmt::format("{} is {}x{}; frames of id {} are {}x{}{}", name, input.width(),
                              input.height(), row.compressionId, row.width, lines, thin));
  }
  if (row.colorClass == kColorClass444 && !input.form().isRgbForCodec())
    throw Failure(fmt::format("{} is 4:2:2; id {} takes 4:4:4 and RGB", name, row.compressionId));
  record.rasterWord = full ? 1 : 4;
  if (row.fieldsPerFrame == 2) {
    record.fieldWord = 32;
    record.fieldLayout = 1;
  }
  return record;
}

void warnOfScan(const std::string& name, const FrameInput& input, const CompInfo& row,
                Console& console) {
  using media::Y4mInterlace;
  const bool fields = row.fieldsPerFrame == 2;
  if (fields && input.interlace() == Y4mInterlace::kProgressive)
    console.warn(fmt::format("{} is progressive; id {} codes its frames as fields", name,
                             row.compressionId));
  if (fields && input.interlace() == Y4mInterlace::kBottomFirst)
    console.warn(fmt::format("{} has the bottom field first; the top one is coded first", name));
  const bool interlaced = input.interlace() == Y4mInterlace::kTopFirst ||
                          input.interlace() == Y4mInterlace::kBottomFirst ||
                          input.interlace() == Y4mInterlace::kMixed;
  if (!fields && interlaced)
    console.warn(fmt::format("{} is interlaced; id {} codes its frames as progressive ones", name,
                             row.compressionId));
}

struct Encoded {
  uint64_t frames = 0;
  uint64_t bytes = 0;
};

Encoded encodeAll(const DnxhdEncodeOptions& options, FrameInput& input, const CompInfo& row,
                  CodecSession& session, OutputFile& output, Progress& progress, Console& console) {
  const std::string name = inputName(options.input);
  const bool direct = input.form().layout == FrameForm::Layout::kPacked;
  const FrameBuffer file(input.frameBytes());
  BufferRaster raster;
  GetBufferRaster(row.compressionId, describe(name, input, row), raster);
  const FrameBuffer packed(direct ? 0 : raster.bufferBytes);
  const FrameBuffer frame(row.frameBytes);

  Encoded encoded;
  if (!input.skip(options.frames.begin)) return encoded;
  while (encoded.frames < options.frames.count()) {
    const FrameInput::Read read = input.read(file.bytes());
    if (read == FrameInput::Read::kEnd) break;
    if (read == FrameInput::Read::kCutShort) {
      console.warn(fmt::format("{} ends in the midst of frame {}", name,
                               options.frames.begin + encoded.frames));
      break;
    }
    if (!direct)
      packForCodec(input.form(), input.width(), input.height(), file.bytes(), packed.bytes());
    const int result = session.encode(direct ? file.bytes() : packed.bytes(), frame.bytes());
    if (result < 0)
      throw Failure(fmt::format("frame {} can't be encoded: {}",
                                options.frames.begin + encoded.frames, codecResultText(result)));
    output.write(frame.bytes());
    ++encoded.frames;
    encoded.bytes += row.frameBytes;
    progress.update(encoded.frames);
  }
  return encoded;
}

ExitCode run(const DnxhdEncodeOptions& options, Console& console) {
  checkOptions(options);
  if (options.output == "-" && console.json)
    throw WrongUsage("only one of --output - and --json can have standard output");
  const CompInfo& row = rowOf(*options.id);
  const std::string name = inputName(options.input);
  const std::unique_ptr<FrameInput> input = openFrames(options.input, options.form, options.size);
  const UnCompInfo record = describe(name, *input, row);
  warnOfScan(name, *input, row, console);
  CodecSession session;
  constexpr uint32_t kTentFilter = 3;
  session.codec().SetParameter(kTentFilter, options.tentFilter ? 1 : 0);
  session.setUpEncoder(row.compressionId, record,
                       static_cast<int32_t>(options.threads.value_or(kDefaultThreads)));

  const TakenFile taken[] = {TakenFile::input(options.input)};
  OutputFile output(options.output, taken);
  const std::optional<uint64_t> count = input->frameCount();
  Progress progress(console, count ? std::optional(options.frames.countOf(*count)) : std::nullopt);
  Encoded encoded;
  try {
    encoded = encodeAll(options, *input, row, session, output, progress, console);
    if (encoded.frames == 0) throw Failure(name + " has none of the frames");
    output.finish();
  } catch (const Failure& failure) {
    if (!output.leavesBeginning()) throw;
    throw Failure(std::string(failure.what()) + "; the file has only the beginning of the frames");
  }
  const double seconds = progress.seconds();
  const double rate = seconds > 0 ? static_cast<double>(encoded.frames) / seconds : 0;
  if (console.json)
    console.printJson({{"input", options.input},
                       {"output", options.output},
                       {"id", row.compressionId},
                       {"format", input->form().name},
                       {"width", input->width()},
                       {"height", input->height()},
                       {"frames", encoded.frames},
                       {"bytes", encoded.bytes},
                       {"elapsedSeconds", seconds},
                       {"framesPerSecond", rate},
                       {"warnings", console.warnings()}});
  else
    console.note(fmt::format("{} {}, {}x{}, id {}: {} bytes, {:.1f} frames/s in {:.1f} s",
                             encoded.frames, encoded.frames == 1 ? "frame" : "frames",
                             input->width(), input->height(), row.compressionId, encoded.bytes,
                             rate, seconds));
  return console.done();
}

}  // namespace

Subcommand dnxhdEncodeSubcommand() {
  return makeSubcommand<DnxhdEncodeOptions>(
      {"dnxhd",
       "encode",
       "[options] INPUT --id N -o OUT.dnxhd",
       "encode frames to DNxHD",
       "Encodes frames to DNxHD (VC-3, SMPTE ST 2019-1), each into the bytes that its id fixes. "
       "Frames have the id's full raster, or for a thin one its coded width; the fields of an "
       "interlaced frame lie line by line. Parts of a clip that were encoded with --frames and the "
       "same --threads, put one behind the other, are byte for byte what the whole would be.",
       {"zel dnxhd encode hd.y4m --id 1252 -o clip.dnxhd",
        "zel dnxhd encode hd.y4m --id 1251 --frames 2:4 --threads 4 -o part2.dnxhd --json",
        "zel testsrc -o - --size 1280x720 --chroma 422 --depth 10 --frames 2 | zel dnxhd encode - "
        "--id 1250 -o hq.dnxhd",
        "zel dnxhd decode clip.dnxhd --format uyvy -o - | zel dnxhd encode - --format uyvy --size "
        "1280x720 --id 1258 -o thin.dnxhd"}},
      declareOptions, run);
}

}  // namespace zel::tool
