#include "tests/support/dnxhd_peer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/file_bytes.h"
#include "zel/base/byte_order.h"
#include "zel/dnxhd/bitstream/frame_header.h"

namespace zel::test {

namespace {

using dnxhd::FindEntry;
using dnxhd::GeometryOf;
using dnxhd::VCIDEntry;

constexpr DnxhdPeerId kPeerIds[] = {
    {1235, "yuv422p10le", "185M", false}, {1237, "yuv422p", "120M", false},
    {1238, "yuv422p", "185M", false},     {1241, "yuv422p10le", "185M", true},
    {1242, "yuv422p", "120M", true},      {1243, "yuv422p", "185M", true},
    {1244, "yuv422p", "120M", true},      {1250, "yuv422p10le", "90M", false},
    {1251, "yuv422p", "90M", false},      {1252, "yuv422p", "60M", false},
    {1253, "yuv422p", "36M", false},      {1254, "yuv422p", "120M", true},
    {1256, "yuv444p10le", "", false},     {1257, "yuv444p10le", "", false},
    {1258, "yuv422p", "42M", false},      {1259, "yuv422p", "84M", false},
    {1260, "yuv422p", "84M", false},
};

constexpr size_t kVersionAt = 4;
constexpr size_t kFieldCodeAt = 5;
constexpr size_t kIdAt = 40;

// Pictures of so many bytes each, in units of so many: cut off, or with zeros behind.
std::vector<uint8_t> rehoused(std::span<const uint8_t> pictures, size_t from, size_t to) {
  std::vector<uint8_t> all;
  for (size_t at = 0; at + from <= pictures.size(); at += from) {
    const auto picture = pictures.subspan(at, std::min(from, to));
    all.insert(all.end(), picture.begin(), picture.end());
    all.resize((at / from + 1) * to);
  }
  return all;
}

void setIds(std::span<uint8_t> pictures, size_t pictureBytes, uint32_t id) {
  for (size_t at = 0; at < pictures.size(); at += pictureBytes) {
    base::storeBig32(pictures.data() + at + kIdAt, id);
  }
}

// Whose encoder writes the id's macroblocks.
uint32_t encodedAs(uint32_t id) {
  if (id == 1254) return 1242;
  return id == 1260 ? 1259 : id;
}

}  // namespace

std::span<const DnxhdPeerId> dnxhdPeerIds() {
  return kPeerIds;
}

std::vector<uint8_t> DnxhdPeer::encode(const DnxhdPeerId& id, const std::string& source,
                                       size_t frames, const std::vector<std::string>& options,
                                       const char* pixels) const {
  const VCIDEntry& entry = *FindEntry(id.id);
  const dnxhd::PictureGeometry geometry = GeometryOf(entry);
  const bool is444 = dnxhd::IsRgbFamily(entry);
  // Fields of 4:4:4 are coded as pictures.
  const size_t lines = is444 ? geometry.lines : entry.lines;
  const size_t coded = is444 ? frames * geometry.pictures : frames;
  const std::string file = folder_.file("encoded.dnxhd");
  std::vector<std::string> arguments = {
      "-v",
      "error",
      "-y",
      "-f",
      "lavfi",
      "-i",
      source,
      "-vf",
      "scale=" + std::to_string(entry.width) + ":" + std::to_string(lines) + ",fps=25",
      "-pix_fmt",
      pixels != nullptr ? pixels : id.pixels,
      "-c:v",
      "dnxhd"};
  if (is444) {
    arguments.insert(arguments.end(), {"-profile:v", "dnxhr_444"});
  } else {
    arguments.insert(arguments.end(), {"-b:v", id.bitRate});
  }
  if (id.interlaced) arguments.insert(arguments.end(), {"-flags", "+ildct"});
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.insert(arguments.end(), {"-frames:v", std::to_string(coded), "-f", "rawvideo", file});
  const ProgramResult run = runProgram(program_, arguments);
  EXPECT_EQ(run.exitCode, 0) << run.output;
  if (run.exitCode != 0) return {};

  std::vector<uint8_t> all = fileBytes(file);
  const uint32_t house = encodedAs(id.id);
  if (house != id.id) {
    all = rehoused(all, GeometryOf(*FindEntry(house)).pictureBytes, geometry.pictureBytes);
  }
  EXPECT_EQ(all.size(), frames * entry.frameBytes);
  if (all.size() != frames * entry.frameBytes) return {};
  setIds(all, geometry.pictureBytes, id.id);
  for (size_t i = 0; is444 && i < coded; ++i) {
    uint8_t* const header = all.data() + i * geometry.pictureBytes;
    header[kVersionAt] = 2;
    if (geometry.pictures == 2) header[kFieldCodeAt] = static_cast<uint8_t>(2 + i % 2);
  }
  return all;
}

std::vector<DnxhdPlanes> DnxhdPeer::decode(const VCIDEntry& entry,
                                           std::span<const uint8_t> frames) const {
  const dnxhd::PictureGeometry geometry = GeometryOf(entry);
  const size_t count = frames.size() / entry.frameBytes;
  std::vector<uint8_t> known(frames.begin(), frames.end());
  if (entry.compressionId == 1254 || entry.compressionId == 1257) {
    const uint32_t house = entry.compressionId == 1254 ? 1242 : 1256;
    const size_t unit = GeometryOf(*FindEntry(house)).pictureBytes;
    known = rehoused(known, geometry.pictureBytes, unit);
    setIds(known, unit, house);
    for (size_t at = 0; house == 1256 && at < known.size(); at += unit) {
      known[at + kFieldCodeAt] = dnxhd::kProgressivePicture;
    }
  }
  // It takes two frames of 1260 for one where nothing but the bytes tell them apart.
  const size_t step = entry.compressionId == 1260 ? entry.frameBytes : known.size();
  const std::string file = folder_.file("decode.dnxhd");
  const std::string out = folder_.file("decoded.raw");
  std::vector<uint8_t> raw;
  for (size_t at = 0; at < known.size(); at += step) {
    writeFile(file, std::span(known).subspan(at, step));
    const ProgramResult run = runProgram(
        program_, {"-v", "error", "-y", "-f", "dnxhd", "-i", file, "-f", "rawvideo", out});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.output, "");
    const std::vector<uint8_t> part = fileBytes(out);
    raw.insert(raw.end(), part.begin(), part.end());
  }
  std::vector<DnxhdPlanes> planes(count, DnxhdPlanes(entry));
  EXPECT_EQ(raw.size(), count * planes.at(0).rawSize());
  if (raw.size() != count * planes[0].rawSize()) return {};
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const picture = raw.data() + i * planes[i].rawSize();
    planes[i].readRaw(picture);
    if (entry.compressionId != 1257) continue;
    // Two pictures, one behind the other: their lines alternate.
    const size_t bytes = planes[i].rawSize() / 6;  // of a field's plane
    std::vector<uint8_t> woven;
    const size_t line = bytes / geometry.lines;
    for (size_t plane = 0; plane < 3; ++plane) {
      for (size_t y = 0; y < geometry.lines; ++y) {
        for (size_t field = 0; field < 2; ++field) {
          const uint8_t* const from = picture + (field * 3 + plane) * bytes + y * line;
          woven.insert(woven.end(), from, from + line);
        }
      }
    }
    planes[i].readRaw(woven.data());
  }
  return planes;
}

}  // namespace zel::test
