#include <algorithm>
#include <span>

#include "zel/mux/multiplexer_api.h"
#include "zel/mux/multiplexer_properties.h"
#include "zel/runtime/four_character_code.h"
#include "zel/runtime/property_keys.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

using Writer = ContainerWriterProperty;

constexpr int32_t kPcmStreamType = 6;
constexpr int32_t kPrivateStream1 = 189;
constexpr int32_t kUserChannelStatus = 2;

// Where a stream goes: a record of the configuration file that waits for its provider, or a program
// with room for a new one, or nowhere.
template <class Record>
struct Place {
  Record* waiting = nullptr;
  tsm_program* program = nullptr;
};

template <class Record, size_t N>
Place<Record> FindPlace(tsm_config& config, Record* (tsm_program::*slots)[N]) {
  for (tsm_program* program = config.programs; program != nullptr; program = program->next) {
    bool free = false;
    for (Record* const record : program->*slots) {
      if (record != nullptr && record->user == nullptr) return {record, program};
      free = free || record == nullptr;
    }
    if (free) return {nullptr, program};
  }
  return {};
}

int AppendProperty(IProperties const& properties, char const* key, TarnArray& descriptors) {
  RObject<CByteArray> bytes(properties.GetProperty(key));
  if (bytes == nullptr || bytes->GetLength() <= 0) return 0;
  return tarn_array_append_bytes(&descriptors, {bytes->GetData(), size_t(bytes->GetLength())})
             ? 0
             : ZelErrorOutOfMemory;
}

template <size_t N>
int AppendProperties(IProperties const& properties, char const* const (&keys)[N],
                     TarnArray& descriptors) {
  for (char const* const key : keys)
    if (int const result = AppendProperty(properties, key, descriptors); result < 0) return result;
  return 0;
}

int AppendProvided(int result, CByteArray* adopted, TarnArray* descriptors) {
  RObject<CByteArray> const bytes(adopted);
  if (result < 0 || bytes == nullptr || bytes->GetLength() <= 0) return result;
  return tarn_array_append_bytes(descriptors, {bytes->GetData(), size_t(bytes->GetLength())})
             ? result
             : ZelErrorOutOfMemory;
}

struct PcmCode {
  uint32_t code;
  bool byteReversed;
};
constexpr PcmCode kPcmCodes[] = {
    {FourCharacterCode("twos"), true},  {FourCharacterCode("in24"), true},
    {FourCharacterCode("in20"), true},  {FourCharacterCode("m203"), true},
    {FourCharacterCode("302m"), false}, {FourCharacterCode("sowt"), false},
    {FourCharacterCode("42ni"), false}, {FourCharacterCode("02ni"), false},
};

PcmCode const* FindPcm(uint32_t code) {
  auto const* const found = std::find_if(std::begin(kPcmCodes), std::end(kPcmCodes),
                                         [code](PcmCode const& row) { return row.code == code; });
  return found != std::end(kPcmCodes) ? found : nullptr;
}

struct WordLayout {
  int32_t bits, bytesPerWord, wordSize;
  int64_t numerator, denominator;  // of the rate parameter
};
constexpr WordLayout kWordLayouts[] = {
    {16, 2, 24, 128, 5}, {20, 3, 20, 192, 6}, {24, 3, 24, 192, 7}};

// Gives the rate of the stream.
double SetWords(int32_t bits, int32_t rateParameter, tsm_smpte302m& stream) {
  for (WordLayout const& layout : kWordLayouts) {
    if (layout.bits != bits) continue;
    stream.bytesPerWord = layout.bytesPerWord;
    // Samples of 16 bits keep the record's word size: their bytes say what they are.
    stream.wordSize = layout.wordSize;
    int64_t const rate = rateParameter * layout.numerator / layout.denominator;
    return double(rate);
  }
  stream.bytesPerWord = 3;
  stream.wordSize = 24;
  return 0;
}

}  // namespace

TarnStreamInfo* CTarnwickMultiplexerApi::GetNewStreamInfo(ITarnwickProvider* provider,
                                                          int32_t index) {
  if (streamInfoCount >= kStreamInfos) return nullptr;
  TarnStreamInfo& info = streamInfos[size_t(streamInfoCount++)];
  info = {provider, index};
  return &info;
}

int CTarnwickMultiplexerApi::AddLanguageDescriptor(ITarnwickProvider* provider,
                                                   TarnArray* descriptors) {
  CByteArray* bytes = nullptr;
  int const result = provider->GetLanguageDescriptor(bytes);
  return AppendProvided(result, bytes, descriptors);
}

int CTarnwickMultiplexerApi::AddDvbAc3AudioDescriptor(ITarnwickProvider* provider,
                                                      TarnArray* descriptors) {
  CByteArray* bytes = nullptr;
  int const result = provider->GetDvbAc3Descriptor(bytes);
  return AppendProvided(result, bytes, descriptors);
}

int CTarnwickMultiplexerApi::AddVideoStream(int32_t pid, ITarnwickProvider* provider,
                                            IProperties* properties, uint32_t code, int32_t bitRate,
                                            Rational64 const& frameRate) {
  if (provider == nullptr || properties == nullptr) return ZelErrorNullArgument;
  if (config == nullptr) return ZelErrorNotReady;
  if (firstVideoRate == 0) firstVideoRate = bitRate;
  auto const place = FindPlace(*config, &tsm_program::video);
  if (place.program == nullptr) return 0;
  TarnStreamInfo* const info = GetNewStreamInfo(provider, 0);
  if (info == nullptr) return ZelErrorQueueFull;
  if (place.waiting != nullptr) {
    place.waiting->user = info;
    return 0;
  }
  PropertyReader reader(*properties);
  tsm_video* const video = tsm_add_video(place.program);
  if (video == nullptr) return ZelErrorOutOfMemory;
  video->user = info;
  video->pid = pid;
  video->padSmallAu = true;
  video->auInfo = reader.Switch(Writer::Mpeg2TransportStreamInsertDvbAu);
  video->quadByte = reader.Switch(Writer::Mpeg2TransportQuadByteAlignment);
  video->rai = reader.Switch(ContainerProperty::Mpeg2TransportRandomAccessIndicator);
  video->pesAlign = reader.Switch(Writer::Mpeg2TransportAlignVideoPesPackets);
  int32_t const propertyRate = reader.Integer(Writer::Mpeg2TransportVideoBitrate, 0);
  video->notLowDelay = reader.Switch(Writer::Mpeg2TransportNotLowDelay);

  int32_t measured = 0;
  video->rate = propertyRate >= 1 ? propertyRate : bitRate;
  provider->GetBitRate(bitRate, measured);
  if (video->rate == 0) video->rate = measured;
  if (code == FourCharacterCode("h265") || code == FourCharacterCode("hvc1")) {
    video->frameRateNumerator = int32_t(frameRate.numerator);
    video->frameRateDenominator = int32_t(frameRate.denominator);
  }
  char const* const keys[] = {
      Writer::Mpeg2TransportVideoDescriptor1, Writer::Mpeg2TransportVideoDescriptor2,
      Writer::Mpeg2TransportVideoDescriptor3, Writer::Mpeg2TransportVideoDescriptor4,
      Writer::Mpeg2TransportVideoDescriptor5};
  int const appended = AppendProperties(*properties, keys, video->descriptors);
  componentRate += bitRate;
  return appended < 0 ? appended : reader.Result();
}

int CTarnwickMultiplexerApi::AddAudioStream(int32_t pid, int32_t referenceVideoPid,
                                            int32_t& streamCount, ITarnwickProvider* provider,
                                            IProperties* properties, uint32_t code,
                                            int32_t channels, int32_t bitsPerSample,
                                            int32_t rateParameter, int32_t bitRate) {
  streamCount = 1;
  if (provider == nullptr || properties == nullptr) return ZelErrorNullArgument;
  if (config == nullptr) return ZelErrorNotReady;
  auto const place = FindPlace(*config, &tsm_program::audio);
  if (place.program == nullptr) return 0;
  PcmCode const* const pcm = FindPcm(code);
  if (place.waiting == nullptr && pcm != nullptr) {
    tsm_smpte302m* const stream = tsm_add_smpte302m(place.program);
    if (stream == nullptr) return 0;
    stream->nChannels = channels;
    int32_t const pairs = channels / 2;
    if (channels % 2 != 0 || pairs < 1 || pairs > tsm_channel_pairs) return ZelErrorNotSupported;
    stream->pid = pid;
    stream->byteReversed = pcm->byteReversed;
    stream->streamCount = streamCount = pairs;
    for (int32_t pair = 0; pair < pairs; ++pair) {
      stream->pairUser[pair] = GetNewStreamInfo(provider, pair);
      if (stream->pairUser[pair] == nullptr) return ZelErrorQueueFull;
      for (int32_t channel = 2 * pair; channel < 2 * pair + 2; ++channel) {
        stream->channelStatus[channel] = kUserChannelStatus;
        std::copy(chStat.begin(), chStat.end(), stream->channelStatusData[channel]);
      }
    }
    stream->msJustified = true;
    stream->rate = SetWords(bitsPerSample, rateParameter, *stream);
    if (referenceVideoPid > 0) stream->refVideoPid = referenceVideoPid;
    stream->streamType = kPcmStreamType;
    stream->pesId = kPrivateStream1;
    if (!tarn_array_append_bytes(&stream->descriptors, descriptor)) return ZelErrorOutOfMemory;
    AddLanguageDescriptor(provider, &stream->descriptors);
    componentRate += stream->rate;
    return 0;
  }

  TarnStreamInfo* const info = GetNewStreamInfo(provider, 0);
  if (info == nullptr) return ZelErrorQueueFull;
  if (place.waiting != nullptr) {
    place.waiting->user = info;
    return 0;
  }
  PropertyReader reader(*properties);
  bool const dvbAc3 = reader.Switch(Writer::Mpeg2TransportStreamDvbAc3Descriptor);
  bool const align = reader.Switch(Writer::Mpeg2TransportAlignAudioPesPackets);
  int32_t const units = reader.Integer(Writer::Mpeg2TransportAudioAccessUnitsPerPesPacket, 2);
  if (reader.Result() < 0) return reader.Result();
  tsm_audio* const audio = tsm_add_audio(place.program);
  if (audio == nullptr) return ZelErrorOutOfMemory;
  audio->user = info;
  audio->pid = pid;
  audio->pesAlign = align;
  audio->pesNau = units;
  audio->atscBuf = reader.Switch(Writer::Mpeg2TransportUseAtscBufferModel);
  AddLanguageDescriptor(provider, &audio->descriptors);
  if (dvbAc3) {
    config->autoDescrMask &= ~1;
    AddDvbAc3AudioDescriptor(provider, &audio->descriptors);
  }
  char const* const keys[] = {
      Writer::Mpeg2TransportAudioDescriptor1, Writer::Mpeg2TransportAudioDescriptor2,
      Writer::Mpeg2TransportAudioDescriptor3, Writer::Mpeg2TransportAudioDescriptor4,
      Writer::Mpeg2TransportAudioDescriptor5};
  int const appended = AppendProperties(*properties, keys, audio->descriptors);
  componentRate += bitRate;
  return appended < 0 ? appended : reader.Result();
}

int CTarnwickMultiplexerApi::AddDataStream(int32_t bitRate, int32_t pid,
                                           ITarnwickProvider* provider) {
  if (provider == nullptr) return ZelErrorNullArgument;
  if (config == nullptr) return ZelErrorNotReady;
  if (streamInfoCount >= kStreamInfos) return ZelErrorQueueFull;
  tsm_data* const data = tsm_add_data(config);
  if (data == nullptr) return 0;
  data->user = GetNewStreamInfo(provider, 0);
  data->rate = bitRate;
  data->pid = pid;
  componentRate += bitRate;
  return 0;
}

}  // namespace Morvalen::Zel
