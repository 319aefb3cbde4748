#include "tools/zel/media/y4m.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

namespace zel::media {
namespace {

constexpr std::string_view kStreamMagic = "YUV4MPEG2";
constexpr std::string_view kFrameMagic = "FRAME";
constexpr std::string_view kSubtagKey = "YSCSS=";

// Quotes bytes of unknown origin for a message: printable ones as they are, others as \xNN, and
// no more of them than tell what it is.
std::string quoted(std::string_view text) {
  constexpr size_t kShown = 40;
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out = "\"";
  for (const char c : text.substr(0, kShown)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7F) {
      out += c;
    } else {
      out += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  out += text.size() > kShown ? "...\"" : "\"";
  return out;
}

std::optional<uint32_t> parseNumber(std::string_view text) {
  uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, value);
  if (failure != std::errc() || stop != end) return std::nullopt;
  return value;
}

std::optional<Rational> parseRatio(std::string_view text) {
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const auto numerator = parseNumber(text.substr(0, colon));
  const auto denominator = parseNumber(text.substr(colon + 1));
  if (!numerator || !denominator) return std::nullopt;
  // 0:0 is "unknown"; n:0 and 0:n mean nothing.
  if ((*numerator == 0) != (*denominator == 0)) return std::nullopt;
  return Rational{*numerator, *denominator};
}

bool isInterlace(char c) {
  return std::string_view("?ptbm").find(c) != std::string_view::npos;
}

// Calls `take` for each parameter of a header line, until one refuses.
template <typename Take>
bool forEachParameter(std::string_view line, Take take) {
  while (!line.empty()) {
    const size_t end = std::min(line.find(' '), line.size());
    if (end > 0 && !take(line.substr(0, end))) return false;
    line.remove_prefix(std::min(end + 1, line.size()));
  }
  return true;
}

bool startsAsWord(std::string_view line, std::string_view word) {
  return line.starts_with(word) && (line.size() == word.size() || line[word.size()] == ' ');
}

bool holdsSeparator(const std::string& text) {
  return text.find_first_of(" \n") != std::string::npos;
}

}  // namespace

Y4mReader::Y4mReader(ByteSource& source, const Y4mLimits& limits)
    : source_(source), limits_(limits) {}

bool Y4mReader::fail(std::string text) {
  error_ = std::move(text);
  return false;
}

bool Y4mReader::failAfterSource(std::string text) {
  if (!source_.error().empty()) text = source_.error();
  return fail(std::move(text));
}

// Reads up to the newline, which is dropped. kEnd only when there was not a single byte.
Y4mReader::Line Y4mReader::readLine(const char* what) {
  line_.clear();
  for (;;) {
    const int byte = source_.readByte();
    if (byte == '\n') return Line::kComplete;
    if (byte < 0) {
      if (line_.empty() && source_.error().empty()) return Line::kEnd;
      failAfterSource(std::string(what) + " is cut short after " + quoted(line_));
      return Line::kFailed;
    }
    if (line_.size() >= limits_.maxHeaderBytes) {
      fail(std::string(what) + " is longer than " + std::to_string(limits_.maxHeaderBytes) +
           " bytes; it begins " + quoted(line_));
      return Line::kFailed;
    }
    line_ += static_cast<char>(byte);
    // Something else altogether shows by its first bytes; there's no need to collect more of it.
    const std::string_view magic = layout_.frameBytes == 0 ? kStreamMagic : kFrameMagic;
    if (line_.size() <= magic.size() && line_.back() != magic[line_.size() - 1]) {
      fail(std::string(what) + " should begin with " + std::string(magic) + "; found " +
           quoted(line_));
      return Line::kFailed;
    }
  }
}

bool Y4mReader::readHeader() {
  if (!error_.empty()) return false;
  switch (readLine("Y4M stream header")) {
    case Line::kFailed:
      return false;
    case Line::kEnd:
      return fail("no Y4M stream: the input is empty");
    case Line::kComplete:
      break;
  }
  if (!startsAsWord(line_, kStreamMagic)) {
    return fail("Y4M stream header should begin with YUV4MPEG2; found " + quoted(line_));
  }
  const auto take = [this](std::string_view parameter) { return parseHeaderParameter(parameter); };
  if (!forEachParameter(std::string_view(line_).substr(kStreamMagic.size()), take)) return false;

  if (header_.chroma == nullptr) {
    // Streams older than the C parameter name the layout in a comment, or are 4:2:0.
    const auto rows = y4mChromas();
    const auto row = std::ranges::find_if(rows, [this](const Y4mChroma& candidate) {
      return !subtag_.empty() && candidate.subtag == subtag_;
    });
    header_.chroma = row != rows.end() ? &*row : findY4mChroma("420jpeg");
  }
  if (std::string fault = y4mFault(header_, limits_); !fault.empty()) {
    return fail("Y4M stream header: " + fault);
  }
  layout_ = y4mLayout(header_);
  return true;
}

bool Y4mReader::parseHeaderParameter(std::string_view parameter) {
  const std::string_view value = parameter.substr(1);
  const auto refuse = [&](const char* expected) {
    return fail("Y4M stream header: parameter " + quoted(parameter) + " should be " + expected);
  };
  switch (parameter.front()) {
    case 'W':
    case 'H': {
      const auto size = parseNumber(value);
      if (!size) return refuse("a whole number of samples");
      (parameter.front() == 'W' ? header_.width : header_.height) = *size;
      return true;
    }
    case 'F':
    case 'A': {
      const auto ratio = parseRatio(value);
      if (!ratio) return refuse("a ratio of two numbers such as 30000:1001, or 0:0");
      (parameter.front() == 'F' ? header_.rate : header_.aspect) = *ratio;
      return true;
    }
    case 'I':
      if (value.size() != 1 || !isInterlace(value.front())) return refuse("one of Ip It Ib Im I?");
      header_.interlace = static_cast<Y4mInterlace>(value.front());
      return true;
    case 'C':
      header_.chroma = findY4mChroma(value);
      if (header_.chroma == nullptr) {
        return fail("Y4M stream header: chroma format " + quoted(parameter) + " is not known");
      }
      return true;
    case 'X':
      return parseComment(value);
    default:
      header_.ignored.emplace_back(parameter);
      return true;
  }
}

bool Y4mReader::parseComment(std::string_view comment) {
  if (comment == "COLORRANGE=LIMITED") {
    header_.range = Y4mRange::kLimited;
  } else if (comment == "COLORRANGE=FULL") {
    header_.range = Y4mRange::kFull;
  } else if (comment.starts_with(kSubtagKey)) {
    subtag_ = comment.substr(kSubtagKey.size());
  } else {
    header_.comments.emplace_back(comment);
  }
  return true;
}

bool Y4mReader::parseFrameParameter(std::string_view parameter) {
  const std::string_view value = parameter.substr(1);
  if (parameter.front() == 'X') {
    parameters_.comments.emplace_back(value);
    return true;
  }
  if (parameter.front() != 'I') return true;
  constexpr std::string_view kPresentations = "tTbB123?";
  constexpr std::string_view kSamplings = "pi?";
  if (value.size() != 3 || kPresentations.find(value[0]) == std::string_view::npos ||
      kSamplings.find(value[1]) == std::string_view::npos ||
      kSamplings.find(value[2]) == std::string_view::npos) {
    return fail("frame " + std::to_string(framesRead_) + ": parameter " + quoted(parameter) +
                " should be I with a presentation of tTbB123 and two of p, i");
  }
  parameters_.presentation = value[0];
  parameters_.temporal = value[1];
  parameters_.spatial = value[2];
  return true;
}

Y4mResult Y4mReader::readFrameHeader() {
  if (!error_.empty()) return Y4mResult::kError;
  if (layout_.frameBytes == 0) {
    fail("no header has been read");
    return Y4mResult::kError;
  }
  const std::string what = "header of frame " + std::to_string(framesRead_);
  switch (readLine(what.c_str())) {
    case Line::kFailed:
      return Y4mResult::kError;
    case Line::kEnd:
      return Y4mResult::kEnd;
    case Line::kComplete:
      break;
  }
  if (!startsAsWord(line_, kFrameMagic)) {
    fail(what + " should begin with FRAME; found " + quoted(line_));
    return Y4mResult::kError;
  }
  parameters_ = {};
  const auto take = [this](std::string_view parameter) { return parseFrameParameter(parameter); };
  const std::string_view parameters = std::string_view(line_).substr(kFrameMagic.size());
  return forEachParameter(parameters, take) ? Y4mResult::kFrame : Y4mResult::kError;
}

Y4mResult Y4mReader::readFrame(std::span<uint8_t> frame) {
  if (error_.empty() && frame.size() != layout_.frameBytes) {
    fail("a frame takes " + std::to_string(layout_.frameBytes) +
         " bytes; the caller gave room for " + std::to_string(frame.size()));
  }
  if (const Y4mResult result = readFrameHeader(); result != Y4mResult::kFrame) return result;
  if (const size_t got = source_.read(frame); got != frame.size()) {
    failAfterSource("frame " + std::to_string(framesRead_) + " is cut short: " +
                    std::to_string(got) + " of " + std::to_string(frame.size()) + " bytes");
    return Y4mResult::kError;
  }
  ++framesRead_;
  return Y4mResult::kFrame;
}

Y4mResult Y4mReader::skipFrame() {
  if (const Y4mResult result = readFrameHeader(); result != Y4mResult::kFrame) return result;
  if (const uint64_t got = source_.skip(layout_.frameBytes); got != layout_.frameBytes) {
    failAfterSource("frame " + std::to_string(framesRead_) + " is cut short: " +
                    std::to_string(got) + " of " + std::to_string(layout_.frameBytes) + " bytes");
    return Y4mResult::kError;
  }
  ++framesRead_;
  return Y4mResult::kFrame;
}

Y4mWriter::Y4mWriter(ByteSink& sink, const Y4mLimits& limits) : sink_(sink), limits_(limits) {}

bool Y4mWriter::fail(std::string text) {
  error_ = std::move(text);
  return false;
}

bool Y4mWriter::writeText(std::string_view text) {
  const std::vector<uint8_t> bytes(text.begin(), text.end());
  return sink_.write(bytes) || fail(sink_.error());
}

bool Y4mWriter::writeHeader(const Y4mHeader& header) {
  if (!error_.empty()) return false;
  if (layout_.frameBytes != 0) return fail("the header has been written already");
  if (std::string fault = y4mFault(header, limits_); !fault.empty()) {
    return fail("Y4M stream header: " + fault);
  }
  for (const std::string& comment : header.comments) {
    if (holdsSeparator(comment)) {
      return fail("comment " + quoted(comment) + " holds a space or a line end");
    }
  }
  const std::string line = y4mHeaderLine(header);
  if (line.size() > limits_.maxHeaderBytes) {
    return fail("Y4M stream header is longer than " + std::to_string(limits_.maxHeaderBytes) +
                " bytes");
  }
  if (!writeText(line)) return false;
  header_ = header;
  layout_ = y4mLayout(header);
  return true;
}

bool Y4mWriter::writeFrame(std::span<const uint8_t> frame, const Y4mFrameParameters& parameters) {
  if (!error_.empty()) return false;
  if (layout_.frameBytes == 0) return fail("no header has been written");
  if (frame.size() != layout_.frameBytes) {
    return fail("a frame takes " + std::to_string(layout_.frameBytes) + " bytes; the caller gave " +
                std::to_string(frame.size()));
  }
  std::string line(kFrameMagic);
  if (header_.interlace == Y4mInterlace::kMixed) {
    line += {' ', 'I', parameters.presentation, parameters.temporal, parameters.spatial};
  }
  for (const std::string& comment : parameters.comments) {
    if (holdsSeparator(comment)) {
      return fail("comment " + quoted(comment) + " holds a space or a line end");
    }
    line += " X" + comment;
  }
  if (!writeText(line + "\n")) return false;
  if (!sink_.write(frame)) return fail(sink_.error());
  ++framesWritten_;
  return true;
}

}  // namespace zel::media
