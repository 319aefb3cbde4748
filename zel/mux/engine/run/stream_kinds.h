#pragma once

#include <memory>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/mux.h"

/// Who makes the streams of each kind of record. Building knows the kinds by this table only.

namespace zel::mux {

/// A null `open` is a kind that this engine can't make streams of: each record of it is the fatal
/// message `missing`, with its file's name. A null `start` has nothing to read in advance.
template <typename Record>
struct stream_opener {
  std::unique_ptr<tsm_stream> (*open)(const Record& record,
                                      const Morvalen::Zel::tsm_program& program,
                                      Morvalen::Zel::tsm_load_callback load,
                                      tsm_mux& mux) = nullptr;
  void (*start)(tsm_stream& stream, tsm_mux& mux) = nullptr;
  int missing = 34;
};

struct stream_kinds {
  stream_opener<Morvalen::Zel::tsm_video> video;
  stream_opener<Morvalen::Zel::tsm_audio> audio;
  stream_opener<Morvalen::Zel::tsm_smpte302m> smpte302m;
  stream_opener<Morvalen::Zel::tsm_lpcm> lpcm;
  stream_opener<Morvalen::Zel::tsm_private_stream> privateStream;
  stream_opener<Morvalen::Zel::tsm_scte35> scte35;
  /// Tables belong to a program, or (null) to the transport level.
  std::unique_ptr<tsm_stream> (*openTable)(const Morvalen::Zel::tsm_table& record,
                                           const Morvalen::Zel::tsm_program* program,
                                           Morvalen::Zel::tsm_load_callback load,
                                           tsm_mux& mux) = nullptr;
  void (*startTable)(tsm_stream& stream, tsm_mux& mux) = nullptr;
};

extern const stream_kinds kStreamKinds;

}  // namespace zel::mux
