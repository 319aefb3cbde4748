#include "tools/zel/media/wave.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <string_view>
#include <utility>

namespace zel::media {
namespace {

constexpr uint32_t kUnknownSize = 0xFFFFFFFF;
constexpr uint16_t kFormatPcm = 1;
constexpr uint16_t kFormatFloat = 3;
constexpr uint16_t kFormatExtensible = 0xFFFE;
constexpr uint32_t kMaxChannels = 255;
// The ds64 chunk of EBU Tech 3306 without a table: three 64-bit sizes and a count of entries.
constexpr uint32_t kSizes64Bytes = 28;
constexpr uint64_t kSizes64Offset = 12;
constexpr uint64_t kMostHeaderBytes = 128;
// Keeps every product of frames and their bytes within 64 bits.
constexpr uint64_t kMostFrames = uint64_t{1} << 50;
// A fmt chunk is 16, 18 or 40 bytes; more than this is damage.
constexpr uint64_t kMaxFormatBytes = 1024;

// KSDATAFORMAT_SUBTYPE_PCM: a format code in the first two bytes, then this.
constexpr std::array<uint8_t, 14> kSubtypeTail = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                                  0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

void putLittle(std::vector<uint8_t>& out, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void putTag(std::vector<uint8_t>& out, std::string_view tag) {
  for (const char letter : tag) out.push_back(static_cast<uint8_t>(letter));
}

// The ds64 chunk.
void putWideSizes(std::vector<uint8_t>& out, uint64_t riff, uint64_t data, uint64_t frames) {
  putTag(out, "ds64");
  putLittle(out, kSizes64Bytes, 4);
  putLittle(out, riff, 8);
  putLittle(out, data, 8);
  putLittle(out, frames, 8);
  putLittle(out, 0, 4);  // entries of a table of other chunks' sizes
}

uint64_t getLittle(std::span<const uint8_t> bytes) {
  uint64_t value = 0;
  for (size_t i = 0; i < bytes.size(); ++i) value |= uint64_t{bytes[i]} << (8 * i);
  return value;
}

std::string_view asTag(std::span<const uint8_t> bytes) {
  static_assert(sizeof(char) == sizeof(uint8_t));
  return {static_cast<const char*>(static_cast<const void*>(bytes.data())), 4};
}

// A chunk's name for a message.
std::string shown(std::string_view tag) {
  std::string out = "\"";
  for (const char c : tag) out += c >= 0x20 && c < 0x7F ? c : '?';
  return out + "\"";
}

std::string formatName(uint64_t code) {
  if (code == kFormatFloat) return "floating point";
  return "format code " + std::to_string(code);
}

std::string formatFault(const WaveFormat& format) {
  if (format.channels == 0 || format.channels > kMaxChannels) {
    return std::to_string(format.channels) + " channels; 1 to 255 are possible";
  }
  if (format.sampleRate == 0) return "a sample rate of zero";
  if (format.bitsPerSample != 16 && format.bitsPerSample != 24 && format.bitsPerSample != 32) {
    return std::to_string(format.bitsPerSample) + " bits a sample; 16, 24 and 32 are supported";
  }
  if (format.validBits > format.bitsPerSample) {
    return std::to_string(format.validBits) + " valid bits of " +
           std::to_string(format.bitsPerSample);
  }
  if (uint64_t{format.sampleRate} * format.bytesPerFrame() > 0xFFFFFFFF) {
    return "a data rate beyond the format's";
  }
  return {};
}

int32_t signExtend(uint32_t value, uint32_t bits) {
  const uint32_t shift = 32 - bits;
  return static_cast<int32_t>(value << shift) >> shift;
}

}  // namespace

uint32_t usualChannelMask(uint32_t channels) {
  switch (channels) {
    case 1:
      return 0x4;  // front centre
    case 2:
      return 0x3;  // front left and right
    case 4:
      return 0x33;  // and back left and right
    case 6:
      return 0x3F;  // 5.1, surrounds at the back
    case 8:
      return 0x63F;  // 7.1, surrounds at back and sides
    default:
      return 0;
  }
}

bool WaveReader::fail(std::string text) {
  const std::string& cause = source_.error();
  if (cause.empty()) {
    error_ = std::move(text);
  } else {
    error_ = cause;
  }
  return false;
}

bool WaveReader::readRiffHeader() {
  std::array<uint8_t, 12> riff{};
  const size_t got = source_.read(riff);
  if (got < riff.size()) return fail("no Wave file: only " + std::to_string(got) + " bytes");
  const std::string_view id = asTag(std::span(riff).first(4));
  const std::string_view form = asTag(std::span(riff).subspan(8, 4));
  wide_ = id == "RF64" || id == "BW64";
  if (id != "RIFF" && !wide_) return fail("no Wave file: it begins with " + shown(id));
  if (form != "WAVE") return fail("no Wave file: RIFF of the form " + shown(form));
  return true;
}

bool WaveReader::readHeader() {
  if (!error_.empty() || !readRiffHeader()) return false;
  bool haveFormat = false;
  for (;;) {
    std::array<uint8_t, 8> head{};
    if (source_.read(head) < head.size()) {
      return fail(haveFormat ? "Wave file without a data chunk" : "Wave file without a fmt chunk");
    }
    const std::string_view tag = asTag(head);
    const uint64_t bytes = getLittle(std::span(head).subspan(4, 4));
    if (tag == "data") {
      if (!haveFormat) return fail("Wave file with its data before its format");
      dataBytes_ = bytes == kUnknownSize && haveSizes64_ ? dataBytes64_ : bytes;
      // Both are in use for "not known": all ones, and, by writers that were cut off before they
      // came to patch it, zero.
      lengthKnown_ = (bytes != kUnknownSize || haveSizes64_) && dataBytes_ != 0;
      ready_ = true;
      return true;
    }
    if (tag == "fmt ") {
      if (!readFormatChunk(bytes)) return false;
      haveFormat = true;
    } else if (tag == "ds64" && wide_) {
      if (!readSizes64(bytes)) return false;
    } else if (!skipChunk(bytes)) {
      return fail("Wave file cut short in chunk " + shown(tag));
    }
  }
}

// Chunks start at even offsets: an odd one is followed by a byte of padding.
bool WaveReader::skipChunk(uint64_t bytes) {
  const uint64_t padded = bytes + (bytes & 1);
  return source_.skip(padded) == padded;
}

bool WaveReader::readSizes64(uint64_t chunkBytes) {
  std::array<uint8_t, kSizes64Bytes> sizes{};
  if (chunkBytes < sizes.size()) {
    return fail("ds64 chunk of " + std::to_string(chunkBytes) + " bytes, it takes 28");
  }
  if (source_.read(sizes) < sizes.size() || !skipChunk(chunkBytes - sizes.size())) {
    return fail("Wave file cut short in its ds64 chunk");
  }
  dataBytes64_ = getLittle(std::span(sizes).subspan(8, 8));
  haveSizes64_ = true;
  return true;
}

bool WaveReader::readFormatChunk(uint64_t chunkBytes) {
  if (chunkBytes < 16 || chunkBytes > kMaxFormatBytes) {
    return fail("fmt chunk of " + std::to_string(chunkBytes) + " bytes");
  }
  std::vector<uint8_t> chunk(static_cast<size_t>(chunkBytes + (chunkBytes & 1)));
  if (source_.read(chunk) < chunk.size()) return fail("Wave file cut short in its fmt chunk");
  const auto field = [&](size_t offset, size_t bytes) {
    return static_cast<uint32_t>(getLittle(std::span(chunk).subspan(offset, bytes)));
  };
  format_.channels = field(2, 2);
  format_.sampleRate = field(4, 4);
  format_.bitsPerSample = field(14, 2);
  uint32_t code = field(0, 2);
  if (code == kFormatExtensible) {
    if (chunkBytes < 40) {
      return fail("extensible fmt chunk of " + std::to_string(chunkBytes) + " bytes, it takes 40");
    }
    if (!std::equal(kSubtypeTail.begin(), kSubtypeTail.end(), chunk.begin() + 26)) {
      return fail("Wave file of an unknown extensible format");
    }
    format_.validBits = field(18, 2);
    format_.channelMask = field(20, 4);
    code = field(24, 2);
  }
  if (code != kFormatPcm) return fail("Wave file of " + formatName(code) + "; linear PCM is read");
  if (const std::string fault = formatFault(format_); !fault.empty()) {
    return fail("Wave file of " + fault);
  }
  if (field(12, 2) != format_.bytesPerFrame()) {
    return fail("Wave file whose frame of " + std::to_string(field(12, 2)) + " bytes should be " +
                std::to_string(format_.bytesPerFrame()));
  }
  return true;
}

size_t WaveReader::read(std::span<int32_t> samples) {
  if (!ready_ || !error_.empty()) return 0;
  assert(samples.size() % format_.channels == 0);
  const uint32_t frameBytes = format_.bytesPerFrame();
  uint64_t want = samples.size() / format_.channels;
  if (lengthKnown_) want = std::min(want, frames() - framesRead_);
  buffer_.resize(static_cast<size_t>(want) * frameBytes);
  const size_t gotBytes = source_.read(buffer_);
  const size_t got = gotBytes / frameBytes;
  if (!source_.error().empty()) error_ = source_.error();
  if (gotBytes < buffer_.size() && (lengthKnown_ || gotBytes % frameBytes != 0)) truncated_ = true;

  const uint32_t bytes = format_.bitsPerSample / 8;
  const uint8_t* from = buffer_.data();
  for (size_t i = 0; i < got * format_.channels; ++i, from += bytes) {
    uint32_t value = uint32_t{from[0]} | uint32_t{from[1]} << 8;
    if (bytes > 2) value |= uint32_t{from[2]} << 16;
    if (bytes > 3) value |= uint32_t{from[3]} << 24;
    samples[i] = signExtend(value, format_.bitsPerSample);
  }
  framesRead_ += got;
  return got;
}

bool WaveWriter::fail(std::string text) {
  error_ = std::move(text);
  return false;
}

bool WaveWriter::put(std::span<const uint8_t> bytes) {
  return sink_.write(bytes) || fail(sink_.error());
}

bool WaveWriter::checkFormat(const WaveFormat& format) {
  if (!error_.empty()) return false;
  if (headerBytes_ != 0) return fail("the header has been written already");
  if (const std::string fault = formatFault(format); !fault.empty()) {
    return fail("a Wave file cannot have " + fault);
  }
  format_ = format;
  if (format_.validBits == 0) format_.validBits = format_.bitsPerSample;
  return true;
}

bool WaveWriter::writeHeader(const WaveFormat& format, WaveGrowth growth) {
  if (!checkFormat(format)) return false;
  growth_ = sink_.canPatch() ? growth : WaveGrowth::kPlain;
  return putHeader(growth_ == WaveGrowth::kMayBecomeRf64);
}

bool WaveWriter::writeHeaderOf(const WaveFormat& format, uint64_t frames) {
  if (!checkFormat(format)) return false;
  if (frames > kMostFrames) return fail("a Wave file of " + std::to_string(frames) + " frames");
  promised_ = frames;
  growth_ = WaveGrowth::kMayBecomeRf64;  // no limit of its own
  return putHeader(dataBytesOf(frames) >= kUnknownSize - kMostHeaderBytes);
}

bool WaveWriter::putHeader(bool roomForWideSizes) {
  const bool extensible = format_.channels > 2 || format_.bitsPerSample > 16 ||
                          format_.channelMask != 0 || format_.validBits != format_.bitsPerSample;
  const uint32_t formatBytes = extensible ? 40 : 16;
  headerBytes_ = 12 + (roomForWideSizes ? 8 + kSizes64Bytes : 0) + 8 + formatBytes + 8;
  const bool wide = roomForWideSizes && promised_;
  const bool known = promised_ && !wide;
  const uint64_t dataBytes = dataBytesOf(promised_.value_or(0));
  const uint64_t riffBytes = headerBytes_ - 8 + dataBytes + (dataBytes & 1);

  std::vector<uint8_t> header;
  putTag(header, wide ? "RF64" : "RIFF");
  putLittle(header, known ? riffBytes : kUnknownSize, 4);
  putTag(header, "WAVE");
  if (wide) {
    putWideSizes(header, riffBytes, dataBytes, *promised_);
  } else if (roomForWideSizes) {
    putTag(header, "JUNK");
    putLittle(header, kSizes64Bytes, 4);
    header.resize(header.size() + kSizes64Bytes);
  }
  putTag(header, "fmt ");
  putLittle(header, formatBytes, 4);
  putLittle(header, extensible ? kFormatExtensible : kFormatPcm, 2);
  putLittle(header, format_.channels, 2);
  putLittle(header, format_.sampleRate, 4);
  putLittle(header, uint64_t{format_.sampleRate} * format_.bytesPerFrame(), 4);
  putLittle(header, format_.bytesPerFrame(), 2);
  putLittle(header, format_.bitsPerSample, 2);
  if (extensible) {
    putLittle(header, 22, 2);  // bytes of the extension
    putLittle(header, format_.validBits, 2);
    putLittle(header, format_.channelMask, 4);
    putLittle(header, kFormatPcm, 2);
    for (const uint8_t byte : kSubtypeTail) header.push_back(byte);
  }
  putTag(header, "data");
  putLittle(header, known ? dataBytes : kUnknownSize, 4);
  assert(header.size() == headerBytes_);
  return put(header);
}

bool WaveWriter::write(std::span<const int32_t> samples) {
  if (!error_.empty()) return false;
  if (headerBytes_ == 0 || finished_) return fail("samples outside of an open Wave file");
  if (samples.size() % format_.channels != 0) return fail("samples that are no whole frames");
  const uint64_t frames = framesWritten_ + samples.size() / format_.channels;
  const uint64_t fileBytes = headerBytes_ + frames * format_.bytesPerFrame() + 1;
  if (sink_.canPatch() && growth_ == WaveGrowth::kPlain && fileBytes > kUnknownSize) {
    return fail("a plain Wave file cannot pass 4 GiB");
  }
  const uint32_t bytes = format_.bitsPerSample / 8;
  if (bytes == 4 && std::endian::native == std::endian::little) {
    const void* const stored = samples.data();
    if (!put({static_cast<const uint8_t*>(stored), samples.size_bytes()})) return false;
    framesWritten_ = frames;
    return true;
  }
  buffer_.resize(samples.size() * bytes);
  uint8_t* to = buffer_.data();
  for (const int32_t sample : samples) {
    const auto value = static_cast<uint32_t>(sample);
    to[0] = static_cast<uint8_t>(value);
    to[1] = static_cast<uint8_t>(value >> 8);
    if (bytes > 2) to[2] = static_cast<uint8_t>(value >> 16);
    if (bytes > 3) to[3] = static_cast<uint8_t>(value >> 24);
    to += bytes;
  }
  if (!put(buffer_)) return false;
  framesWritten_ = frames;
  return true;
}

bool WaveWriter::patchSizes() {
  const uint64_t dataBytes = dataBytesOf(framesWritten_);
  const uint64_t riffBytes = headerBytes_ - 8 + dataBytes + (dataBytes & 1);
  const auto patch = [this](uint64_t offset, const std::vector<uint8_t>& bytes) {
    return sink_.patch(offset, bytes) || fail(sink_.error());
  };
  std::vector<uint8_t> bytes;
  if (riffBytes < kUnknownSize) {
    putLittle(bytes, riffBytes, 4);
    if (!patch(4, bytes)) return false;
    bytes.clear();
    putLittle(bytes, dataBytes, 4);
    return patch(headerBytes_ - 4, bytes);
  }
  // The 32-bit sizes stay all ones; the reserved chunk becomes the one that counts.
  putTag(bytes, "RF64");
  if (!patch(0, bytes)) return false;
  bytes.clear();
  putWideSizes(bytes, riffBytes, dataBytes, framesWritten_);
  return patch(kSizes64Offset, bytes);
}

bool WaveWriter::finish() {
  if (!error_.empty()) return false;
  if (headerBytes_ == 0 || finished_) return fail("no open Wave file to finish");
  finished_ = true;
  if (promised_ && framesWritten_ != *promised_) {
    return fail(std::to_string(framesWritten_) + " frames were written of the " +
                std::to_string(*promised_) + " that the header tells of");
  }
  const bool fixable = sink_.canPatch() && !promised_;
  constexpr uint8_t kPadding[] = {0};
  const bool odd = dataBytesOf(framesWritten_) % 2 != 0;
  if (odd && (fixable || promised_) && !put(kPadding)) return false;
  return !fixable || patchSizes();
}

}  // namespace zel::media
