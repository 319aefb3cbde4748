#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zel/mux/engine/engine.h"

namespace Morvalen::Zel {
struct tsm_config;
struct tsm_program;
struct cbuf;
}  // namespace Morvalen::Zel

namespace zel::test {

/// An elementary stream in memory, as the input of a record: `record->user = &input`.
struct MemoryInput {
  std::vector<uint8_t> bytes;
  size_t place = 0;
  size_t mostAtOnce = 0;  // 0: as much as the buffer takes

  static int load(void* user, Morvalen::Zel::cbuf* buffer);
};

/// A run of the multiplexer as its callers see it: a configuration, what comes out, what is said.
/// The callbacks of the process are set at each opening.
class EngineRun {
 public:
  EngineRun();
  ~EngineRun();
  EngineRun(const EngineRun&) = delete;
  EngineRun& operator=(const EngineRun&) = delete;

  Morvalen::Zel::tsm_config* config;
  Morvalen::Zel::tsm_program* addProgram();

  /// Sets the callbacks and opens. False after a fatal message; what was said tells.
  bool open();
  /// Calls tsm_run once.
  int32_t runOnce();
  void close();
  /// All of it, to the end. The last result of tsm_run, or -2 where opening failed.
  int32_t multiplex();

  std::vector<uint8_t> bytes;      // what the write callback took
  std::vector<int> writes;         // size of each write
  std::vector<int> kinds;          // packet kind of each write
  std::string said;                // "F23 W9 ", in order
  std::string texts;               // of all messages
  int32_t rate = 0;                // as tsm_open told it
  Morvalen::Zel::tsm_stats stats;  // after the last runOnce
  Morvalen::Zel::tsm_handle* handle = nullptr;

  int failAtWrite = 0;     // counted from 1; 0: never
  int stopAtProgress = 0;  // the same
  int progressCalls = 0;
  bool usesProgress = true;
  bool intoFiles = false;  // the built-in writer instead of the callback
  Morvalen::Zel::tsm_block_end_callback blockEnd = nullptr;

  int packets() const { return static_cast<int>(bytes.size() / 188); }
  int packetsOf(int pid) const;
  bool saidText(const std::string& text) const { return texts.find(text) != std::string::npos; }

 private:
  static int progress(void* user, const Morvalen::Zel::tsm_stats* stats);
  static int write(void* user, const uint8_t* data, int32_t size, int32_t packetKind);
  static void error(void* user, int fatal, int32_t code, const char* text);
};

/// `count` transport packets of `pid` with a running number and counters, as a data stream takes.
std::vector<uint8_t> rawPackets(int pid, int count);

}  // namespace zel::test
