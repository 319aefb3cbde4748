#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "zel/syntax/ac3.h"
#include "zel/syntax/dts.h"
#include "zel/syntax/eac3.h"

/// The descriptors that audio streams get of themselves, each whole with tag and length.

namespace zel::mux {

using descriptor_bytes = std::vector<uint8_t>;

/// ISO/IEC 13818-1, 2.6.8: four characters that say who defines the stream.
descriptor_bytes registration_descriptor(std::string_view fourCharacters);

/// Tag 0x81 of ATSC A/52, A.4.3, with the language fields at "not told".
descriptor_bytes atsc_ac3_descriptor(const syntax::Ac3Header& header);
/// Tag 0x6A of EN 300 468, D.3, with component_type and bsid.
descriptor_bytes dvb_ac3_descriptor(const syntax::Ac3Header& header);

/// A programme that an E-AC-3 stream carries beside its first: an independent substream of number 1
/// to 3, with its dependent ones.
struct eac3_programme {
  syntax::Eac3Header header;
  int channels = 0;  // of all its substreams
};

/// Tag 0xCC of ATSC A/52, G.3.5. `channels` counts the whole first programme's, dependent
/// substreams included.
descriptor_bytes atsc_eac3_descriptor(const syntax::Eac3Header& header, int channels,
                                      std::span<const eac3_programme> others = {});
/// Tag 0x7A of EN 300 468, D.5.
descriptor_bytes dvb_eac3_descriptor(const syntax::Eac3Header& header, int channels,
                                     std::span<const eac3_programme> others = {});

/// Which format identifier a DTS stream has: by the samples of a core frame (ETSI TS 102 114), or
/// DTSH where extension substreams come with it or instead of it.
std::string_view dts_format_identifier(uint32_t coreSamples, bool hasExtension);
/// Tag 0x7B of EN 300 468, G.2.
descriptor_bytes dvb_dts_descriptor(const syntax::DtsCoreHeader& header);

/// Appends `descriptor` unless one with the same bytes stands there; a registration descriptor
/// (tag 5) not even beside another of its tag.
void add_automatic_descriptor(std::vector<descriptor_bytes>& list, descriptor_bytes descriptor);

}  // namespace zel::mux
