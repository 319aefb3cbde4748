#include <array>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/dnxhd/ancillary_packet.h"
#include "tools/zel/dnxhd/codec_session.h"
#include "tools/zel/dnxhd/compressed_input.h"
#include "tools/zel/dnxhd/frame_range.h"
#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"
#include "tools/zel/option_values.h"
#include "tools/zel/output_file.h"
#include "tools/zel/progress.h"
#include "tools/zel/subcommands.h"

namespace zel::tool {
namespace {

using Json = nlohmann::ordered_json;

struct MetadataOptions {
  std::string input;
  std::optional<std::string> output;
  std::vector<std::string> packets;
  FrameRange frames;
};

void declareOptions(CLI::App& app, MetadataOptions& options) {
  app.add_option("INPUT", options.input, "DNxHD frames; - for standard input")->required();
  addText(app, "-o,--output", options.output, "FILE",
          "where the frames go with --insert; - for standard output");
  app.add_option("--insert", options.packets,
                 "put a packet of ancillary data into the frames, instead of those that they have: "
                 "its line, its two identifiers and its bytes in hexadecimal, as 9:0x61:0x01:0a0b; "
                 "may be given many times")
      ->type_name("LINE:DID:SDID:HEX")
      ->allow_extra_args(false);
  addFrameRange(app, options.frames, "list, or put into,");
}

void checkOptions(const MetadataOptions& options, const Console& console) {
  if (options.packets.empty() == options.output.has_value())
    throw WrongUsage("--insert and --output go together: both, or neither to list packets");
  if (options.output == "-" && console.json)
    throw WrongUsage("only one of --output - and --json can have standard output");
  if (options.output) refuseTerminal(*options.output, "--output");
}

std::vector<uint8_t> packetBytes(const MetadataOptions& options) {
  std::vector<uint8_t> bytes;
  for (const std::string& text : options.packets) {
    const std::optional<AncillaryPacket> packet = parsePacket(text);
    if (!packet)
      throw WrongUsage(fmt::format(
          "--insert is \"{}\"; it takes a line from 1 to 2047, two identifiers from 0 to "
          "255 and up to 248 bytes in hexadecimal, as 9:0x61:0x01:0a0b",
          text));
    appendPacket(*packet, bytes);
  }
  bytes.push_back(0);  // no marker: the end
  return bytes;
}

ExitCode list(const MetadataOptions& options, Console& console) {
  CompressedInput input(options.input);
  CodecSession session;
  const std::string name = inputName(options.input);
  input.skip(options.frames.begin);
  Json frames = Json::array();
  uint64_t seen = 0;
  for (; seen < options.frames.count() && input.next() == CompressedInput::Read::kFrame; ++seen) {
    std::array<uint8_t, 256> bytes;
    const int result = session.codec().ExtractMetadata(input.frame().data(), bytes.data());
    if (result < 0)
      throw Failure(fmt::format("{}: frame {}: {}", name, input.index(), codecResultText(result)));
    Json packets = Json::array();
    for (const AncillaryPacket& packet : readPackets(bytes)) {
      if (!console.json)
        console.print(fmt::format("frame {}: {}\n", input.index(), packetText(packet)));
      packets.push_back({{"line", packet.line},
                         {"did", packet.did},
                         {"sdid", packet.sdid},
                         {"data", packet.data}});
    }
    if (!packets.empty()) frames.push_back({{"frame", input.index()}, {"packets", packets}});
  }
  if (seen == 0) throw Failure(name + " has none of the frames");
  if (console.json)
    console.printJson({{"input", options.input}, {"frames", seen}, {"withMetadata", frames}});
  else if (frames.empty())
    console.note(
        fmt::format("{}: no metadata in {} {}", name, seen, seen == 1 ? "frame" : "frames"));
  return console.done();
}

ExitCode insert(const MetadataOptions& options, Console& console) {
  const std::vector<uint8_t> packets = packetBytes(options);
  CompressedInput input(options.input);
  CodecSession session;
  const std::string name = inputName(options.input);
  const TakenFile taken[] = {TakenFile::input(options.input)};
  OutputFile output(*options.output, taken);
  Progress progress(console, input.frameCount());
  uint64_t written = 0;
  uint64_t changed = 0;
  for (;;) {
    const CompressedInput::Read read = input.next();
    if (read == CompressedInput::Read::kEnd) break;
    if (read == CompressedInput::Read::kCutShort)
      throw Failure(fmt::format("{} ends in the midst of frame {}", name, input.index()));
    if (input.index() >= options.frames.begin && input.index() < options.frames.end) {
      const int result = session.codec().InsertMetadata(input.frame().data(), packets.data());
      if (result < 0)
        throw Failure(
            fmt::format("{}: frame {}: {}", name, input.index(), codecResultText(result)));
      ++changed;
    }
    output.write(input.frame());
    progress.update(++written);
  }
  output.finish();
  if (console.json)
    console.printJson({{"input", options.input},
                       {"output", *options.output},
                       {"frames", written},
                       {"changed", changed}});
  else
    console.note(fmt::format("{} of {} frames have the metadata", changed, written));
  return console.done();
}

ExitCode run(const MetadataOptions& options, Console& console) {
  checkOptions(options, console);
  return options.packets.empty() ? list(options, console) : insert(options, console);
}

}  // namespace

Subcommand dnxhdMetadataSubcommand() {
  return makeSubcommand<MetadataOptions>(
      {"dnxhd",
       "metadata",
       "[options] INPUT [--insert ... -o OUT.dnxhd]",
       "list the ancillary data of DNxHD frames, or put some in",
       "Lists the ancillary data packets that DNxHD frames carry in their headers; with --insert, "
       "puts packets in and writes the frames anew. A header has room for 255 bytes; interlaced "
       "frames keep those of lines 1 to 563 with their first field, and those from line 565 on "
       "with "
       "the second.",
       {"zel dnxhd metadata clip.dnxhd --insert 9:0x61:0x01:0a0b -o marked.dnxhd",
        "zel dnxhd metadata marked.dnxhd", "zel dnxhd metadata marked.dnxhd --frames 0:1 --json"}},
      declareOptions, run);
}

}  // namespace zel::tool
