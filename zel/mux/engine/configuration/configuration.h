#pragma once

#include <cstdint>
#include <cstdio>

#include "zel/base/export.h"
#include "zel/mux/engine/configuration/tarn_array.h"

// What a multiplex is made of: the transport level, programs, and a record per stream. Callers
// build a configuration with the adders and set fields, or read it from a text. Fields are named
// after the keywords of that text: `patTsid` is "PATtsid"; `zel config keys` lists keywords with
// their meaning, default and section. Rates are bits per second. A PID of -1 is allotted by
// tsm_assign_pids.
//
// All records are plain. Pointers to records are valid until the configuration is freed, which
// frees every record, array and text in it, but nothing that a `user` value points at.

namespace Morvalen::Zel {

/// hh:mm:ss:ff as a file gives it. Of a time offset the fraction stands in `frames`.
struct tsm_time_code {
  int32_t sign;  ///< 0 unset, 1 positive, 3 negative
  int32_t dropFrame;
  int32_t hours, minutes, seconds, frames;
  int32_t isFraction;  ///< of a time offset: `frames` counts millionths of a second
};

/// The kind of stream that a record describes.
enum tsm_record_kind : int32_t {
  tsm_kind_video = 0,
  tsm_kind_audio = 1,
  tsm_kind_data = 2,
  tsm_kind_table = 3,
  tsm_kind_smpte302m = 4,
  tsm_kind_lpcm = 5,
  tsm_kind_scte35 = 6,
  tsm_kind_private_stream = 7,
};

/// What every stream record starts with. A section reads and writes those of the fields whose keys
/// it has; the others keep their zero.
struct tsm_stream_record {
  tsm_record_kind kind;
  TarnArray comments;  ///< texts of the section's comment lines, without the "#"
  void* user;          ///< passed to the load callback as the user value of this input; borrowed
  int32_t pid;
  int32_t streamType;
  int32_t pmtOrder;
  int32_t pesId;
  int32_t streamIdExtension;
  int32_t streamDelay;  ///< 90 kHz ticks, as `delay`
  int32_t delay;
  double rate;
  bool initDi, rai, priority, transportPriority;
  bool pesCopyright, pesPriority, pesOriginal, pesAlign;
  int32_t pesNau;   ///< access units per PES packet
  int32_t ptsNpes;  ///< a time stamp every nth PES packet
  int32_t sourceStreamId, sourceTsPid, sourceStreamSubtype;
  bool descFromData;
  int32_t sbSize, sbRate;  ///< smoothing buffer: bytes, leak rate
  int32_t dbSize;          ///< decoder buffer in bytes; 0: the model's
  bool avSync, indDelay;
  bool lowLatency;
  TarnArray files;        ///< byte strings
  TarnArray descriptors;  ///< byte strings, each with its tag and length
  /// At most one byte string: PESPrivateDataFile, a text that docs/multiplexing.md describes. Video
  /// and audio only.
  TarnArray privateDataFile;
};

/// A video stream: MPEG-1, MPEG-2, MPEG-4 part 2, AVC or HEVC. The keys are those of its section;
/// the key reference tells each.
struct tsm_video : tsm_stream_record {
  bool auInfo, padSmallAu, insertAvcAud, quadByte, insertSec, strictVbv, notLowDelay, ignorePoc;
  bool frameRateTolerant, pcrGop, startSeqHdr, createDtvcc;
  int32_t numBFrames, frameRateNumerator, frameRateDenominator;
  int32_t avcReorderDepth, hevcReorderDepth, maxDecodeDelay, rateAdjustment;
  int32_t subStreamType, pidAvcss, sourceTsPidAvcss, maxPesLen;
  int32_t stillPicOffset, stillPicSpacing;
  int32_t auDepth;    ///< access units that wait at the least; no key of a file sets it
  int32_t frameRate;  ///< 0 automatic; 1 to 8: frame_rate_code of ISO/IEC 13818-2
  int32_t splice;     ///< 0 none, 1 before, 2 after
  int32_t typeDelay;  ///< 0 VBV, 1 maximum
  int32_t ccField;    ///< 0 odd, 1 even
  TarnArray sccFile, sccFile12, sccFile34;  ///< at most one byte string each
  tsm_time_code ccTimeOffset, ccTimeOffset12, ccTimeOffset34;
};

/// An audio stream: MPEG audio, AAC in ADTS or LATM, AC-3, E-AC-3 or DTS.
struct tsm_audio : tsm_stream_record {
  bool atscBuf, dvbBuf, bdBuf, clBuf, a52Y2012Buf, transitionCleanUp;
  int32_t skipFrames;
};

/// Transport packets that come ready made and go out at a set rate.
struct tsm_data : tsm_stream_record {
  int32_t bufSize;
  bool repeat, fixCc, changePid, createPmtEntry;
};

/// Sections that go out at set intervals (ISO/IEC 13818-1, 2.4.4).
struct tsm_table : tsm_stream_record {
  int32_t tbSize, streamStop;
  double tablesPerSecond, tbDrainRate;
  bool repeat, pack, createPmtEntry, adjustStart;
  tsm_time_code timeOffset;
  TarnArray tables;  ///< byte strings
};

inline constexpr int tsm_channels = 8;
inline constexpr int tsm_channel_pairs = 4;
inline constexpr int tsm_channel_status_size = 24;

/// PCM in AES3 form after SMPTE ST 302.
struct tsm_smpte302m : tsm_stream_record {
  int32_t refVideoPid, channelId, bytesPerWord;
  int32_t wordSize;  ///< 16, 20 or 24
  int32_t nChannels;
  int32_t downmixToStereo, remuxToCombine, srcTsPidToCombine[tsm_channel_pairs];
  int32_t remuxLpcmType, lpcmSrcType, lpcmSinkType;
  bool phaseSync, validity, dolbyETiming, monoToStereo, msJustified, bitReversed, byteReversed;
  double dmCoefL[tsm_channels], dmCoefR[tsm_channels];
  int32_t channelStatus[tsm_channels];  ///< 0 PCM, 1 data, 2 user: then channelStatusData counts
  uint8_t channelStatusData[tsm_channels][tsm_channel_status_size];
  int32_t streamCount;                     ///< channel pairs in use
  TarnArray pairFiles[tsm_channel_pairs];  ///< byte strings; `files` isn't used here
  void* pairUser[tsm_channel_pairs];       ///< user values of the pairs' inputs, instead of `user`
};

/// PCM in a private stream, as discs carry it.
struct tsm_lpcm : tsm_stream_record {
  int32_t pesLpcmType, channelAssignment, channelRemapping, samplingFrequency, nChannels, wordSize;
  bool truncate24To20, bigEndian;
  int32_t refVideoPid;
};

/// PES packets of a private stream from a list of them.
struct tsm_private_stream : tsm_stream_record {
  double timestampRatio;
  int32_t pesForceHdrLen, frameSize, dbDrainRate, heartbeat, advanceTime;
  bool dataOnly, pesCopyrightFromFile, pesPriorityFromFile, pesOriginalFromFile;
  bool syncVideoTc, appendPadding, noVideoBase, async, adjustStart;
  int32_t descFromFile;     ///< -1 not given, 0 no, 1 yes
  TarnArray pesPayloadHdr;  ///< at most one byte string
  tsm_time_code timeOffset;
};

/// Splice information after ANSI/SCTE 35.
struct tsm_scte35 : tsm_stream_record {
  bool syncVideoTc, adjustStart, noVideoBase;
  int32_t heartbeat;
  tsm_time_code timeOffset;
  TarnArray advanceTimes;  ///< of int32_t
};

inline constexpr int tsm_video_slots = 16;
inline constexpr int tsm_audio_slots = 64;
inline constexpr int tsm_data_slots = 64;
inline constexpr int tsm_table_slots = 64;
inline constexpr int tsm_smpte302m_slots = 16;
inline constexpr int tsm_lpcm_slots = 8;
inline constexpr int tsm_private_stream_slots = 16;
inline constexpr int tsm_scte35_slots = 4;

/// A program. Empty slots are null, anywhere.
struct tsm_program {
  tsm_video* video[tsm_video_slots];
  tsm_audio* audio[tsm_audio_slots];
  tsm_data* data[tsm_data_slots];
  tsm_table* table[tsm_table_slots];
  tsm_smpte302m* smpte302m[tsm_smpte302m_slots];
  tsm_lpcm* lpcm[tsm_lpcm_slots];
  tsm_private_stream* privateStream[tsm_private_stream_slots];
  tsm_scte35* scte35[tsm_scte35_slots];
  tsm_program* next;

  TarnArray comments;
  int32_t identity;  ///< counts programs from 1
  int32_t programNumber, pmtPid, pmtVsn, pcrPid;
  int32_t pcrPer;  ///< milliseconds
  bool pcrPes, transportPriority, initDi, priority;
  int32_t sbSize, sbRate;
  TarnArray descriptors;
};

/// The whole, and its transport level.
struct tsm_config {
  TarnArray comments;
  TarnArray files;         ///< byte strings
  void* writeUser;         ///< user value of the write callback; borrowed
  void* progressUser;      ///< of the progress callback
  void* errorUser;         ///< of the error callback
  int32_t progressPeriod;  ///< packets between progress calls; 0: 5000. No keyword sets it

  int64_t fileSize;
  double rate, pcri, ptsi, psiPatRep, psiPmtRep;
  bool vbr, stopOnWarning, stopOnError, forceDuration, disablePcrDi, createPsi, dit, sit;
  bool transportPriority, initDi, priority, noEmptyAf, noWater, burstNulls, terminate;
  bool eventNotify, blockProcess, reverseTiming;
  bool pktTs, pktTsPre, pktTsLsByteFirst, pktTsDropNull;
  bool hdvModeHd2, hdvDropFrame, autoDescrLegacyDts, autoDescrDisabled;
  int32_t autoDescrMask;  ///< bit 0 AC-3, 1 E-AC-3, 2 DTS, 3 SMPTE 302M, 4 SCTE-35, 5 AVC,
                          ///< 6 adaptation_field_data_descriptor
  int32_t stopOnAv;       ///< 0 no, 1 first, 2 last
  int32_t nitPid, outPkts, overlap, pktSize, pktCountMultiple, inNau, warnIfEndEarly;
  int32_t patTsid, patVsn, ditTransition, sitPeriod, sitVersion, sitServiceId, sitRunningStatus;
  int32_t auxVpid, auxApid, pktTsBytes, pktTsBits, burstNullsCount, burstNullsSpacing;
  int32_t inBufSiz, leader;
  tsm_time_code start, end, duration;
  TarnArray sitTransDescr, sitSvcDescr;

  tsm_table* table[tsm_table_slots];
  tsm_data* data[tsm_data_slots];
  tsm_program* programs;
};

/// A configuration with the defaults of the transport level, or null when memory is short.
ZEL_API tsm_config* tsm_config_new() noexcept;

/// Frees the configuration with all that it holds. Null does nothing.
ZEL_API void tsm_config_free(tsm_config* config) noexcept;

/// Appends a program. The first is number 2 with its PMT in PID 32; a later one has the number
/// behind its identity, and 16 times that for a PMT PID, if there is such a PID, else 0.
/// @return the program, or null when memory is short.
ZEL_API tsm_program* tsm_add_program(tsm_config* config) noexcept;

/// @name Adding streams
/// Each takes the first free slot and gives a record with its defaults, which the configuration
/// owns; null when all slots are taken or memory is short. Those that take the configuration add a
/// stream of no program.
/// @{

/// Adds a video stream.
ZEL_API tsm_video* tsm_add_video(tsm_program* program) noexcept;
/// Adds an audio stream.
ZEL_API tsm_audio* tsm_add_audio(tsm_program* program) noexcept;
/// Adds a stream of ready made packets.
ZEL_API tsm_data* tsm_add_data(tsm_program* program) noexcept;
/// Adds a stream of ready made packets that belongs to no program.
ZEL_API tsm_data* tsm_add_data(tsm_config* config) noexcept;
/// Adds a stream of sections.
ZEL_API tsm_table* tsm_add_table(tsm_program* program) noexcept;
/// Adds a stream of sections that belongs to no program.
ZEL_API tsm_table* tsm_add_table(tsm_config* config) noexcept;
/// Adds PCM in AES3 form.
ZEL_API tsm_smpte302m* tsm_add_smpte302m(tsm_program* program) noexcept;
/// Adds PCM in a private stream.
ZEL_API tsm_lpcm* tsm_add_lpcm(tsm_program* program) noexcept;
/// Adds a private stream of PES packets.
ZEL_API tsm_private_stream* tsm_add_private_stream(tsm_program* program) noexcept;
/// Adds splice information.
ZEL_API tsm_scte35* tsm_add_scte35(tsm_program* program) noexcept;
/// @}

/// Told once a message of the reader. `severity` is 1 for an error and 0 for a warning; `text` is
/// borrowed for the call; `reserved` is 0.
using tsm_config_message_callback = void (*)(void* user, int severity, int code, const char* text,
                                             int reserved);

/// Reads a configuration from `file`, which has to be seekable and stays open, from its start. Each
/// default list, an array of byte strings that is copied from, stands in where a section names no
/// file; null: none. Without default output files no output file has to be named.
/// Errors go to `callback` (null: to nobody), and reading goes on, but for three: no memory, no
/// Transport section, an unknown section. Then the result is null. PIDs are allotted at the end.
/// The default of the read size, and InReadSize, are the process's; all else is the call's own.
ZEL_API tsm_config* tsm_config_read(FILE* file, const TarnArray* outputFiles,
                                    const TarnArray* videoFiles, const TarnArray* audioFiles,
                                    void* user, tsm_config_message_callback callback) noexcept;

/// Writes `config` to `file` as the text that tsm_config_read reads, in a fixed order, without what
/// is at its default. Errors of the file are the file's: ask ferror.
ZEL_API void tsm_config_write(const tsm_config* config, FILE* file) noexcept;

/// Gives a PID to everything that has -1 for one. What can't be served keeps -1.
/// @return how many were allotted.
ZEL_API int tsm_assign_pids(tsm_config* config) noexcept;

/// The bytes that the engine reads from a source at once: InReadSize, process-wide, 5000 at first.
/// Regular files, whose bytes don't have to be waited for, are read in larger pieces as well.
ZEL_API int tsm_read_size() noexcept;
ZEL_API void tsm_set_read_size(int bytes) noexcept;

}  // namespace Morvalen::Zel
