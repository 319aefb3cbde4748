#include "zel/mux/engine/video/avc_parameters.h"

#include <algorithm>

#include "zel/base/bit_reader.h"

namespace zel::mux {

namespace {

constexpr size_t kSpsIdOffset = 3;  // behind profile, constraint flags and level
constexpr uint32_t kNoId = ~0u;

uint32_t leading_id(std::span<const uint8_t> rbsp) {
  base::BitReader bits(rbsp);
  const uint32_t id = bits.readUe();
  return bits.failed() ? kNoId : id;
}

bool is_same(const std::vector<uint8_t>& kept, std::span<const uint8_t> rbsp) {
  return std::equal(kept.begin(), kept.end(), rbsp.begin(), rbsp.end());
}

}  // namespace

bool avc_parameters::add_sps(std::span<const uint8_t> rbsp) {
  if (rbsp.size() <= kSpsIdOffset) return false;
  const uint32_t id = leading_id(rbsp.subspan(kSpsIdOffset));
  if (id >= sps_.size()) return false;
  auto& kept = sps_[id];
  if (kept == nullptr || !is_same(kept->bytes, rbsp)) {
    auto fresh = std::make_unique<entry<syntax::AvcSps>>();
    if (!syntax::parseAvcSps(rbsp, fresh->set)) return false;
    fresh->bytes.assign(rbsp.begin(), rbsp.end());
    kept = std::move(fresh);
    ++version_;
  }
  latest_ = &kept->set;
  return true;
}

bool avc_parameters::add_pps(std::span<const uint8_t> rbsp) {
  const uint32_t id = leading_id(rbsp);
  if (id >= pps_.size()) return false;
  auto& kept = pps_[id];
  if (kept != nullptr && is_same(kept->bytes, rbsp)) return true;
  auto fresh = std::make_unique<entry<syntax::AvcPps>>();
  const uint8_t chromaFormat = latest_ == nullptr ? uint8_t{1} : latest_->chromaFormatIdc;
  if (!syntax::parseAvcPps(rbsp, chromaFormat, fresh->set)) return false;
  fresh->bytes.assign(rbsp.begin(), rbsp.end());
  kept = std::move(fresh);
  ++version_;
  return true;
}

const syntax::AvcSps* avc_parameters::sps(uint32_t id) const {
  return id < sps_.size() && sps_[id] != nullptr ? &sps_[id]->set : nullptr;
}

const syntax::AvcPps* avc_parameters::pps(uint32_t id) const {
  return id < pps_.size() && pps_[id] != nullptr ? &pps_[id]->set : nullptr;
}

const syntax::AvcSps* avc_parameters::sps_of_pps(uint32_t ppsId) const {
  const syntax::AvcPps* const found = pps(ppsId);
  return found == nullptr ? nullptr : sps(found->spsId);
}

}  // namespace zel::mux
