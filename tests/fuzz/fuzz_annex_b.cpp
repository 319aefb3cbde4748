// Units of any bytes lie where their start codes say; protecting a payload and taking the
// protection away again are inverse.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "zel/base/annex_b.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

void checkUnits(std::span<const uint8_t> stream) {
  size_t end = 0;  // of what the units so far cover
  for (const zel::base::NalUnit& unit : zel::base::NalUnits(stream)) {
    require(unit.startCode >= end && !unit.bytes.empty() && unit.bytes.back() != 0);
    const size_t begin = unit.startCode + static_cast<size_t>(unit.startCodeSize);
    require(unit.bytes.data() == stream.data() + begin);
    require(stream[begin - 1] == 1 && stream[begin - 2] == 0 && stream[begin - 3] == 0);
    require(unit.startCodeSize == 3 || stream[unit.startCode] == 0);
    require(zel::base::findStartCode(unit.bytes) == unit.bytes.size());
    end = begin + unit.bytes.size();
  }
}

void checkProtection(std::span<const uint8_t> payload) {
  std::vector<uint8_t> unit;
  zel::base::appendEmulationPrevention(payload, unit);
  require(zel::base::findStartCode(unit) == unit.size());
  std::vector<uint8_t> back;
  zel::base::removeEmulationPrevention(unit, back);
  require(back.size() >= payload.size() && back.size() - payload.size() <= 1);
  require(std::equal(payload.begin(), payload.end(), back.begin()));

  std::vector<uint8_t> inPlace(payload.begin(), payload.end());
  inPlace.resize(zel::base::removeEmulationPrevention(inPlace, inPlace.data()));
  zel::base::removeEmulationPrevention(payload, back);
  require(inPlace == back);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  checkUnits({data, size});
  checkProtection({data, size});
  return 0;
}
