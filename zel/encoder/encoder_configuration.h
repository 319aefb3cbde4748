#pragma once

#include <cstdint>

struct x265_param;

namespace Morvalen::Zel {
class IMorvalenEncoderConsumer;
}

namespace zel::encoder {

/// What a caller says directly, not through properties.
struct EncoderSettings {
  int32_t width;
  int32_t height;
  int64_t frameDuration;
  int64_t timeScale;
  int32_t threads;
  int64_t bitRate;  // bits a second
};

/// Whether the picture size and the frame rate are such that 4:2:0 pictures can have them and
/// x265's fields can hold them. What x265 itself thinks of them shows when it opens.
bool AreUsable(EncoderSettings const& settings);

/// Sets every parameter: from the preset up through the consumer's properties to its command line.
/// @param parameters need not be initialised.
/// @param settings usable.
/// @return 0, or negative: see `CMorvalenX265EncoderApi::Begin`.
int Configure(x265_param& parameters, Morvalen::Zel::IMorvalenEncoderConsumer& consumer,
              EncoderSettings const& settings);

/// The last part of `Configure`: applies the consumer's x265 command line, if it has one. What x265
/// refuses is ignored.
/// @return 0; 1 when there is no command line; ZelErrorInvalidArgument, with nothing applied, when
/// it
///   fills the buffer so that no room is left for its end.
int ConfigureFromCommandLine(x265_param& parameters,
                             Morvalen::Zel::IMorvalenEncoderConsumer& consumer);

}  // namespace zel::encoder
