#include "zel/dnxhd/bitstream/vcid_table.h"
#include "zel/dnxhd/formatters/frame_format.h"
#include "zel/dnxhd/front_end/codec_context.h"
#include "zel/dnxhd/front_end/comp_info.h"
#include "zel/dnxhd/front_end/uncomp_info.h"
#include "zel/dnxhd/result_words.h"

namespace Morvalen::Zel {

using namespace zel::dnxhd;

int GetBufferRaster(uint32_t compressionId, UnCompInfo const& record, BufferRaster& raster) {
  raster = {};
  if (FindCompInfo(compressionId) == nullptr) return kErrorIdNotInCompInfo;
  if (!MakesSense(record, true)) return kErrorInUnCompInfo;
  const VCIDEntry& entry = *FindEntry(compressionId);
  const FrameFormat format = FormatOf(record);
  if (format.sampleType != kSamplesV210 &&
      BytesPerPixel(format.pixelLayout, format.sampleType) == 0) {
    return kErrorDecodeModeNotSupported;
  }
  const FrameRaster found = RasterOf(entry, format);
  raster = {found.width, found.lines, static_cast<uint32_t>(found.rowBytes),
            BufferBytes(entry, format)};
  return kSuccessful;
}

}  // namespace Morvalen::Zel
