#include <algorithm>
#include <memory>
#include <thread>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/dnxhd/codec_session.h"
#include "tools/zel/dnxhd/compressed_input.h"
#include "tools/zel/dnxhd/form_option.h"
#include "tools/zel/dnxhd/frame_form.h"
#include "tools/zel/dnxhd/frame_range.h"
#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"
#include "tools/zel/media/md5.h"
#include "tools/zel/media/y4m_format.h"
#include "tools/zel/option_values.h"
#include "tools/zel/output_file.h"
#include "tools/zel/progress.h"
#include "tools/zel/subcommands.h"
#include "zel/dnxhd/front_end/comp_info.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;
using Json = nlohmann::ordered_json;

constexpr NamedValue kResolutions[] = {{"full", 1}, {"half", 2}, {"quarter", 4}};
constexpr int32_t kMostThreads = 16;

struct DnxhdDecodeOptions {
  std::string input;
  std::optional<std::string> output;
  const FrameForm* form = nullptr;
  bool thin = false;
  std::optional<int64_t> resolution;
  std::optional<media::Rational> rate;
  bool md5 = false;
  bool keepGoing = false;
  FrameRange frames;
  std::optional<int64_t> threads;
};

void declareOptions(CLI::App& app, DnxhdDecodeOptions& options) {
  app.add_option("INPUT", options.input, "DNxHD frames; - for standard input")->required();
  addText(app, "-o,--output", options.output, "FILE",
          "the frames, as a Y4M stream or, with --format, raw; - for standard output");
  addFrameForm(app, options.form, "raw frames of this form instead of a Y4M stream");
  addName(app, "--resolution", options.resolution, kResolutions,
          "the size of the decoded pictures (default full)");
  app.add_flag("--thin", options.thin,
               "leave the lines of a thin raster as narrow as they are coded");
  const auto takeRate = [&options](const std::string& text) {
    options.rate = media::parseRate(text);
    if (!options.rate)
      throwBadValue("--rate", text, "frames a second, such as 25, 30000/1001 or 29.97");
  };
  app.add_option_function<std::string>(
         "--rate", takeRate,
         "frames a second that the Y4M stream names (default 25): DNxHD frames don't tell")
      ->type_name("N/D")
      ->take_last();
  app.add_flag("--md5", options.md5, "print the MD5 of every frame, as it is in the output");
  app.add_flag("--keep-going", options.keepGoing,
               "warn of frames that can't be decoded, and leave them out, instead of ending");
  addFrameRange(app, options.frames, "decode");
  addWholeNumber(
      app, "--threads", options.threads, {1, kMostThreads},
      "decoder threads, 1 to 16 (default: one a processor); the frames don't depend on it");
}

void checkOptions(const DnxhdDecodeOptions& options, const Console& console) {
  if (!options.output && !options.md5)
    throw WrongUsage("there is nothing to do without --output FILE or --md5");
  const int forOutput = (options.output == "-" ? 1 : 0) + (console.json || options.md5 ? 1 : 0);
  if (forOutput > 1)
    throw WrongUsage("only one of --output -, --md5 and --json can have standard output");
  if (options.output) refuseTerminal(*options.output, "--output");
}

const CompInfo& rowOf(const CompressedInput& input, const std::string& name) {
  const CompInfo* const row = FindCompInfo(input.id());
  if (row == nullptr)
    throw Failure(fmt::format("{} has frames of the test id {}, which has no raster to show", name,
                              input.id()));
  return *row;
}

// A Y4M stream has what the id codes: 4:2:2 or 4:4:4, 8 or 10 bits.
const FrameForm& formFor(const DnxhdDecodeOptions& options, const CompInfo& row) {
  if (options.form != nullptr) return *options.form;
  const bool is444 = row.colorClass == kColorClass444;
  return *formOfY4m(*media::chooseY4mChroma(row.depthClass == 2 ? 10 : 8, is444 ? 0 : 1, 0, 3));
}

UnCompInfo describe(const DnxhdDecodeOptions& options, const FrameForm& form, const CompInfo& row) {
  UnCompInfo record = recordOf(form);
  record.rgbOutput = form.isRgbForCodec() ? 1 : 0;
  record.resolution = static_cast<uint32_t>(options.resolution.value_or(1));
  record.rasterWord = options.thin ? 4 : 1;
  if (row.fieldsPerFrame == 2) {
    record.fieldWord = 32;
    record.fieldLayout = 1;
  }
  return record;
}

std::string y4mHeaderFor(const DnxhdDecodeOptions& options, const FrameForm& form,
                         const CompInfo& row, const BufferRaster& raster) {
  media::Y4mHeader header;
  header.width = raster.width;
  header.height = raster.lines;
  header.rate = options.rate.value_or(media::Rational{25, 1});
  // Square as shown; a thin line has fewer and wider samples.
  const auto resolution = static_cast<uint32_t>(options.resolution.value_or(1));
  const uint32_t fullWidth = row.width / resolution;
  header.aspect = media::reduced({fullWidth, raster.width});
  header.interlace =
      row.fieldsPerFrame == 2 ? media::Y4mInterlace::kTopFirst : media::Y4mInterlace::kProgressive;
  header.chroma = y4mOfForm(form);
  header.range = media::Y4mRange::kLimited;
  return media::y4mHeaderLine(header);
}

struct FrameDigest {
  uint64_t frame;
  std::string md5;
};

struct Decoded {
  uint64_t frames = 0;
  uint64_t faulty = 0;
  std::vector<FrameDigest> digests;
};

// What stands between the codec and the output.
class FrameSink {
 public:
  FrameSink(const DnxhdDecodeOptions& options, const FrameForm& form, const BufferRaster& raster,
            OutputFile* output, Console& console)
      : options_(options),
        form_(form),
        raster_(raster),
        output_(output),
        console_(console),
        file_(form.layout == FrameForm::Layout::kPacked
                  ? 0
                  : fileFrameBytes(form, raster.width, raster.lines)) {}

  void take(uint64_t index, std::span<const uint8_t> buffer, Decoded& decoded) {
    std::span<const uint8_t> frame = buffer;
    if (form_.layout != FrameForm::Layout::kPacked) {
      unpackFromCodec(form_, raster_.width, raster_.lines, buffer, file_.bytes());
      frame = file_.bytes();
    }
    if (output_ != nullptr) {
      if (options_.form == nullptr) output_->write(std::string_view("FRAME\n"));
      output_->write(frame);
    }
    if (!options_.md5) return;
    decoded.digests.push_back({index, media::md5Of(frame)});
    if (!console_.json) console_.print(fmt::format("{} {}\n", index, decoded.digests.back().md5));
  }

 private:
  const DnxhdDecodeOptions& options_;
  const FrameForm& form_;
  const BufferRaster& raster_;
  OutputFile* output_;
  Console& console_;
  FrameBuffer file_;
};

Decoded decodeAll(const DnxhdDecodeOptions& options, CompressedInput& input, CodecSession& session,
                  std::span<uint8_t> buffer, FrameSink& sink, Progress& progress,
                  Console& console) {
  const std::string name = inputName(options.input);
  Decoded decoded;
  input.skip(options.frames.begin);
  while (decoded.frames + decoded.faulty < options.frames.count()) {
    const CompressedInput::Read read = input.next();
    if (read == CompressedInput::Read::kEnd) break;
    if (read == CompressedInput::Read::kCutShort) {
      console.warn(fmt::format("{} ends in the midst of frame {}", name, input.index()));
      break;
    }
    const int result = session.decode(input.frame(), buffer);
    if (result < 0) {
      const std::string why = fmt::format("{}: frame {} can't be decoded: {}", name, input.index(),
                                          codecResultText(result));
      if (!options.keepGoing) throw Failure(why);
      console.warn(why);
      ++decoded.faulty;
      continue;
    }
    sink.take(input.index(), buffer, decoded);
    ++decoded.frames;
    progress.update(decoded.frames);
  }
  if (decoded.frames + decoded.faulty == 0) throw Failure(name + " has none of the frames");
  return decoded;
}

int32_t threadsFor(const DnxhdDecodeOptions& options) {
  const auto processors = static_cast<int64_t>(std::thread::hardware_concurrency());
  return static_cast<int32_t>(
      options.threads.value_or(std::clamp<int64_t>(processors, 1, kMostThreads)));
}

Json documentOf(const DnxhdDecodeOptions& options, const FrameForm& form, uint32_t id,
                const BufferRaster& raster, const Decoded& decoded, double seconds,
                const Console& console) {
  Json document = {
      {"input", options.input},
      {"output", options.output ? Json(*options.output) : Json(nullptr)},
      {"id", id},
      {"format", form.name},
      {"width", raster.width},
      {"height", raster.lines},
      {"frames", decoded.frames},
      {"faulty", decoded.faulty},
      {"elapsedSeconds", seconds},
      {"framesPerSecond", seconds > 0 ? static_cast<double>(decoded.frames) / seconds : 0.0}};
  if (options.md5) {
    Json digests = Json::array();
    for (const FrameDigest& digest : decoded.digests)
      digests.push_back({{"frame", digest.frame}, {"md5", digest.md5}});
    document["md5"] = digests;
  }
  document["warnings"] = console.warnings();
  return document;
}

ExitCode run(const DnxhdDecodeOptions& options, Console& console) {
  checkOptions(options, console);
  CompressedInput input(options.input);
  const std::string name = inputName(options.input);
  const CompInfo& row = rowOf(input, name);
  const FrameForm& form = formFor(options, row);
  const UnCompInfo record = describe(options, form, row);
  BufferRaster raster;
  if (const int result = GetBufferRaster(input.id(), record, raster); result < 0)
    throw Failure(codecResultText(result));
  CodecSession session;
  session.setUpDecoder(input.id(), record, threadsFor(options));

  std::unique_ptr<OutputFile> output;
  if (options.output) {
    const TakenFile taken[] = {TakenFile::input(options.input)};
    output = std::make_unique<OutputFile>(*options.output, taken);
  }
  const std::optional<uint64_t> count = input.frameCount();
  Progress progress(console, count ? std::optional(options.frames.countOf(*count)) : std::nullopt);
  Decoded decoded;
  try {
    if (output && options.form == nullptr) output->write(y4mHeaderFor(options, form, row, raster));
    const FrameBuffer buffer(raster.bufferBytes);
    // Bytes that no pixel lies in, at the ends of V210 lines, are the same in every run.
    std::ranges::fill(buffer.bytes(), uint8_t{0});
    FrameSink sink(options, form, raster, output.get(), console);
    decoded = decodeAll(options, input, session, buffer.bytes(), sink, progress, console);
    if (output) output->finish();
  } catch (const Failure& failure) {
    if (!output || !output->leavesBeginning()) throw;
    throw Failure(std::string(failure.what()) + "; the file has only the beginning of the frames");
  }
  const double seconds = progress.seconds();
  if (console.json)
    console.printJson(documentOf(options, form, input.id(), raster, decoded, seconds, console));
  else
    console.note(
        fmt::format("{} {}, {}x{} {}, {:.1f} frames/s in {:.1f} s", decoded.frames,
                    decoded.frames == 1 ? "frame" : "frames", raster.width, raster.lines, form.name,
                    seconds > 0 ? static_cast<double>(decoded.frames) / seconds : 0.0, seconds));
  return console.done();
}

}  // namespace

Subcommand dnxhdDecodeSubcommand() {
  return makeSubcommand<DnxhdDecodeOptions>(
      {"dnxhd",
       "decode",
       "[options] INPUT -o OUT.y4m",
       "decode DNxHD frames",
       "Decodes DNxHD frames (VC-3, SMPTE ST 2019-1) to a Y4M stream or to raw frames, at full, "
       "half "
       "or quarter size. Thin rasters are stretched to their full width.",
       {"zel dnxhd decode clip.dnxhd -o decoded.y4m", "zel dnxhd decode clip.dnxhd --md5",
        "zel dnxhd decode clip.dnxhd --format v210 --frames :2 -o clip.v210",
        "zel dnxhd decode clip.dnxhd --resolution quarter -o small.y4m --json"}},
      declareOptions, run);
}

}  // namespace zel::tool
