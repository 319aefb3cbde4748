#include "zel/mux/engine/input/open_input.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zel/mux/engine/configuration/file_names.h"
#include "zel/mux/engine/input/file_source.h"
#include "zel/mux/engine/input/input_window.h"
#include "zel/mux/engine/input/remultiplexing.h"

namespace zel::mux {

namespace {

using Morvalen::Zel::TarnArray;

constexpr int kReadError = 53;

std::unique_ptr<file_source> make_files(const TarnArray& files, const input_request& request,
                                        reporting& reports) {
  return std::make_unique<file_source>(
      file_names(files),
      [&reports, pid = request.record->pid, openError = request.openError](const char* name) {
        if (name != nullptr) {
          reports.fatal(openError, pid, std::string_view(name));
        } else {
          reports.fatal(kReadError, pid);
        }
      });
}

stream_selection wanted_stream(const input_request& request) {
  stream_selection selection = selection_of(*request.record);
  if (request.sourceTsPid > 0) selection.tsPid = request.sourceTsPid;
  return selection;
}

source_fault_function warner(const input_request& request, reporting& reports) {
  return
      [&reports, pid = request.record->pid](source_warning warning) { reports.warn(warning, pid); };
}

// The source, or of a multiplex the stream that is asked for.
void open_source(elementary_input& input, std::unique_ptr<stream_source> source,
                 const input_request& request, reporting& reports) {
  const stream_selection selection = wanted_stream(request);
  if (selection.is_any()) {
    source = take_stream(std::move(source), selection, warner(request, reports));
  }
  input.open(request.bufferSize, Morvalen::Zel::tsm_read_size(), std::move(source));
}

}  // namespace

bool open_input(elementary_input& input, const input_request& request, reporting& reports) {
  const auto& record = *request.record;
  if (request.load != nullptr) {
    void* const user = request.user != nullptr ? request.user : record.user;
    if (wanted_stream(request).is_any()) {
      constexpr int32_t kPacketsAtOnce = 1 << 16;
      open_source(input, std::make_unique<loader_source>(request.load, user, kPacketsAtOnce),
                  request, reports);
    } else {
      input.open(request.bufferSize, request.load, user);
    }
    return true;
  }
  const TarnArray& files = request.files != nullptr ? *request.files : record.files;
  if (files.count == 0) {
    reports.fatal(request.noFiles, record.pid, request.noFilesArgument);
    return false;
  }
  auto source = make_files(files, request, reports);
  if (!source->open()) return false;
  open_source(input, std::move(source), request, reports);
  return true;
}

}  // namespace zel::mux
