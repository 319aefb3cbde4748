#include "zel/syntax/avc_nal.h"

#include "zel/base/bit_reader.h"

namespace zel::syntax {

namespace {

using base::BitReader;

void readScalable(BitReader& bits, AvcNalHeader& header) {
  header.idr = bits.readFlag();
  header.priorityId = static_cast<uint8_t>(bits.read(6));
  header.noInterLayerPrediction = bits.readFlag();
  header.dependencyId = static_cast<uint8_t>(bits.read(3));
  header.qualityId = static_cast<uint8_t>(bits.read(4));
  header.temporalId = static_cast<uint8_t>(bits.read(3));
  header.useRefBasePicture = bits.readFlag();
  header.discardable = bits.readFlag();
  header.output = bits.readFlag();
  bits.skip(2);
}

void readMultiview(BitReader& bits, AvcNalHeader& header) {
  header.idr = !bits.readFlag();
  header.priorityId = static_cast<uint8_t>(bits.read(6));
  header.viewId = static_cast<uint16_t>(bits.read(10));
  header.temporalId = static_cast<uint8_t>(bits.read(3));
  header.anchorPicture = bits.readFlag();
  header.interView = bits.readFlag();
  bits.skip(1);
}

}  // namespace

bool parseAvcNalHeader(std::span<const uint8_t> unit, AvcNalHeader& header) {
  BitReader bits(unit);
  header = {};
  if (bits.readFlag()) return false;
  header.refIdc = static_cast<uint8_t>(bits.read(2));
  header.type = static_cast<uint8_t>(bits.read(5));
  header.hasExtension = header.type == kAvcPrefix || header.type == kAvcSliceExtension ||
                        header.type == kAvcSliceExtensionDepth;
  if (header.hasExtension) {
    const bool first = bits.readFlag();
    if (header.type == kAvcSliceExtensionDepth && first) {
      bits.skip(15);  // avc_3d_extension: two bytes in all
    } else {
      header.svc = first;
      if (header.svc) {
        readScalable(bits, header);
      } else {
        readMultiview(bits, header);
      }
    }
  } else {
    header.idr = header.type == kAvcIdrSlice;
  }
  header.size = static_cast<size_t>(bits.position() / 8);
  return !bits.failed();
}

}  // namespace zel::syntax
