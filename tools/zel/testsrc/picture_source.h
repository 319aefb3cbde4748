#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "tools/zel/media/y4m_format.h"
#include "tools/zel/testsrc/options.h"

namespace zel::testsrc {

class Renderer;

/// The test pictures. The same options and frame number give the same bytes on every machine, in
/// whatever order frames are asked for.
class PictureSource {
 public:
  /// `options` must be sound (optionsFault is empty).
  explicit PictureSource(const PictureOptions& options);
  ~PictureSource();

  const PictureOptions& options() const { return options_; }

  /// What a Y4M stream of these pictures begins with.
  media::Y4mHeader header() const;

  /// Bytes of a frame: the planes Y, Cb, Cr without padding, as Y4M has them.
  size_t frameBytes() const;

  /// Draws frame number `frame` into `out`, which holds frameBytes() and, at depth 10, is aligned
  /// for 16-bit samples. One thread at a time; take a source a thread to draw several at once.
  void render(uint64_t frame, std::span<uint8_t> out);

 private:
  PictureOptions options_;
  std::unique_ptr<Renderer> renderer_;
};

}  // namespace zel::testsrc
