#include <algorithm>
#include <chrono>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"
#include "tools/zel/mux/mux_options.h"
#include "tools/zel/mux/mux_run.h"
#include "tools/zel/mux/read_configuration.h"
#include "tools/zel/mux/summary.h"
#include "tools/zel/mux/trace_file.h"
#include "tools/zel/output_file.h"
#include "tools/zel/progress.h"
#include "tools/zel/subcommands.h"
#include "tools/zel/temporary_file.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;
using Clock = std::chrono::steady_clock;

// Each pass gives the streams that were late more room; one that still is after this many never
// gets enough.
constexpr int kMostPasses = 8;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void checkOptions(const MuxOptions& options, const Console& console) {
  if (!options.output && !options.config && !options.saveConfig)
    throw WrongUsage("option --output is missing: the transport stream; - for standard output");
  if (options.config && !options.pieces().empty())
    throw WrongUsage("--config already says what the streams are; leave it or the streams away");
  if (!options.config && options.pieces().empty())
    throw WrongUsage("there is nothing to multiplex: name streams, or a configuration by --config");
  if (options.twoPass && options.trace)
    throw WrongUsage("--trace tells of one pass; leave --two-pass away");
  const int onOutput = (options.output == "-" ? 1 : 0) + (options.trace == "-" ? 1 : 0) +
                       (options.saveConfig == "-" ? 1 : 0) + (console.json ? 1 : 0);
  if (onOutput > 1)
    throw WrongUsage(
        "only one of --output -, --trace -, --save-config - and --json can have standard output");
  if (options.output) refuseTerminal(*options.output, "--output");
}

std::string configurationOf(const MuxOptions& options) {
  if (!options.config) return configurationText(planOf(options));
  return withTransportKeys(contentsOf(*options.config), transportKeysOf(options));
}

void addFiles(const TarnArray& files, std::vector<std::string>& paths) {
  for (int32_t i = 0; i < files.count; ++i) paths.emplace_back(tarn_array_text(&files, i));
}

template <class Record, size_t slots>
void addFiles(Record* const (&records)[slots], std::vector<std::string>& paths) {
  for (const Record* record : records)
    if (record != nullptr) addFiles(record->files, paths);
}

std::vector<std::string> inputsOf(const tsm_config& config) {
  std::vector<std::string> paths;
  addFiles(config.data, paths);
  addFiles(config.table, paths);
  for (const tsm_program* program = config.programs; program != nullptr; program = program->next) {
    addFiles(program->video, paths);
    addFiles(program->audio, paths);
    addFiles(program->data, paths);
    addFiles(program->table, paths);
    addFiles(program->lpcm, paths);
    addFiles(program->privateStream, paths);
    addFiles(program->scte35, paths);
    for (const tsm_smpte302m* record : program->smpte302m) {
      if (record == nullptr) continue;
      for (const TarnArray& pair : record->pairFiles) addFiles(pair, paths);
    }
  }
  return paths;
}

struct Outputs {
  std::vector<TakenFile> taken;
  std::unique_ptr<OutputFile> trace;
  std::unique_ptr<OutputFile> stream;

  void openStream(const std::string& path) {
    stream = std::make_unique<OutputFile>(path, taken);
    taken.push_back(stream->asTaken("the --output file"));
  }
  void openTrace(const std::string& path) {
    trace = std::make_unique<OutputFile>(path, taken);
    taken.push_back(trace->asTaken("the --trace file"));
  }
};

class Status {
 public:
  explicit Status(Console& console) : console_(console) {}
  ~Status() { console_.clearStatus(); }
  Status(const Status&) = delete;
  Status& operator=(const Status&) = delete;

  void update(const tsm_stats& stats, int32_t rate) {
    const Clock::time_point now = Clock::now();
    if (!console_.showsStatus() || now < next_) return;
    next_ = now + std::chrono::milliseconds(100);
    const double done = static_cast<double>(stats.packetsCounted) * 1504 / std::max(rate, 1);
    const double spent = std::max(secondsSince(start_), 1e-3);
    console_.status(fmt::format("{} packets, {} of the stream at {} bit/s, {:.0f} times real time",
                                grouped(stats.packetsCounted), durationText(done), grouped(rate),
                                done / spent));
  }

 private:
  Console& console_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point next_ = start_;
};

std::string failureOf(const MuxResult& result) {
  if (!result.messages.failure().empty()) return result.messages.failure();
  // StopOnWarning: the last kind of warning is the one that stopped it.
  if (!result.messages.groups().empty()) return toText(result.messages.groups().back());
  return "the multiplexer could not start";
}

void tellWarnings(const MuxResult& result, Console& console) {
  for (const MessageGroup& group : result.messages.groups())
    if (!group.first.isFatal) console.warn(toText(group));
}

// What stopped in the midst of a stream leaves whole packets, which may be looked at.
[[noreturn]] void failWith(const MuxResult& result, int64_t written, Outputs& outputs) {
  const std::string why = failureOf(result);
  if (written == 0 || outputs.stream == nullptr) throw Failure(why);
  outputs.stream->finish();
  throw Failure(fmt::format("{}; the output has the {} packets before it", why,
                            grouped(written / std::max(result.stats.packetSize, 1))));
}

ExitCode run(const MuxOptions& options, Console& console) {
  checkOptions(options, console);
  const std::string text = configurationOf(options);
  std::vector<std::string> warnings;
  const Configuration config = options.config
                                   ? rightConfiguration<Failure>(text, *options.config, warnings)
                                   : rightConfiguration<WrongUsage>(text, "the options", warnings);
  for (const std::string& each : warnings) console.warn(each);

  Outputs outputs;
  for (const std::string& each : inputsOf(*config)) outputs.taken.push_back(TakenFile::input(each));
  if (options.config) outputs.taken.push_back(TakenFile::input(*options.config));
  if (options.saveConfig) {
    OutputFile file(*options.saveConfig, outputs.taken);
    file.write(text);
    outputs.taken.push_back(file.asTaken("the --save-config file"));
    file.finish();
    if (!options.output) return console.done();
  }
  if (!options.output && config->files.count == 0)
    throw WrongUsage(fmt::format("{} names no output file; give one by --output", *options.config));

  if (options.output) outputs.openStream(*options.output);
  if (options.trace) outputs.openTrace(*options.trace);

  const Clock::time_point start = Clock::now();
  Status status(console);
  // What a pass wrote while nobody knows whether it is the last.
  std::unique_ptr<TemporaryFile> held;
  int64_t written = 0;
  MuxSink sink;
  sink.progress = [&](const tsm_stats& stats, int32_t rate) { status.update(stats, rate); };
  if (outputs.stream != nullptr) {
    sink.write = [&](std::span<const uint8_t> bytes) {
      held != nullptr ? held->write(bytes) : outputs.stream->write(bytes);
      written += static_cast<int64_t>(bytes.size());
    };
  }
  if (outputs.trace != nullptr)
    sink.trace = [&](const tsm_trace_event& event) { outputs.trace->write(traceRow(event)); };

  MuxResult result;
  int passes = 0;
  while (true) {
    ++passes;
    if (options.twoPass && sink.write) held = std::make_unique<TemporaryFile>();
    if (outputs.trace != nullptr) outputs.trace->write(traceTitles());
    result = multiplex(*config, sink);
    if (!result.done) break;
    if (!options.twoPass) break;
    const NextPass next = prepareNextPass(result, *config);
    if (!next.needed) break;
    if (!next.possible || passes == kMostPasses) {
      tellWarnings(result, console);
      throw Failure(fmt::format(
          "decoders still underflow after {} {}; leave --two-pass away, or raise --rate", passes,
          passes == 1 ? "pass" : "passes"));
    }
  }
  tellWarnings(result, console);
  if (!result.done) failWith(result, held != nullptr ? 0 : written, outputs);
  if (held != nullptr)
    held->readAll([&](std::span<const uint8_t> bytes) { outputs.stream->write(bytes); });
  if (outputs.stream != nullptr) outputs.stream->finish();
  if (outputs.trace != nullptr) outputs.trace->finish();

  const std::string name =
      options.output ? *options.output : std::string(tarn_array_text(&config->files, 0));
  const MuxSummary summary{result, name, passes, secondsSince(start)};
  console.json ? console.printJson(toJson(summary)) : console.note(toText(summary));
  return console.done();
}

}  // namespace

Subcommand muxSubcommand() {
  return makeSubcommand<MuxOptions>(
      {"mux",
       "",
       "[options] INPUT... -o OUT.ts",
       "multiplex elementary streams into a transport stream",
       "Multiplexes elementary streams into an MPEG-2 transport stream (ISO/IEC 13818-1) at a "
       "constant or variable rate. The decoders' buffers are simulated packet by packet: what "
       "comes "
       "out holds their limits, and a rate that is too low is told.",
       {"zel mux clip.hevc clip.mp2 -o clip.ts",
        "zel mux --audio clip.mp2,PID=0x101 --rate 2M --trace sound.csv -o sound.ts",
        "zel mux --program 1 clip.mp2 --program 2,PMTPID=0x200 clip.mp2 -o two.ts --json",
        "zel mux clip.mp2 --set PATtsid=7 --save-config sound.cfg",
        "zel mux --config sound.cfg --rate 1M -o sound.ts"}},
      declareMuxOptions, run);
}

}  // namespace zel::tool
