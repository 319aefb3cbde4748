#include "zel/mux/engine/audio/descriptors.h"

#include <algorithm>
#include <utility>

namespace zel::mux {
namespace {

constexpr uint8_t kRegistrationTag = 0x05;
constexpr uint8_t kDvbAc3Tag = 0x6A;
constexpr uint8_t kDvbEac3Tag = 0x7A;
constexpr uint8_t kDvbDtsTag = 0x7B;
constexpr uint8_t kAtscAc3Tag = 0x81;
constexpr uint8_t kAtscEac3Tag = 0xCC;
constexpr uint8_t kSurroundEncoded = 2;  // dsurmod

uint8_t byte(uint32_t value) {
  return static_cast<uint8_t>(value);
}

// Main services are complete; ME, D and the voice over (bsmod 7 with one channel) are to be mixed
// with another, and VI, HI and C are taken for it, since the stream doesn't say.
bool full_service(uint8_t bsmod, uint8_t acmod) {
  return bsmod == 0 || (bsmod == 7 && acmod != 1);
}

// EN 300 468 table D.5 and A/52 table G.1.
uint32_t channel_code(uint8_t acmod, uint8_t dsurmod, int channels) {
  if (channels > 6) return 5;
  switch (acmod) {
    case 0:
      return 1;
    case 1:
      return 0;
    case 2:
      return dsurmod == kSurroundEncoded ? 3 : 2;
    default:
      return 4;
  }
}

uint8_t component_type(bool enhanced, uint8_t bsmod, uint8_t acmod, uint8_t dsurmod, int channels) {
  return byte((enhanced ? 0x80u : 0u) | (full_service(bsmod, acmod) ? 0x40u : 0u) |
              uint32_t{bsmod} << 3 | channel_code(acmod, dsurmod, channels));
}

}  // namespace

descriptor_bytes registration_descriptor(std::string_view fourCharacters) {
  descriptor_bytes descriptor{kRegistrationTag, byte(static_cast<uint32_t>(fourCharacters.size()))};
  for (const char character : fourCharacters) descriptor.push_back(static_cast<uint8_t>(character));
  return descriptor;
}

descriptor_bytes atsc_ac3_descriptor(const syntax::Ac3Header& header) {
  // num_channels below 8 is acmod itself; bit_rate_code with bit 5 clear is the exact rate.
  const uint32_t rate = header.frmsizecod / 2u;
  const bool full = full_service(header.bsmod, header.acmod);
  descriptor_bytes descriptor;
  descriptor.reserve(10);
  descriptor.push_back(kAtscAc3Tag);
  descriptor.push_back(0);  // the length, below
  descriptor.push_back(byte(uint32_t{header.fscod} << 5 | header.bsid));
  descriptor.push_back(byte(rate << 2 | header.dsurmod));
  descriptor.push_back(
      byte(uint32_t{header.bsmod} << 5 | uint32_t{header.acmod} << 1 | (full ? 1u : 0u)));
  descriptor.push_back(header.langcode ? header.langcod : uint8_t{0xFF});
  if (header.acmod == 0) descriptor.push_back(header.langcod2e ? header.langcod2 : uint8_t{0xFF});
  // mainid 0, priority not told; associated services: with which main service isn't known, so all.
  descriptor.push_back(header.bsmod < 2 ? uint8_t{0x1F} : uint8_t{0xFF});
  descriptor.push_back(0x01);  // no text
  descriptor.push_back(0x3F);  // no language
  descriptor[1] = byte(static_cast<uint32_t>(descriptor.size() - 2));
  return descriptor;
}

descriptor_bytes dvb_ac3_descriptor(const syntax::Ac3Header& header) {
  const int channels = syntax::ac3Channels(header.acmod) + (header.lfeon ? 1 : 0);
  return {kDvbAc3Tag, 3, 0xC0,
          component_type(false, header.bsmod, header.acmod, header.dsurmod, channels), header.bsid};
}

namespace {

constexpr int kMostOtherProgrammes = 3;

// The flags substream1_flag to substream3_flag, the first of them highest.
uint8_t substream_flags(std::span<const eac3_programme> others) {
  uint32_t flags = 0;
  for (const eac3_programme& each : others) {
    if (each.header.substreamid >= 1 && each.header.substreamid <= kMostOtherProgrammes) {
      flags |= 1u << (kMostOtherProgrammes - each.header.substreamid);
    }
  }
  return byte(flags);
}

// The bytes substream1 to substream3 of those that are there: whether there is mixing metadata,
// full service, service type, number of channels.
void add_substreams(descriptor_bytes& descriptor, std::span<const eac3_programme> others) {
  for (int number = 1; number <= kMostOtherProgrammes; ++number) {
    for (const eac3_programme& each : others) {
      const syntax::Eac3Header& header = each.header;
      if (header.substreamid != number) continue;
      descriptor.push_back(byte(
          (header.mixmdate ? 0x80u : 0u) | (full_service(header.bsmod, header.acmod) ? 0x40u : 0u) |
          uint32_t{header.bsmod} << 3 | channel_code(header.acmod, header.dsurmod, each.channels)));
      break;
    }
  }
}

void set_length(descriptor_bytes& descriptor) {
  descriptor[1] = byte(static_cast<uint32_t>(descriptor.size() - 2));
}

}  // namespace

descriptor_bytes atsc_eac3_descriptor(const syntax::Eac3Header& header, int channels,
                                      std::span<const eac3_programme> others) {
  const bool full = full_service(header.bsmod, header.acmod);
  descriptor_bytes descriptor = {
      kAtscEac3Tag, 0,
      byte(0x80u | 0x40u | (header.mixmdate ? 0x08u : 0u) | substream_flags(others)),
      byte(0x80u | (full ? 0x40u : 0u) | uint32_t{header.bsmod} << 3 |
           channel_code(header.acmod, header.dsurmod, channels)),
      byte(0x20u | header.bsid)};
  add_substreams(descriptor, others);
  // Each has a language too, which nobody tells here.
  for (uint32_t flags = substream_flags(others); flags != 0; flags &= flags - 1) {
    descriptor.insert(descriptor.end(), {'u', 'n', 'd'});
  }
  set_length(descriptor);
  return descriptor;
}

descriptor_bytes dvb_eac3_descriptor(const syntax::Eac3Header& header, int channels,
                                     std::span<const eac3_programme> others) {
  constexpr uint32_t kSeveralSubstreams = 6;  // in the place of the number of channels
  constexpr uint32_t kChannels = 7;
  uint32_t type = component_type(true, header.bsmod, header.acmod, header.dsurmod, channels);
  if (!others.empty()) type = (type & ~kChannels) | kSeveralSubstreams;
  descriptor_bytes descriptor = {
      kDvbEac3Tag, 0, byte(0xC0u | (header.mixmdate ? 0x08u : 0u) | substream_flags(others)),
      byte(type), header.bsid};
  add_substreams(descriptor, others);
  set_length(descriptor);
  return descriptor;
}

std::string_view dts_format_identifier(uint32_t coreSamples, bool hasExtension) {
  if (hasExtension) return "DTSH";
  if (coreSamples <= 512) return "DTS1";
  return coreSamples <= 1024 ? "DTS2" : "DTS3";
}

descriptor_bytes dvb_dts_descriptor(const syntax::DtsCoreHeader& header) {
  // sample_rate_code 4, bit_rate_code 6, nblks 7, fsize 14, surround_mode 6, lfe_flag 1,
  // extended_surround_flag 2.
  const bool discreteSurround =
      header.extAudio && (header.extAudioId == 0 || header.extAudioId == 6);
  uint64_t bits = header.sfreq;
  bits = bits << 6 | header.rate;
  bits = bits << 7 | header.nblks;
  bits = bits << 14 | header.fsize;
  bits = bits << 6 | header.amode;
  bits = bits << 1 | (header.lff == 1 || header.lff == 2 ? 1u : 0u);
  bits = bits << 2 | (discreteSurround ? 2u : 0u);
  descriptor_bytes descriptor{kDvbDtsTag, 5};
  for (int shift = 32; shift >= 0; shift -= 8) {
    descriptor.push_back(static_cast<uint8_t>(bits >> shift));
  }
  return descriptor;
}

void add_automatic_descriptor(std::vector<descriptor_bytes>& list, descriptor_bytes descriptor) {
  const auto stands = [&](const descriptor_bytes& other) {
    if (other == descriptor) return true;
    return descriptor.front() == kRegistrationTag && !other.empty() &&
           other.front() == kRegistrationTag;
  };
  if (std::none_of(list.begin(), list.end(), stands)) list.push_back(std::move(descriptor));
}

}  // namespace zel::mux
