#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/failure.h"
#include "tools/zel/media/wave.h"
#include "tools/zel/media/y4m.h"
#include "tools/zel/option_values.h"
#include "tools/zel/output_file.h"
#include "tools/zel/progress.h"
#include "tools/zel/subcommands.h"
#include "tools/zel/testsrc/instants.h"
#include "tools/zel/testsrc/picture_source.h"
#include "tools/zel/testsrc/sound_source.h"

namespace zel::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kDefaultSeconds = 10;
// More than a year of pictures is a slip of the finger.
constexpr double kMostSeconds = 366.0 * 86400;

// The names of the generator's tables, as the option readers take them.
template <typename Value>
const std::vector<NamedValue>& optionNames(std::span<const testsrc::NamedValue<Value>> (*rows)()) {
  static const std::vector<NamedValue> names = [rows] {
    std::vector<NamedValue> made;
    for (const auto& row : rows()) made.push_back({row.name, static_cast<int32_t>(row.value)});
    return made;
  }();
  return names;
}

constexpr NamedValue kDepths[] = {{"8", 8}, {"10", 10}};
constexpr NamedValue kSampleWidths[] = {{"16", 16}, {"24", 24}, {"32", 32}};

struct TestsrcOptions {
  std::optional<std::string> output;
  std::optional<std::string> audio;
  std::optional<PictureSize> size;
  std::optional<media::Rational> rate;
  std::optional<double> seconds;
  std::optional<int64_t> frames;
  std::optional<int64_t> pattern;
  std::optional<int64_t> chroma;
  std::optional<int64_t> depth;
  std::optional<int64_t> scan;
  std::optional<int64_t> seed;
  bool noMark = false;
  std::optional<int64_t> channels;
  std::optional<int64_t> bits;
  std::optional<int64_t> sampleRate;
  std::optional<int64_t> toneLevel;
};

void declarePictures(CLI::App& app, TestsrcOptions& options) {
  addText(app, "-o,--output", options.output, "FILE",
          "the pictures, as Y4M; - for standard output");
  addName(app, "--pattern", options.pattern, optionNames(testsrc::patternNames),
          "what the pictures show (default motion)");
  const auto takeSize = [&options](const std::string& text) {
    options.size = parsePictureSize(text);
    if (!options.size) throwBadValue("--size", text, "a width and a height, such as 1920x1080");
  };
  app.add_option_function<std::string>("--size", takeSize,
                                       "width and height, 32 to 8192 (default 1280x720)")
      ->type_name("WxH")
      ->take_last();
  const auto takeRate = [&options](const std::string& text) {
    options.rate = media::parseRate(text);
    if (!options.rate)
      throwBadValue("--rate", text, "frames a second, such as 25, 30000/1001 or 29.97");
  };
  app.add_option_function<std::string>("--rate", takeRate, "frames a second (default 30000/1001)")
      ->type_name("N/D")
      ->take_last();
  addNumber(app, "--seconds", options.seconds, {0, kMostSeconds},
            "as many frames as begin within X seconds (default 10)");
  addWholeNumber(app, "--frames", options.frames, {1, std::numeric_limits<int64_t>::max()},
                 "that many frames");
  addName(app, "--chroma", options.chroma, optionNames(testsrc::chromaNames),
          "sampling of colour (default 420)");
  addName(app, "--depth", options.depth, kDepths, "bits of a sample (default 8)");
  addName(app, "--interlaced", options.scan, std::span(optionNames(testsrc::scanNames)).subspan(1),
          "fields half a frame apart: top or bottom field first (default progressive)");
  addWholeNumber(app, "--seed", options.seed, {0, std::numeric_limits<int64_t>::max()},
                 "another number gives other scenes, noise and texts (default 1)");
  app.add_flag("--no-mark", options.noMark,
               "leave out the frame mark: the strip of cells and the flash at the top left");
}

void declareSound(CLI::App& app, TestsrcOptions& options) {
  const char* const group = "Sound";
  addText(app, "--audio", options.audio, "FILE",
          "the sound that belongs to the pictures, as Wave; - for standard output")
      ->group(group);
  addWholeNumber(app, "--channels", options.channels, {1, 16}, "1 to 16 (default 2)")->group(group);
  addName(app, "--audio-bits", options.bits, kSampleWidths, "bits of a sample (default 24)")
      ->group(group);
  addWholeNumber(app, "--audio-rate", options.sampleRate, {8000, 384000},
                 "samples a second (default 48000)")
      ->group(group);
  addWholeNumber(app, "--tone-level", options.toneLevel, {-40, -12},
                 "dB below full scale of the tone of 1000 Hz (default -20)")
      ->group(group);
}

void declareOptions(CLI::App& app, TestsrcOptions& options) {
  declarePictures(app, options);
  declareSound(app, options);
}

// What the generators are asked for.
struct Plan {
  testsrc::PictureOptions pictures;
  testsrc::SoundOptions sound;
  uint64_t frames = 0;
};

uint64_t framesOf(const TestsrcOptions& options, media::Rational rate) {
  if (options.frames) return static_cast<uint64_t>(*options.frames);
  // A frame that begins as the time ends is not within it; the rest covers what a decimal fraction
  // loses as a binary one.
  const double frames =
      options.seconds.value_or(kDefaultSeconds) * rate.numerator / rate.denominator;
  return static_cast<uint64_t>(std::max(1.0, std::ceil(frames - 1e-6)));
}

Plan planOf(const TestsrcOptions& options) {
  Plan plan;
  testsrc::PictureOptions& pictures = plan.pictures;
  if (options.size) {
    pictures.width = static_cast<uint32_t>(options.size->width);
    pictures.height = static_cast<uint32_t>(options.size->height);
  }
  if (options.rate) pictures.rate = *options.rate;
  if (options.pattern) pictures.pattern = static_cast<testsrc::Pattern>(*options.pattern);
  if (options.chroma) pictures.chroma = static_cast<testsrc::Chroma>(*options.chroma);
  if (options.depth) pictures.depth = static_cast<int>(*options.depth);
  if (options.scan) pictures.scan = static_cast<testsrc::Scan>(*options.scan);
  if (options.seed) pictures.seed = static_cast<uint64_t>(*options.seed);
  pictures.mark = !options.noMark;
  if (const std::string fault = testsrc::optionsFault(pictures); !fault.empty())
    throw WrongUsage(fault);

  testsrc::SoundOptions& sound = plan.sound;
  sound.rate = pictures.rate;
  if (options.channels) sound.channels = static_cast<uint32_t>(*options.channels);
  if (options.bits) sound.bits = static_cast<uint32_t>(*options.bits);
  if (options.sampleRate) sound.sampleRate = static_cast<uint32_t>(*options.sampleRate);
  if (options.toneLevel) sound.toneLevel = static_cast<int32_t>(*options.toneLevel);
  if (const std::string fault = testsrc::soundFault(sound); !fault.empty()) throw WrongUsage(fault);
  plan.frames = framesOf(options, pictures.rate);
  if (static_cast<double>(plan.frames) > kMostSeconds * 1000)
    throw WrongUsage(fmt::format("--frames is {}; that is more than a year", plan.frames));
  return plan;
}

void checkOptions(const TestsrcOptions& options, const Console& console) {
  if (!options.output && !options.audio)
    throw WrongUsage("nothing to make: --output FILE takes pictures, --audio FILE sound");
  if (options.frames && options.seconds)
    throw WrongUsage("--frames and --seconds both say how long; give one of them");
  const int onOutput = (options.output == "-" ? 1 : 0) + (options.audio == "-" ? 1 : 0);
  if (onOutput + (console.json ? 1 : 0) > 1)
    throw WrongUsage("only one of --output -, --audio - and --json can have standard output");
  if (options.output) refuseTerminal(*options.output, "--output");
  if (options.audio) refuseTerminal(*options.audio, "--audio");
}

// A file that is whole or not there, as the writers take it.
class FileSink : public media::ByteSink {
 public:
  FileSink(const std::string& path, std::span<const TakenFile> taken) : file_(path, taken) {}

  bool write(std::span<const uint8_t> bytes) override {
    file_.write(bytes);
    bytes_ += bytes.size();
    return true;
  }
  OutputFile& file() { return file_; }
  uint64_t bytes() const { return bytes_; }

 private:
  OutputFile file_;
  uint64_t bytes_ = 0;
};

void require(bool succeeded, const std::string& error) {
  if (!succeeded) throw Failure(error);
}

class PictureOutput {
 public:
  PictureOutput(const std::string& path, const testsrc::PictureOptions& options)
      : sink_(path, {}), writer_(sink_), source_(options), frame_(source_.frameBytes()) {
    require(writer_.writeHeader(source_.header()), writer_.error());
  }

  void write(uint64_t frame) {
    source_.render(frame, frame_);
    require(writer_.writeFrame(frame_), writer_.error());
  }
  FileSink& sink() { return sink_; }

 private:
  FileSink sink_;
  media::Y4mWriter writer_;
  testsrc::PictureSource source_;
  std::vector<uint8_t> frame_;
};

class SoundOutput {
 public:
  SoundOutput(const std::string& path, std::span<const TakenFile> taken, const Plan& plan)
      : channels_(plan.sound.channels), sink_(path, taken), writer_(sink_), source_(plan.sound) {
    const media::WaveFormat format = {channels_, plan.sound.sampleRate, plan.sound.bits, 0,
                                      media::usualChannelMask(channels_)};
    require(writer_.writeHeaderOf(format, source_.samplesOfFrames(plan.frames)), writer_.error());
  }

  // What belongs to a frame: up to the first sample of the next.
  void write(uint64_t frame) {
    const uint64_t first = source_.samplesOfFrames(frame);
    const uint64_t count = source_.samplesOfFrames(frame + 1) - first;
    samples_.resize(static_cast<size_t>(count) * channels_);
    source_.render(first, samples_);
    require(writer_.write(samples_), writer_.error());
  }
  void finish() { require(writer_.finish(), writer_.error()); }
  FileSink& sink() { return sink_; }

 private:
  uint32_t channels_;
  FileSink sink_;
  media::WaveWriter writer_;
  testsrc::SoundSource source_;
  std::vector<int32_t> samples_;
};

struct Outputs {
  std::unique_ptr<PictureOutput> pictures;
  std::unique_ptr<SoundOutput> sound;
};

Outputs openOutputs(const TestsrcOptions& options, const Plan& plan) {
  Outputs outputs;
  std::vector<TakenFile> taken;
  if (options.output) {
    outputs.pictures = std::make_unique<PictureOutput>(*options.output, plan.pictures);
    taken.push_back(outputs.pictures->sink().file().asTaken("the --output file"));
  }
  if (options.audio) {
    outputs.sound = std::make_unique<SoundOutput>(*options.audio, taken, plan);
  }
  return outputs;
}

void makeAll(const Plan& plan, Outputs& outputs, Progress& progress) {
  for (uint64_t frame = 0; frame < plan.frames; ++frame) {
    if (outputs.pictures) outputs.pictures->write(frame);
    if (outputs.sound) outputs.sound->write(frame);
    progress.update(frame + 1);
  }
  if (outputs.sound) outputs.sound->finish();
  if (outputs.pictures) outputs.pictures->sink().file().finish();
  if (outputs.sound) outputs.sound->sink().file().finish();
}

Json documentOf(const TestsrcOptions& options, const Plan& plan, const Outputs& outputs,
                double elapsed) {
  const media::Rational rate = plan.pictures.rate;
  Json document = {
      {"pattern", std::string(testsrc::nameOf(plan.pictures.pattern))},
      {"frames", plan.frames},
      {"rate", {{"numerator", rate.numerator}, {"denominator", rate.denominator}}},
      {"seconds", static_cast<double>(plan.frames) * rate.denominator / rate.numerator},
      {"pictures", nullptr},
      {"sound", nullptr},
      {"elapsedSeconds", elapsed},
      {"framesPerSecond", elapsed > 0 ? static_cast<double>(plan.frames) / elapsed : 0},
  };
  if (outputs.pictures) {
    document["pictures"] = {{"output", *options.output},
                            {"width", plan.pictures.width},
                            {"height", plan.pictures.height},
                            {"depth", plan.pictures.depth},
                            {"bytes", outputs.pictures->sink().bytes()}};
  }
  if (outputs.sound) {
    const testsrc::SoundSource source(plan.sound);
    document["sound"] = {{"output", *options.audio},
                         {"channels", plan.sound.channels},
                         {"bits", plan.sound.bits},
                         {"sampleRate", plan.sound.sampleRate},
                         {"samples", source.samplesOfFrames(plan.frames)},
                         {"bytes", outputs.sound->sink().bytes()}};
  }
  return document;
}

std::string textOf(const Plan& plan, const Outputs& outputs, double elapsed) {
  const media::Rational rate = plan.pictures.rate;
  std::string text = fmt::format("{} {}, {} frames/s", plan.frames,
                                 plan.frames == 1 ? "frame" : "frames", media::toText(rate));
  if (outputs.pictures) {
    text +=
        fmt::format(", {} {}x{}: {} bytes", testsrc::nameOf(plan.pictures.pattern),
                    plan.pictures.width, plan.pictures.height, outputs.pictures->sink().bytes());
  }
  if (outputs.sound) {
    text += fmt::format(", {} {} of {} Hz: {} bytes", plan.sound.channels,
                        plan.sound.channels == 1 ? "channel" : "channels", plan.sound.sampleRate,
                        outputs.sound->sink().bytes());
  }
  const double speed = elapsed > 0 ? static_cast<double>(plan.frames) / elapsed : 0;
  return text + fmt::format(", {:.1f} frames/s in {:.1f} s", speed, elapsed);
}

ExitCode run(const TestsrcOptions& options, Console& console) {
  checkOptions(options, console);
  const Plan plan = planOf(options);
  Outputs outputs = openOutputs(options, plan);
  Progress progress(console, plan.frames);
  try {
    makeAll(plan, outputs, progress);
  } catch (const Failure& failure) {
    const bool begun = (outputs.pictures && outputs.pictures->sink().file().leavesBeginning()) ||
                       (outputs.sound && outputs.sound->sink().file().leavesBeginning());
    if (!begun) throw;
    throw Failure(std::string(failure.what()) + "; the file has only the beginning");
  }
  const double elapsed = progress.seconds();
  console.json ? console.printJson(documentOf(options, plan, outputs, elapsed))
               : console.note(textOf(plan, outputs, elapsed));
  return console.done();
}

}  // namespace

Subcommand testsrcSubcommand() {
  return makeSubcommand<TestsrcOptions>(
      {"testsrc",
       "",
       "[options] [-o OUT.y4m] [--audio OUT.wav]",
       "make test pictures and sound",
       "Makes pictures, and sound that belongs to them, for testing what encodes, carries and "
       "shows "
       "them. The same options give the same bytes on every machine.\n\n"
       "Patterns: bars, colour bars with a time code; zone, a moving zone plate; motion, a mix of "
       "scenes with cuts and fades, camera moves, objects and film grain; noise, random samples; "
       "text, rolling credits and a ticker.\n\n"
       "Every picture has its number in a strip of black and white cells at the top, which "
       "survives "
       "coarse coding. On the first frame of each second the box below the strip flashes, and with "
       "the start of that frame the sound clicks; between the clicks there is a tone. "
       "docs/testsrc.md has the layouts.",
       {"zel testsrc -o bars.y4m --pattern bars --seconds 2",
        "zel testsrc -o motion.y4m --audio motion.wav --size 640x360 --rate 25 --seconds 2",
        "zel testsrc -o field.y4m --chroma 422 --depth 10 --interlaced tff --size 720x576 --rate "
        "25 "
        "--frames 10",
        "zel testsrc -o - --size 320x180 --frames 30 | zel hevc encode - -o test.hevc"}},
      declareOptions, run);
}

}  // namespace zel::tool
