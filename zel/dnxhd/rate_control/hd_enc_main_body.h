#pragma once

#include <cstdint>

#include "zel/dnxhd/jobs/codec_job.h"
#include "zel/dnxhd/rate_control/lllm_controller.h"
#include "zel/dnxhd/rate_control/macroblock_bits.h"
#include "zel/dnxhd/rate_control/rd_opt_controller.h"

// Stage 2 of the encoder: a quantiser for every macroblock of a job's share.

namespace zel::dnxhd {

enum CodingControl : int32_t { kModelControl = 0, kSearchControl = 1 };

/// What a job of stage 2 works on: a picture's arrays, of which it writes its share.
struct SearchParameters {
  CodingControl control = kSearchControl;
  MacroblockPlane plane;
  const BitCost* cost = nullptr;
  uint16_t mbRows = 0;
  uint16_t mbCols = 0;
  uint32_t jobsPerField = 1;
  uint32_t targetBits = 0;  // of the share, without macroblock headers
  uint32_t macroblockCount = 0;
  uint16_t* rateTable = nullptr;  // 8 a macroblock
  bool ratesAreExact = false;     // they need no second count
  uint8_t* levelRange = nullptr;  // 2 a macroblock
  uint16_t* chosenLevel = nullptr;
  uint16_t* chosenBits = nullptr;

  // The model's own. It takes a whole picture, and writes steps to `chosenLevel`.
  LLLMParameters model;
  uint32_t pictureBytes = 0;
  uint32_t longestStep = 0;  // that a macroblock header has room for
};

class HDEncMainBody : public IJobHandler {
 public:
  /// Takes SearchParameters. @return besides what the set-up of the controllers gives:
  /// kErrorNoInitialization without parameters, kErrorInBitCost when the share fits its bits at no
  /// level.
  int32_t Execute(CodecJob* job) override;

 private:
  struct Share;
  int32_t Search(const SearchParameters& parameters, int32_t jobIndex);
  int32_t RunSearch(const SearchParameters& parameters, int32_t jobIndex);
  int32_t Recover(const Share& share, int32_t jobIndex);
  int32_t Model(const SearchParameters& parameters);

  RDOptController search_;
  LLLMController model_;
};

}  // namespace zel::dnxhd
