#include <bitset>

#include "zel/mux/engine/configuration/configuration.h"

// PIDs follow the program's number as long as the area below kFreeArea has room for it: program N
// has N x 16 for its map, and the fifteen behind it for its streams by kind.

namespace Morvalen::Zel {
namespace {

constexpr int kPidCount = 8192;
constexpr int kFreeArea = 6432;
constexpr int kLastFree = 8190;
constexpr int kLastProgram = 401;

struct pid_range {
  int first, last;  // behind the program's PMT PID
};
constexpr pid_range kVideoRange = {1, 3};
constexpr pid_range kAudioRange = {4, 12};
constexpr pid_range kTableRange = {13, 15};

class allotment {
 public:
  void mark(int pid) {
    if (pid >= 0 && pid < kPidCount) used_.set(static_cast<size_t>(pid));
  }
  template <class Record, size_t slots>
  void mark_all(Record* const (&slot)[slots]) {
    for (const Record* each : slot)
      if (each != nullptr) mark(each->pid);
  }
  bool is_used(int pid) const { return used_.test(static_cast<size_t>(pid)); }

  void give_free(int32_t& pid) {
    if (pid == -1) take_first(pid, kFreeArea, kLastFree);
  }
  void give(int32_t& pid, int programNumber, pid_range range) {
    if (pid != -1) return;
    if (programNumber >= 1 && programNumber <= kLastProgram) {
      const int base = programNumber * 16;
      if (take_first(pid, base + range.first, base + range.last)) return;
    }
    give_free(pid);
  }
  void give_exactly(int32_t& pid, int wanted) { take_first(pid, wanted, wanted); }

  template <class Record, size_t slots>
  void give_all(Record* const (&slot)[slots], int programNumber, pid_range range) {
    for (Record* each : slot)
      if (each != nullptr) give(each->pid, programNumber, range);
  }
  template <class Record, size_t slots>
  void give_all_free(Record* const (&slot)[slots]) {
    for (Record* each : slot)
      if (each != nullptr) give_free(each->pid);
  }

  int count() const { return count_; }

 private:
  bool take_first(int32_t& pid, int first, int last) {
    for (int candidate = first; candidate <= last; ++candidate) {
      if (is_used(candidate)) continue;
      mark(candidate);
      pid = candidate;
      ++count_;
      return true;
    }
    return false;
  }

  std::bitset<kPidCount> used_;
  int count_ = 0;
};

constexpr int kGivenAudio = 482;
constexpr int kItsNeighbour = 483;

bool has_audio(const tsm_config& config, int pid) {
  for (const tsm_program* program = config.programs; program != nullptr; program = program->next)
    for (const tsm_audio* each : program->audio)
      if (each != nullptr && each->pid == pid) return true;
  return false;
}

void mark_given(const tsm_config& config, allotment& pids) {
  pids.mark(config.nitPid);
  pids.mark(config.auxVpid);
  pids.mark(config.auxApid);
  pids.mark_all(config.table);
  pids.mark_all(config.data);
  for (const tsm_program* program = config.programs; program != nullptr; program = program->next) {
    pids.mark(program->pmtPid);
    pids.mark_all(program->video);
    pids.mark_all(program->audio);
    pids.mark_all(program->data);
    pids.mark_all(program->table);
    pids.mark_all(program->smpte302m);
    pids.mark_all(program->lpcm);
    pids.mark_all(program->privateStream);
    pids.mark_all(program->scte35);
    for (const tsm_video* each : program->video)
      if (each != nullptr) pids.mark(each->pidAvcss);
  }
}

template <class Record, size_t slots>
bool take_as_clock(tsm_program& program, Record* const (&slot)[slots]) {
  for (const Record* each : slot) {
    if (each == nullptr || each->pid < 0) continue;
    program.pcrPid = each->pid;
    return true;
  }
  return false;
}

// `neighbour`: the first audio stream that needs a PID goes beside the one that has 482.
// Deliberate: streams in use depend on it. Pinned by pid_allotment_test.cpp.
void give_to_program(tsm_program& program, allotment& pids, bool neighbour) {
  const int number = program.programNumber;
  pids.give(program.pmtPid, number, {0, 0});
  pids.give_all(program.video, number, kVideoRange);
  for (tsm_audio* each : program.audio) {
    if (each == nullptr || each->pid != -1) continue;
    if (neighbour && !pids.is_used(kItsNeighbour)) pids.give_exactly(each->pid, kItsNeighbour);
    pids.give(each->pid, number, kAudioRange);
  }
  pids.give_all_free(program.data);
  pids.give_all(program.table, number, kTableRange);
  pids.give_all(program.smpte302m, number, kAudioRange);
  pids.give_all(program.lpcm, number, kAudioRange);  // sound, as SMPTE 302M
  pids.give_all(program.privateStream, number, kTableRange);
  pids.give_all(program.scte35, number, kTableRange);
  if (program.pcrPid == -1 && !take_as_clock(program, program.video))
    take_as_clock(program, program.audio);
}

}  // namespace

int tsm_assign_pids(tsm_config* config) noexcept {
  allotment pids;
  mark_given(*config, pids);
  const bool neighbour = has_audio(*config, kGivenAudio);
  pids.give_free(config->auxVpid);
  pids.give_free(config->auxApid);
  pids.give_free(config->nitPid);
  pids.give_all_free(config->data);
  pids.give_all_free(config->table);
  for (tsm_program* program = config->programs; program != nullptr; program = program->next)
    give_to_program(*program, pids, neighbour);
  return pids.count();
}

}  // namespace Morvalen::Zel
