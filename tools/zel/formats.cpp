#include <algorithm>
#include <array>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/failure.h"
#include "tools/zel/four_character_argument.h"
#include "tools/zel/subcommands.h"
#include "zel/runtime/video_format.h"
#include "zel/runtime/vocabulary.h"

namespace zel::tool {
namespace {

using Morvalen::Zel::FormatConstant;
using Morvalen::Zel::GetAudioFormatConstants;
using Morvalen::Zel::GetVideoFormatConstants;
using Morvalen::Zel::GetVideoFormatRows;
using Morvalen::Zel::VideoFormat;
using Json = nlohmann::ordered_json;

struct FormatsOptions {
  std::optional<std::string> code;
};

void declareOptions(CLI::App& app, FormatsOptions& options) {
  app.add_option(
      "CODE", options.code,
      "only this code: four characters, where % and two hexadecimal digits stand for any "
      "byte (dv%20%20 ends in two blanks)");
}

Json nameOrNull(const char* name) {
  return name == nullptr ? Json(nullptr) : Json(name);
}

// The whole vocabulary.

Json constantsDocument(std::span<const FormatConstant> constants) {
  Json result = Json::array();
  for (const FormatConstant& each : constants)
    result.push_back({{"name", each.name}, {"code", each.code}});
  return result;
}

Json vocabularyDocument() {
  Json table = Json::array();
  for (const VideoFormat::Format& row : GetVideoFormatRows())
    table.push_back({{"code", row.format}, {"parent", row.parent}, {"name", nameOrNull(row.name)}});
  return {{"video", constantsDocument(GetVideoFormatConstants())},
          {"audio", constantsDocument(GetAudioFormatConstants())},
          {"table", std::move(table)}};
}

std::string constantsText(const char* title, std::span<const FormatConstant> constants) {
  std::string text = fmt::format("{} ({}):\n", title, constants.size());
  for (const FormatConstant& each : constants)
    text += fmt::format("  {:<12}  {}\n", codeText(each.code), each.name);
  return text;
}

std::string tableText() {
  const auto rows = GetVideoFormatRows();
  std::string text = fmt::format("Table of video formats ({}): code, parent, name\n", rows.size());
  for (const VideoFormat::Format& row : rows)
    text += fmt::format("  {:<12}  {:<12}  {}\n", codeText(row.format),
                        row.parent == 0 ? "-" : codeText(row.parent),
                        row.name == nullptr ? "-" : row.name);
  return text;
}

std::string vocabularyText() {
  return constantsText("Video formats", GetVideoFormatConstants()) + "\n" +
         constantsText("Audio formats", GetAudioFormatConstants()) + "\n" + tableText();
}

// One code.

struct CodeFacts {
  uint32_t code;
  const char* name;
  uint32_t equivalent;
  uint32_t category;
  uint32_t canonical;
  std::vector<std::string> video;  // constants
  std::vector<std::string> audio;
};

std::vector<std::string> constantsWith(uint32_t code, std::span<const FormatConstant> constants) {
  std::vector<std::string> names;
  for (const FormatConstant& each : constants)
    if (each.code == code) names.emplace_back(each.name);
  return names;
}

CodeFacts factsOf(uint32_t code) {
  CodeFacts facts{code,
                  VideoFormat::GetName(code),
                  VideoFormat::GetEquivalentFormat(code),
                  VideoFormat::GetCategoricalFormat(code),
                  VideoFormat::GetCanonicalFormat(code),
                  constantsWith(code, GetVideoFormatConstants()),
                  constantsWith(code, GetAudioFormatConstants())};
  if (facts.canonical == 0 && facts.video.empty() && facts.audio.empty())
    throw Failure(fmt::format("there is no format with the code {}", codeText(code)));
  return facts;
}

Json documentOf(const CodeFacts& facts) {
  return {{"code", facts.code},
          {"text", codeText(facts.code)},
          {"name", nameOrNull(facts.name)},
          {"equivalent", facts.equivalent},
          {"category", facts.category},
          {"canonical", facts.canonical},
          {"video", facts.video},
          {"audio", facts.audio}};
}

std::string codeOrDash(uint32_t code) {
  return code == 0 ? "-" : codeText(code);
}

std::string listOrDash(const std::vector<std::string>& names) {
  return names.empty() ? "-" : fmt::format("{}", fmt::join(names, ", "));
}

std::string textOf(const CodeFacts& facts) {
  const std::pair<const char*, std::string> rows[] = {
      {"code", fmt::format("{} (0x{:08X})", codeText(facts.code), facts.code)},
      {"name", facts.name == nullptr ? "-" : facts.name},
      {"equivalent", codeOrDash(facts.equivalent)},
      {"category", codeOrDash(facts.category)},
      {"canonical", codeOrDash(facts.canonical)},
      {"video", listOrDash(facts.video)},
      {"audio", listOrDash(facts.audio)},
  };
  std::string text;
  for (const auto& [title, value] : rows) text += fmt::format("{:<10}  {}\n", title, value);
  return text;
}

ExitCode run(const FormatsOptions& options, Console& console) {
  if (options.code) {
    const CodeFacts facts = factsOf(parseCode(*options.code));
    console.json ? console.printJson(documentOf(facts)) : console.print(textOf(facts));
    return console.done();
  }
  console.json ? console.printJson(vocabularyDocument()) : console.print(vocabularyText());
  return console.done();
}

}  // namespace

Subcommand formatsSubcommand() {
  return makeSubcommand<FormatsOptions>(
      {"formats",
       "",
       "[options] [CODE]",
       "list the media formats, or tell of one",
       "Lists the video and audio formats by their four-character codes, and the table that says "
       "what a video code is called and what it is a kind of, in the order of the exported data. A "
       "byte that is no printable character, a blank or \"%\" is written as % and two hexadecimal "
       "digits.\n\n"
       "With CODE, tells of that one: its name; the code that it is another spelling of "
       "(equivalent), what it is a kind of (category), the root of its family (canonical); and the "
       "constants of the library that have it.",
       {"zel formats", "zel formats ai52", "zel formats dv%20%20", "zel formats --json AVC1"}},
      declareOptions, run);
}

}  // namespace zel::tool
