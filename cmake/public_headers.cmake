# The public headers: what a caller includes, what is installed, what the pages document. The one list,
# read by CMake and by scripts/ alike. Paths from the include root, one a line.
set(ZEL_PUBLIC_HEADERS
  zel/base/export.h
  zel/encoder/x265_encoder_api.h
  zel/platform/monitor.h
  zel/runtime/audio_format.h
  zel/runtime/four_character_code.h
  zel/runtime/debug_output.h
  zel/runtime/lock.h
  zel/runtime/object.h
  zel/runtime/properties.h
  zel/runtime/property_keys.h
  zel/runtime/result_codes.h
  zel/runtime/video_format.h
  zel/runtime/vocabulary.h
  zel/platform/automation.h
  zel/runtime/byte_array.h
  zel/runtime/encoding.h
  zel/runtime/float_array.h
  zel/runtime/four_character_text.h
  zel/runtime/holder.h
  zel/runtime/string.h
  # The tables behind the vocabulary's headers.
  zel/runtime/vocabulary/audio_formats.def
  zel/runtime/vocabulary/code_book_keys.def
  zel/runtime/vocabulary/container_keys.def
  zel/runtime/vocabulary/container_reader_keys.def
  zel/runtime/vocabulary/container_writer_keys.def
  zel/runtime/vocabulary/media_keys.def
  zel/runtime/vocabulary/source_keys.def
  zel/runtime/vocabulary/video_formats.def
)
