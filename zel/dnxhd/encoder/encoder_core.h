#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/bitstream/hd_bit_stream_gen.h"
#include "zel/dnxhd/encoder/frame_arrays.h"
#include "zel/dnxhd/encoder/input_format_and_fdct.h"
#include "zel/dnxhd/encoder/job_plan.h"
#include "zel/dnxhd/encoder/row_source.h"
#include "zel/dnxhd/jobs/job_list_mgr.h"
#include "zel/dnxhd/jobs/thread_foreman.h"
#include "zel/dnxhd/rate_control/hd_enc_main_body.h"
#include "zel/dnxhd/result_words.h"

// The encoder: three stages, each cut into jobs, with a barrier behind each. Every frame is coded
// on its own, into exactly the bytes that its id has.

namespace zel::dnxhd {

/// One thread at a time calls an encoder. Its workers are its own.
class EncoderCore {
 public:
  /// Throws std::bad_alloc when there is no memory for the largest frame.
  EncoderCore();
  ~EncoderCore();
  EncoderCore(const EncoderCore&) = delete;
  EncoderCore& operator=(const EncoderCore&) = delete;

  /// Takes on the id of `entry`, a row of VCIDTable, with samples from `source`, and rebuilds the
  /// jobs for the thread count that was last set; 1 at first.
  /// @return kErrorInMemoryAllocation for want of memory, or for an id whose frames have neither 45
  /// nor 68 macroblock rows; kErrorEncodeModeNotSupported for one that has neither one picture nor
  /// two; kErrorNoInitialization for a null source. The encoder is then without a configuration.
  ResultWord Configure(const VCIDEntry& entry, std::unique_ptr<const RowSource> source);

  /// Another source of samples for the same id, between frames. @return kErrorNoInitialization for
  /// null, and the one before stays.
  ResultWord SetSource(std::unique_ptr<const RowSource> source);

  /// Sets the thread count and, once there is a configuration, rebuilds jobs and handlers. A count
  /// of 0 or less ends the workers; the next count above 0 makes them anew.
  /// @return kErrorInMemoryAllocation as Configure, or when threads ran out.
  ResultWord RebuildJobs(int32_t threads);

  /// Encodes one frame into the first frameBytes of `output`. On failure what is in them is to be
  /// discarded.
  /// @return kErrorNoInitialization without a configuration or workers, or for null `input`;
  /// kErrorEncodeBufferOverflow for an output that is shorter, or a frame that doesn't fit;
  /// kErrorInBitCost when rate control finds no fit; what the source gives; kErrorFatalException
  /// when a worker failed.
  ResultWord EncodeFrame(const void* input, std::span<uint8_t> output);

  /// Which controller finds the quantisers. Each rebuild of the jobs sets it to the search.
  void SetCodingControl(CodingControl control) { codingControl_ = control; }

  /// What the last frame was coded with, by macroblock, picture behind picture.
  std::span<const uint16_t> ChosenLevels() const;
  std::span<const uint32_t> FieldFlags() const;
  const JobPlan& Plan() const { return plan_; }

 private:
  // The jobs of a stage with their records. Addresses of both are handed on: they are made once for
  // a plan and stay.
  template <typename Parameters, typename Handler>
  struct Stage {
    JobListMgr manager;
    std::vector<CodecJob> jobs;
    std::vector<Parameters> parameters;
    std::vector<std::unique_ptr<Handler>> handlers;
  };

  ResultWord BuildJobs();
  template <typename AnyStage>
  ResultWord FillStage(AnyStage& stage, size_t jobs, size_t handlers);
  ResultWord RunStage(JobListMgr& manager, std::span<CodecJob> jobs);

  void PrepareTransform(const void* input);
  void PrepareSearch(uint32_t jobsPerField);
  void PrepareWriting(std::span<uint8_t> output, bool wholePictures);
  ResultWord EncodeBySearch(std::span<uint8_t> output);
  ResultWord EncodeByModel(std::span<uint8_t> output);
  bool CoarsenSteps(size_t picture);
  ResultWord SetRowOffsets(std::span<uint8_t> picture, size_t index);
  std::span<uint8_t> PictureOf(std::span<uint8_t> output, size_t picture) const;
  RowInput RowsFrom(size_t firstMacroblock) const;

  FrameArrays arrays_;
  ThreadForeman foreman_;
  int32_t threads_ = 1;
  CodingControl codingControl_ = kSearchControl;

  const VCIDEntry* entry_ = nullptr;
  std::unique_ptr<const RowSource> source_;
  std::unique_ptr<const TransformTables> tables_;
  std::unique_ptr<const RowWriter> writer_;
  JobPlan plan_{};
  bool ready_ = false;

  Stage<TransformParameters, InputFormatAndFDCTRes> transform_;
  Stage<SearchParameters, HDEncMainBody> search_;
  Stage<WriteParameters, HDBitStreamGen> write_;
  // By picture; one more than there are rows.
  std::array<std::array<uint32_t, kMaxMbRows + 1>, 2> rowOffsets_{};
};

}  // namespace zel::dnxhd
