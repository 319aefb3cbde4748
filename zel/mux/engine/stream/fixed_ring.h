#pragma once

#include <array>
#include <cassert>
#include <cstddef>

namespace zel::mux {

/// A queue of at most `Capacity` elements without allocation; [0] is the oldest.
template <typename T, size_t Capacity>
class fixed_ring {
 public:
  static constexpr size_t kCapacity = Capacity;

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool full() const { return size_ == Capacity; }

  T& operator[](size_t index) {
    assert(index < size_);
    return elements_[wrapped(first_ + index)];
  }
  const T& operator[](size_t index) const {
    assert(index < size_);
    return elements_[wrapped(first_ + index)];
  }
  T& front() { return (*this)[0]; }
  const T& front() const { return (*this)[0]; }
  T& back() { return (*this)[size_ - 1]; }
  const T& back() const { return (*this)[size_ - 1]; }

  void push(const T& element) {
    assert(!full());
    elements_[wrapped(first_ + size_)] = element;
    ++size_;
  }
  void pop() {
    assert(!empty());
    first_ = wrapped(first_ + 1);
    --size_;
  }
  void clear() { first_ = size_ = 0; }

 private:
  static size_t wrapped(size_t index) { return index >= Capacity ? index - Capacity : index; }

  std::array<T, Capacity> elements_{};
  size_t first_ = 0;
  size_t size_ = 0;
};

}  // namespace zel::mux
