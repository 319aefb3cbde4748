#include "zel/runtime/vocabulary.h"

#include <cstddef>

#include "zel/runtime/audio_format.h"
#include "zel/runtime/property_keys.h"

namespace Morvalen::Zel {
namespace {

constexpr FormatConstant kVideoFormats[] = {
#define ZEL_VIDEO_FORMAT(name, code) {#name, VideoFormat::name},
#include "zel/runtime/vocabulary/video_formats.def"
#undef ZEL_VIDEO_FORMAT
};

constexpr FormatConstant kAudioFormats[] = {
#define ZEL_AUDIO_FORMAT(name, code) {#name, AudioFormat::name},
#include "zel/runtime/vocabulary/audio_formats.def"
#undef ZEL_AUDIO_FORMAT
};

#define ZEL_PROPERTY_KEY(name, text) {#name, text},
constexpr PropertyKey kCodeBookKeys[] = {
#include "zel/runtime/vocabulary/code_book_keys.def"
};
constexpr PropertyKey kContainerKeys[] = {
#include "zel/runtime/vocabulary/container_keys.def"
};
constexpr PropertyKey kContainerReaderKeys[] = {
#include "zel/runtime/vocabulary/container_reader_keys.def"
};
constexpr PropertyKey kContainerWriterKeys[] = {
#include "zel/runtime/vocabulary/container_writer_keys.def"
};
constexpr PropertyKey kSourceKeys[] = {
#include "zel/runtime/vocabulary/source_keys.def"
};
constexpr PropertyKey kMediaKeys[] = {
#include "zel/runtime/vocabulary/media_keys.def"
};
#undef ZEL_PROPERTY_KEY

constexpr PropertyKeyClass kPropertyKeyClasses[] = {
    {"CodeBookProperty", kCodeBookKeys},
    {"ContainerProperty", kContainerKeys},
    {"ContainerReaderProperty", kContainerReaderKeys},
    {"ContainerWriterProperty", kContainerWriterKeys},
    {"SourceProperty", kSourceKeys},
    {"MediaProperty", kMediaKeys},
};

// VideoFormat::formats tells its end by its last row; its length is the number of rows in the list.
constexpr size_t kVideoFormatRows = 0
#define ZEL_FORMAT(code, name) +1
#define ZEL_FORMAT_KIND(code, parent, name) +1
#define ZEL_FORMAT_ALIAS(code, parent) +1
#include "zel/runtime/vocabulary/video_format_table.def"
#undef ZEL_FORMAT
#undef ZEL_FORMAT_KIND
#undef ZEL_FORMAT_ALIAS
    ;

}  // namespace

std::span<FormatConstant const> GetVideoFormatConstants() {
  return kVideoFormats;
}

std::span<FormatConstant const> GetAudioFormatConstants() {
  return kAudioFormats;
}

std::span<VideoFormat::Format const> GetVideoFormatRows() {
  return {VideoFormat::formats, kVideoFormatRows};
}

std::span<PropertyKeyClass const> GetPropertyKeyClasses() {
  return kPropertyKeyClasses;
}

}  // namespace Morvalen::Zel
