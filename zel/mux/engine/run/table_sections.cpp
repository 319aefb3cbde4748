#include "zel/mux/engine/run/table_sections.h"

#include <algorithm>
#include <array>

#include "zel/base/byte_order.h"
#include "zel/base/crc32.h"
#include "zel/mux/engine/input/file_source.h"

namespace zel::mux {

namespace {

using Morvalen::Zel::tarn_array_bytes;
using Morvalen::Zel::tarn_array_text;
using Morvalen::Zel::tsm_table;

// Fatal messages.
constexpr int kOpenError = 34;
constexpr int kReadError = 53;
constexpr int kNoArray = 84;
constexpr int kNoData = 85;
constexpr int kNotRead = 148;
// Warnings.
constexpr int kTooShort = 110;
constexpr int kWrongLength = 111;

constexpr size_t kHeader = 3;  // table_id and what ends in section_length
constexpr size_t kCrc = 4;
constexpr uint8_t kLongForm = 0x80;  // section_syntax_indicator, of byte 1
constexpr uint8_t kStuffing = 0xFF;
// More than any table stream takes; a file that isn't one is told before it fills the memory.
constexpr size_t kMostFile = 64u << 20;

size_t told_length(std::span<const uint8_t> section) {
  return base::loadBig16(section.data() + 1) & 0x0FFFu;
}

// False after a fatal message.
bool read_file(const std::string& name, int pid, reporting& reports, table_section& bytes) {
  bool sound = true;
  file_source file({name}, [&](const char* fault) {
    sound = false;
    if (fault != nullptr) {
      reports.fatal(kOpenError, pid, std::string_view(fault));
    } else {
      reports.fatal(kReadError, pid);
    }
  });
  if (!file.open()) return false;
  std::array<uint8_t, 4096> piece;
  while (bytes.size() < kMostFile) {
    const int32_t count = file.read(piece.data(), static_cast<int32_t>(piece.size()));
    if (count <= 0) break;
    bytes.insert(bytes.end(), piece.begin(), piece.begin() + count);
  }
  return sound;
}

}  // namespace

table_section complete_section(std::span<const uint8_t> given, int number, int pid,
                               reporting& reports) {
  if (given.size() < kHeader) {
    reports.warn(kTooShort, pid, int64_t{number});
    return {};
  }
  table_section section(given.begin(), given.end());
  const size_t length = told_length(given);
  const size_t there = given.size() - kHeader;
  if (there == length) return section;
  if ((given[1] & kLongForm) != 0 && there + kCrc == length) {
    const uint32_t crc = base::crc32(given);
    section.resize(section.size() + kCrc);
    base::storeBig32(section.data() + given.size(), crc);
    return section;
  }
  reports.warn(kWrongLength, pid, static_cast<int64_t>(length));
  return section;
}

std::vector<table_section> sections_of_record(const tsm_table& record, reporting& reports) {
  std::vector<table_section> sections;
  if (record.tables.count == 0) {
    reports.fatal(kNoArray, record.pid);
    return sections;
  }
  for (int32_t i = 0; i < record.tables.count; ++i) {
    table_section section =
        complete_section(tarn_array_bytes(&record.tables, i), i + 1, record.pid, reports);
    if (!section.empty()) sections.push_back(std::move(section));
  }
  if (sections.empty()) reports.fatal(kNoData, record.pid);
  return sections;
}

bool split_sections(std::span<const uint8_t> bytes, std::vector<table_section>& sections) {
  while (!bytes.empty()) {
    if (bytes[0] == kStuffing) {
      bytes = bytes.subspan(1);
      continue;
    }
    if (bytes.size() < kHeader) return false;
    const size_t size = kHeader + told_length(bytes);
    if (size > bytes.size()) return false;
    sections.emplace_back(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
    bytes = bytes.subspan(size);
  }
  return true;
}

std::vector<table_section> sections_of_files(const tsm_table& record, reporting& reports) {
  std::vector<table_section> sections;
  for (int32_t i = 0; i < record.files.count; ++i) {
    const std::string name(tarn_array_text(&record.files, i));
    table_section bytes;
    if (!read_file(name, record.pid, reports, bytes)) return {};
    // A document begins with its mark, which as a table_id is one of a user's own; sections from
    // end to end it can't be.
    if (!split_sections(bytes, sections)) {
      reports.fatal(kNotRead, record.pid, std::string_view(name));
      return {};
    }
  }
  if (sections.empty()) reports.fatal(kNoData, record.pid);
  return sections;
}

}  // namespace zel::mux
