#include "zel/mux/engine/configuration/key_table.h"

#include "zel/mux/engine/configuration/configuration.h"

// Rows by section. Keys that recur in stream sections are groups of rows for a record type, since a
// row knows where its field stands.

namespace Morvalen::Zel {
namespace {

using enum tsm_value_kind;
using Kind = tsm_value_kind;
using W = tsm_written;
using When = tsm_when;

constexpr int32_t kDescriptorBytes = 260;
constexpr int32_t kHeaderBytes = 256;
constexpr int32_t kTableBytes = 4096;

constexpr std::string_view kStopOnAv[] = {"No", "First", "Last"};
constexpr std::string_view kFrameRates[] = {"Auto", "23.976", "24",    "25", "29.97",
                                            "30",   "50",     "59.94", "60"};
constexpr std::string_view kSplices[] = {"None", "Before", "After"};
constexpr std::string_view kDelays[] = {"VBV", "Max"};
constexpr std::string_view kFields[] = {"Odd", "Even"};
constexpr std::string_view kWordSizes[] = {"16", "20", "24"};
constexpr std::string_view kChannelKinds[] = {"PCM", "Data", "User"};

// clang-format off
#define AT(member) [](void* record) -> void* { return &static_cast<R*>(record)->member; }
#define FLAG(key, member) {key, yes_no, AT(member)}
#define FLAG_ON(key, member) {key, yes_no, AT(member), 1}
#define INTEGER(key, member) {key, integer, AT(member)}
#define HEXADECIMAL(key, member, value) {key, integer, AT(member), value, W::hexadecimal}
#define LONG(key, member) {key, long_integer, AT(member)}
#define REAL(key, member) {key, real, AT(member)}
#define CHOICE(key, member, words, position) \
  {.name = key, .kind = choice, .field = AT(member), .fallback = position, .choices = words}
#define FILES(key, member) \
  {.name = key, .kind = files, .field = AT(member), .numberedName = "File"}
#define BYTES_LIST(key, member, code, most) \
  {.name = key, .kind = hex_list, .field = AT(member), .error = code, .limit = most}
#define DESCRIPTORS(code) BYTES_LIST("Descriptor", descriptors, code, kDescriptorBytes)
#define STAMP_KEY(row_name, row_kind, member, row_fallback)                            \
  {.name = row_name, .kind = row_kind, .field = AT(member), .fallback = row_fallback, \
   .when = When::packet_stamps}
#define AUTOMATIC(kind_name, bit)                                                         \
  {.name = "AutoDescr" kind_name, .kind = mask_bit, .field = AT(autoDescrMask), .fallback = 1, \
   .when = When::automatic_descriptors, .limit = bit}

namespace transport {
using R = tsm_config;
constexpr tsm_config_key kKeys[] = {
  FILES("File", files),
  {"FileSize", wide_integer, AT(fileSize)},
  REAL("Rate", rate),
  FLAG("VBR", vbr),
  {.name = "Duration", .kind = time, .field = AT(duration), .error = 8},
  LONG("Leader", leader),
  CHOICE("StopOnAV", stopOnAv, kStopOnAv, 0),
  FLAG("StopOnWarning", stopOnWarning),
  FLAG_ON("StopOnError", stopOnError),
  FLAG("ForceDuration", forceDuration),
  FLAG("DisablePCRDI", disablePcrDi),
  {.name = "Start", .kind = time, .field = AT(start), .error = 11},
  {.name = "End", .kind = time, .field = AT(end), .error = 11},
  {"OutPkts", integer, AT(outPkts), 20000},
  {"PktSize", integer, AT(pktSize), 188},
  INTEGER("PktCountMultiple", pktCountMultiple),
  FLAG_ON("CreatePSI", createPsi),
  {"PSIPATrep", real, AT(psiPatRep), 10},
  {"PSIPMTrep", real, AT(psiPmtRep), 10},
  HEXADECIMAL("PATtsid", patTsid, 1),
  HEXADECIMAL("PATvsn", patVsn, 0),
  INTEGER("NITPID", nitPid),
  FLAG("DIT", dit),
  {"DITtransition", integer, AT(ditTransition), 0, W::one},
  FLAG("SIT", sit),
  INTEGER("SITperiod", sitPeriod),
  INTEGER("SITversion", sitVersion),
  BYTES_LIST("SITtransDescr", sitTransDescr, 27, kDescriptorBytes),
  {"SITserviceID", integer, AT(sitServiceId), 2},
  {.name = "SITrunningStatus", .kind = integer, .field = AT(sitRunningStatus), .writtenName = "SITrunningstatus"},
  BYTES_LIST("SITsvcDescr", sitSvcDescr, 28, kDescriptorBytes),
  FLAG("TransportPriority", transportPriority),
  FLAG("InitDI", initDi),
  INTEGER("WarnIfEndEarly", warnIfEndEarly),
  {.name = "PCRI", .kind = real, .field = AT(pcri), .writtenName = "PCRi"},
  // Deliberate: this line doesn't end, so that the key behind it becomes part of its value, and is
  // lost to a reader. Pinned by writer_test.cpp, PtsiTakesTheKeyBehindIt.
  {"PTSi", real, AT(ptsi), 0, W::without_line_end},
  FLAG("NoEmptyAF", noEmptyAf),
  FLAG("Priority", priority),
  FLAG("BurstNulls", burstNulls),
  {.name = "BurstNullsCount", .kind = integer, .field = AT(burstNullsCount), .when = When::burst_nulls},
  {.name = "BurstNullsSpacing", .kind = integer, .field = AT(burstNullsSpacing), .when = When::burst_nulls},
  FLAG("Terminate", terminate),
  {"Overlap", integer, AT(overlap), 15},
  FLAG("PktTS", pktTs),
  STAMP_KEY("PktTSPre", yes_no, pktTsPre, 0),
  STAMP_KEY("PktTSBits", integer, pktTsBits, 0),
  STAMP_KEY("PktTSBytes", integer, pktTsBytes, 4),
  STAMP_KEY("PktTSLSByteFirst", yes_no, pktTsLsByteFirst, 0),
  STAMP_KEY("PktTSDropNULL", yes_no, pktTsDropNull, 0),
  FLAG("HDVModeHD2", hdvModeHd2),
  {"AUXVpid", integer, AT(auxVpid), 0, W::hexadecimal4},
  {"AUXApid", integer, AT(auxApid), 0, W::hexadecimal4},
  FLAG("HDVDropFrame", hdvDropFrame),
  FLAG("AutoDescrLegacyDTS", autoDescrLegacyDts),
  FLAG("AutoDescrDisabled", autoDescrDisabled),
  AUTOMATIC("AC3", 0),
  AUTOMATIC("EAC3", 1),
  AUTOMATIC("DTS", 2),
  AUTOMATIC("SMPTE302M", 3),
  AUTOMATIC("SCTE35", 4),
  AUTOMATIC("AVC", 5),
  {.name = "AutoDescrAdaptation_field_data", .kind = mask_bit, .field = AT(autoDescrMask), .fallback = 1,
   .when = When::automatic_descriptors, .limit = 6, .writtenName = "AutoDescradaptation_field_data"},
  // Read only: texts that are written have never had them.
  {"NoWater", yes_no, AT(noWater), 0, W::never},
  {"EventNotify", yes_no, AT(eventNotify), 0, W::never},
  {"BlockProcess", yes_no, AT(blockProcess), 0, W::never},
  {"ReverseTiming", yes_no, AT(reverseTiming), 0, W::never},
  // InReadSize is the process's, not the configuration's: it has no field.
  {"InReadSize", integer, nullptr, 5000, W::never},
  {"InNau", integer, AT(inNau), 0, W::never},
  {"InBufSiz", long_integer, AT(inBufSiz), 0, W::never},
};
}  // namespace transport

namespace program {
using R = tsm_program;
constexpr tsm_config_key kKeys[] = {
  // The number has no default to leave out: a reader makes it from the section's.
  HEXADECIMAL("ProgramNumber", programNumber, 0),
  HEXADECIMAL("PMTPID", pmtPid, -1),
  HEXADECIMAL("PMTvsn", pmtVsn, 0),
  DESCRIPTORS(10),
  HEXADECIMAL("PCRPID", pcrPid, -1),
  FLAG("TransportPriority", transportPriority),
  {"PCRper", integer, AT(pcrPer), 90},
  FLAG("PCRPES", pcrPes),
  FLAG("InitDI", initDi),
  FLAG("Priority", priority),
  LONG("SBrate", sbRate),
  LONG("SBsize", sbSize),
};
}  // namespace program

#define IDENTITY(form)                          \
  HEXADECIMAL("PID", pid, -1),                     \
  {"StreamType", integer, AT(streamType), 0, form}, \
  INTEGER("PMTorder", pmtOrder)
#define PES_IDENTITY(form, streamId)            \
  {"PESid", integer, AT(pesId), streamId, form}, \
  {.name = "StreamIDExtension", .kind = integer, .field = AT(streamIdExtension), \
   .written = W::hexadecimal, .writtenName = "StreamIdExtension"}
#define TIMING                          \
  LONG("StreamDelay", streamDelay),     \
  LONG("Delay", delay),                 \
  REAL("Rate", rate),                   \
  LONG("SBsize", sbSize),               \
  LONG("SBrate", sbRate),               \
  LONG("DBsize", dbSize),               \
  FLAG_ON("AVsync", avSync),            \
  FLAG("IndDelay", indDelay)
#define PACKET_BITS                            \
  FLAG("InitDI", initDi),                      \
  FLAG("RAI", rai),                            \
  FLAG("Priority", priority),                  \
  FLAG("TransportPriority", transportPriority), \
  FLAG("PEScopyrt", pesCopyright),             \
  FLAG("PESpri", pesPriority),                 \
  FLAG("PESorig", pesOriginal)
#define PACKETS(nau)                       \
  FLAG("PESalign", pesAlign),              \
  {"PESnau", integer, AT(pesNau), nau},    \
  {"PTSnPES", integer, AT(ptsNpes), 1},    \
  INTEGER("SourceStreamID", sourceStreamId)
#define SOURCE                              \
  INTEGER("SourceTSPID", sourceTsPid),      \
  FLAG("DescFromData", descFromData)
#define TEXT(key, member) {key, Kind::text, AT(member)}
#define OFFSET(key, member) \
  {.name = key, .kind = time_offset, .field = AT(member), .error = 44}

namespace video {
using R = tsm_video;
constexpr tsm_config_key kKeys[] = {
  FILES("File", files),
  IDENTITY(W::hexadecimal), PES_IDENTITY(W::hexadecimal, 0), TIMING, PACKET_BITS, PACKETS(1), SOURCE,
  FLAG("AUinfo", auInfo), FLAG("PadSmallAU", padSmallAu), FLAG("InsertAvcAud", insertAvcAud),
  FLAG("QuadByte", quadByte), FLAG("InsertSEC", insertSec), FLAG("LowLatency", lowLatency),
  FLAG("StrictVBV", strictVbv), FLAG("NotLowDelay", notLowDelay), FLAG("IgnorePOC", ignorePoc),
  FLAG("FrameRateTolerant", frameRateTolerant), FLAG("PCRGOP", pcrGop),
  FLAG("startSeqHdr", startSeqHdr), FLAG("CreateDTVCC", createDtvcc),
  INTEGER("NumBFrames", numBFrames),
  CHOICE("FrameRate", frameRate, kFrameRates, 0),
  INTEGER("FrameRateNumerator", frameRateNumerator),
  INTEGER("FrameRateDenominator", frameRateDenominator),
  INTEGER("AvcReorderDepth", avcReorderDepth), INTEGER("HevcReorderDepth", hevcReorderDepth),
  INTEGER("MaxDecodeDelay", maxDecodeDelay), INTEGER("RateAdjustment", rateAdjustment),
  INTEGER("SubStreamType", subStreamType), INTEGER("PIDavcss", pidAvcss),
  INTEGER("SourceTSPIDavcss", sourceTsPidAvcss), INTEGER("MaxPESlen", maxPesLen),
  LONG("StillPicOffset", stillPicOffset), LONG("StillPicSpacing", stillPicSpacing),
  CHOICE("Splice", splice, kSplices, 0), CHOICE("TypeDelay", typeDelay, kDelays, 0),
  {.name = "CCField", .kind = choice, .field = AT(ccField), .choices = kFields},
  TEXT("PESPrivateDataFile", privateDataFile),
  TEXT("SCCFile", sccFile), TEXT("SCCFile12", sccFile12), TEXT("SCCFile34", sccFile34),
  OFFSET("CCTimeOffset", ccTimeOffset), OFFSET("CCTimeOffset12", ccTimeOffset12),
  OFFSET("CCTimeOffset34", ccTimeOffset34),
  DESCRIPTORS(13),
};
}  // namespace video

namespace audio {
using R = tsm_audio;
constexpr tsm_config_key kKeys[] = {
  FILES("File", files),
  IDENTITY(W::hexadecimal), PES_IDENTITY(W::hexadecimal, 0), TIMING, PACKET_BITS, PACKETS(2), SOURCE,
  FLAG("ATSCbuf", atscBuf), FLAG("DVBbuf", dvbBuf), FLAG("BDbuf", bdBuf), FLAG("CLbuf", clBuf),
  FLAG("A52Y2012buf", a52Y2012Buf), FLAG("LowLatency", lowLatency),
  FLAG_ON("TransitionCleanUp", transitionCleanUp),
  INTEGER("SourceStreamSubtype", sourceStreamSubtype), LONG("SkipFrames", skipFrames),
  TEXT("PESPrivateDataFile", privateDataFile),
  DESCRIPTORS(18),
};
}  // namespace audio

namespace data {
using R = tsm_data;
constexpr tsm_config_key kKeys[] = {
  FILES("File", files),
  REAL("Rate", rate), HEXADECIMAL("PID", pid, 0), HEXADECIMAL("StreamType", streamType, 0),
  INTEGER("PMTorder", pmtOrder), INTEGER("StreamDelay", streamDelay),
  LONG("SBsize", sbSize), LONG("SBrate", sbRate), LONG("BufSize", bufSize),
  FLAG_ON("Repeat", repeat), FLAG_ON("FixCC", fixCc), FLAG("ChangePID", changePid),
  FLAG("CreatePMTEntry", createPmtEntry), FLAG("Priority", priority),
  DESCRIPTORS(35),
};
}  // namespace data

namespace table {
using R = tsm_table;
constexpr tsm_config_key kKeys[] = {
  FILES("File", files),
  HEXADECIMAL("PID", pid, -1), INTEGER("TBsize", tbSize), INTEGER("PMTorder", pmtOrder),
  HEXADECIMAL("StreamType", streamType, 0), INTEGER("StreamDelay", streamDelay),
  INTEGER("StreamStop", streamStop), {"TablesPerSecond", real, AT(tablesPerSecond), 10},
  REAL("Rate", rate), REAL("TBdrainRate", tbDrainRate), LONG("SBsize", sbSize), LONG("SBrate", sbRate),
  FLAG_ON("Repeat", repeat), FLAG("Pack", pack), FLAG("Priority", priority),
  FLAG("CreatePMTEntry", createPmtEntry), FLAG("InitDI", initDi),
  FLAG("TransportPriority", transportPriority), FLAG("AdjustStart", adjustStart),
  OFFSET("TimeOffset", timeOffset),
  BYTES_LIST("Table", tables, 33, kTableBytes),
  DESCRIPTORS(33),
};
}  // namespace table

namespace lpcm {
using R = tsm_lpcm;
constexpr tsm_config_key kKeys[] = {
  FILES("File", files),
  IDENTITY(W::plain), PES_IDENTITY(W::plain, 189), TIMING, PACKET_BITS, SOURCE,
  INTEGER("PESLPCMType", pesLpcmType), INTEGER("ChannelAssignment", channelAssignment),
  INTEGER("ChannelRemapping", channelRemapping), INTEGER("SamplingFrequency", samplingFrequency),
  INTEGER("NCHANNELS", nChannels), INTEGER("WordSize", wordSize),
  FLAG("Truncate24to20", truncate24To20), FLAG("BigEndian", bigEndian),
  LONG("RefVideoPID", refVideoPid),
  DESCRIPTORS(24),
};
}  // namespace lpcm

namespace smpte302m {
using R = tsm_smpte302m;
#define PAIR(number, index)                                                             \
  {.name = "Stream" #number, .kind = files, .field = AT(pairFiles[index]), .limit = number, \
   .numberedName = "Stream" #number "File"}
#define CHANNEL(number, index)                                                      \
  {"DMCoefL" #number, real, AT(dmCoefL[index]), (index) == 0 ? 1.0 : 0.0},          \
  {"DMCoefR" #number, real, AT(dmCoefR[index]), (index) == 1 ? 1.0 : 0.0},          \
  CHOICE("ChannelStatus" #number, channelStatus[index], kChannelKinds, 0),          \
  {.name = "CSData" #number, .kind = hex, .field = AT(channelStatusData[index]),    \
   .when = When::user_channel, .error = 21, .limit = number}
constexpr tsm_config_key kKeys[] = {
  PAIR(1, 0), PAIR(2, 1), PAIR(3, 2), PAIR(4, 3),
  IDENTITY(W::plain), PES_IDENTITY(W::plain, 189), TIMING, PACKET_BITS, SOURCE,
  LONG("RefVideoPID", refVideoPid), LONG("ChannelID", channelId),
  {"BytesPerWord", long_integer, AT(bytesPerWord), 3},
  CHOICE("WordSize", wordSize, kWordSizes, 2),
  INTEGER("DownmixToStereo", downmixToStereo), INTEGER("RemuxToCombine", remuxToCombine),
  INTEGER("SrcTSPIDToCombine1", srcTsPidToCombine[0]), INTEGER("SrcTSPIDToCombine2", srcTsPidToCombine[1]),
  INTEGER("SrcTSPIDToCombine3", srcTsPidToCombine[2]), INTEGER("SrcTSPIDToCombine4", srcTsPidToCombine[3]),
  INTEGER("RemuxLPCMType", remuxLpcmType), INTEGER("LPCMSrcType", lpcmSrcType),
  INTEGER("LPCMSinkType", lpcmSinkType),
  FLAG("PhaseSync", phaseSync), FLAG("Validity", validity), FLAG("DolbyETiming", dolbyETiming),
  FLAG("MonoToStereo", monoToStereo), FLAG("MSjustified", msJustified),
  FLAG("BitReversed", bitReversed), FLAG("ByteReversed", byteReversed),
  CHANNEL(1, 0), CHANNEL(2, 1), CHANNEL(3, 2), CHANNEL(4, 3),
  CHANNEL(5, 4), CHANNEL(6, 5), CHANNEL(7, 6), CHANNEL(8, 7),
  DESCRIPTORS(24),
};
}  // namespace smpte302m

namespace private_stream {
using R = tsm_private_stream;
constexpr tsm_config_key kKeys[] = {
  FILES("File", files),
  IDENTITY(W::hexadecimal), PES_IDENTITY(W::hexadecimal, 0), TIMING, PACKET_BITS, PACKETS(0), SOURCE,
  {"TimestampRatio", real, AT(timestampRatio), 1},
  INTEGER("PESforceHdrLen", pesForceHdrLen), INTEGER("FrameSize", frameSize),
  INTEGER("DBdrainRate", dbDrainRate), INTEGER("Heartbeat", heartbeat),
  {"AdvanceTime", integer, AT(advanceTime), -1},
  FLAG("DataOnly", dataOnly), FLAG("PEScopyrtFromFile", pesCopyrightFromFile),
  FLAG("PESpriFromFile", pesPriorityFromFile), FLAG("PESorigFromFile", pesOriginalFromFile),
  FLAG("SyncVideoTC", syncVideoTc), FLAG("AppendPadding", appendPadding),
  FLAG("NoVideoBase", noVideoBase), FLAG("Async", async), FLAG("AdjustStart", adjustStart),
  {"DescFromFile", tri_state, AT(descFromFile), -1},
  {.name = "PESpayldHdr", .kind = hex, .field = AT(pesPayloadHdr), .error = 47, .limit = kHeaderBytes},
  OFFSET("TimeOffset", timeOffset),
  DESCRIPTORS(43),
};
}  // namespace private_stream

namespace scte35 {
using R = tsm_scte35;
constexpr tsm_config_key kKeys[] = {
  FILES("File", files),
  HEXADECIMAL("PID", pid, -1), INTEGER("PMTorder", pmtOrder), INTEGER("Heartbeat", heartbeat),
  SOURCE, REAL("Rate", rate), FLAG("InitDI", initDi), FLAG("TransportPriority", transportPriority),
  FLAG("SyncVideoTC", syncVideoTc), FLAG("AdjustStart", adjustStart), FLAG("NoVideoBase", noVideoBase),
  OFFSET("TimeOffset", timeOffset),
  {"AdvanceTime", integers, AT(advanceTimes)},
  DESCRIPTORS(45),
};
}  // namespace scte35

constexpr tsm_config_section kSections[] = {
  // name, written, keys, slots, too many, no files
  {"Transport", "Transport", transport::kKeys, 0, 0, 5},
  {"Program", "Program", program::kKeys, 0, 7, 0},
  {"Video", "Video", video::kKeys, tsm_video_slots, 36, 14},
  {"Audio", "Audio", audio::kKeys, tsm_audio_slots, 37, 19},
  {"Data", "Data", data::kKeys, tsm_data_slots, 38, 34},
  {"TableData", "TableData", table::kKeys, tsm_table_slots, 12, 49},
  {"LPCM", "LPCM", lpcm::kKeys, tsm_lpcm_slots, 39, 0},
  {"SMPTE302M", "Smpte302M", smpte302m::kKeys, tsm_smpte302m_slots, 39, 23},
  {"PrivateStream1Data", "PrivateStream1Data", private_stream::kKeys, tsm_private_stream_slots, 41, 42},
  {"Scte35Data", "Scte35Data", scte35::kKeys, tsm_scte35_slots, 46, 105},
};
// clang-format on

}  // namespace

std::span<const tsm_config_section> tsm_config_sections() noexcept {
  return kSections;
}

std::string_view tsm_value_kind_name(tsm_value_kind kind) noexcept {
  constexpr std::string_view kNames[] = {"yes/no",    "yes/no",    "yes/no",       "choice",
                                         "integer",   "long",      "wide integer", "float",
                                         "text",      "time",      "time offset",  "integers",
                                         "hex bytes", "hex bytes", "file list"};
  return kNames[static_cast<size_t>(kind)];
}

}  // namespace Morvalen::Zel
