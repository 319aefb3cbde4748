#pragma once

#include <cstdint>
#include <cstdio>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace Morvalen::Zel {

class CEtvTrack;
class IProperties;
template <class T>
class CDependenciesList;

/// What the front end asks of the engine and of the demultiplexer, as a table: tests put their own
/// answers in the place of a run. An entry that is null is not there, and asking for it is
/// ZelErrorNotSupported.
struct EngineCalls {
  /// `tsm_set_callbacks`: what the engine calls, for the whole process.
  void (*setCallbacks)(tsm_progress_callback progress, tsm_write_callback write,
                       tsm_error_callback error, tsm_load_callback load,
                       tsm_block_end_callback blockEnd) = nullptr;
  /// `tsm_config_read`: a configuration from a text, or null; messages go to the callback.
  tsm_config* (*readConfiguration)(FILE* file, void* user,
                                   tsm_config_message_callback callback) = nullptr;
  /// `tsm_config_write`: the configuration as a text.
  void (*writeConfiguration)(tsm_config const* config, FILE* file) = nullptr;
  /// A handle, or null; the rate that the engine settled on.
  void* (*open)(tsm_config* config, int32_t* rate) = nullptr;
  int (*run)(void* handle) = nullptr;
  void (*getStats)(void* handle, tsm_stats* stats) = nullptr;
  void (*close)(void* handle) = nullptr;
  /// Writes each track's table file and measures its rate.
  int (*demuxEtvTracks)(CDependenciesList<CEtvTrack>* tracks, IProperties* properties) = nullptr;

  /// Whether all that a run takes is there.
  bool CanRun() const {
    return setCallbacks != nullptr && open != nullptr && run != nullptr && getStats != nullptr &&
           close != nullptr;
  }
};

}  // namespace Morvalen::Zel
