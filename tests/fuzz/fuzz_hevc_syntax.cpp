// Any bytes as a stream of HEVC: parameter sets are kept as a reader of streams keeps them, slices
// and messages are read by those that they name.

#include <array>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "zel/base/annex_b.h"
#include "zel/syntax/hevc_sei.h"
#include "zel/syntax/hevc_slice.h"
#include "zel/syntax/sei_message.h"

namespace {

using namespace zel::syntax;

struct Sets {
  std::array<HevcSps, 16> sps;
  std::array<HevcPps, 64> pps;
  HevcSliceHeader slice;
  HevcPictureOrderCounter order;
};

void readMessages(std::span<const uint8_t> rbsp, const HevcSps& sps) {
  SeiMessages messages(rbsp);
  SeiMessage message;
  while (messages.next(message)) {
    HevcBufferingPeriod period;
    HevcPicTiming timing;
    HevcPictureHash hash;
    HevcTimeCode timeCode;
    HevcMasteringDisplay display;
    HevcContentLight light;
    parseHevcBufferingPeriod(message.payload, sps, period);
    parseHevcPicTiming(message.payload, sps, timing);
    parseHevcPictureHash(message.payload, sps.chromaFormatIdc, hash);
    parseHevcTimeCode(message.payload, timeCode);
    parseHevcMasteringDisplay(message.payload, display);
    parseHevcContentLight(message.payload, light);
  }
}

void readSlice(std::span<const uint8_t> rbsp, const HevcNalHeader& nal, Sets& sets) {
  HevcSlicePeek peek;
  if (!peekHevcSlice(rbsp, nal.type, peek)) return;
  const HevcPps& pps = sets.pps[peek.ppsId];
  const HevcSps& sps = sets.sps[pps.spsId];
  if (sps.width == 0 || !hevcPpsFits(pps, sps)) return;
  if (!parseHevcSliceHeader(rbsp, nal, sps, pps, sets.slice)) return;
  if (sets.slice.dataOffset > rbsp.size() || sets.slice.numRefIdxL0 > kHevcMaxRefs) std::abort();
  sets.order.next(sps, sets.slice);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Sets sets;
  std::vector<uint8_t> rbsp;
  for (const zel::base::NalUnit& unit : zel::base::NalUnits({data, size})) {
    HevcNalHeader nal;
    if (!parseHevcNalHeader(unit.bytes, nal)) continue;
    zel::base::removeEmulationPrevention(unit.bytes.subspan(kHevcNalHeaderSize), rbsp);
    if (nal.type == kHevcVps) {
      HevcVps vps;
      parseHevcVps(rbsp, vps);
    } else if (nal.type == kHevcSps) {
      HevcSps sps;
      if (parseHevcSps(rbsp, sps)) sets.sps[sps.id] = sps;
    } else if (nal.type == kHevcPps) {
      HevcPps pps;
      if (parseHevcPps(rbsp, pps)) sets.pps[pps.id] = pps;
    } else if (nal.type == kHevcPrefixSei || nal.type == kHevcSuffixSei) {
      readMessages(rbsp, sets.sps[0]);
    } else if (hevcTypeIsVcl(nal.type)) {
      readSlice(rbsp, nal, sets);
    }
  }
  return 0;
}
