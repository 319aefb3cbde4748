#pragma once

#include <cstdint>
#include <memory>

#include "tools/zel/testsrc/options.h"
#include "tools/zel/testsrc/picture.h"

namespace zel::testsrc {

/// Draws one pattern. A frame depends on the options and its number alone, so frames can be asked
/// for in any order.
class Renderer {
 public:
  virtual ~Renderer() = default;

  /// Draws every sample of the frame. Not for several threads at once: buffers are reused.
  virtual void render(uint64_t frame, const Picture& picture) = 0;
};

std::unique_ptr<Renderer> makeBars(const PictureOptions& options);
std::unique_ptr<Renderer> makeZone(const PictureOptions& options);
std::unique_ptr<Renderer> makeMotion(const PictureOptions& options);
std::unique_ptr<Renderer> makeNoise(const PictureOptions& options);
std::unique_ptr<Renderer> makeText(const PictureOptions& options);

}  // namespace zel::testsrc
