#include "tools/zel/testsrc/tile_kernels.h"

namespace zel::testsrc {

void sampleTileScalar(const TileLine& line, int count, int16_t* out) {
  const uint32_t mask = (1u << line.bits) - 1;
  uint32_t u = line.u;
  uint32_t v = line.v;
  for (int i = 0; i < count; ++i, u += line.du, v += line.dv) {
    const uint32_t quad = line.quads[((v >> 16 & mask) << line.bits) | (u >> 16 & mask)];
    const uint32_t shareX = u >> 8 & 0xFF;
    const uint32_t shareY = v >> 8 & 0xFF;
    // Both rows at once: the upper one's points in the lower halves of two words.
    const uint32_t left = quad & 0x00FF00FF;
    const uint32_t right = quad >> 8 & 0x00FF00FF;
    const uint32_t rows = left * (256 - shareX) + right * shareX;
    const uint32_t sum = (rows & 0xFFFF) * (256 - shareY) + (rows >> 16) * shareY;
    out[i] = static_cast<int16_t>(sum >> 12);
  }
}

}  // namespace zel::testsrc
