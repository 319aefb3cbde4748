#pragma once

struct x265_param;

namespace zel::encoder {

/// Keeps x265 from instructions that this processor lacks, whatever "--asm" says.
/// @param detected the `cpuid` that x265 found by itself.
void LimitInstructions(x265_param& parameters, int detected);

/// Whether x265 survives these parameters: false for those that it accepts when it opens, and on
/// which it then crashes or hangs, or reads past the end of a 4:2:0 picture.
bool IsSafe(x265_param const& parameters);

}  // namespace zel::encoder
