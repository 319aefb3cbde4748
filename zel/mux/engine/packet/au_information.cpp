#include "zel/mux/engine/packet/au_information.h"

#include "zel/base/byte_order.h"

namespace zel::mux {

std::array<uint8_t, kAuInformationBytes> au_information(video_coding coding,
                                                        const access_unit& unit) {
  constexpr uint8_t kTag = 2;
  constexpr uint8_t kLength = 6;
  constexpr int kAvc = 0x20;
  constexpr int kOther = 0x10;
  constexpr int kPtsPresent = 0x08;
  // picture_structure 1 top field, 2 bottom field, 3 frame.
  constexpr int kPictureStructures[4] = {0, 1, 2, 0};

  const int format = coding == video_coding::avc ? kAvc : kOther;
  const int structure = kPictureStructures[unit.fieldStructure & 3] + (unit.topFieldFirst ? 4 : 0);
  std::array<uint8_t, kAuInformationBytes> bytes{
      kTag, kLength, static_cast<uint8_t>(format | (unit.pictureType & 15)),
      static_cast<uint8_t>(structure << 4 | kPtsPresent)};
  const auto pts = static_cast<uint64_t>(unit.pts / 300.0);
  base::storeBig32(bytes.data() + 4, static_cast<uint32_t>(pts >> 1));
  return bytes;
}

}  // namespace zel::mux
