#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tools/zel/media/y4m_format.h"
#include "zel/dnxhd/front_end/uncomp_info.h"

namespace zel::tool {

/// How a file holds the samples of a frame, and how the codec takes them: packed forms go as they
/// are, others are packed for the codec and unpacked from it.
struct FrameForm {
  enum class Layout : uint8_t {
    kPacked,     // as the codec has it
    kPlanar422,  // planes of Y, Cb and Cr; deeper samples take two bytes, low byte first
    kPlanar444,
    kRgb24,  // R, G and B in a byte each
  };

  std::string_view name;
  std::string_view help;
  Layout layout;
  uint8_t depth;  // of a planar form's samples
  // What the codec is told.
  uint32_t sampleType;
  uint32_t pixelLayout;
  uint32_t formatWord;

  bool isRgbForCodec() const { return pixelLayout == 2; }
  bool isPlanar() const { return layout == Layout::kPlanar422 || layout == Layout::kPlanar444; }
};

/// All that --format takes.
std::span<const FrameForm> frameForms();
/// The row, or null.
const FrameForm* findFrameForm(std::string_view name);
/// The planar form that holds what a Y4M stream of the row has; null for samplings that the codec
/// doesn't take.
const FrameForm* formOfY4m(const media::Y4mChroma& chroma);
/// The row that a planar form is written with; null for the others.
const media::Y4mChroma* y4mOfForm(const FrameForm& form);

/// The codec's description of such frames; the rest of it has its defaults.
Morvalen::Zel::UnCompInfo recordOf(const FrameForm& form);

/// Bytes of a frame of this form in a file. `width` is even for YCbCr.
size_t fileFrameBytes(const FrameForm& form, uint32_t width, uint32_t lines);

// Between a frame's bytes in a file and in the codec's buffer, whose lines follow each other
// without a gap (V210: in whole multiples of 128 bytes). For forms that aren't packed.
void packForCodec(const FrameForm& form, uint32_t width, uint32_t lines,
                  std::span<const uint8_t> file, std::span<uint8_t> buffer);
void unpackFromCodec(const FrameForm& form, uint32_t width, uint32_t lines,
                     std::span<const uint8_t> buffer, std::span<uint8_t> file);

}  // namespace zel::tool
