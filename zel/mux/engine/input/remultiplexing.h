#pragma once

#include <memory>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/input/source_warnings.h"
#include "zel/mux/engine/input/stream_source.h"

/// Streams that are taken out of other multiplexes.

namespace zel::mux {

/// Whether the record's input is a transport or program stream to take one stream out of.
inline bool is_remultiplexed(const Morvalen::Zel::tsm_stream_record& record) {
  return record.sourceTsPid > 0 || record.sourceStreamId > 0;
}

/// The stream of SourceTSPID or SourceStreamID out of `bytes`. A stream_id is looked for in the kind
/// of multiplex that the bytes show themselves to be.
std::unique_ptr<stream_source> take_stream(std::unique_ptr<stream_source> bytes,
                                           const Morvalen::Zel::tsm_stream_record& record,
                                           source_fault_function fault);

}  // namespace zel::mux
