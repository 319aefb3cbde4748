#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "tests/support/engine_run.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {

/// A run with one program that holds nothing but what the test adds, and a PCR stream of its own on
/// kPcrPid.
struct EngineFixture : testing::Test {
  static constexpr int kPcrPid = 0x1F0;
  static constexpr int kDataPid = 0x200;

  EngineFixture() : program(run.addProgram()) {
    program->pcrPid = kPcrPid;
    program->pcrPer = 40;
    run.config->outPkts = 0;
  }

  /// A data stream of `packets` packets, in the program or (null) at transport level.
  Morvalen::Zel::tsm_data* addData(Morvalen::Zel::tsm_program* to, int pid, double rate,
                                   int packets) {
    inputs.push_back({test::rawPackets(pid, packets)});
    Morvalen::Zel::tsm_data* record =
        to != nullptr ? Morvalen::Zel::tsm_add_data(to) : Morvalen::Zel::tsm_add_data(run.config);
    record->pid = pid;
    record->rate = rate;
    record->user = &inputs.back();
    record->createPmtEntry = to != nullptr;
    record->streamType = 6;
    return record;
  }
  Morvalen::Zel::tsm_data* addData(double rate, int packets) {
    return addData(program, kDataPid, rate, packets);
  }
  /// The whole run, with every input from its start.
  int32_t multiplex() {
    rewind();
    return run.multiplex();
  }
  void rewind() {
    for (test::MemoryInput& input : inputs) input.place = 0;
  }
  void setDuration(int hours, int minutes, int seconds, int frames) {
    run.config->duration = {1, 0, hours, minutes, seconds, frames, 0};
  }
  test::Verdict judge(const test::JudgeOptions& options = {}) const {
    return test::judgeTransportStream(run.bytes, options);
  }
  const uint8_t* packet(int index) const { return run.bytes.data() + index * 188; }
  int pidOf(int index) const { return (packet(index)[1] & 0x1F) << 8 | packet(index)[2]; }
  /// The payload of the first packet of `pid`, behind header, adaptation field and pointer field.
  std::vector<uint8_t> firstSection(int pid) const { return section(pid, 0); }
  std::vector<uint8_t> section(int pid, int number) const {
    for (int i = 0; i < run.packets(); ++i) {
      if (pidOf(i) != pid || (packet(i)[1] & 0x40) == 0 || number-- > 0) continue;
      const size_t place = (packet(i)[3] & 0x20) != 0 ? 5u + packet(i)[4] : 4u;
      return {packet(i) + place + 1, packet(i) + 188};
    }
    return {};
  }

  test::EngineRun run;
  Morvalen::Zel::tsm_program* program;
  std::deque<test::MemoryInput> inputs;
};

}  // namespace zel::mux
