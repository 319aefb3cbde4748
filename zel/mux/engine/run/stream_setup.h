#pragma once

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/mux.h"

/// How a stream comes to be: its kind opens it, building sets what all kinds have in common, and
/// once all streams of the run exist its kind starts it.
///
/// Opening makes the stream with its kind, its makePacket and its state, and opens the input.
/// set_up_stream() then sets PID, program, the bits of `flags` and `flags2` that keys of the record
/// and its program ask for, PCR and its period, smoothing buffers, PESnau and PTSnPES (1 at least)
/// with their countdowns at 0, stream_id and extension, PMTorder, the configured descriptors
/// (`pmt.descriptors`) and a configured stream_type; it reports PIDs that can't be (fatal 0,
/// warning 19), a negative StreamDelay (fatal 5) and two ways of picking a source (fatal 65).
/// Building also checks who carries the PCR (fatal 67, 71, 80 and 124).
///
/// Between opening and starting, building marks the terminated stream (kTerminated) and sets the
/// program's first video stream in video_state::firstVideo and index and audio_state::firstVideo.
///
/// Starting is the first reading: it finds out what the stream is (discover, first scan), its first
/// time stamps (D0, A0, with hold-off), and sets
///   stream.set_rate()    without the surcharge for a PCR, which building adds for every kind;
///   stream.pmt           listed, streamType unless configured, the stream's automatic descriptors
///                        behind the configured ones (psi_tables.h, add_unless_there);
///   stream.pesId         where the configuration left it 0;
///   stream.framePeriod, frameRate, firstDts, firstPts, unitsToSend, where the kind has them.
/// It leaves nextTime and dueTime to building. A stream that can't be started after a fatal message
/// that doesn't stop the run sets kSourceEnded and kNoMorePackets, and has no PMT line.
///
/// What the kinds need of the transport level (PTSi, Leader, Start and End, Overlap, InBufSiz, the
/// mask of automatic descriptors, NoEmptyAF) stands in `mux.config`. A terminated video stream's
/// video_state::stopDts is set by building after the start, once its frame rate is known.

namespace zel::mux {

/// `program` is null at transport level.
void set_up_stream(tsm_stream& stream, const Morvalen::Zel::tsm_stream_record& record,
                   const Morvalen::Zel::tsm_program* program, tsm_mux& mux);

/// Sets the period and the first time of PCRs.
void set_up_pcr(tsm_stream& stream, const Morvalen::Zel::tsm_program& program, const tsm_mux& mux);

/// A leaky bucket of the run's own. Size in bytes, rate in bits per second.
smoothing_buffer* add_smoothing_buffer(double size, double rate, tsm_mux& mux);

/// The transport level's PTSi in 27 MHz ticks; 0 is not set. It is kept as a 32-bit count.
double configured_first_pts(const Morvalen::Zel::tsm_config& config);

}  // namespace zel::mux
