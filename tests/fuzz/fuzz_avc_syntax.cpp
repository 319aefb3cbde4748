// Any bytes as a stream of AVC: parameter sets are kept as a reader of streams keeps them, slices
// and messages are read by those that they name.

#include <array>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "zel/base/annex_b.h"
#include "zel/syntax/avc_picture_order.h"
#include "zel/syntax/avc_sei.h"
#include "zel/syntax/sei_message.h"

namespace {

using namespace zel::syntax;

struct Sets {
  std::array<AvcSps, 32> sps;
  std::array<AvcPps, 256> pps;
  AvcPictureOrderCounter order;
};

void readMessages(std::span<const uint8_t> rbsp, const Sets& sets) {
  SeiMessages messages(rbsp);
  SeiMessage message;
  while (messages.next(message)) {
    AvcBufferingPeriod period;
    AvcPicTiming timing;
    AvcRecoveryPoint point;
    RegisteredUserData data;
    parseAvcBufferingPeriod(message.payload, sets.sps[0], period);
    parseAvcPicTiming(message.payload, sets.sps[0], timing);
    parseAvcRecoveryPoint(message.payload, point);
    parseRegisteredUserData(message.payload, data);
  }
}

void readSlice(std::span<const uint8_t> rbsp, const AvcNalHeader& nal, Sets& sets) {
  uint8_t id = 0;
  if (!peekAvcSlicePpsId(rbsp, id)) return;
  const AvcPps& pps = sets.pps[id];
  const AvcSps& sps = sets.sps[pps.spsId];
  AvcSliceHeader slice;
  if (!parseAvcSliceHeader(rbsp, nal, sps, pps, slice)) return;
  if (avcSliceBeginsPicture(slice, slice)) std::abort();
  sets.order.next(sps, slice);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Sets sets;
  sets = {};
  std::vector<uint8_t> rbsp;
  for (const zel::base::NalUnit& unit : zel::base::NalUnits({data, size})) {
    AvcNalHeader nal;
    if (!parseAvcNalHeader(unit.bytes, nal)) continue;
    zel::base::removeEmulationPrevention(unit.bytes.subspan(nal.size), rbsp);
    if (nal.type == kAvcSps) {
      AvcSps sps;
      if (parseAvcSps(rbsp, sps)) sets.sps[sps.id] = sps;
    } else if (nal.type == kAvcSubsetSps) {
      AvcSubsetSps sps;
      parseAvcSubsetSps(rbsp, sps);
    } else if (nal.type == kAvcPps) {
      AvcPps pps;
      if (parseAvcPps(rbsp, 1, pps)) sets.pps[pps.id] = pps;
    } else if (nal.type == kAvcSei) {
      readMessages(rbsp, sets);
    } else if (avcTypeIsVcl(nal.type) || nal.type == kAvcSliceExtension) {
      readSlice(rbsp, nal, sets);
    }
  }
  return 0;
}
