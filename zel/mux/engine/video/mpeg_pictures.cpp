#include "zel/mux/engine/video/mpeg_pictures.h"

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/video/video_messages.h"

namespace zel::mux {

bool mpeg_pictures::shows_at_once() const {
  return (characteristics().lowDelay && !state().config->notLowDelay) ||
         characteristics().stillPicture;
}

bool mpeg_pictures::ends_low_delay(const access_unit& unit) {
  if (unit.pictureType != kPictureB || !characteristics().lowDelay) return false;
  characteristics().lowDelay = false;
  warn(discovering() ? kBInLowDelay : kBNeedsNotLowDelay);
  return true;
}

void mpeg_pictures::order_units(bool ended) {
  const video_characteristics& video = characteristics();
  const auto& config = *state().config;
  order_.set_low_delay(shows_at_once());
  unit_queue& units = state().units;
  if (ended) {
    order_.finish(units, state().runningDts, video.framePeriod);
    return;
  }
  order_.enqueued(units, video.framePeriod);
  if (config.lowLatency) order_.show_newest(units, (config.numBFrames + 1) * video.framePeriod);
}

}  // namespace zel::mux
