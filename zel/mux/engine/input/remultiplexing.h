#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/input/source_warnings.h"
#include "zel/mux/engine/input/stream_source.h"

/// Streams that are taken out of other multiplexes.

namespace zel::mux {

/// Which stream of a multiplex.
struct stream_selection {
  int tsPid = 0;     // of a transport stream; 0: by the stream_id
  int streamId = 0;  // looked for in the kind of multiplex that the bytes show themselves to be
  bool described = false;  // what its PMT says of it is wanted
  int subtype = 0;  // of a private stream of a program stream; below 0: its packets as they stand

  bool is_any() const { return tsPid > 0 || streamId > 0; }
};
/// What SourceTSPID, SourceStreamID and SourceStreamSubtype say.
stream_selection selection_of(const Morvalen::Zel::tsm_stream_record& record);
/// Whether the record's input is a transport or program stream to take one stream out of.
inline bool is_remultiplexed(const Morvalen::Zel::tsm_stream_record& record) {
  return selection_of(record).is_any();
}

/// The stream out of `bytes`.
std::unique_ptr<stream_source> take_stream(std::unique_ptr<stream_source> bytes,
                                           const stream_selection& selection,
                                           source_fault_function fault);
inline std::unique_ptr<stream_source> take_stream(std::unique_ptr<stream_source> bytes,
                                                  const Morvalen::Zel::tsm_stream_record& record,
                                                  source_fault_function fault) {
  return take_stream(std::move(bytes), selection_of(record), std::move(fault));
}

/// How much later `sound` begins than `pictures` in the multiplex that both are taken out of, in
/// 90 kHz ticks: by the first time stamp of the sound and that of the first picture that is taken,
/// which begins at byte `firstPicture` of its stream. Nothing where the two came from different
/// files, or one has no time stamp, as elementary streams have none.
std::optional<double> source_delay90k(const Morvalen::Zel::TarnArray& soundFiles,
                                      elementary_input& soundInput,
                                      const Morvalen::Zel::tsm_stream_record& pictures,
                                      elementary_input& picturesInput, int64_t firstPicture);

}  // namespace zel::mux
