#pragma once

namespace zel::mux {

/// BurstNulls: after every `spacing` packets, `count` null packets in a row. Not armed, it asks for
/// none.
class burst_nulls {
 public:
  burst_nulls() = default;
  burst_nulls(int count, int spacing) : count_(count), spacing_(spacing), spacingLeft_(spacing) {}

  bool armed() const { return spacing_ > 0; }
  /// Whether the slot belongs to a burst, so that no stream may have it.
  bool wants_null() const { return nullsLeft_ > 0; }

  /// Called for each packet that goes out.
  void packet_sent() {
    if (spacing_ <= 0) return;
    if (nullsLeft_ > 0) {
      if (--nullsLeft_ == 0) spacingLeft_ = spacing_;
      return;
    }
    if (--spacingLeft_ == 0) nullsLeft_ = count_;
  }

 private:
  int count_ = 0;
  int spacing_ = 0;
  int spacingLeft_ = 0;
  int nullsLeft_ = 0;
};

}  // namespace zel::mux
