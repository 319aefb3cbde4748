#include "zel/mux/engine/input/source_description.h"

#include <utility>

namespace zel::mux {

namespace {

// Warnings.
constexpr int kTooManyDescriptors = 56;
constexpr int kOnlyForRemultiplexing = 72;
constexpr int kOthersIgnored = 83;
constexpr int kIgnored = 95;

constexpr size_t kMostDescriptors = 32;  // as many as a section may name

}  // namespace

void describe_from_source(tsm_stream& stream, const Morvalen::Zel::tsm_stream_record& record,
                          elementary_input* input, reporting& reports) {
  if (!record.descFromData) return;
  if (record.sourceTsPid <= 0 && input != nullptr) {
    reports.warn(kOnlyForRemultiplexing, stream.pid());
    return;
  }
  if (input == nullptr) {
    reports.warn(kIgnored, stream.pid());
    return;
  }
  if (input->source() == nullptr) return;
  std::optional<source_description> found = input->source()->description();
  if (!found) return;
  if (record.descriptors.count > 0) reports.warn(kOthersIgnored, stream.pid());
  if (found->descriptors.size() > kMostDescriptors) {
    reports.warn(kTooManyDescriptors, stream.pid(),
                 static_cast<int64_t>(found->descriptors.size()));
    found->descriptors.resize(kMostDescriptors);
  }
  stream.pmt.descriptors = std::move(found->descriptors);
  // Descriptors tell their receivers what they do beside the stream_type that they stand with.
  if (record.streamType == 0) stream.pmt.streamType = found->streamType;
}

}  // namespace zel::mux
