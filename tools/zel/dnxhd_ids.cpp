#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/subcommands.h"
#include "zel/dnxhd/front_end/avid_compression.h"
#include "zel/dnxhd/front_end/comp_info.h"

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;
using Json = nlohmann::ordered_json;

struct IdsOptions {};

void declareOptions(CLI::App&, IdsOptions&) {}

std::string samplingOf(const CompInfo& row) {
  return row.colorClass == kColorClass444 ? "4:4:4" : "4:2:2";
}

int depthOf(const CompInfo& row) {
  return row.depthClass == 2 ? 10 : 8;
}

std::string scanOf(const CompInfo& row) {
  return row.fieldsPerFrame == 2 ? "interlaced" : "progressive";
}

std::string nameOf(const CompInfo& row) {
  const char* const detail = AvidCompression::GetDetail(row.compressionId);
  return detail == nullptr ? row.name : detail;
}

ExitCode run(const IdsOptions&, Console& console) {
  Json document = Json::array();
  std::string text =
      fmt::format("{:<5} {:<22} {:<10} {:<6} {:<12} {:<8} {:<5} {:>8} {:>7}\n", "id", "name",
                  "size", "coded", "scan", "sampling", "depth", "bytes", "Mbit/s");
  for (const CompInfo& row : kCompInfos) {
    const uint32_t lines = row.lines * row.fieldsPerFrame;
    text += fmt::format("{:<5} {:<22} {:<10} {:<6} {:<12} {:<8} {:<5} {:>8} {:>7}\n",
                        row.compressionId, nameOf(row), fmt::format("{}x{}", row.width, lines),
                        row.rasterWidth, scanOf(row), samplingOf(row), depthOf(row), row.frameBytes,
                        row.bitRate / 1000000);
    document.push_back({{"id", row.compressionId},
                        {"name", nameOf(row)},
                        {"width", row.width},
                        {"height", lines},
                        {"codedWidth", row.rasterWidth},
                        {"scan", scanOf(row)},
                        {"sampling", samplingOf(row)},
                        {"depth", depthOf(row)},
                        {"frameBytes", row.frameBytes},
                        {"bitRate", row.bitRate}});
  }
  if (console.json)
    console.printJson(document);
  else
    console.print(text);
  return console.done();
}

}  // namespace

Subcommand dnxhdIdsSubcommand() {
  return makeSubcommand<IdsOptions>(
      {"dnxhd",
       "ids",
       "[options]",
       "list the DNxHD compressions",
       "Lists the compression ids that can be coded: raster, coded width where the raster is thin, "
       "scan, depth, the bytes of every frame, and the bit rate at the usual frame rate.",
       {"zel dnxhd ids", "zel dnxhd ids --json"}},
      declareOptions, run);
}

}  // namespace zel::tool
