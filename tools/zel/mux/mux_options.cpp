#include "tools/zel/mux/mux_options.h"

#include <map>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "tools/zel/media/byte_stream.h"
#include "tools/zel/option_values.h"
#include "zel/mux/engine/input/stream_content.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;

constexpr char kProgram[] = "--program";
constexpr char kOperand[] = "INPUT";
constexpr char kNoProgram[] = "none";

struct StreamOption {
  const char* name;  // the long name, which pieces have
  const char* names;
  const char* section;
  bool belongsAnywhere;  // may stand outside programs
  const char* help;
};
constexpr StreamOption kStreamOptions[] = {
    {"--video", "--video", "Video", false,
     "a video elementary stream: MPEG-1, MPEG-2, MPEG-4 part 2, AVC or HEVC"},
    {"--audio", "--audio", "Audio", false,
     "an audio elementary stream: MPEG audio, AAC in ADTS or LATM, AC-3, E-AC-3 or DTS"},
    {"--smpte302m", "--smpte302m,--pcm", "SMPTE302M", false,
     "PCM as SMPTE 302M: a Wave file, or raw samples laid out as the keys say"},
    {"--lpcm", "--lpcm", "LPCM", false, "PCM as LPCM"},
    {"--data", "--data", "Data", true, "packets that are ready made; needs Rate"},
    {"--table", "--table", "TableData", true,
     "sections: an XML file, or bytes in Table1=, Table2= and so on"},
    {"--private", "--private", "PrivateStream1Data", false, "a private stream of PES packets"},
    {"--scte35", "--scte35", "Scte35Data", false, "splice information"},
};

struct ContentSection {
  tsm_content content;
  const char* section;
};
constexpr ContentSection kContentSections[] = {
    {tsm_content::mpeg1_video, "Video"}, {tsm_content::mpeg2_video, "Video"},
    {tsm_content::mpeg4_video, "Video"}, {tsm_content::avc, "Video"},
    {tsm_content::hevc, "Video"},        {tsm_content::mpeg_audio, "Audio"},
    {tsm_content::adts, "Audio"},        {tsm_content::latm, "Audio"},
    {tsm_content::ac3, "Audio"},         {tsm_content::eac3, "Audio"},
    {tsm_content::dts, "Audio"},         {tsm_content::wave, "SMPTE302M"},
    {tsm_content::xml, "TableData"},
};

tsm_content contentOf(const std::string& path) {
  if (path == "-") throw Failure("standard input: streams are read from files");
  media::FileSource file(path);
  std::vector<uint8_t> bytes(tsm_content_bytes);
  bytes.resize(file.read(bytes));
  if (!file.error().empty()) throw Failure(file.error());
  return tsm_recognise(bytes);
}

// The file of an operand, whose keys can't be checked before its section is known.
std::string fileOf(std::string_view argument) {
  std::string file(argument.substr(0, argument.find(',')));
  for (size_t comma = argument.find(','); comma != std::string_view::npos;) {
    const size_t next = argument.find(',', comma + 1);
    const std::string_view piece = argument.substr(comma + 1, next - comma - 1);
    if (piece.find('=') != std::string_view::npos) break;
    file += "," + std::string(piece);
    comma = next;
  }
  return file;
}

const char* sectionOfOperand(const std::string& argument) {
  const std::string file = fileOf(argument);
  const tsm_content content = contentOf(file);
  for (const ContentSection& each : kContentSections)
    if (each.content == content) return each.section;
  if (content == tsm_content::transport_stream || content == tsm_content::program_stream)
    throw WrongUsage(fmt::format(
        "{} is {}; name the stream to take out of it: --video {},SourceTSPID=PID, or by "
        "SourceStreamID",
        file, tsm_content_name(content), file));
  throw WrongUsage(
      fmt::format("{} holds {}; give it by the option of its kind: --video, --audio, --smpte302m, "
                  "--lpcm, --data, --table",
                  file, tsm_content_name(content)));
}

PlannedProgram programOf(const std::string& value) {
  const tsm_config_section& section = sectionNamed("Program");
  const StreamArgument argument = parseStreamArgument(section, value, kProgram);
  const auto number = parseWholeNumber(argument.file);
  constexpr int64_t kMost = 65535;
  if (!number || *number < 1 || *number > kMost)
    throw WrongUsage(fmt::format("--program is \"{}\"; it takes a number from 1 to 65535, or none",
                                 argument.file));
  return {std::to_string(*number), argument.keys, {}};
}

// Where streams go that come next.
class PlanMaker {
 public:
  void enter(const std::string& value) {
    outside_ = value == kNoProgram;
    if (outside_) return;
    PlannedProgram program = programOf(value);
    for (size_t i = 0; i < plan_.programs.size(); ++i) {
      PlannedProgram& known = plan_.programs[i];
      if (known.number != program.number) continue;
      known.keys.insert(known.keys.end(), program.keys.begin(), program.keys.end());
      current_ = i;
      return;
    }
    current_ = plan_.programs.size();
    plan_.programs.push_back(std::move(program));
  }

  void add(const char* sectionName, const std::string& value, const std::string& option) {
    const tsm_config_section& section = sectionNamed(sectionName);
    const StreamArgument argument = parseStreamArgument(section, value, option);
    PlannedStream stream{sectionName, keysOf(section, argument)};
    if (outside_) {
      if (!mayBeOutside(sectionName))
        throw WrongUsage(
            fmt::format("{} {}: only data and tables can be of no program; name one by --program",
                        option, value));
      plan_.streams.push_back(std::move(stream));
      return;
    }
    if (plan_.programs.empty()) plan_.programs.emplace_back();
    plan_.programs[current_].streams.push_back(std::move(stream));
  }

  MultiplexPlan plan() && { return std::move(plan_); }

 private:
  static bool mayBeOutside(std::string_view section) {
    for (const StreamOption& each : kStreamOptions)
      if (each.section == section) return each.belongsAnywhere;
    return false;
  }

  MultiplexPlan plan_;
  size_t current_ = 0;
  bool outside_ = false;
};

}  // namespace

std::vector<MuxOptions::Piece> MuxOptions::pieces() const {
  std::vector<Piece> pieces;
  std::map<const CLI::Option*, size_t> taken;
  for (const CLI::Option* option : app->parse_order()) {
    const size_t place = taken[option]++;
    const std::string name = option->get_positional() ? kOperand : "--" + option->get_lnames()[0];
    bool isPiece = name == kOperand || name == kProgram;
    for (const StreamOption& each : kStreamOptions) isPiece |= name == each.name;
    if (isPiece) pieces.push_back({name, option->results().at(place)});
  }
  return pieces;
}

void declareMuxOptions(CLI::App& app, MuxOptions& options) {
  options.app = &app;
  app.add_option("INPUT", options.inputs,
                 "FILE[,KEY=VALUE...]: an elementary stream, a Wave file or an XML file of tables; "
                 "its kind is seen from its content");
  addText(app, "-o,--output", options.output, "FILE",
          "the transport stream; - for standard output");
  addText(app, "--config", options.config, "FILE",
          "take programs and streams from this configuration, instead of from options");
  addBits(app, "--rate", options.rate, 1,
          "rate of the transport stream, such as 8M; without it, what the streams need");
  const auto addMany = [&app](const std::string& names, std::vector<std::string>& target,
                              const char* type, const std::string& help) {
    return app.add_option(names, target, help)->type_name(type)->allow_extra_args(false);
  };
  addMany("--set", options.settings, "KEY=VALUE",
          "any key of the transport level (zel config keys); may be given many times");
  app.add_flag("--two-pass", options.twoPass,
               "where a video decoder would underflow, multiplex again with more room for it");
  addText(app, "--save-config", options.saveConfig, "FILE",
          "write what the options ask for as a configuration; without --output, do only that");
  addText(app, "--trace", options.trace, "FILE",
          "write a CSV table of all packets: time, PID, kind, level of the decoder's buffer; - for "
          "standard output");

  const char* const group =
      "Streams, each FILE[,KEY=VALUE...] with keys of its section (zel config "
      "keys)";
  addMany(kProgram, options.streams, "NUMBER[,KEY=VALUE...]",
          "the streams that follow belong to this program; none: data and tables of no program")
      ->group(group);
  for (const StreamOption& each : kStreamOptions)
    addMany(each.names, options.streams, "FILE[,KEY=VALUE...]", each.help)->group(group);
}

std::vector<KeyValue> transportKeysOf(const MuxOptions& options) {
  std::vector<KeyValue> keys;
  if (options.output && *options.output != "-") keys.push_back({"File", *options.output});
  if (options.rate) keys.push_back({"Rate", std::to_string(*options.rate)});
  const tsm_config_section& section = sectionNamed("Transport");
  for (const std::string& each : options.settings)
    keys.push_back(parseKeyValue(section, each, "--set"));
  return keys;
}

MultiplexPlan planOf(const MuxOptions& options) {
  PlanMaker maker;
  for (const MuxOptions::Piece& piece : options.pieces()) {
    if (piece.option == kProgram) {
      maker.enter(piece.value);
    } else if (piece.option == kOperand) {
      maker.add(sectionOfOperand(piece.value), piece.value, kOperand);
    } else {
      for (const StreamOption& each : kStreamOptions)
        if (piece.option == each.name) maker.add(each.section, piece.value, piece.option);
    }
  }
  MultiplexPlan plan = std::move(maker).plan();
  plan.transport = transportKeysOf(options);
  return plan;
}

}  // namespace zel::tool
