// Damaged frames: a whole frame of random blocks, as a writer of streams makes it, with the input's
// bytes over parts of it. Decoding, checking, reporting and reading metadata never leave the frame
// and the output, give a word of the table, and agree with each other.
//
// The input is: which frame, how it is decoded, how much is cut off its end, and then runs of an
// offset (3 bytes), a length (1) and so many bytes.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <span>
#include <vector>

#include "zel/base/bit_writer.h"
#include "zel/dnxhd/bitstream/check_frame.h"
#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/bitstream/side_data.h"
#include "zel/dnxhd/bitstream/vcid_table.h"
#include "zel/dnxhd/formatters/frame_formatter.h"
#include "zel/dnxhd/front_end/frame_report.h"
#include "zel/dnxhd/jobs/decode_workers.h"

namespace {

using namespace zel::dnxhd;

// The small test rows come often, being quick; one each of all other kinds now and then.
constexpr std::array<uint32_t, 16> kIds = {32768, 32769, 32770, 32771, 32772, 32773, 32768, 32769,
                                           32771, 32772, 36864, 1258,  1242,  1256,  1260,  1244};

// Exactly as many bytes as asked for, so that a sanitizer sees the first byte beyond.
class Memory {
 public:
  explicit Memory(size_t size)
      : bytes_(static_cast<uint8_t*>(std::aligned_alloc(64, (size + 63) / 64 * 64))), size_(size) {}
  ~Memory() { std::free(bytes_); }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  // Placed so that the end is the end of the allocation, as far as 16-byte boundaries allow.
  std::span<uint8_t> bytes() const { return {bytes_ + Slack() / 16 * 16, size_}; }

 private:
  size_t Slack() const { return (size_ + 63) / 64 * 64 - size_; }
  uint8_t* bytes_;
  size_t size_;
};

void WritePicture(const VCIDEntry& entry, FieldCode code, std::span<uint8_t> picture) {
  const PictureGeometry geometry = GeometryOf(entry);
  WriteFrameHeader(entry, code, picture.first<kHeaderBytes>());
  zel::base::BitWriter out(picture.subspan(kHeaderBytes));
  std::mt19937_64 random(entry.compressionId);
  const bool field = HasFieldFlag(entry);
  for (uint32_t row = 0; row < geometry.mbRows; ++row) {
    SetRowOffset(picture.first<kHeaderBytes>(), row, static_cast<uint32_t>(out.position() / 8));
    for (uint32_t column = 0; column < geometry.mbCols; ++column) {
      if (field) out.writeFlag(random() % 2 != 0);
      out.write(static_cast<uint32_t>(random() % 8 + 1), field ? 10 : 11);
      out.writeFlag(IsRgbFamily(entry) && random() % 2 != 0);
      for (int block = 0; block < (IsRgbFamily(entry) ? 12 : 8); ++block) {
        const auto size = static_cast<uint32_t>(random() % 6);
        out.write(entry.dcCodes[size], static_cast<int>(entry.dcLengths[size]));
        out.write(random() & ((1u << size) - 1), static_cast<int>(size));
        for (uint64_t left = random() % 4; left != 0; --left) {
          const size_t level = random() % 12;
          out.write(entry.acCodes[0][level], static_cast<int>(entry.acLengths[0][level]));
          out.writeFlag(random() % 2 != 0);
        }
        out.write(entry.endOfBlockCode, static_cast<int>(entry.endOfBlockLength));
      }
    }
    while (out.position() % 32 != 0) out.writeFlag(false);
  }
  if (FinishPicture(picture, kHeaderBytes + out.finish().size()) != kSuccessful) std::abort();
}

const std::vector<uint8_t>& WholeFrame(const VCIDEntry& entry) {
  static std::map<uint32_t, std::vector<uint8_t>> frames;
  std::vector<uint8_t>& frame = frames[entry.compressionId];
  if (!frame.empty()) return frame;
  frame.resize(entry.frameBytes);
  const PictureGeometry geometry = GeometryOf(entry);
  for (uint32_t i = 0; i < geometry.pictures; ++i) {
    const FieldCode code =
        geometry.pictures == 1 ? kProgressivePicture : (i == 0 ? kFirstField : kSecondField);
    WritePicture(entry, code,
                 std::span(frame).subspan(i * geometry.pictureBytes, geometry.pictureBytes));
  }
  return frame;
}

FrameFormat FormatOf(uint8_t choice) {
  FrameFormat format;
  constexpr std::array<uint32_t, 4> kResolutions = {1, 1, 2, 4};
  constexpr std::array<uint32_t, 4> kSamples = {kSamples8, kSamplesV210, kSamples10_2_8,
                                                kSamplesFloat};
  constexpr std::array<uint32_t, 4> kLayouts = {64, 4, 256, 32};
  format.resolution = kResolutions[choice & 3];
  format.sampleType = kSamples[choice >> 2 & 3];
  format.fieldLayout = kLayouts[choice >> 4 & 3];
  format.rasterWord = (choice & 64) != 0 ? 4 : 1;
  if ((choice & 128) != 0) {
    format.pixelLayout = kLayoutRgb;
    format.formatWord = 8;
    format.sampleType = kSamples8;
  }
  return format;
}

ResultWord Decode(const VCIDEntry& entry, const FrameFormat& format, RowRunner& runner,
                  std::span<const uint8_t> frame) {
  std::unique_ptr<DecodeFormatter> formatter;
  if (DecodeFormatter::Make(entry, format, formatter) != kSuccessful) return kSuccessful;
  const Memory output(BufferBytes(entry, format));
  FrameDecoder decoder(entry, format.resolution, runner);
  FrameTaker taker(*formatter, output.bytes().data());
  return decoder.Decode(frame, WantedPictures(format), taker);
}

void Demand(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const VCIDEntry& entry = *FindEntry(kIds[data[0] % kIds.size()]);
  const FrameFormat format = FormatOf(data[1]);
  const size_t cut = data[2] < 128 ? 0 : data[2] - 127u;
  std::span<const uint8_t> script(data + 3, size - 3);

  const std::vector<uint8_t>& whole = WholeFrame(entry);
  const Memory memory(whole.size() - cut);
  std::copy_n(whole.begin(), whole.size() - cut, memory.bytes().begin());
  while (script.size() > 4) {
    const size_t offset = (script[0] | script[1] << 8 | script[2] << 16) % memory.bytes().size();
    const size_t length =
        std::min({size_t{script[3]}, script.size() - 4, memory.bytes().size() - offset});
    std::copy_n(script.begin() + 4, length,
                memory.bytes().begin() + static_cast<ptrdiff_t>(offset));
    script = script.subspan(4 + length);
  }
  const std::span<const uint8_t> frame = memory.bytes();

  SerialRowRunner serial;
  const ResultWord decoded = Decode(entry, format, serial, frame);
  Demand(*ResultTextOf(decoded) != 0);
  static const std::unique_ptr<DecodeWorkers> workers = DecodeWorkers::Create(2);
  if (data[2] % 4 == 0) Demand(Decode(entry, format, *workers, frame) == decoded);

  const ResultWord checked = CheckFrame(entry.compressionId, frame);
  Demand(*ResultTextOf(checked) != 0);
  auto report = std::make_unique<Morvalen::Zel::FrameReport>();
  const int reported = Morvalen::Zel::ReadFrameReport(frame.data(), frame.size(), *report);
  Demand(*ResultTextOf(reported) != 0);
  // A frame whose rows all read well decodes, where it is of the id that the decoder is for. What
  // the check finds, beside that, is rows that don't end where the next begins.
  const bool sound =
      GeometryOf(entry).pictures == 1 ? frame[5] == 1 : frame[5] == 2 || frame[5] == 3;
  if (reported == kSuccessful && report->compressionId == entry.compressionId && sound)
    Demand(decoded == kSuccessful);

  std::array<uint8_t, kExtractedBytes> packets{};
  const ResultWord extracted = ExtractMetadata(frame, packets);
  Demand(*ResultTextOf(extracted) != 0);
  // What came out goes in again, and comes out the same; on a frame of fields, lines may move.
  if (extracted == kSuccessful && packets[0] == 255 && entry.singlePicture == 1) {
    std::vector<uint8_t> copy(frame.begin(), frame.end());
    if (InsertMetadata(copy, packets) == kSuccessful && copy[5] == 1) {
      std::array<uint8_t, kExtractedBytes> again{};
      Demand(ExtractMetadata(copy, again) == kSuccessful);
      Demand(again[0] == 255);
    }
  }
  return 0;
}
