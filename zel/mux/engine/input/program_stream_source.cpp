#include "zel/mux/engine/input/program_stream_source.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "zel/base/annex_b.h"
#include "zel/base/byte_order.h"

namespace zel::mux {

namespace {

constexpr size_t kWindow = 1 << 17;
constexpr size_t kPrefix = 3;
constexpr size_t kFixed = 6;  // prefix, stream_id, length
constexpr size_t kMpeg1Pack = 12;
constexpr size_t kMpeg2Pack = 14;
constexpr size_t kSubstreamHeader = 4;

bool starts_with_prefix(std::span<const uint8_t> bytes) {
  return bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1;
}

// Numbers of audio substreams: AC-3 and DTS, linear PCM, and what later discs added.
bool is_substream(uint8_t number) {
  return (number & 0xF0) == 0x80 || (number & 0xF0) == 0xA0 || (number & 0xF0) == 0xC0;
}

bool is_subpicture(uint8_t number) {
  return (number & 0xE0) == 0x20;
}

}  // namespace

program_stream_source::program_stream_source(std::unique_ptr<stream_source> bytes, int streamId,
                                             int subtype, source_fault_function fault)
    : window_(std::move(bytes), kWindow),
      streamId_(streamId),
      subtype_(subtype),
      fault_(std::move(fault)),
      subtypeKnown_(subtype != 0) {}

// False where the source ends before.
bool program_stream_source::drop(uint64_t count) {
  while (count > 0) {
    const size_t there = window_.look(1).size();
    if (there == 0) return false;
    const auto piece = static_cast<size_t>(std::min<uint64_t>(count, there));
    window_.drop(piece);
    count -= piece;
  }
  return true;
}

// On to the next start code of this layer: those of streams within lie below.
bool program_stream_source::resynchronise() {
  while (true) {
    const auto bytes = window_.look(kWindow / 2);
    if (bytes.size() < kPrefix + 1) return false;
    const size_t at = base::findStartCode(bytes, 0);
    if (at + kPrefix >= bytes.size()) {
      window_.drop(bytes.size() - kPrefix);
      if (window_.look(kPrefix + 1).size() == kPrefix) return false;
      continue;
    }
    window_.drop(at);
    if (bytes[at + kPrefix] >= syntax::kPesProgramEnd) return true;
    window_.drop(kPrefix);
  }
}

bool program_stream_source::pass_pack_header() {
  const auto bytes = window_.look(kMpeg2Pack);
  if (bytes.size() < kMpeg1Pack) return false;
  if ((bytes[4] & 0xF0) == 0x20) return drop(kMpeg1Pack);
  if ((bytes[4] & 0xC0) == 0x40 && bytes.size() >= kMpeg2Pack) {
    return drop(kMpeg2Pack + (bytes[13] & 7));
  }
  fault_(kPackHeaderWrong);
  window_.drop(kPrefix);
  return resynchronise();
}

// Whether the packet, of `size` bytes from here on, is of the substream that is wanted.
bool program_stream_source::enters_substream(size_t& size) {
  if (streamId_ != syntax::kPesPrivateStream1) return true;
  const auto bytes = window_.look(kSubstreamHeader);
  if (!subtypeKnown_) {
    // Subpictures aren't what anybody means who doesn't name them.
    if (size > 0 && !bytes.empty() && is_subpicture(bytes[0])) return false;
    subtypeKnown_ = true;
    subtype_ = size > 0 && !bytes.empty() && is_substream(bytes[0]) ? bytes[0] : 0;
  }
  if (subtype_ <= 0) return true;
  if (size < kSubstreamHeader || bytes.size() < kSubstreamHeader || bytes[0] != subtype_) {
    return false;
  }
  window_.drop(kSubstreamHeader);
  size -= kSubstreamHeader;
  return true;
}

// A packet of the wanted stream, of `size` bytes with its header.
bool program_stream_source::open_packet(size_t size) {
  const auto bytes = window_.look(std::min(size, syntax::kMostPesHeader));
  syntax::PesHeader header;
  const auto result = syntax::parsePesHeader(bytes.first(std::min(bytes.size(), size)), header);
  if (result != syntax::PesResult::whole) {
    fault_(result == syntax::PesResult::badMpeg1 ? kMpeg1HeaderWrong : kPesHeaderWrong);
    return drop(size);
  }
  window_.drop(header.size);
  size -= header.size;
  if (!enters_substream(size)) return drop(size);
  marks_.note(given_, header.pts, header.dts);
  if (firstPts_ < 0) {
    firstPts_ = header.pts;
    firstDts_ = header.dts;
  }
  left_ = size;
  return true;
}

// Takes what comes next; false at the end.
bool program_stream_source::next_packet() {
  const auto bytes = window_.look(kFixed);
  if (bytes.size() < kPrefix + 1) return false;
  if (!starts_with_prefix(bytes)) {
    fault_(kStartCodeMissing);
    return resynchronise();
  }
  const uint8_t code = bytes[kPrefix];
  if (code == syntax::kPesProgramEnd) return drop(kPrefix + 1);
  if (code == syntax::kPesPackHeader) return pass_pack_header();
  if (code < syntax::kPesProgramEnd) {
    fault_(kUnexpectedStreamId);
    window_.drop(kPrefix);
    return resynchronise();
  }
  if (bytes.size() < kFixed) return false;
  const size_t size = kFixed + base::loadBig16(bytes.data() + 4);
  return code == streamId_ ? open_packet(size) : drop(size);
}

int32_t program_stream_source::read(uint8_t* to, int32_t room) {
  int32_t done = 0;
  while (done < room) {
    if (left_ == 0) {
      if (!next_packet()) break;
      continue;
    }
    const auto bytes = window_.look(1);
    if (bytes.empty()) break;
    const size_t count = std::min({left_, bytes.size(), static_cast<size_t>(room - done)});
    std::memcpy(to + done, bytes.data(), count);
    window_.drop(count);
    left_ -= count;
    done += static_cast<int32_t>(count);
    given_ += static_cast<int64_t>(count);
  }
  return done;
}

}  // namespace zel::mux
