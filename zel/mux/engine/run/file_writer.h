#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "zel/mux/engine/run/reporting.h"

namespace zel::mux {

/// The built-in output: the configured files, one after the other where a largest size is set. A
/// single name that holds "%i" stands for a numbered series that begins with 0. Packets aren't
/// split over files; nor does one stay in pieces where a disk was full.
class file_writer {
 public:
  /// `reports` outlives this. `fileSize` of 0 is no limit.
  file_writer(std::vector<std::string> names, int64_t fileSize, reporting& reports);

  /// Checks names and size (fatal 46 to 48) and creates the first file (fatal 30). False where one
  /// of these messages didn't stop the run: nothing will be written then.
  bool open();
  /// The write callback; `user` is the file_writer. Bytes come in whole packets of `packetSize`.
  static int write(void* user, const uint8_t* data, int32_t size, int32_t packetKind);
  void set_packet_size(int32_t bytes) { packetSize_ = bytes; }
  /// False where the system tells only now that something wasn't written.
  bool close();

 private:
  struct close_file {
    void operator()(FILE* file) const { std::fclose(file); }
  };

  bool open_next();
  bool put(const uint8_t* data, size_t size, int32_t packetKind);
  void cut_to_whole_packets();

  std::vector<std::string> names_;
  int64_t fileSize_;
  reporting& reports_;
  bool series_;
  size_t next_ = 0;
  int32_t packetSize_ = 188;
  int64_t written_ = 0;  // to the file at hand
  std::string name_;     // of it
  std::unique_ptr<FILE, close_file> file_;
};

}  // namespace zel::mux
