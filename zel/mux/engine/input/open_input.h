#pragma once

#include <cstdint>

#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/input/elementary_input.h"
#include "zel/mux/engine/run/reporting.h"

/// The one way in which a stream's record becomes an input.

namespace zel::mux {

/// How a kind of stream opens its input.
struct input_request {
  const Morvalen::Zel::tsm_stream_record* record = nullptr;
  const Morvalen::Zel::TarnArray* files = nullptr;  // null: the record's
  void* user = nullptr;                             // for `load`; null: the record's
  Morvalen::Zel::tsm_load_callback load = nullptr;
  int sourceTsPid = 0;  // of a multiplex; 0: what the record says
  int32_t bufferSize = 0;
  int openError = 34;                  // fatal, with the file's name
  int noFiles = 34;                    // fatal, with `noFilesArgument`
  message_argument noFilesArgument{};  // of a record that names none
};

/// Opens `input`: by the caller's loader where `load` isn't null, else from the files, which are
/// read one behind the other. With SourceTSPID or SourceStreamID these hold a multiplex, out of
/// which the stream is taken. False after a fatal message that doesn't stop the run.
bool open_input(elementary_input& input, const input_request& request, reporting& reports);

}  // namespace zel::mux
