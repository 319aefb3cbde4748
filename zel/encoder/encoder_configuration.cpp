#include "zel/encoder/encoder_configuration.h"

#include <x265.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <span>

#include "zel/encoder/command_line.h"
#include "zel/encoder/encoder_keys.h"
#include "zel/encoder/x265_defects.h"
#include "zel/encoder/x265_encoder_api.h"
#include "zel/runtime/result_codes.h"

namespace zel::encoder {
namespace {

using namespace Morvalen::Zel;  // NOLINT: the result codes and the interface

constexpr int32_t kCommandLineSize = 2048;

template <typename T>
bool FitsNumber(T value) {
  return value >= T(std::numeric_limits<int32_t>::min()) &&
         value <= T(std::numeric_limits<int32_t>::max());
}

// The consumer's properties. A value counts when it has exactly the size that was asked for: a
// shorter one leaves part of the buffer unwritten, a longer one can't have been delivered.
class Properties {
 public:
  explicit Properties(IMorvalenEncoderConsumer& source) : consumer(source) {}

  int ReadBytes(char const* name, std::span<unsigned char> buffer) {
    return consumer.GetProperty(name, int32_t(buffer.size()), buffer.data());
  }

  template <typename T>
  bool Read(char const* name, T& value) {
    std::array<unsigned char, sizeof(T)> bytes{};
    if (ReadBytes(name, bytes) != int(sizeof(T))) return false;
    std::memcpy(&value, bytes.data(), sizeof(T));
    return true;
  }

  bool Read(EncoderKey const& key, KeyValue& value) {
    switch (key.type) {
      case KeyType::kNumber:
        return Read(*key.name, value.number);
      case KeyType::kReal:
        return Read(*key.name, value.real);
      case KeyType::kSwitch:
        break;
    }
    uint8_t byte = 0;
    if (!Read(*key.name, byte)) return false;
    value.number = byte != 0;
    return true;
  }

 private:
  IMorvalenEncoderConsumer& consumer;
};

// A key that is absent changes nothing. x265 compares reals with bounds, which a NaN passes, so
// what isn't finite is kept from it.
int Apply(EncoderKey const& key, Properties& properties, x265_param& parameters) {
  KeyValue value;
  if (!properties.Read(key, value)) return 0;
  if (!std::isfinite(value.real)) return ZelErrorInvalidArgument;
  key.store(parameters, value);
  return 0;
}

int Apply(std::span<EncoderKey const> keys, Properties& properties, x265_param& parameters) {
  for (EncoderKey const& key : keys) {
    if (int const result = Apply(key, properties, parameters); result < 0) return result;
  }
  return 0;
}

// The name at an index, null when there is none.
char const* NameAt(std::span<char const* const> names, int32_t index) {
  return index >= 0 && size_t(index) < names.size() ? names[size_t(index)] : nullptr;
}

// The optional choice of a name: `name` stays null when the key is absent.
int ReadName(Properties& properties, char const* key, std::span<char const* const> names,
             char const*& name) {
  int32_t index = 0;
  if (!properties.Read(key, index)) return 0;
  name = NameAt(names, index);
  return name != nullptr ? 0 : ZelErrorInvalidArgument;
}

int ReadPreset(Properties& properties, char const*& preset) {
  std::array<unsigned char, sizeof(int32_t)> bytes{};
  int const result = properties.ReadBytes(CodeBookProperty::X265Preset, bytes);
  if (result < 0) return result;
  // There is no default: a caller that forgot the preset would get an encoder of another speed.
  if (result != int(bytes.size())) return ZelErrorInvalidArgument;
  int32_t index = 0;
  std::memcpy(&index, bytes.data(), sizeof index);
  preset = NameAt(kPresetNames, index);
  return preset != nullptr ? 0 : ZelErrorInvalidArgument;
}

int ApplyPreset(Properties& properties, x265_param& parameters) {
  char const* preset = nullptr;
  if (int const result = ReadPreset(properties, preset); result < 0) return result;
  char const* tune = nullptr;
  if (int const result = ReadName(properties, CodeBookProperty::X265Tuning, kTuningNames, tune);
      result < 0) {
    return result;
  }
  if (int const result = x265_param_default_preset(&parameters, preset, tune); result < 0) {
    return result;
  }
  // A library has no business on its caller's standard error. "--log-level" asks for it.
  parameters.logLevel = X265_LOG_NONE;
  return 0;
}

int ApplyProfile(Properties& properties, x265_param& parameters) {
  char const* profile = nullptr;
  if (int const result =
          ReadName(properties, CodeBookProperty::X265Profile, kProfileNames, profile);
      result < 0) {
    return result;
  }
  return profile != nullptr ? x265_param_apply_profile(&parameters, profile) : 0;
}

// Rate control. Each method reads what it needs; only those that hold a bit rate go on to the HRD.

int SetBitRate(int64_t kbps, x265_param& parameters) {
  if (!FitsNumber(kbps)) return ZelErrorInvalidArgument;
  parameters.rc.rateControlMode = X265_RC_ABR;
  parameters.rc.bitrate = int(kbps);
  return 0;
}

int UseAverageBitRate(Properties& properties, int64_t kbps, x265_param& parameters) {
  if (int const result = SetBitRate(kbps, parameters); result < 0) return result;
  return Apply(kAverageBitRateKeys, properties, parameters);
}

int UseConstantQuantizer(Properties& properties, int64_t, x265_param& parameters) {
  parameters.rc.rateControlMode = X265_RC_CQP;
  return Apply(kQuantizerKey, properties, parameters);
}

int UseConstantRateFactor(Properties& properties, int64_t, x265_param& parameters) {
  parameters.rc.rateControlMode = X265_RC_CRF;
  return Apply(kRateFactorKey, properties, parameters);
}

// Constant bit rate: a buffer that drains as fast as the average comes in, with `seconds` of it.
int UseConstantBitRate(Properties& properties, int64_t kbps, x265_param& parameters) {
  if (int const result = SetBitRate(kbps, parameters); result < 0) return result;
  parameters.rc.vbvMaxBitrate = int(kbps);
  double seconds = 0.0;
  if (properties.Read(CodeBookProperty::X265BufferDelay, seconds)) {
    double const size = std::round(double(kbps) * seconds);
    if (!FitsNumber(size)) return ZelErrorInvalidArgument;  // a NaN doesn't fit either
    parameters.rc.vbvBufferSize = int(size);
  }
  parameters.rc.vbvBufferInit = 0.9;
  return 0;
}

struct RateControlMethod {
  int (*apply)(Properties& properties, int64_t kbps, x265_param& parameters);
  bool readsHrd;
};

// By the number at CodeBookProperty::X265RateControlMethod. With another number, or none, the
// preset's rate control stays.
constexpr auto kRateControlMethods = std::to_array<RateControlMethod>({
    {UseAverageBitRate, true},
    {UseConstantQuantizer, false},
    {UseConstantRateFactor, false},
    {UseConstantBitRate, true},
});

int ApplyRateControl(Properties& properties, int64_t kbps, x265_param& parameters) {
  int32_t number = 0;
  if (!properties.Read(CodeBookProperty::X265RateControlMethod, number)) return 0;
  if (number < 0 || size_t(number) >= kRateControlMethods.size()) return 0;
  RateControlMethod const& method = kRateControlMethods[size_t(number)];
  if (int const result = method.apply(properties, kbps, parameters); result < 0) return result;
  return method.readsHrd ? Apply(kHrdKey, properties, parameters) : 0;
}

constexpr int64_t kMostSamples = int64_t(1) << 30;

bool IsEvenLength(int32_t length) {
  return length > 0 && length % 2 == 0;
}

// x265 counts the samples of a picture, its chroma and margins too, in 32 bits.
bool IsUsableSize(int32_t width, int32_t height) {
  return IsEvenLength(width) && IsEvenLength(height) && int64_t(width) * height <= kMostSamples;
}

// x265 keeps both terms of the frame rate in 32 bits.
bool IsUsableRateTerm(int64_t term) {
  return term > 0 && term <= int64_t(std::numeric_limits<uint32_t>::max());
}

// x265 stores what it could make of a value, 0 for a word where it wants a number, even when it
// refuses it. So that a refused option is ignored indeed, the parameters are put back.
void SetParameter(void* context, char const* name, char const* value) {
  x265_param& parameters = *static_cast<x265_param*>(context);
  x265_param const before = parameters;
  if (x265_param_parse(&parameters, name, value) < 0) parameters = before;
}

}  // namespace

bool AreUsable(EncoderSettings const& settings) {
  return IsUsableSize(settings.width, settings.height) &&
         IsUsableRateTerm(settings.frameDuration) && IsUsableRateTerm(settings.timeScale);
}

int Configure(x265_param& parameters, IMorvalenEncoderConsumer& consumer,
              EncoderSettings const& settings) {
  Properties properties(consumer);
  if (int const result = ApplyPreset(properties, parameters); result < 0) return result;
  parameters.sourceWidth = settings.width;
  parameters.sourceHeight = settings.height;
  parameters.fpsNum = uint32_t(settings.timeScale);
  parameters.fpsDenom = uint32_t(settings.frameDuration);
  if (int const result = ApplyProfile(properties, parameters); result < 0) return result;
  parameters.frameNumThreads = settings.threads;
  if (int const result = Apply(kStreamKeys, properties, parameters); result < 0) return result;
  int64_t const kbps = settings.bitRate / 1000;
  if (int const result = ApplyRateControl(properties, kbps, parameters); result < 0) return result;
  int const detected = parameters.cpuid;
  // Having no command line is no failure, nor is one that x265 refuses parts of.
  if (int const result = ConfigureFromCommandLine(parameters, consumer); result < 0) return result;
  LimitInstructions(parameters, detected);
  return IsSafe(parameters) ? 0 : ZelErrorNotSupported;
}

int ConfigureFromCommandLine(x265_param& parameters, IMorvalenEncoderConsumer& consumer) {
  std::array<unsigned char, kCommandLineSize> bytes{};
  int const size = Properties(consumer).ReadBytes(CodeBookProperty::X265CommandLine, bytes);
  if (size < 1) return 1;
  if (size >= kCommandLineSize) return ZelErrorInvalidArgument;
  std::array<char, kCommandLineSize> text{};
  std::memcpy(text.data(), bytes.data(), size_t(size));
  ParseCommandLine(text.data(), kCommandLineOptions, {&parameters, SetParameter});
  return 0;
}

}  // namespace zel::encoder
