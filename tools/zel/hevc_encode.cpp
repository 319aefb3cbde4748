#include <algorithm>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/failure.h"
#include "tools/zel/hevc/encode_run.h"
#include "tools/zel/hevc/picture_input.h"
#include "tools/zel/hevc/property_argument.h"
#include "tools/zel/hevc/rate_control.h"
#include "tools/zel/hevc/timing_file.h"
#include "tools/zel/input_path.h"
#include "tools/zel/output_file.h"
#include "tools/zel/progress.h"
#include "tools/zel/subcommands.h"
#include "zel/runtime/property_keys.h"

namespace zel::tool {
namespace {

using Json = nlohmann::ordered_json;
using Keys = Morvalen::Zel::CodeBookProperty;

// x265 by itself takes the number of pictures in work from the machine's processors, and that
// number changes the stream. A fixed one gives the same pictures on every machine.
constexpr int32_t kDefaultThreads = 3;

// The encoder takes command lines of less than 2048 bytes.
constexpr size_t kLongestCommandLine = 2047;

struct HevcEncodeOptions {
  std::string input;
  std::string output;
  std::optional<PictureSize> size;
  std::optional<media::Rational> rate;
  std::optional<int64_t> frames;
  std::optional<std::string> timing;
  std::optional<int64_t> threads;
  std::optional<std::string> commandLine;
  std::vector<EncoderProperty> settings;  // of the options in encoder_settings.h
  RateControlOptions rateControl;
  std::vector<std::string> properties;  // --property, as typed
};

void declareInput(CLI::App& app, HevcEncodeOptions& options) {
  app.add_option(
         "INPUT", options.input,
         "pictures, planar 4:2:0 of 8 bits: a Y4M file, or raw ones with --size and --rate; "
         "- for standard input")
      ->required();
  app.add_option("-o,--output", options.output, "the HEVC byte stream; - for standard output")
      ->type_name("FILE")
      ->required();
  const auto takeSize = [&options](const std::string& text) {
    options.size = parsePictureSize(text);
    if (!options.size) throwBadValue("--size", text, "a width and a height, such as 1920x1080");
  };
  app.add_option_function<std::string>("--size", takeSize, "INPUT has raw pictures of this size")
      ->type_name("WxH")
      ->take_last();
  const auto takeRate = [&options](const std::string& text) {
    options.rate = media::parseRate(text);
    if (!options.rate)
      throwBadValue("--rate", text, "frames a second, such as 25, 30000/1001 or 29.97");
  };
  app.add_option_function<std::string>(
         "--rate", takeRate, "frames a second, such as 30000/1001; instead of what INPUT says")
      ->type_name("N/D")
      ->take_last();
  addWholeNumber(app, "--frames", options.frames, {1, std::numeric_limits<int64_t>::max()},
                 "stop after N pictures of INPUT");
  addText(app, "--timing", options.timing, "FILE",
          "write a CSV table of the access units: times, size, type; - for standard output");
  addWholeNumber(app, "--threads", options.threads, {0, 16},
                 fmt::format("pictures in work at a time, 1 to 16 (default {}); 0 leaves it to the "
                             "machine's number of processors, and so does the stream",
                             kDefaultThreads));
}

void declareOptions(CLI::App& app, HevcEncodeOptions& options) {
  declareInput(app, options);
  addEncoderSettings(app, options.settings);
  addRateControlOptions(app, options.rateControl);
  app.add_option(
         "--property", options.properties,
         "set any property key, after the options above: KEY=VALUE for the keys that the "
         "encoder reads (zel keys x265), KEY=TYPE:VALUE for any, where TYPE is bool, u8, i16, "
         "u16, i32, u32, i64, u64, f32, f64, four, text or hex; may be given many times")
      ->type_name("KEY=VALUE")
      ->group("For the encoder as it stands")
      ->allow_extra_args(false);
  addText(app, "--command-line", options.commandLine, "TEXT",
          "x265 options, as \"--no-sao --psy-rd 1.5\"; they have the last word, and those that are "
          "not known are ignored. With a decoder's buffer, \"--wpp\" codes rows side by side: "
          "faster on many cores, but the bytes may differ from run to run")
      ->group("For the encoder as it stands");
}

// What the input says that the encoder can be told, as x265 options; and what it can't.

std::string signalOptions(const PictureFormat& format) {
  std::string text;
  if (format.aspect.known())
    text += fmt::format(" --sar {}:{}", format.aspect.numerator, format.aspect.denominator);
  if (format.range == media::Y4mRange::kFull) text += " --range full";
  if (format.range == media::Y4mRange::kLimited) text += " --range limited";
  // Where the chroma samples lie, by ITU-T H.265, Figure E.1. "420jpeg" is also what tools write
  // that know nothing of it, and is no reason to deny what a decoder assumes.
  if (format.chroma == "420mpeg2") text += " --chromaloc 0";
  if (format.chroma == "420paldv") text += " --chromaloc 2";
  return text;
}

std::string interlaceName(media::Y4mInterlace interlace) {
  switch (interlace) {
    case media::Y4mInterlace::kTopFirst:
      return "interlaced, top field first";
    case media::Y4mInterlace::kBottomFirst:
      return "interlaced, bottom field first";
    case media::Y4mInterlace::kMixed:
      return "partly interlaced";
    default:
      return {};
  }
}

struct Files {
  std::unique_ptr<OutputFile> stream;
  std::unique_ptr<OutputFile> timing;
};

Files openOutputs(const HevcEncodeOptions& options) {
  std::vector<TakenFile> taken = {TakenFile::input(options.input)};
  Files files;
  files.stream = std::make_unique<OutputFile>(options.output, taken);
  if (!options.timing) return files;
  taken.push_back(files.stream->asTaken("the --output file"));
  files.timing = std::make_unique<OutputFile>(*options.timing, taken);
  files.timing->write(timingTitles());
  return files;
}

// Before anything is read.
void checkOptions(const HevcEncodeOptions& options, const Console& console) {
  const bool streamOnOutput = options.output == "-";
  const bool timingOnOutput = options.timing == "-";
  if ((streamOnOutput ? 1 : 0) + (timingOnOutput ? 1 : 0) + (console.json ? 1 : 0) > 1)
    throw WrongUsage("only one of --output -, --timing - and --json can have standard output");
  refuseTerminal(options.output, "--output");
  if (options.size && !options.rate)
    throw WrongUsage("--size needs --rate too: raw pictures don't say how many make a second");
}

media::Rational rateOf(const HevcEncodeOptions& options, const PictureFormat& format) {
  if (options.rate) return *options.rate;
  if (format.rate.known()) return format.rate;
  throw Failure(inputName(options.input) + " doesn't tell its frame rate; give it by --rate");
}

bool setsDecoderBuffer(const EncoderProperty& property) {
  return property.key == Keys::X265BufferDelay || property.key == Keys::X265VBVBufferSize;
}

std::string commandLineFor(const HevcEncodeOptions& options, const PictureFormat& format,
                           bool hasDecoderBuffer) {
  std::string text = "--log-level warning" + signalOptions(format);
  // Under a decoder's buffer x265 corrects its quantiser within a picture by what the rows have
  // cost so far, which is a matter of timing while rows are coded side by side. One after the
  // other, the same pictures give the same bytes. A --wpp of the user's comes later and wins.
  if (hasDecoderBuffer) text += " --no-wpp";
  if (options.commandLine) text += " " + *options.commandLine;
  if (text.size() > kLongestCommandLine)
    throw WrongUsage(
        fmt::format("--command-line is {} bytes too long", text.size() - kLongestCommandLine));
  return text;
}

EncoderSetup setupFor(const HevcEncodeOptions& options, const PictureFormat& format) {
  const media::Rational rate = rateOf(options, format);
  RateControl rateControl = resolveRateControl(options.rateControl);
  EncoderSetup setup;
  setup.width = static_cast<int32_t>(format.width);
  setup.height = static_cast<int32_t>(format.height);
  setup.frameDuration = rate.denominator;
  setup.timeScale = rate.numerator;
  setup.threads = static_cast<int32_t>(options.threads.value_or(kDefaultThreads));
  setup.bitRate = rateControl.bitRate;

  const auto append = [&setup](std::vector<EncoderProperty> properties) {
    std::move(properties.begin(), properties.end(), std::back_inserter(setup.properties));
  };
  constexpr int32_t kMedium = 5;
  append({{Keys::X265Preset, propertyBytes(kMedium)}});
  append(options.settings);
  append(std::move(rateControl.properties));
  std::vector<EncoderProperty> asTyped;
  for (const std::string& argument : options.properties)
    asTyped.push_back(parsePropertyArgument(argument));
  const bool hasDecoderBuffer =
      std::any_of(setup.properties.begin(), setup.properties.end(), setsDecoderBuffer) ||
      std::any_of(asTyped.begin(), asTyped.end(), setsDecoderBuffer) ||
      (options.commandLine && options.commandLine->find("--vbv-bufsize") != std::string::npos);
  const std::string commandLine = commandLineFor(options, format, hasDecoderBuffer);
  append({{Keys::X265CommandLine, {commandLine.begin(), commandLine.end()}}});
  append(std::move(asTyped));
  return setup;
}

struct Summary {
  const HevcEncodeOptions& options;
  const PictureInput& input;
  const EncoderSetup& setup;
  const EncodeRun& run;
  double elapsedSeconds;

  double durationSeconds() const {
    return static_cast<double>(run.accessUnitsOut()) * static_cast<double>(setup.frameDuration) /
           static_cast<double>(setup.timeScale);
  }
  double bitRate() const { return static_cast<double>(run.bytesOut()) * 8 / durationSeconds(); }
  double framesPerSecond() const {
    return elapsedSeconds > 0 ? static_cast<double>(run.accessUnitsOut()) / elapsedSeconds : 0;
  }
};

Json aspectDocument(media::Rational aspect) {
  if (!aspect.known()) return nullptr;
  return {{"numerator", aspect.numerator}, {"denominator", aspect.denominator}};
}

Json documentOf(const Summary& summary, const Console& console) {
  const PictureFormat& format = summary.input.format();
  return {{"input", summary.options.input},
          {"output", summary.options.output},
          {"container", summary.input.container()},
          {"width", format.width},
          {"height", format.height},
          {"rate",
           {{"numerator", summary.setup.timeScale}, {"denominator", summary.setup.frameDuration}}},
          {"aspect", aspectDocument(format.aspect)},
          {"frames", summary.run.accessUnitsOut()},
          {"independent", summary.run.independentOut()},
          {"bytes", summary.run.bytesOut()},
          {"seconds", summary.durationSeconds()},
          {"bitRate", summary.bitRate()},
          {"elapsedSeconds", summary.elapsedSeconds},
          {"framesPerSecond", summary.framesPerSecond()},
          {"warnings", console.warnings()}};
}

std::string textOf(const Summary& summary) {
  const PictureFormat& format = summary.input.format();
  const media::Rational rate{static_cast<uint32_t>(summary.setup.timeScale),
                             static_cast<uint32_t>(summary.setup.frameDuration)};
  return fmt::format(
      "{} {}, {}x{}, {} frames/s: {} bytes, {:.1f} kbit/s, {:.1f} frames/s in {:.1f} s",
      summary.run.accessUnitsOut(), summary.run.accessUnitsOut() == 1 ? "frame" : "frames",
      format.width, format.height, media::toText(media::reduced(rate)), summary.run.bytesOut(),
      summary.bitRate() / 1000, summary.framesPerSecond(), summary.elapsedSeconds);
}

void warnOfInput(const std::string& name, const PictureFormat& format, Console& console) {
  if (const std::string interlace = interlaceName(format.interlace); !interlace.empty())
    console.warn(
        fmt::format("{} is {}; its pictures are encoded as progressive frames", name, interlace));
}

void warnOfCut(const std::string& name, const EncodeRun& run, Console& console) {
  console.warn(fmt::format("{} ends in the midst of frame {}; the {} before it {} encoded", name,
                           run.picturesIn() + 1, run.picturesIn(),
                           run.picturesIn() == 1 ? "is" : "are"));
}

std::optional<uint64_t> expectedFrames(const HevcEncodeOptions& options,
                                       const PictureInput& input) {
  const std::optional<uint64_t> count = input.pictureCount();
  if (!options.frames) return count;
  const auto wanted = static_cast<uint64_t>(*options.frames);
  return count ? std::min(*count, wanted) : wanted;
}

// From the first picture, which is in `picture`, to the last access unit. Reading is not put on a
// thread of its own: it takes 0.2 ms for a picture of 1280x720 that the fastest preset encodes in
// 10 ms, and x265's threads go on meanwhile.
void encodeAll(const HevcEncodeOptions& options, PictureInput& input, std::span<uint8_t> picture,
               EncodeRun& encodeRun, Progress& progress, Console& console) {
  const auto wanted =
      static_cast<uint64_t>(options.frames.value_or(std::numeric_limits<int64_t>::max()));
  ReadResult result = ReadResult::kFrame;
  while (result == ReadResult::kFrame) {
    encodeRun.encode(picture);
    progress.update(encodeRun.accessUnitsOut());
    if (encodeRun.picturesIn() == wanted) break;
    result = input.read(picture);
  }
  if (result == ReadResult::kCutShort) warnOfCut(inputName(options.input), encodeRun, console);
  encodeRun.drain();
}

void readFirst(const std::string& name, PictureInput& input, std::span<uint8_t> picture) {
  switch (input.read(picture)) {
    case ReadResult::kFrame:
      return;
    case ReadResult::kEnd:
      throw Failure(name + " has no frames");
    case ReadResult::kCutShort:
      throw Failure(fmt::format("{} ends in the midst of its first frame, which takes {} bytes",
                                name, picture.size()));
  }
}

ExitCode run(const HevcEncodeOptions& options, Console& console) {
  checkOptions(options, console);
  resolveRateControl(options.rateControl);
  const std::unique_ptr<PictureInput> input = openPictures(options.input, options.size);
  const EncoderSetup setup = setupFor(options, input->format());
  // Not filled: a header of a few bytes can ask for a gigabyte, and only data makes it real.
  const size_t pictureBytes = input->format().frameBytes();
  const auto pictureMemory = std::make_unique_for_overwrite<uint8_t[]>(pictureBytes);
  const std::span<uint8_t> picture(pictureMemory.get(), pictureBytes);
  readFirst(inputName(options.input), *input, picture);
  warnOfInput(inputName(options.input), input->format(), console);

  // The outputs are made when the encoder has accepted everything: a mistake before costs no file.
  Files files;
  EncodedSink sink;
  sink.takeHeaders = [&files](std::span<const uint8_t> headers) { files.stream->write(headers); };
  sink.takeAccessUnit = [&](std::span<const uint8_t> accessUnit, const AccessUnitTiming& timing) {
    files.stream->write(accessUnit);
    if (files.timing) files.timing->write(timingRow(timing, setup.timeScale));
  };
  EncodeRun encodeRun(setup, sink);
  encodeRun.begin();
  for (const std::string& warning : encodeRun.warnings()) console.warn("x265: " + warning);
  for (const std::string& remark : encodeRun.remarks()) console.note("x265: " + remark);
  files = openOutputs(options);

  Progress progress(console, expectedFrames(options, *input));
  try {
    encodeAll(options, *input, picture, encodeRun, progress, console);
    files.stream->finish();
    if (files.timing) files.timing->finish();
  } catch (const Failure& failure) {
    if (!files.stream->leavesBeginning()) throw;
    throw Failure(std::string(failure.what()) + "; the file has only the beginning of the stream");
  }

  const Summary summary{options, *input, setup, encodeRun, progress.seconds()};
  console.json ? console.printJson(documentOf(summary, console)) : console.note(textOf(summary));
  return console.done();
}

}  // namespace

Subcommand hevcEncodeSubcommand() {
  return makeSubcommand<HevcEncodeOptions>(
      {"hevc",
       "encode",
       "[options] INPUT -o OUT.hevc",
       "encode pictures to an HEVC stream",
       "Encodes pictures to an HEVC byte stream (ITU-T H.265, Annex B) with x265. What a Y4M input "
       "says of its sample aspect, range and chroma position goes into the stream.",
       {"zel hevc encode clip.y4m -o clip.hevc",
        "zel hevc encode clip.y4m -o clip.hevc --preset fast --crf 22 --timing clip.csv",
        "zel hevc encode clip.y4m -o clip.hevc --rate-control cbr --bitrate 2M --hrd --json",
        "zel hevc encode clip.yuv --size 320x180 --rate 25 -o - | ffprobe -hide_banner -",
        "cat clip.y4m | zel hevc encode - -o clip.hevc --command-line \"--no-sao --psy-rd 1.5\""}},
      declareOptions, run);
}

}  // namespace zel::tool
