#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "tests/support/seed.h"
#include "tests/unit/syntax/avc_test_writer.h"
#include "zel/base/annex_b.h"

/// Writes AVC streams whose headers are right and whose slice data is noise.

namespace zel::test {

struct AvcPicture {
  char type = 'I';  // I, P, B
  bool idr = false;
  bool reference = true;
  uint32_t frameNum = 0;
  uint32_t poc = 0;
  int structure = 3;  // 1 top field, 2 bottom field, 3 frame
  int slices = 1;
  size_t bytes = 600;
};

class AvcBytes {
 public:
  AvcBytes() {
    sps.profileIdc = 100;
    sps.levelIdc = 31;
    sps.log2MaxFrameNum = 8;
    sps.log2MaxPocLsb = 8;
    sps.maxNumRefFrames = 4;
    sps.picWidthInMbs = 45;
    sps.picHeightInMapUnits = 36;
    sps.vuiPresent = true;
    sps.vui.timing = {true, 1, 50, true};
  }

  syntax::AvcSps sps;
  std::vector<uint8_t> bytes;

  void useHrd(uint64_t bitsPerSecond, uint64_t bits) {
    sps.vui.nalHrdPresent = true;
    sps.vui.nalHrd = {};
    sps.vui.nalHrd.cpbCount = 1;
    sps.vui.nalHrd.entries[0] = {static_cast<uint32_t>(bitsPerSecond / 64 - 1),
                                 static_cast<uint32_t>(bits / 16 - 1), false};
    sps.vui.picStructPresent = true;
  }

  void nal(int type, int refIdc, const std::vector<uint8_t>& rbsp, bool zeroByte = false) {
    if (zeroByte) bytes.push_back(0);
    bytes.insert(bytes.end(), {0, 0, 1, static_cast<uint8_t>(refIdc << 5 | type)});
    base::appendEmulationPrevention(rbsp, bytes);
  }

  void delimiter() { nal(9, 0, {0xF0}, true); }
  void sequenceSet() {
    HeaderBits out;
    writeSps(out, sps);
    nal(7, 3, out.rbsp(), true);
  }
  void pictureSet(uint32_t id = 0) {
    HeaderBits out;
    out.ue(id);
    out.ue(sps.id);
    out.u(2, 0);
    for (int i = 0; i < 3; ++i) out.ue(0);
    out.u(3, 0);
    for (int i = 0; i < 3; ++i) out.se(0);
    out.u(3, 0);
    nal(8, 3, out.rbsp(), true);
  }
  void sets() {
    sequenceSet();
    pictureSet();
  }

  void sei(uint8_t type, const std::vector<uint8_t>& payload) {
    std::vector<uint8_t> rbsp{type, static_cast<uint8_t>(payload.size())};
    rbsp.insert(rbsp.end(), payload.begin(), payload.end());
    rbsp.push_back(0x80);
    nal(6, 0, rbsp);
  }
  void bufferingPeriod(uint32_t delay90k) {
    HeaderBits out;
    out.ue(sps.id);
    out.u(sps.vui.nalHrd.initialCpbRemovalDelayLength, delay90k);
    out.u(sps.vui.nalHrd.initialCpbRemovalDelayLength, 0);
    sei(0, out.bytes());
  }
  /// `clock`: hours, minutes, seconds, frames; empty: none.
  void timing(uint32_t removal, uint32_t output, uint32_t picStruct,
              const std::vector<uint32_t>& clock = {}) {
    HeaderBits out;
    if (sps.vui.nalHrdPresent) {
      out.u(sps.vui.nalHrd.cpbRemovalDelayLength, removal);
      out.u(sps.vui.nalHrd.dpbOutputDelayLength, output);
    }
    out.u(4, picStruct);
    const int stamps = picStruct < 3 ? 1 : picStruct < 5 || picStruct == 7 ? 2 : 3;
    for (int i = 0; i < stamps; ++i) {
      const bool present = i == 0 && !clock.empty();
      out.flag(present);
      if (!present) continue;
      out.u(2, 0);
      out.flag(false);
      out.u(5, 0);
      out.flag(true);  // full_timestamp_flag
      out.u(2, 0);
      out.u(8, clock[3]);
      out.u(6, clock[2]);
      out.u(6, clock[1]);
      out.u(5, clock[0]);
      out.u(24, 0);
    }
    sei(1, out.bytes());
  }
  void recoveryPoint() {
    HeaderBits out;
    out.ue(0);
    out.u(4, 0x8);
    sei(6, out.bytes());
  }

  void picture(const AvcPicture& picture) {
    for (int i = 0; i < picture.slices; ++i) slice(picture, static_cast<uint32_t>(i));
  }

  /// Pictures of one closed group in decoding order: "I0 P4 B2 B1 B3" by type and display place.
  void group(const std::vector<std::pair<char, int>>& pictures) {
    uint32_t frameNum = 0;
    for (size_t i = 0; i < pictures.size(); ++i) {
      AvcPicture picture;
      picture.type = pictures[i].first;
      picture.idr = i == 0;
      picture.frameNum = frameNum & 0xFF;
      picture.poc = static_cast<uint32_t>(pictures[i].second * 2) & 0xFF;
      picture.reference = picture.type != 'B';
      this->picture(picture);
      frameNum += picture.reference ? 1 : 0;
    }
  }

 private:
  void slice(const AvcPicture& picture, uint32_t firstMb) {
    HeaderBits out;
    out.ue(firstMb);
    out.ue(picture.type == 'P' ? 0 : picture.type == 'B' ? 1 : 2);
    out.ue(0);
    out.u(sps.log2MaxFrameNum, picture.frameNum);
    if (!sps.frameMbsOnly) {
      out.flag(picture.structure != 3);
      if (picture.structure != 3) out.flag(picture.structure == 2);
    }
    if (picture.idr) out.ue(idrCount_ & 1);
    if (picture.idr && firstMb + 1 == static_cast<uint32_t>(picture.slices)) ++idrCount_;
    out.u(sps.log2MaxPocLsb, picture.poc);
    if (picture.type == 'B') out.flag(true);
    if (picture.type != 'I') out.u(picture.type == 'B' ? 3 : 2, 0);
    if (picture.reference) out.u(picture.idr ? 2 : 1, 0);
    std::vector<uint8_t> rbsp = out.rbsp();
    for (size_t i = 0; i < picture.bytes; ++i) rbsp.push_back(static_cast<uint8_t>(random_()));
    rbsp.push_back(0x80);
    nal(picture.idr ? 5 : 1, picture.reference ? 2 : 0, rbsp);
  }

  uint32_t idrCount_ = 0;
  std::mt19937_64 random_{testSeed()};
};

}  // namespace zel::test
