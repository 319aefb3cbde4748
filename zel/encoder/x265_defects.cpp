// x265 checks its parameters when it opens, and refuses most of what it can't do. What it lets
// through to its own harm is caught here, so that a command line can't take the process down. Found
// by trying random command lines on x265 3.5 (build 199), and seen in its own program too.

#include "zel/encoder/x265_defects.h"

#include <x265.h>

#include <cstdint>

namespace zel::encoder {
namespace {

// Pictures come as 4:2:0. With denser chroma x265 reads past their end; without chroma it reads the
// luma alone, which is there.
bool ReadsWithinPictures(x265_param const& parameters) {
  return parameters.internalCsp == X265_CSP_I420 || parameters.internalCsp == X265_CSP_I400;
}

// A shortest distance of key pictures that exceeds the longest one by more than 1 is a crash in the
// lookahead. Distances of 0 and 1 make every picture a key picture, negative ones set no limit.
bool HasPossibleKeyDistance(x265_param const& parameters) {
  int64_t const longest = parameters.keyframeMax;
  return longest <= 1 || parameters.keyframeMin <= longest + 1;
}

// Sample adaptive offset without deblocking, in wavefronts over one or two rows of coding tree
// units: the last row waits for ever.
bool FinishesItsRows(x265_param const& parameters) {
  bool const waits = parameters.bEnableSAO != 0 && parameters.bEnableLoopFilter == 0 &&
                     parameters.bEnableWavefront != 0;
  return !waits || parameters.sourceHeight > 2 * int64_t(parameters.maxCUSize);
}

}  // namespace

void LimitInstructions(x265_param& parameters, int detected) {
  parameters.cpuid &= detected;
}

bool IsSafe(x265_param const& parameters) {
  return ReadsWithinPictures(parameters) && HasPossibleKeyDistance(parameters) &&
         FinishesItsRows(parameters);
}

}  // namespace zel::encoder
