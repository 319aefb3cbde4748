#include <cstdio>
#include <cstring>

#include "zel/mux/multiplexer_api.h"
#include "zel/mux/multiplexer_properties.h"
#include "zel/mux/multiplexer_texts.h"
#include "zel/mux/real_engine.h"
#include "zel/runtime/property_keys.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

using Container = ContainerProperty;
using Writer = ContainerWriterProperty;

constexpr int32_t kScte35Pid = 496;
constexpr int32_t kEtvStreamType = 192;

// What the properties say, in the order in which they are read.
struct Settings {
  explicit Settings(PropertyReader& read)
      : patTsid(read.Integer(Container::Mpeg2TransportStreamId, 0)),
        patVsn(read.Integer(Container::Mpeg2TransportPatVersion, 0)),
        pcrPid(read.Integer(Container::Mpeg2TransportStreamPcrPid, -1)),
        pcrPes(read.Switch(Writer::Mpeg2TransportPcrOnEveryPesHeader)),
        noEmptyAf(read.Switch(Writer::Mpeg2TransportNoEmptyAdaptationFields)),
        pktTs(read.Switch(Writer::Mpeg2TransportInsertPacketTimestamp)),
        vbr(read.Switch(Writer::Mpeg2TransportVariableBitrate)),
        pktTsPre(pktTs && read.Switch(Writer::Mpeg2TransportPacketTimestampPrecedesPacket)),
        pktTsBits(pktTs ? read.Integer(Writer::Mpeg2TransportPacketTimestampSizeBits, 0) : 0),
        pktTsBytes(pktTs ? read.Integer(Writer::Mpeg2TransportPacketTimestampSizeBytes, 0) : 0),
        pktTsLittle(pktTs && read.Switch(Writer::Mpeg2TransportPacketTimestampLittleEndian)),
        patRate(read.Decimal(Writer::Mpeg2TransportPatRepetitionRate, 10.0)),
        pmtRate(read.Decimal(Writer::Mpeg2TransportPmtRepetitionRate, 10.0)),
        rate(read.Integer(Container::Mpeg2TransportStreamRate, 0)),
        headroom(read.Integer(Container::Mpeg2TransportStreamHeadroom, 0)),
        pmtPid(read.Integer(Container::Mpeg2TransportStreamPmtPid, 0)),
        programNumber(read.Integer(Container::Mpeg2TransportStreamProgramNumber, 0)),
        pcrPer(read.Integer(Writer::Mpeg2TransportStreamPcrPer, 0)),
        configFile(read.Text(Writer::TarnwickConfigFile)),
        scte35File(read.Text(Writer::TarnwickScte35File)),
        scte35Pid(read.Integer(Writer::TarnwickScte35Pid, kScte35Pid)),
        errorBehavior(read.Integer(Writer::TarnwickErrorBehavior, 1)),
        errorThreshold(read.Integer(Writer::TarnwickErrorThreshold, 1)),
        enable2Pass(read.Switch(Writer::TarnwickEnable2Pass)) {}

  int32_t patTsid, patVsn, pcrPid;
  bool pcrPes, noEmptyAf, pktTs, vbr, pktTsPre;
  int32_t pktTsBits, pktTsBytes;
  bool pktTsLittle;
  double patRate, pmtRate;
  int32_t rate, headroom, pmtPid, programNumber, pcrPer;
  RObject<CString> configFile, scte35File;
  int32_t scte35Pid, errorBehavior, errorThreshold;
  bool enable2Pass;
};

void SetTransport(Settings const& from, tsm_config& config) {
  config.patTsid = from.patTsid;
  config.patVsn = from.patVsn;
  config.noEmptyAf = from.noEmptyAf;
  config.pktTs = from.pktTs;
  config.vbr = from.vbr;
  config.psiPatRep = from.patRate;
  config.psiPmtRep = from.pmtRate;
  if (from.rate > 0) config.rate = from.rate;
  if (!from.pktTs) return;
  config.pktTsPre = from.pktTsPre;
  config.pktTsBits = from.pktTsBits;
  config.pktTsBytes = from.pktTsBytes;
  config.pktTsLsByteFirst = from.pktTsLittle;
}

void SetProgram(Settings const& from, tsm_program& program) {
  if (from.pmtPid > 0) program.pmtPid = from.pmtPid;
  if (from.programNumber > 0) program.programNumber = from.programNumber;
  if (from.pcrPer > 0) program.pcrPer = from.pcrPer;
  if (from.pcrPid >= 0) program.pcrPid = from.pcrPid;
  program.pcrPes = from.pcrPes;
}

bool IsGiven(CString const* text) {
  return text != nullptr && !text->IsNullOrEmpty();
}

}  // namespace

CTarnwickMultiplexerApi::CTarnwickMultiplexerApi(EngineCalls const& calls)
    : engine(calls), etvTracks(new CDependenciesList<CEtvTrack>) {}

CTarnwickMultiplexerApi* CTarnwickMultiplexerApi::Create() {
  return Create(RealEngine());
}

CTarnwickMultiplexerApi* CTarnwickMultiplexerApi::Create(EngineCalls const& engine) {
  CTarnwickMultiplexerApi* const object = new CTarnwickMultiplexerApi(engine);
  if (object != nullptr && object->etvTracks == nullptr) {
    object->Release();
    return nullptr;
  }
  return object;
}

void CTarnwickMultiplexerApi::SetText(RObject<CString>& holder, char const* text) {
  holder = new CString(text);
}

int CTarnwickMultiplexerApi::AddEtvTrack(char const* sourcePath, char const* tablePathBase,
                                         int32_t pid, unsigned char const* descriptors,
                                         int32_t descriptorsLength) {
  RObject<CEtvTrack> track(new CEtvTrack);
  if (track == nullptr) return ZelErrorOutOfMemory;
  int const result = track->Init(sourcePath, tablePathBase, pid, descriptors, descriptorsLength);
  return result < 0 ? result : etvTracks->Add(track);
}

void CTarnwickMultiplexerApi::InstallCallbacks() const {
  engine.setCallbacks(ProgressHandler, WriteBytes, ErrorHandler, LoadCircularBuffer, nullptr);
}

int CTarnwickMultiplexerApi::ReadConfigurationFile(CString* path, ITarnwickConsumer* consumer,
                                                   IProperties* properties) {
  std::FILE* const file = std::fopen(path->GetChars(), "rb");
  if (file == nullptr) {
    properties->SetProperty(kErrorMessageProperty, int32_t{sizeof kConfigurationFileMissing},
                            reinterpret_cast<unsigned char const*>(kConfigurationFileMissing));
    return ZelErrorCancelled;
  }
  if (engine.readConfiguration != nullptr)
    config = engine.readConfiguration(file, consumer, ConfigurationErrorHandler);
  std::fclose(file);
  if (engine.readConfiguration == nullptr) return ZelErrorNotSupported;
  return config != nullptr ? 0 : ZelErrorFailed;
}

void CTarnwickMultiplexerApi::SetErrorPolicy(int32_t behaviour, int32_t threshold) {
  // Deliberate: a threshold of 1 is none. Pinned by multiplexer_api_test.cpp.
  if (threshold > 1) {
    errorThreshold = threshold;
    behaviour = 0;
  }
  config->stopOnError = behaviour > 0;
  config->stopOnWarning = behaviour > 1;
  stopOnError = config->stopOnError ? 1 : 0;
  stopOnWarning = config->stopOnWarning ? 1 : 0;
}

int CTarnwickMultiplexerApi::AddScte35Stream(CString* file, int32_t pid) {
  if (!IsGiven(file) || config->programs == nullptr) return 0;
  tsm_scte35* const stream = tsm_add_scte35(config->programs);
  if (stream == nullptr) return 0;
  stream->pid = pid;
  return tarn_array_append_text(&stream->files, file->GetChars()) ? 0 : ZelErrorOutOfMemory;
}

int CTarnwickMultiplexerApi::AddEtvStreams() {
  if (config->programs == nullptr) return 0;
  for (CEtvTrack* const track : *etvTracks) {
    tsm_table* const table = tsm_add_table(config->programs);
    if (table == nullptr) return 0;
    table->pid = track->GetPid();
    table->rate = track->GetBitRate();
    table->streamType = kEtvStreamType;
    table->repeat = false;
    table->createPmtEntry = true;
    componentRate += track->GetBitRate();
    std::span<uint8_t const> const bytes(track->GetDescriptors(),
                                         size_t(track->GetDescriptorsLength()));
    if ((!bytes.empty() && !tarn_array_append_bytes(&table->descriptors, bytes)) ||
        !tarn_array_append_text(&table->files, track->GetTablePath()->GetChars()))
      return ZelErrorOutOfMemory;
  }
  return 0;
}

int CTarnwickMultiplexerApi::Begin(ITarnwickConsumer* consumer, IProperties* properties) {
  if (consumer == nullptr || properties == nullptr) return ZelErrorNullArgument;
  if (config != nullptr) return ZelErrorInvalidArgument;
  if (!engine.CanRun()) return ZelErrorNotSupported;
  PropertyReader reader(*properties);
  Settings const settings(reader);
  if (reader.Result() < 0) return reader.Result();
  headroom = settings.headroom;
  enable2Pass = settings.enable2Pass;
  InstallCallbacks();
  if (etvTracks->GetCount() > 0) {
    if (engine.demuxEtvTracks == nullptr) return ZelErrorNotSupported;
    int const result = engine.demuxEtvTracks(etvTracks, properties);
    if (result < 0) return result;
  }
  if (IsGiven(settings.configFile)) {
    int const result = ReadConfigurationFile(settings.configFile, consumer, properties);
    if (result < 0) return result;
  } else {
    config = tsm_config_new();
    if (config == nullptr) return ZelErrorOutOfMemory;
    SetTransport(settings, *config);
    tsm_program* const program = tsm_add_program(config);
    if (program == nullptr) return ZelErrorOutOfMemory;
    SetProgram(settings, *program);
  }
  config->writeUser = consumer;
  config->progressUser = config->errorUser = this;
  SetErrorPolicy(settings.errorBehavior, settings.errorThreshold);
  int const result = AddScte35Stream(settings.scte35File, settings.scte35Pid);
  return result < 0 ? result : AddEtvStreams();
}

}  // namespace Morvalen::Zel
