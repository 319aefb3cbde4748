#include "tools/zel/testsrc/picture_source.h"

#include <cassert>

#include "tools/zel/testsrc/frame_mark.h"
#include "tools/zel/testsrc/instants.h"
#include "tools/zel/testsrc/renderer.h"

namespace zel::testsrc {
namespace {

std::unique_ptr<Renderer> makeRenderer(const PictureOptions& options) {
  switch (options.pattern) {
    case Pattern::kBars:
      return makeBars(options);
    case Pattern::kZone:
      return makeZone(options);
    case Pattern::kMotion:
      return makeMotion(options);
    case Pattern::kNoise:
      return makeNoise(options);
    case Pattern::kText:
      return makeText(options);
  }
  return nullptr;
}

}  // namespace

PictureSource::PictureSource(const PictureOptions& options)
    : options_(options), renderer_(makeRenderer(options)) {
  assert(optionsFault(options).empty());
}

PictureSource::~PictureSource() = default;

media::Y4mHeader PictureSource::header() const {
  const int across = options_.chroma == Chroma::k444 ? 0 : 1;
  const int down = options_.chroma == Chroma::k420 ? 1 : 0;
  media::Y4mHeader header;
  header.width = options_.width;
  header.height = options_.height;
  header.rate = options_.rate;
  header.aspect = {1, 1};
  header.chroma = media::chooseY4mChroma(options_.depth, across, down, 3);
  // Random samples know no limits; everything else is video.
  header.range =
      options_.pattern == Pattern::kNoise ? media::Y4mRange::kFull : media::Y4mRange::kLimited;
  switch (options_.scan) {
    case Scan::kProgressive:
      header.interlace = media::Y4mInterlace::kProgressive;
      break;
    case Scan::kTopFirst:
      header.interlace = media::Y4mInterlace::kTopFirst;
      break;
    case Scan::kBottomFirst:
      header.interlace = media::Y4mInterlace::kBottomFirst;
      break;
  }
  return header;
}

size_t PictureSource::frameBytes() const {
  return frameBytesOf(options_);
}

void PictureSource::render(uint64_t frame, std::span<uint8_t> out) {
  const Picture picture = pictureOver(options_, out);
  renderer_->render(frame, picture);
  if (!options_.mark) return;
  drawFrameMark(picture, {static_cast<uint32_t>(frame), isMarkFrame(options_.rate, frame)});
}

}  // namespace zel::testsrc
