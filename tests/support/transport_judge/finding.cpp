#include "tests/support/transport_judge/finding.h"

#include <array>
#include <cstdio>

namespace zel::test {

const char* faultName(Fault fault) {
  static constexpr std::array kNames = {
      "sync",
      "transport error",
      "header",
      "continuity",
      "no PAT",
      "no PMT",
      "section CRC",
      "section syntax",
      "PAT interval",
      "PMT interval",
      "unreferenced PID",
      "no PCR",
      "PCR accuracy",
      "PCR interval",
      "PES syntax",
      "no time stamp",
      "time stamp interval",
      "time stamp order",
      "unit syntax",
      "TB overflow",
      "TB not emptied",
      "MB overflow",
      "B overflow",
      "underflow",
      "delay",
  };
  static_assert(kNames.size() == static_cast<size_t>(Fault::kDelay) + 1);
  return kNames[static_cast<size_t>(fault)];
}

std::string toText(const Finding& finding) {
  std::array<char, 160> head{};
  std::snprintf(head.data(), head.size(), "%.6f s, packet %lld, PID 0x%04X: %s (%.3f) ",
                finding.seconds, static_cast<long long>(finding.packet),
                static_cast<unsigned>(finding.pid) & 0xFFFF, faultName(finding.fault),
                finding.amount);
  return head.data() + finding.text;
}

}  // namespace zel::test
