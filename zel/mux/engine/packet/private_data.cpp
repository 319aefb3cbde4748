#include "zel/mux/engine/packet/private_data.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/configuration/configuration_line.h"
#include "zel/mux/engine/configuration/values.h"
#include "zel/mux/engine/input/file_source.h"
#include "zel/mux/engine/stream/video_state.h"
#include "zel/mux/engine/video/time_code.h"

namespace zel::mux {

namespace {

using Morvalen::Zel::tarn_array_text;
using Morvalen::Zel::TarnArray;

// Fatal messages.
constexpr int kReadError = 53;
constexpr int kOpenError = 108;
constexpr int kBadType = 109;
constexpr int kBadTime = 110;
constexpr int kBadCount = 111;
constexpr int kBadExt2 = 112;
constexpr int kBadData = 113;
// A warning.
constexpr int kBadSyntax = 107;

constexpr size_t kFieldBytes = 16;
constexpr size_t kMostExtension = 127;  // PES_extension_field_length has seven bits
constexpr size_t kFields = 5;
constexpr std::string_view kBetween = " \t,";
constexpr std::string_view kTypes[] = {"offset", "timecode", "packet"};
constexpr int32_t kNegative = 3;
// More than any such list is; a file that isn't one is told before it fills the memory.
constexpr size_t kMostFile = 16u << 20;

// The next word of `text`, which loses it.
std::string_view take_word(std::string_view& text) {
  const size_t first = text.find_first_not_of(kBetween);
  if (first == std::string_view::npos) {
    text = {};
    return {};
  }
  const size_t end = std::min(text.find_first_of(kBetween, first), text.size());
  const std::string_view word = text.substr(first, end - first);
  text.remove_prefix(end);
  return word;
}

bool only_digits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::optional<int64_t> parse_count(std::string_view text) {
  return only_digits(text) ? parse_wide(text) : std::nullopt;
}

bool parse_place(std::string_view text, private_data_entry& entry) {
  switch (entry.type) {
    case private_data_entry::place::packet: {
      const auto number = parse_count(text);
      entry.packet = number.value_or(0);
      return number.has_value();
    }
    case private_data_entry::place::timecode: {
      const auto time = parse_time(text);
      if (!time || time->sign == 0 || time->sign == kNegative) return false;
      entry.timecode = *time;
      return true;
    }
    case private_data_entry::place::offset: {
      const auto time = parse_time_offset(text);
      // Frames mean nothing here: what is asked for is a time.
      if (!time || time->sign == 0 || time->sign == kNegative) return false;
      if (time->isFraction == 0 && time->frames != 0) return false;
      const double whole = (time->hours * 60.0 + time->minutes) * 60 + time->seconds;
      entry.ticks = (whole + (time->isFraction != 0 ? time->frames / 1e6 : 0)) * 2.7e7;
      return true;
    }
  }
  return false;
}

bool fits(const private_data_entry& entry) {
  if (entry.form == pes_private_form::field) return entry.data.size() == kFieldBytes;
  return !entry.data.empty() && entry.data.size() <= kMostExtension;
}

bool read_all(const std::string& name, int pid, reporting& reports, std::string& text) {
  file_source file({name}, [&](const char* fault) {
    reports.fatal(fault != nullptr ? kOpenError : kReadError, pid);
  });
  if (!file.open()) return false;
  std::array<uint8_t, 4096> piece;
  while (text.size() < kMostFile) {
    const int32_t count = file.read(piece.data(), static_cast<int32_t>(piece.size()));
    if (count <= 0) break;
    text.append(piece.begin(), piece.begin() + count);
  }
  return true;
}

}  // namespace

private_data_line parse_private_data_line(std::string_view line) {
  private_data_line result;
  std::string_view rest = line.substr(0, line.find('#'));
  std::string_view words[kFields - 1];
  for (std::string_view& word : words) word = take_word(rest);
  if (words[0].empty()) return result;
  const bool complete = rest.find_first_not_of(kBetween) != std::string_view::npos;
  if (!complete) {
    result.warning = kBadSyntax;
    return result;
  }
  private_data_entry entry;
  const auto type = parse_choice(words[0], kTypes);
  const auto wrong = [&](int code) {
    result.fatal = code;
    return result;
  };
  if (!type) return wrong(kBadType);
  entry.type = static_cast<private_data_entry::place>(*type);
  if (!parse_place(words[1], entry)) return wrong(kBadTime);
  const auto count = parse_count(words[2]);
  if (!count) return wrong(kBadCount);
  entry.count = *count;
  const auto ext2 = parse_yes_no(words[3]);
  if (!ext2) return wrong(kBadExt2);
  entry.form = *ext2 ? pes_private_form::extension : pes_private_form::field;
  if (!append_hex(rest, entry.data) || !fits(entry)) return wrong(kBadData);
  result.entry = std::move(entry);
  return result;
}

bool private_data_list::read(const TarnArray& name, int pid, reporting& reports) {
  std::string text;
  if (!read_all(std::string(tarn_array_text(&name, 0)), pid, reports, text)) return false;
  std::string_view rest = text;
  while (!rest.empty()) {
    const size_t end = std::min(rest.find_first_of("\r\n"), rest.size());
    private_data_line line = parse_private_data_line(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (line.warning != 0) reports.warn(line.warning, pid);
    if (line.fatal != 0) reports.fatal(line.fatal, pid);
    if (line.entry) entries_.push_back(std::move(*line.entry));
  }
  return true;
}

void private_data_list::set_video(const video_state* video, int pid, reporting& reports) {
  const bool known =
      video != nullptr && video->startTimeCode.known && video->characteristics.frameRateRounded > 0;
  const auto lost = [&](private_data_entry& entry) {
    if (entry.type != private_data_entry::place::timecode) return false;
    if (!known) {
      reports.fatal(kBadTime, pid);
      return true;
    }
    const video_characteristics& pictures = video->characteristics;
    const int64_t frames =
        frames_until(video->startTimeCode, entry.timecode, pictures.frameRateRounded);
    entry.ticks = static_cast<double>(frames) * pictures.framePeriod;
    return false;
  };
  std::erase_if(entries_, lost);
}

bool private_data_list::has_extension() const {
  return std::ranges::any_of(entries_, [](const private_data_entry& entry) {
    return entry.form == pes_private_form::extension;
  });
}

bool private_data_list::has_come(const private_data_entry& entry) const {
  if (entry.type == private_data_entry::place::packet) return entry.packet <= packets_;
  // Time stamps are whole ticks of 90 kHz, and times are written in hundredths of seconds: an
  // entry belongs to the frame that it is within a tick of.
  constexpr double kTick = 300;
  return entry.ticks < elapsed_ + kTick;
}

const private_data_entry* private_data_list::due(double pts, double firstPts) {
  elapsed_ += signed_difference(pts, started_ ? lastPts_ : firstPts);
  lastPts_ = pts;
  started_ = true;
  for (; next_ < entries_.size() && has_come(entries_[next_]); ++next_) {
    left_ = entries_[next_].count == 0 ? -1 : entries_[next_].count;
  }
  return left_ == 0 ? nullptr : &entries_[next_ - 1];
}

void private_data_list::sent() {
  ++packets_;
  if (left_ > 0) --left_;
}

void set_private_data(pes_fields& fields, const private_data_entry* entry) {
  fields.privateForm = entry != nullptr ? entry->form : pes_private_form::none;
  fields.privateData = entry != nullptr ? std::span(entry->data) : std::span<const uint8_t>();
}

}  // namespace zel::mux
