#include "zel/dnxhd/encoder/encoder_core.h"

#include <algorithm>
#include <new>

namespace zel::dnxhd {

namespace {

// The step has this many bits in a macroblock header, or one fewer beside a field flag.
constexpr uint32_t LongestStep(bool fieldFlag) {
  return fieldFlag ? (1u << 10) - 1 : (1u << 11) - 1;
}

}  // namespace

EncoderCore::EncoderCore() = default;

EncoderCore::~EncoderCore() {
  foreman_.DestroyWorkers();
}

ResultWord EncoderCore::Configure(const VCIDEntry& entry, std::unique_ptr<const RowSource> source) {
  ready_ = false;
  entry_ = nullptr;
  if (source == nullptr) return kErrorNoInitialization;
  if (entry.singlePicture > 1) return kErrorEncodeModeNotSupported;
  try {
    tables_ = std::make_unique<const TransformTables>(entry);
    writer_ = std::make_unique<const RowWriter>(entry);
  } catch (const std::bad_alloc&) {
    return kErrorInMemoryAllocation;
  }
  source_ = std::move(source);
  entry_ = &entry;
  const ResultWord result = RebuildJobs(threads_);
  if (result != kSuccessful) entry_ = nullptr;
  return result;
}

ResultWord EncoderCore::SetSource(std::unique_ptr<const RowSource> source) {
  if (source == nullptr) return kErrorNoInitialization;
  source_ = std::move(source);
  return kSuccessful;
}

ResultWord EncoderCore::RebuildJobs(int32_t threads) {
  ready_ = false;
  codingControl_ = kSearchControl;
  if (threads <= 0) {
    foreman_.DestroyWorkers();
    return kSuccessful;
  }
  threads_ = std::min(threads, ThreadForeman::kMaximumWorkers);
  if (foreman_.SetThreadCount(threads_) != 0) return kErrorInMemoryAllocation;
  if (entry_ == nullptr) return kSuccessful;
  try {
    return BuildJobs();
  } catch (const std::bad_alloc&) {
    return kErrorInMemoryAllocation;
  }
}

template <typename AnyStage>
ResultWord EncoderCore::FillStage(AnyStage& stage, size_t jobs, size_t handlers) {
  using Handler = typename decltype(stage.handlers)::value_type::element_type;
  stage.manager.ClearAll();
  stage.jobs.assign(jobs, {});
  stage.parameters.assign(jobs, {});
  stage.handlers.clear();
  for (size_t i = 0; i < handlers; ++i) stage.handlers.push_back(std::make_unique<Handler>());
  std::vector<CodecJob*> jobList;
  for (size_t i = 0; i < jobs; ++i) {
    stage.jobs[i].parameters = &stage.parameters[i];
    jobList.push_back(&stage.jobs[i]);
  }
  std::vector<IJobHandler*> handlerList;
  for (const auto& handler : stage.handlers) handlerList.push_back(handler.get());
  if (stage.manager.AddJobs(jobList.data(), jobList.size()) != 0 ||
      stage.manager.AddHandlers(handlerList.data(), handlerList.size()) != 0) {
    return kErrorInMemoryAllocation;
  }
  return kSuccessful;
}

ResultWord EncoderCore::BuildJobs() {
  if (!MakeJobPlan(tables_->geometry, threads_, plan_)) return kErrorInMemoryAllocation;
  if (FillStage(transform_, plan_.transformRows.size(), plan_.threads) != kSuccessful ||
      FillStage(search_, plan_.searchJobs, plan_.searchHandlers) != kSuccessful ||
      FillStage(write_, plan_.writeRows.size(), plan_.threads) != kSuccessful) {
    return kErrorInMemoryAllocation;
  }
  for (size_t i = 0; i < search_.jobs.size(); ++i) {
    search_.jobs[i].index = static_cast<int32_t>(i % plan_.jobsPerField);
  }
  ready_ = true;
  return kSuccessful;
}

std::span<uint8_t> EncoderCore::PictureOf(std::span<uint8_t> output, size_t picture) const {
  const size_t bytes = tables_->geometry.pictureBytes;
  return output.subspan(picture * bytes, bytes);
}

ResultWord EncoderCore::EncodeFrame(const void* input, std::span<uint8_t> output) {
  if (!ready_ || input == nullptr) return kErrorNoInitialization;
  if (output.size() < entry_->frameBytes) return kErrorEncodeBufferOverflow;
  const size_t pictures = tables_->geometry.pictures;
  for (size_t picture = 0; picture < pictures; ++picture) {
    const FieldCode code = pictures == 1  ? kProgressivePicture
                           : picture == 0 ? kFirstField
                                          : kSecondField;
    WriteFrameHeader(*entry_, code, PictureOf(output, picture).first<kHeaderBytes>());
  }
  PrepareTransform(input);
  const ResultWord result = RunStage(transform_.manager, transform_.jobs);
  if (result != kSuccessful) return result;
  return codingControl_ == kSearchControl ? EncodeBySearch(output) : EncodeByModel(output);
}

// Runs all jobs; the first error in the order of the jobs is the stage's.
ResultWord EncoderCore::RunStage(JobListMgr& manager, std::span<CodecJob> jobs) {
  manager.ResetJobs();
  if (foreman_.SetJobMgr(&manager) != 0) return kErrorFatalException;
  const int32_t run = foreman_.RunJobs(0, 0);
  for (const CodecJob& job : jobs) {
    if (job.error != kSuccessful) return static_cast<ResultWord>(job.error);
  }
  return run == 0 ? kSuccessful : kErrorFatalException;
}

void EncoderCore::PrepareTransform(const void* input) {
  const PictureGeometry& geometry = tables_->geometry;
  size_t row = 0;  // of the frame
  for (size_t i = 0; i < transform_.parameters.size(); ++i) {
    TransformParameters& job = transform_.parameters[i];
    job.tables = tables_.get();
    job.source = source_.get();
    job.frame = input;
    job.picture = row / geometry.mbRows;
    job.firstRow = row % geometry.mbRows;
    job.rowCount = plan_.transformRows[i];
    job.lastJobOfField = job.firstRow + job.rowCount == geometry.mbRows;
    job.arrays = &arrays_;
    job.firstMacroblock = row * geometry.mbCols;
    row += job.rowCount;
  }
}

void EncoderCore::PrepareSearch(uint32_t jobsPerField) {
  const PictureGeometry& geometry = tables_->geometry;
  const size_t macroblocks = size_t{geometry.mbRows} * geometry.mbCols;
  for (size_t i = 0; i < search_.parameters.size(); ++i) {
    SearchParameters& job = search_.parameters[i];
    const size_t first = i / jobsPerField * macroblocks;
    job.control = codingControl_;
    job.plane = {arrays_.coefficients.get() + first * BlocksOf(tables_->mode) * kBlockCoefficients,
                 arrays_.dcValues.get() + 3 * first, geometry.mbCols, tables_->mode};
    job.cost = &tables_->cost;
    job.mbRows = static_cast<uint16_t>(geometry.mbRows);
    job.mbCols = static_cast<uint16_t>(geometry.mbCols);
    job.jobsPerField = jobsPerField;
    job.targetBits = entry_->bitBudget / jobsPerField;
    job.macroblockCount = static_cast<uint32_t>(macroblocks / jobsPerField);
    job.rateTable = arrays_.rateTable.get() + kMaxLevels * first;
    job.ratesAreExact = true;
    job.levelRange = arrays_.levelRange.get() + 2 * first;
    job.chosenLevel = arrays_.chosenLevel.get() + first;
    job.chosenBits = arrays_.chosenBits.get() + first;
    job.model = {arrays_.modelA.get() + first, arrays_.modelB.get() + first,
                 arrays_.modelSkip.get() + first, arrays_.quantOut.get() + first,
                 arrays_.rateOut.get() + first};
    job.pictureBytes = geometry.pictureBytes;
    job.longestStep = LongestStep(tables_->fieldFlag);
  }
}

RowInput EncoderCore::RowsFrom(size_t firstMacroblock) const {
  const size_t size = BlocksOf(tables_->mode) * kBlockCoefficients;
  return {arrays_.coefficients.get() + firstMacroblock * size,
          arrays_.chosenLevel.get() + firstMacroblock, codingControl_ == kSearchControl,
          arrays_.mbColorFlag.get() + firstMacroblock, arrays_.mbFieldFlag.get() + firstMacroblock};
}

void EncoderCore::PrepareWriting(std::span<uint8_t> output, bool wholePictures) {
  const PictureGeometry& geometry = tables_->geometry;
  size_t row = 0;  // of the frame
  for (size_t i = 0; i < write_.parameters.size(); ++i) {
    WriteParameters& job = write_.parameters[i];
    if (wholePictures) row = i * geometry.mbRows;
    const size_t picture = row / geometry.mbRows;
    job.entry = entry_;
    job.writer = writer_.get();
    job.rows = RowsFrom(row * geometry.mbCols);
    job.rowsInJob = wholePictures ? geometry.mbRows : plan_.writeRows[i];
    job.firstRow = row % geometry.mbRows;
    if (picture >= geometry.pictures) return;
    job.rowOffsets = rowOffsets_[picture].data();
    job.picture = PictureOf(output, picture);
    job.wholePicture = wholePictures;
    row += job.rowsInJob;
  }
}

ResultWord EncoderCore::EncodeBySearch(std::span<uint8_t> output) {
  PrepareSearch(plan_.jobsPerField);
  ResultWord result = RunStage(search_.manager, search_.jobs);
  if (result != kSuccessful) return result;
  const size_t pictures = tables_->geometry.pictures;
  for (size_t picture = 0; picture < pictures; ++picture) {
    result = SetRowOffsets(PictureOf(output, picture), picture);
    if (result != kSuccessful) return result;
  }
  PrepareWriting(output, false);
  result = RunStage(write_.manager, write_.jobs);
  if (result != kSuccessful) return result;
  for (size_t picture = 0; picture < pictures; ++picture) {
    const size_t used = kHeaderBytes + rowOffsets_[picture][tables_->geometry.mbRows];
    result = FinishPicture(PictureOf(output, picture), used);
    if (result != kSuccessful) return result;
  }
  return kSuccessful;
}

// Where each row begins follows from the bits of its macroblocks.
ResultWord EncoderCore::SetRowOffsets(std::span<uint8_t> picture, size_t index) {
  const PictureGeometry& geometry = tables_->geometry;
  const auto header = picture.first<kHeaderBytes>();
  const uint16_t* bits =
      arrays_.chosenBits.get() + index * size_t{geometry.mbRows} * geometry.mbCols;
  uint32_t offset = 0;
  for (size_t row = 0; row < geometry.mbRows; ++row, bits += geometry.mbCols) {
    SetRowOffset(header, row, offset);
    rowOffsets_[index][row] = offset;
    uint32_t sum = 0;
    for (size_t column = 0; column < geometry.mbCols; ++column) {
      sum += bits[column] + kMacroblockHeaderBits;
    }
    offset += (sum + 31) / 32 * 4;
  }
  rowOffsets_[index][geometry.mbRows] = offset;
  const bool fits = kHeaderBytes + offset + kEndMark.size() <= picture.size();
  return fits ? kSuccessful : kErrorEncodeBufferOverflow;
}

// A picture at a time, on the caller's thread: the model sees all of it, and rows are written one
// behind the other.
ResultWord EncoderCore::EncodeByModel(std::span<uint8_t> output) {
  PrepareSearch(1);
  PrepareWriting(output, true);
  for (size_t picture = 0; picture < tables_->geometry.pictures; ++picture) {
    CodecJob search;
    search.parameters = &search_.parameters[picture];
    if (search_.handlers[0]->Execute(&search) != kSuccessful) {
      return static_cast<ResultWord>(search.error);
    }
    // Where the model took too few bits for enough, the picture is written again with coarser
    // steps: what a caller wants is a frame.
    CodecJob write;
    do {
      write = {};
      write.parameters = &write_.parameters[picture];
      write_.handlers[0]->Execute(&write);
    } while (write.error == kErrorEncodeBufferOverflow && CoarsenSteps(picture));
    if (write.error != kSuccessful) return static_cast<ResultWord>(write.error);
    const ResultWord result =
        FinishPicture(PictureOf(output, picture), write_.parameters[picture].bytesWritten);
    if (result != kSuccessful) return result;
  }
  return kSuccessful;
}

// @return whether any step of the picture could still rise.
bool EncoderCore::CoarsenSteps(size_t picture) {
  const PictureGeometry& geometry = tables_->geometry;
  const size_t macroblocks = size_t{geometry.mbRows} * geometry.mbCols;
  uint16_t* const steps = arrays_.chosenLevel.get() + picture * macroblocks;
  const uint32_t longest = LongestStep(tables_->fieldFlag);
  bool risen = false;
  for (size_t i = 0; i < macroblocks; ++i) {
    const uint32_t step = std::min(steps[i] + std::max(steps[i] / 8u, 1u), longest);
    risen = risen || step != steps[i];
    steps[i] = static_cast<uint16_t>(step);
  }
  return risen;
}

std::span<const uint16_t> EncoderCore::ChosenLevels() const {
  const PictureGeometry& geometry = tables_->geometry;
  return {arrays_.chosenLevel.get(), size_t{geometry.mbRows} * geometry.mbCols * geometry.pictures};
}

std::span<const uint32_t> EncoderCore::FieldFlags() const {
  const PictureGeometry& geometry = tables_->geometry;
  return {arrays_.mbFieldFlag.get(), size_t{geometry.mbRows} * geometry.mbCols * geometry.pictures};
}

}  // namespace zel::dnxhd
