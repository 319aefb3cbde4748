#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "zel/syntax/avc_parameter_sets.h"

namespace zel::mux {

/// The parameter sets that an AVC stream has sent, by their ids. A set that comes again with the
/// same bytes isn't parsed again, and nothing is allocated for it.
class avc_parameters {
 public:
  /// Each takes an RBSP; false where it can't be one.
  bool add_sps(std::span<const uint8_t> rbsp);
  bool add_pps(std::span<const uint8_t> rbsp);

  /// Null where none with this id has come.
  const syntax::AvcSps* sps(uint32_t id) const;
  const syntax::AvcPps* pps(uint32_t id) const;
  /// The set that the PPS leads to, or null.
  const syntax::AvcSps* sps_of_pps(uint32_t ppsId) const;
  /// The one that came last, or null.
  const syntax::AvcSps* latest_sps() const { return latest_; }
  /// Counts the sets that were new or changed: a pointer to a set holds as long as it stays.
  uint32_t version() const { return version_; }

 private:
  template <typename Set>
  struct entry {
    std::vector<uint8_t> bytes;
    Set set;
  };
  std::array<std::unique_ptr<entry<syntax::AvcSps>>, 32> sps_;
  std::array<std::unique_ptr<entry<syntax::AvcPps>>, 256> pps_;
  const syntax::AvcSps* latest_ = nullptr;
  uint32_t version_ = 0;
};

}  // namespace zel::mux
