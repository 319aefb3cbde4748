#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/pcm/pcm_start.h"
#include "zel/mux/engine/pcm/pcm_units.h"
#include "zel/mux/engine/run/mux.h"

/// SMPTE302M sections that take their sound out of other multiplexes. What such a section can ask
/// for, beside passing an SMPTE ST 302 stream on as it stands:
///
///   RemuxToCombine  so many streams, SrcTSPIDToCombine1 and on, of a pair of channels each, become
///                   one; each out of the files of its Stream, or all out of those of one
///   DownmixToStereo the channels are mixed to two, by DMCoefL1... and DMCoefR1...
///   RemuxLPCMType   the sound changes its form, from LPCMSrcType to LPCMSinkType: 0 SMPTE ST 302,
///                   1 linear PCM as HDMV discs have it, 2 that which goes over IEEE 1394

namespace zel::mux {

/// The forms of LPCMSrcType and LPCMSinkType.
enum class pcm_form : int32_t { smpte302m = 0, hdmv = 1, ieee1394 = 2 };

/// Whether the record takes its sound out of another multiplex.
bool takes_from_multiplex(const Morvalen::Zel::tsm_smpte302m& record);

/// What the section's stream goes out as.
pcm_form sink_form(const Morvalen::Zel::tsm_smpte302m& record);

using pcm_inputs = std::vector<std::unique_ptr<elementary_input>>;

/// Opens the inputs, one for each PID. False after a fatal message.
bool open_multiplexed_inputs(const Morvalen::Zel::tsm_smpte302m& record,
                             Morvalen::Zel::tsm_load_callback load, tsm_mux& mux,
                             pcm_inputs& inputs);

struct remultiplexed_pcm {
  std::unique_ptr<pcm_units> units;
  double unitsPerSecond = 0;
  double sourceDelay90k = 0;  // behind the reference
};

/// Finds out what the inputs hold and makes the units of them. `inputs` may be taken from, and has
/// to outlive the units. False after a fatal message.
bool make_remultiplexed_units(const Morvalen::Zel::tsm_smpte302m& record, pcm_inputs& inputs,
                              const pcm_reference& reference, const video_cut& cut, int pid,
                              reporting& reports, remultiplexed_pcm& made);

}  // namespace zel::mux
