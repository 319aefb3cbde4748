#include "tools/zel/hevc/rate_control.h"

#include <cmath>
#include <limits>
#include <string>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "zel/runtime/property_keys.h"

namespace zel::tool {
namespace {

using Keys = Morvalen::Zel::CodeBookProperty;

// The values of the encoder's rate control key, and one for none: the preset's own, a rate factor.
enum Method : int32_t { kAverage = 0, kQuantiser = 1, kRateFactor = 2, kConstant = 3, kPreset = 4 };

constexpr NamedValue kMethods[] = {
    {"abr", kAverage}, {"cqp", kQuantiser}, {"crf", kRateFactor}, {"cbr", kConstant}};

std::string nameOf(int32_t method) {
  for (const NamedValue& each : kMethods)
    if (each.value == method) return "--rate-control " + std::string(each.name);
  return "the preset's rate control";
}

int32_t methodOf(const RateControlOptions& options) {
  if (options.method) return static_cast<int32_t>(*options.method);
  const int implied =
      (options.bitRate ? 1 : 0) + (options.quantiser ? 1 : 0) + (options.rateFactor ? 1 : 0);
  if (implied > 1)
    throw WrongUsage("--bitrate, --qp and --crf are three ways of rate control; give one of them");
  if (options.bitRate) return kAverage;
  if (options.quantiser) return kQuantiser;
  return options.rateFactor ? kRateFactor : kPreset;
}

// Which methods read an option. One that is given to another method is a misunderstanding, which
// the encoder would pass over.
struct Reader {
  const char* option;
  bool (*isGiven)(const RateControlOptions& options);
  uint32_t methods;  // a bit each
  const char* goesWith;
};

constexpr uint32_t bit(Method method) {
  return 1u << method;
}

using Given = const RateControlOptions&;
constexpr uint32_t kHoldsRate = bit(kAverage) | bit(kConstant);
constexpr uint32_t kHasCeiling = bit(kAverage) | bit(kRateFactor) | bit(kPreset);

constexpr Reader kReaders[] = {
    // option, whether it is given, methods, their names
    {"--bitrate", [](Given o) { return o.bitRate.has_value(); }, kHoldsRate, "abr or cbr"},
    {"--qp", [](Given o) { return o.quantiser.has_value(); }, bit(kQuantiser), "cqp"},
    {"--crf", [](Given o) { return o.rateFactor.has_value(); }, bit(kRateFactor), "crf"},
    {"--vbv-maxrate", [](Given o) { return o.vbvMaxRate.has_value(); }, kHasCeiling,
     "abr or crf (with cbr it is --bitrate)"},
    {"--vbv-bufsize", [](Given o) { return o.vbvBufferSize.has_value(); },
     kHasCeiling | bit(kConstant), "abr, cbr or crf"},
    {"--vbv-init", [](Given o) { return o.vbvInitialFill.has_value(); }, kHasCeiling,
     "abr or crf (with cbr the buffer is 90 % full at first)"},
    {"--buffer-delay", [](Given o) { return o.bufferDelay.has_value(); }, bit(kConstant), "cbr"},
    {"--hrd", [](Given o) { return o.hrd; }, kHoldsRate, "abr or cbr"},
};

void refuseWhatIsNotRead(const RateControlOptions& options, int32_t method) {
  for (const Reader& reader : kReaders) {
    if (!reader.isGiven(options) || (reader.methods >> method & 1) != 0) continue;
    throw WrongUsage(fmt::format("{} has no effect with {}; it goes with {}", reader.option,
                                 nameOf(method), reader.goesWith));
  }
}

void requireWhatTheMethodNeeds(const RateControlOptions& options, int32_t method) {
  const bool holdsRate = (kHoldsRate >> method & 1) != 0;
  if (holdsRate && !options.bitRate)
    throw WrongUsage(nameOf(method) + " needs --bitrate, such as --bitrate 4M");
  if (method == kQuantiser && !options.quantiser)
    throw WrongUsage(nameOf(method) + " needs --qp, from 0 to 51");
}

// x265 drops a buffer that is described by half.
void requireAWholeBuffer(const RateControlOptions& options, int32_t method) {
  if (method == kConstant) {
    if (options.bufferDelay && options.vbvBufferSize)
      throw WrongUsage("--buffer-delay and --vbv-bufsize both size the buffer; give one of them");
    return;
  }
  if (options.vbvMaxRate && !options.vbvBufferSize)
    throw WrongUsage("--vbv-maxrate needs --vbv-bufsize: a rate has a most over some time only");
  if (options.vbvBufferSize && !options.vbvMaxRate)
    throw WrongUsage("--vbv-bufsize needs --vbv-maxrate, at which the buffer fills");
  if (options.vbvInitialFill && !options.vbvBufferSize)
    throw WrongUsage("--vbv-init needs --vbv-bufsize, of which it is a part");
  if (options.hrd && !options.vbvBufferSize)
    throw WrongUsage("--hrd needs --vbv-maxrate and --vbv-bufsize, which it describes");
}

// x265 counts in thousands of bits.
int32_t kilobits(int64_t bits, const char* option) {
  const int64_t result = bits / 1000;
  if (result > std::numeric_limits<int32_t>::max())
    throw WrongUsage(fmt::format("{} is {} bits; the encoder takes at most {}k", option, bits,
                                 std::numeric_limits<int32_t>::max()));
  return static_cast<int32_t>(result);
}

// Per cent of the buffer for the key that abr reads as such. The other methods hand the number to
// x265 as it stands, which takes one above 1 for kilobits; below that, the share cannot be said
// exactly by a whole number, and 1 would mean a full buffer.
int32_t initialFill(const RateControlOptions& options, int32_t bufferKilobits, bool isPercentage) {
  if (isPercentage) return static_cast<int32_t>(std::lround(*options.vbvInitialFill));
  const double kilobitsFull = bufferKilobits * *options.vbvInitialFill / 100;
  return *options.vbvInitialFill == 0
             ? 0
             : std::max<int32_t>(2, static_cast<int32_t>(std::lround(kilobitsFull)));
}

}  // namespace

void addRateControlOptions(CLI::App& app, RateControlOptions& options) {
  const char* const group = "Rate control";
  addName(app, "--rate-control", options.method, kMethods,
          "by default abr with --bitrate, cqp with --qp, crf otherwise")
      ->group(group);
  addBits(app, "--bitrate", options.bitRate, 1000,
          "bits a second, on average (abr) or all the time (cbr): 800k, 4.5M")
      ->group(group);
  addWholeNumber(app, "--qp", options.quantiser, {0, 51}, "quantiser of P pictures, 0 to 51 (cqp)")
      ->group(group);
  addNumber(app, "--crf", options.rateFactor, {0, 51},
            "rate factor: constant quality, 0 best to 51 (default 28)")
      ->group(group);
  addBits(app, "--vbv-maxrate", options.vbvMaxRate, 1000,
          "most bits a second that fill the decoder's buffer (abr, crf)")
      ->group(group);
  addBits(app, "--vbv-bufsize", options.vbvBufferSize, 1000, "size of the decoder's buffer in bits")
      ->group(group);
  addNumber(app, "--vbv-init", options.vbvInitialFill, {0, 100},
            "how full the buffer is at first, in per cent (default 90)")
      ->group(group);
  addNumber(app, "--buffer-delay", options.bufferDelay, {0.01, 3600},
            "size of the buffer in seconds of the bit rate (cbr, default 1)")
      ->group(group);
  app.add_flag("--hrd", options.hrd, "describe the buffer in the stream (abr, cbr)")->group(group);
}

RateControl resolveRateControl(const RateControlOptions& options) {
  const int32_t method = methodOf(options);
  refuseWhatIsNotRead(options, method);
  requireWhatTheMethodNeeds(options, method);
  requireAWholeBuffer(options, method);

  RateControl result;
  const auto add = [&result](const char* key, auto value) {
    result.properties.push_back({key, propertyBytes(value)});
  };
  if (method != kPreset) add(Keys::X265RateControlMethod, method);
  if (options.bitRate) {
    kilobits(*options.bitRate, "--bitrate");
    result.bitRate = *options.bitRate;
  }
  if (options.quantiser) add(Keys::X265Quantizer, static_cast<int32_t>(*options.quantiser));
  if (options.rateFactor) add(Keys::X265RateFactor, *options.rateFactor);
  if (options.vbvMaxRate) add(Keys::X265VBVMaxRate, kilobits(*options.vbvMaxRate, "--vbv-maxrate"));
  if (options.vbvBufferSize) {
    const int32_t bufferKilobits = kilobits(*options.vbvBufferSize, "--vbv-bufsize");
    add(Keys::X265VBVBufferSize, bufferKilobits);
    if (options.vbvInitialFill)
      add(Keys::X265VBVInitialFill, initialFill(options, bufferKilobits, method == kAverage));
  }
  // Without a buffer nothing would hold the rate constant.
  if (method == kConstant && !options.vbvBufferSize)
    add(Keys::X265BufferDelay, options.bufferDelay.value_or(1.0));
  if (options.hrd) add(Keys::X265HRDCompliance, uint8_t{1});
  return result;
}

}  // namespace zel::tool
