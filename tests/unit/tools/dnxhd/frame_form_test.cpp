#include "tools/zel/dnxhd/frame_form.h"

#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/seed.h"

namespace zel::tool {
namespace {

using Morvalen::Zel::BufferRaster;
using Morvalen::Zel::GetBufferRaster;

TEST(FrameForm, NamesAreDifferentAndFound) {
  std::set<std::string_view> names;
  for (const FrameForm& form : frameForms()) {
    EXPECT_TRUE(names.insert(form.name).second) << form.name;
    EXPECT_EQ(findFrameForm(form.name), &form);
    EXPECT_FALSE(form.help.empty());
  }
  EXPECT_EQ(findFrameForm("nv12"), nullptr);
  EXPECT_EQ(findFrameForm(""), nullptr);
}

TEST(FrameForm, PackedFormsAreAsTheCodecHasThem) {
  for (const FrameForm& form : frameForms()) {
    for (const uint32_t id : {1237u, 1252u}) {
      BufferRaster raster;
      ASSERT_EQ(GetBufferRaster(id, recordOf(form), raster), 0) << form.name;
      if (form.layout == FrameForm::Layout::kPacked) {
        EXPECT_EQ(fileFrameBytes(form, raster.width, raster.lines), raster.bufferBytes)
            << form.name;
      }
    }
  }
}

TEST(FrameForm, Y4mSamplings) {
  for (const media::Y4mChroma& chroma : media::y4mChromas()) {
    const bool taken = chroma.planes == 3 && chroma.verticalShift == 0 &&
                       chroma.horizontalShift <= 1 && (chroma.depth == 8 || chroma.depth == 10);
    const FrameForm* const form = formOfY4m(chroma);
    EXPECT_EQ(form != nullptr, taken) << chroma.tag;
    if (form == nullptr) continue;
    EXPECT_EQ(y4mOfForm(*form), &chroma);
    media::Y4mHeader header;
    header.width = 1280;
    header.height = 720;
    header.chroma = &chroma;
    EXPECT_EQ(media::y4mLayout(header).frameBytes, fileFrameBytes(*form, 1280, 720));
  }
  EXPECT_EQ(y4mOfForm(*findFrameForm("uyvy")), nullptr);
}

std::vector<uint8_t> randomFrame(const FrameForm& form, uint32_t width, uint32_t lines,
                                 uint32_t low, uint32_t high) {
  std::vector<uint8_t> bytes(fileFrameBytes(form, width, lines));
  std::mt19937_64 random(zel::test::testSeed());
  const size_t step = form.depth > 8 ? 2 : 1;
  for (size_t i = 0; i < bytes.size(); i += step) {
    const auto value = static_cast<uint32_t>(low + random() % (high - low + 1));
    bytes[i] = static_cast<uint8_t>(value);
    if (step == 2) bytes[i + 1] = static_cast<uint8_t>(value >> 8);
  }
  return bytes;
}

TEST(FrameForm, PlanesOf422GoThroughTheCodecsFormUnchanged) {
  for (const char* name : {"yuv422p", "yuv422p10"}) {
    const FrameForm& form = *findFrameForm(name);
    const uint32_t most = (1u << form.depth) - 1;
    const auto frame = randomFrame(form, 36, 5, 0, most);
    std::vector<uint8_t> buffer(36 * 5 * 2 * (form.depth > 8 ? 2 : 1));
    std::vector<uint8_t> back(frame.size());
    packForCodec(form, 36, 5, frame, buffer);
    unpackFromCodec(form, 36, 5, buffer, back);
    EXPECT_EQ(back, frame) << name;
    if (form.depth == 8) {
      EXPECT_EQ(buffer[0], frame[36 * 5]);          // Cb
      EXPECT_EQ(buffer[1], frame[0]);               // Y
      EXPECT_EQ(buffer[2], frame[36 * 5 * 3 / 2]);  // Cr
      EXPECT_EQ(buffer[3], frame[1]);
    }
  }
}

// Colours outside of the RGB cube too: the whole of the video range, and what lies beyond.
TEST(FrameForm, PlanesOf444GoThroughRgbUnchanged) {
  for (const char* name : {"yuv444p", "yuv444p10"}) {
    const FrameForm& form = *findFrameForm(name);
    const auto scale = 1u << (form.depth - 8);
    const auto frame = randomFrame(form, 64, 64, 16 * scale, 240 * scale);
    std::vector<uint8_t> buffer(64 * 64 * 8);
    std::vector<uint8_t> back(frame.size());
    packForCodec(form, 64, 64, frame, buffer);
    unpackFromCodec(form, 64, 64, buffer, back);
    EXPECT_EQ(back, frame) << name;
  }
}

TEST(FrameForm, Rgb24LosesNothingButAlpha) {
  const FrameForm& form = *findFrameForm("rgb24");
  const auto frame = randomFrame(form, 30, 4, 0, 255);
  std::vector<uint8_t> buffer(30 * 4 * 4);
  std::vector<uint8_t> back(frame.size());
  packForCodec(form, 30, 4, frame, buffer);
  EXPECT_EQ(buffer[3], 255);
  unpackFromCodec(form, 30, 4, buffer, back);
  EXPECT_EQ(back, frame);
}

}  // namespace
}  // namespace zel::tool
