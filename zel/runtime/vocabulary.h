#pragma once

#include <span>
#include <string_view>

#include "zel/base/export.h"
#include "zel/runtime/video_format.h"

// The vocabulary as lists, for programs that show it or look constants up by name. Each list is in
// the order of the exported data; the views live as long as the library.
//
//   for (PropertyKeyClass const& keys : GetPropertyKeyClasses())
//     for (PropertyKey const& key : keys.keys)
//       std::cout << keys.name << "::" << key.name << " " << key.text << '\n';

namespace Morvalen::Zel {

/// One constant of VideoFormat or AudioFormat.
struct FormatConstant {
  std::string_view name;  ///< of the constant: "XvidMPEG4"
  unsigned int code;      ///< its value
};

/// One constant of a class of property keys.
struct PropertyKey {
  std::string_view name;  ///< of the constant: "X265Preset"
  std::string_view text;  ///< its value, the key itself: "x265_compressor.preset"
};

/// A class of property keys.
struct PropertyKeyClass {
  std::string_view name;              ///< of the class: "CodeBookProperty"
  std::span<PropertyKey const> keys;  ///< its constants
};

/// The constants of VideoFormat.
ZEL_API std::span<FormatConstant const> GetVideoFormatConstants();

/// The constants of AudioFormat.
ZEL_API std::span<FormatConstant const> GetAudioFormatConstants();

/// The rows of VideoFormat::formats, without the one that ends it.
ZEL_API std::span<VideoFormat::Format const> GetVideoFormatRows();

/// The six classes of property keys.
ZEL_API std::span<PropertyKeyClass const> GetPropertyKeyClasses();

}  // namespace Morvalen::Zel
