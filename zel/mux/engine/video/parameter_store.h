#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace zel::mux {

/// Parameter sets of one kind that a stream has sent, by their ids. One that comes again with the
/// same bytes, as most do, isn't parsed again, and nothing is allocated for it.
template <typename Set, size_t Count>
class parameter_store {
 public:
  /// `parse(rbsp, set)` gives false for what can't be one.
  /// @return the set, or null.
  template <typename Parse>
  const Set* add(std::span<const uint8_t> rbsp, Parse parse) {
    for (const auto& kept : entries_) {
      if (kept != nullptr &&
          std::equal(kept->bytes.begin(), kept->bytes.end(), rbsp.begin(), rbsp.end())) {
        return &kept->set;
      }
    }
    auto fresh = std::make_unique<entry>();
    if (!parse(rbsp, fresh->set) || fresh->set.id >= Count) return nullptr;
    fresh->bytes.assign(rbsp.begin(), rbsp.end());
    ++version_;
    auto& place = entries_[fresh->set.id];
    place = std::move(fresh);
    return &place->set;
  }

  /// Null where none with this id has come.
  const Set* find(uint32_t id) const {
    return id < Count && entries_[id] != nullptr ? &entries_[id]->set : nullptr;
  }

  /// Makes `set`, which add() or find() gave, the active one.
  /// @return whether it is another than before, or has been sent with other bytes since.
  bool activate(const Set& set) {
    if (active_ == &set && activeVersion_ == version_) return false;
    active_ = &set;
    activeVersion_ = version_;
    return true;
  }
  void deactivate() { active_ = nullptr; }
  /// Null where none is. To be read only right behind activate(): a set with the same id that comes
  /// later takes its place.
  const Set* active() const { return active_; }

 private:
  struct entry {
    std::vector<uint8_t> bytes;
    Set set;
  };
  std::array<std::unique_ptr<entry>, Count> entries_;
  uint32_t version_ = 0;  // counts the sets that were new or changed
  const Set* active_ = nullptr;
  uint32_t activeVersion_ = 0;
};

}  // namespace zel::mux
