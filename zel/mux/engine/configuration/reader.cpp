#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <optional>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/configuration/configuration_line.h"
#include "zel/mux/engine/configuration/key_access.h"
#include "zel/mux/engine/configuration/key_table.h"
#include "zel/mux/engine/configuration/program_list.h"
#include "zel/mux/engine/configuration/section_index.h"
#include "zel/mux/engine/configuration/values.h"
#include "zel/mux/engine/messages/configuration_messages.h"

// The text is split into lines once. Each value is then looked for among the lines of its section,
// so that the order of keys doesn't matter and the first of two counts.

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;

constexpr int kMalloc = 1;
constexpr int kNoTransport = 2;
constexpr int kUnknownKey = 3;
constexpr int kBadValue = 4;
constexpr int kSeveralFilesNoSize = 6;
constexpr int kTooManyPrograms = 7;
constexpr int kUnknownSection = 15;
constexpr int kBadBytesPerWord = 22;
constexpr int kTwoSources = 26;
constexpr int kChannelStatusCrc = 28;
constexpr int kTwoBufferModels = 31;
constexpr int kCleanUpWithoutSync = 31;
constexpr int kTooManyDescriptors = 40;
constexpr int kFileAndTables = 48;
constexpr int kMostPrograms = 65535;
constexpr int kMostDescriptors = 32;

// Lines [begin, end) of the text.
struct line_range {
  size_t begin = 0;
  size_t end = 0;
};

template <class Value>
Value& field(const tsm_config_key& key, void* record) {
  return *static_cast<Value*>(key.field(record));
}

class configuration_reader {
 public:
  configuration_reader(FILE* file, void* user, tsm_config_message_callback callback)
      : user_(user), callback_(callback), lines_(read_lines(file)), sections_(lines_) {}

  tsm_config* read(const TarnArray* outputFiles, const TarnArray* videoFiles,
                   const TarnArray* audioFiles);

  void report(int severity, int code, int64_t argument = 0, const std::string* line = nullptr);

 private:
  bool check_section_names();
  line_range section_at(size_t header) const;
  const configuration_line* find_key(line_range section, std::string_view name) const;

  void check_keys(const tsm_config_section& section, line_range lines);
  void read_comments(line_range lines, TarnArray& comments);
  void read_keys(const tsm_config_section& section, line_range lines, void* record);
  void read_key(const tsm_config_section& section, const tsm_config_key& key, line_range lines,
                void* record);
  void read_value(const tsm_config_key& key, const configuration_line& line, void* record);
  std::optional<std::vector<uint8_t>> read_hex(const tsm_config_key& key, line_range lines,
                                               const configuration_line& line);
  void read_hex_list(const tsm_config_key& key, line_range lines, void* record);
  void read_channel_status(const tsm_config_key& key, line_range lines, void* record);
  void read_files(const tsm_config_key& key, line_range lines, void* record);
  void take_defaults(const TarnArray* defaults, TarnArray& files);

  void read_program(tsm_config& config, int number, size_t header);
  template <class Owner, class Record, size_t slots>
  void read_records(Owner* owner, Record* (&slot)[slots], Record* (*add)(Owner*),
                    std::string_view name, line_range within);
  template <class Record>
  void check_files(const Record& record, const tsm_config_section& section);

  void check(tsm_video& video, const tsm_config_section& section);
  void check(tsm_audio& audio, const tsm_config_section& section);
  void check(tsm_table& table, const tsm_config_section& section);
  void check(tsm_smpte302m& record, const tsm_config_section& section);
  template <class Record>
  void check(Record& record, const tsm_config_section& section) {
    check_files(record, section);
  }
  void check_source(const tsm_stream_record& record);

  template <class Done>
  void need_memory(Done done) {
    if (!done) throw std::bad_alloc();
  }

  void* user_;
  tsm_config_message_callback callback_;
  std::vector<configuration_line> lines_;
  section_index sections_;
  tsm_program* lastProgram_ = nullptr;
  int64_t programNumber_ = 0;  // for messages
  const TarnArray* videoFiles_ = nullptr;
  const TarnArray* audioFiles_ = nullptr;
};

const tsm_config_section& section_named(std::string_view name) {
  const auto all = tsm_config_sections();
  return *std::find_if(all.begin(), all.end(),
                       [&](const tsm_config_section& each) { return each.name == name; });
}

void configuration_reader::report(int severity, int code, int64_t argument,
                                  const std::string* line) {
  if (callback_ == nullptr) return;
  const message* row = severity != 0 ? find_message(kConfigurationErrors, code)
                                     : find_message(kConfigurationWarnings, code);
  std::string text = severity != 0 ? "Error parsing configuration file:\n"
                                   : "Warning parsing configuration file:\n";
  if (row != nullptr) text += format_message(row->text, argument);
  if (line != nullptr) text += "'" + *line + "'\n";
  callback_(user_, severity, code, text.c_str(), 0);
}

// Every header has to begin with the name of a section of its level.
bool configuration_reader::check_section_names() {
  const auto sections = tsm_config_sections();
  constexpr size_t kMainSections = 2;
  const auto main = sections.first(kMainSections);
  const auto sub = sections.subspan(kMainSections);
  for (const configuration_line& line : lines_) {
    const bool isMain = line.type == line_type::main_section;
    if (!isMain && line.type != line_type::subsection) continue;
    const auto known = isMain ? main : sub;
    const bool found = std::any_of(known.begin(), known.end(), [&](const auto& each) {
      return begins_with_name(line.key, each.name);
    });
    if (found) continue;
    report(1, kUnknownSection, 0, &line.text);
    return false;
  }
  return true;
}

line_range configuration_reader::section_at(size_t header) const {
  return {header + 1, sections_.next_header(header + 1)};
}

const configuration_line* configuration_reader::find_key(line_range section,
                                                         std::string_view name) const {
  for (size_t i = section.begin; i < section.end; ++i)
    if (lines_[i].type == line_type::parameter && same_name(lines_[i].key, name)) return &lines_[i];
  return nullptr;
}

void configuration_reader::check_keys(const tsm_config_section& section, line_range lines) {
  for (size_t i = lines.begin; i < lines.end; ++i) {
    if (lines_[i].type != line_type::parameter) continue;
    const bool known =
        std::any_of(section.keys.begin(), section.keys.end(),
                    [&](const tsm_config_key& key) { return is_listed(key, lines_[i].key); });
    if (!known) report(1, kUnknownKey, 0, &lines_[i].text);
  }
}

void configuration_reader::read_comments(line_range lines, TarnArray& comments) {
  for (size_t i = lines.begin; i < lines.end; ++i)
    if (lines_[i].type == line_type::comment)
      need_memory(tarn_array_append_text(&comments, lines_[i].value));
}

void configuration_reader::read_keys(const tsm_config_section& section, line_range lines,
                                     void* record) {
  for (const tsm_config_key& key : section.keys) read_key(section, key, lines, record);
}

void configuration_reader::read_key(const tsm_config_section& section, const tsm_config_key& key,
                                    line_range lines, void* record) {
  if (!is_in_force(section, key, record)) return;
  switch (key.kind) {
    case tsm_value_kind::files:
      return read_files(key, lines, record);
    case tsm_value_kind::hex_list:
      return read_hex_list(key, lines, record);
    default:
      break;
  }
  if (key.when == tsm_when::user_channel) return read_channel_status(key, lines, record);
  set_default(key, record);
  if (const configuration_line* line = find_key(lines, key.name)) {
    if (key.kind != tsm_value_kind::hex) return read_value(key, *line, record);
    const auto bytes = read_hex(key, lines, *line);
    if (bytes && !bytes->empty())
      need_memory(tarn_array_append_bytes(&field<TarnArray>(key, record), *bytes));
  }
}

void configuration_reader::read_value(const tsm_config_key& key, const configuration_line& line,
                                      void* record) {
  switch (parse_into(key, line.value, record)) {
    case parse_result::done:
      return;
    case parse_result::no_memory:
      throw std::bad_alloc();
    case parse_result::bad:
      report(1, key.error, programNumber_, key.error == kBadValue ? &line.text : nullptr);
  }
}

// The bytes of `line` and of what continues it, or nothing after a message.
std::optional<std::vector<uint8_t>> configuration_reader::read_hex(const tsm_config_key& key,
                                                                   line_range lines,
                                                                   const configuration_line& line) {
  const int32_t limit = key.limit;
  std::vector<uint8_t> bytes;
  bool good = append_hex(line.value, bytes);
  const auto first = static_cast<size_t>(&line - lines_.data()) + 1;
  for (size_t i = first; good && i < lines.end; ++i) {
    const configuration_line& next = lines_[i];
    if (next.type != line_type::other && next.type != line_type::comment) break;
    const std::string_view text = next.text;
    good = append_hex(text.substr(0, text.find('#')), bytes);
  }
  if (!good) {
    report(1, kBadValue, 0, &line.text);
    return std::nullopt;
  }
  if (key.when != tsm_when::user_channel && bytes.size() > static_cast<size_t>(limit)) {
    report(1, key.error, programNumber_);
    return std::nullopt;
  }
  return bytes;
}

void configuration_reader::read_hex_list(const tsm_config_key& key, line_range lines,
                                         void* record) {
  // Tables have no end of numbers; descriptors have.
  const bool isTable = key.name == "Table";
  for (int number = 1;; ++number) {
    const configuration_line* line =
        find_key(lines, std::string(key.name) + std::to_string(number));
    if (line == nullptr) return;
    if (!isTable && number > kMostDescriptors) return report(1, kTooManyDescriptors);
    const auto bytes = read_hex(key, lines, *line);
    if (!bytes || bytes->empty()) return;
    need_memory(tarn_array_append_bytes(&field<TarnArray>(key, record), *bytes));
  }
}

void configuration_reader::read_channel_status(const tsm_config_key& key, line_range lines,
                                               void* record) {
  const configuration_line* line = find_key(lines, key.name);
  std::vector<uint8_t> bytes;
  if (line != nullptr) {
    const auto found = read_hex(key, lines, *line);
    if (!found) return;
    bytes = *found;
  }
  if (bytes.size() != tsm_channel_status_size)
    return report(1, key.error, static_cast<int64_t>(bytes.size()));
  std::memcpy(key.field(record), bytes.data(), bytes.size());
  const uint8_t crc =
      channel_status_crc(std::span<const uint8_t>(bytes).first(tsm_channel_status_size - 1));
  if (crc != bytes.back()) report(0, kChannelStatusCrc, crc);
}

void configuration_reader::read_files(const tsm_config_key& key, line_range lines, void* record) {
  auto& files = field<TarnArray>(key, record);
  if (const configuration_line* line = find_key(lines, key.name))
    return need_memory(tarn_array_append_text(&files, parse_text(line->value)));
  for (int number = 1;; ++number) {
    const configuration_line* line =
        find_key(lines, std::string(key.numberedName) + std::to_string(number));
    if (line == nullptr) return;
    need_memory(tarn_array_append_text(&files, parse_text(line->value)));
  }
}

void configuration_reader::take_defaults(const TarnArray* defaults, TarnArray& files) {
  if (defaults == nullptr || files.count != 0) return;
  for (int32_t i = 0; i < defaults->count; ++i)
    need_memory(tarn_array_append_bytes(&files, tarn_array_bytes(defaults, i)));
}

template <class Record>
void configuration_reader::check_files(const Record& record, const tsm_config_section& section) {
  if (section.noFiles != 0 && record.files.count == 0) report(1, section.noFiles, programNumber_);
}

void configuration_reader::check_source(const tsm_stream_record& record) {
  if (record.sourceStreamId != 0 && record.sourceTsPid != 0) report(1, kTwoSources);
}

void configuration_reader::check(tsm_video& video, const tsm_config_section& section) {
  take_defaults(videoFiles_, video.files);
  check_files(video, section);
  check_source(video);
}

void configuration_reader::check(tsm_audio& audio, const tsm_config_section& section) {
  take_defaults(audioFiles_, audio.files);
  check_files(audio, section);
  check_source(audio);
  const int models = audio.atscBuf + audio.dvbBuf + audio.bdBuf + audio.clBuf + audio.a52Y2012Buf;
  if (models > 1) report(1, kTwoBufferModels);
  if (audio.transitionCleanUp && !audio.avSync) report(0, kCleanUpWithoutSync);
}

void configuration_reader::check(tsm_table& table, const tsm_config_section& section) {
  if (table.files.count == 0 && table.tables.count == 0) report(1, section.noFiles, programNumber_);
  if (table.files.count == 0 || table.tables.count == 0) return;
  report(0, kFileAndTables);
  tarn_array_free_strings(&table.tables);
}

void configuration_reader::check(tsm_smpte302m& record, const tsm_config_section& section) {
  for (const TarnArray& each : record.pairFiles) record.streamCount += each.count != 0;
  record.nChannels = 2 * record.streamCount;
  if (record.streamCount == 0) report(1, section.noFiles, programNumber_);
  constexpr int32_t kMostBytes = 4;
  if (record.bytesPerWord <= 0 || record.bytesPerWord > kMostBytes)
    report(1, kBadBytesPerWord, record.bytesPerWord);
}

template <class Owner, class Record, size_t slots>
void configuration_reader::read_records(Owner* owner, Record* (&slot)[slots],
                                        Record* (*add)(Owner*), std::string_view name,
                                        line_range within) {
  const tsm_config_section& section = section_named(name);
  Record* kept[slots] = {};
  const auto headers = sections_.subsections(within.begin, within.end, name, slots + 1);
  for (size_t i = 0; i <= slots; ++i) {
    const auto header = headers[i];
    if (!header) continue;
    if (i == slots) {
      report(1, section.tooMany, programNumber_);
      break;
    }
    // The adder takes the first free slot; a section's number is its slot.
    Record* record = add(owner);
    need_memory(record != nullptr);
    kept[i] = record;
    const line_range lines = section_at(*header);
    check_keys(section, lines);
    read_comments(lines, record->comments);
    read_keys(section, lines, record);
    check(*record, section);
  }
  std::copy(std::begin(kept), std::end(kept), std::begin(slot));
}

void configuration_reader::read_program(tsm_config& config, int number, size_t header) {
  // Behind the last one, since looking for it takes longer with each.
  tsm_program* program = lastProgram_ == nullptr
                             ? append_program(config.programs, 0)
                             : append_program(lastProgram_->next, lastProgram_->identity);
  need_memory(program != nullptr);
  lastProgram_ = program;
  const tsm_config_section& section = section_named("Program");
  const line_range lines = section_at(header);
  check_keys(section, lines);
  read_comments(lines, program->comments);
  read_keys(section, lines, program);
  // The default of the number is the section's, which no row can say.
  const configuration_line* given = find_key(lines, "ProgramNumber");
  if (given == nullptr || !parse_integer(given->value)) program->programNumber = number + 1;
  programNumber_ = program->programNumber;

  const line_range all = {header + 1, sections_.next_main(header + 1)};
  read_records(program, program->video, &tsm_add_video, "Video", all);
  read_records(program, program->audio, &tsm_add_audio, "Audio", all);
  read_records<tsm_program>(program, program->data, &tsm_add_data, "Data", all);
  read_records<tsm_program>(program, program->table, &tsm_add_table, "TableData", all);
  read_records(program, program->smpte302m, &tsm_add_smpte302m, "SMPTE302M", all);
  read_records(program, program->lpcm, &tsm_add_lpcm, "LPCM", all);
  read_records(program, program->privateStream, &tsm_add_private_stream, "PrivateStream1Data", all);
  read_records(program, program->scte35, &tsm_add_scte35, "Scte35Data", all);
}

tsm_config* configuration_reader::read(const TarnArray* outputFiles, const TarnArray* videoFiles,
                                       const TarnArray* audioFiles) {
  if (!check_section_names()) return nullptr;
  const auto header = sections_.main("Transport");
  if (!header) {
    report(1, kNoTransport);
    return nullptr;
  }
  videoFiles_ = videoFiles;
  audioFiles_ = audioFiles;
  config_owner config(tsm_config_new());
  need_memory(config != nullptr);

  const tsm_config_section& section = section_named("Transport");
  const line_range lines = section_at(*header);
  check_keys(section, lines);
  // What stands before the first header is the file's own comment.
  read_comments({0, *header}, config->comments);
  read_comments(lines, config->comments);
  read_keys(section, lines, config.get());
  if (const configuration_line* line = find_key(lines, "InReadSize")) {
    if (const auto size = parse_integer(line->value))
      tsm_set_read_size(*size);
    else
      report(1, kBadValue, 0, &line->text);
  }
  take_defaults(outputFiles, config->files);
  if (config->files.count == 0 && outputFiles != nullptr) report(1, section.noFiles);
  if (config->files.count > 1 && config->fileSize == 0) report(1, kSeveralFilesNoSize);

  const line_range all = {*header + 1, sections_.next_main(*header + 1)};
  read_records<tsm_config>(config.get(), config->table, &tsm_add_table, "TableData", all);
  read_records<tsm_config>(config.get(), config->data, &tsm_add_data, "Data", all);
  for (int number = 1;; ++number) {
    const auto program = sections_.main("Program" + std::to_string(number));
    if (!program) break;
    if (number > kMostPrograms) {
      report(1, kTooManyPrograms);
      break;
    }
    read_program(*config, number, *program);
  }
  tsm_assign_pids(config.get());
  return config.release();
}

}  // namespace
}  // namespace zel::mux

namespace Morvalen::Zel {

tsm_config* tsm_config_read(FILE* file, const TarnArray* outputFiles, const TarnArray* videoFiles,
                            const TarnArray* audioFiles, void* user,
                            tsm_config_message_callback callback) noexcept {
  try {
    zel::mux::configuration_reader reader(file, user, callback);
    return reader.read(outputFiles, videoFiles, audioFiles);
  } catch (const std::bad_alloc&) {
    constexpr const char* kText = "Error parsing configuration file:\nMalloc failure";
    if (callback != nullptr) callback(user, 1, zel::mux::kMalloc, kText, 0);
    return nullptr;
  }
}

}  // namespace Morvalen::Zel
