#pragma once

#include "zel/base/export.h"

// The keys of property sets (zel/runtime/properties.h). Every key is constant text; its type and
// meaning are a convention between who writes it and who reads it. The keys are listed once, in the
// files that are included below; zel/runtime/vocabulary.h enumerates them with their names. Many
// belong to readers and writers outside this library, which exports them so that all take them from
// one place: a key that is set and that nothing here reads is simply stored.
//
// The constants are initialised before any code runs, so static initialisers may use them.

#define ZEL_PROPERTY_KEY(name, text) static char const* const name;

namespace Morvalen::Zel {

/// Keys of codecs, converters and filters.
class ZEL_API CodeBookProperty {
 public:
  CodeBookProperty() = delete;
#include "zel/runtime/vocabulary/code_book_keys.def"
};

/// Keys of containers that readers and writers share.
class ZEL_API ContainerProperty {
 public:
  ContainerProperty() = delete;
#include "zel/runtime/vocabulary/container_keys.def"
};

/// Keys of container readers.
class ZEL_API ContainerReaderProperty {
 public:
  ContainerReaderProperty() = delete;
#include "zel/runtime/vocabulary/container_reader_keys.def"
};

/// Keys of container writers.
class ZEL_API ContainerWriterProperty {
 public:
  ContainerWriterProperty() = delete;
#include "zel/runtime/vocabulary/container_writer_keys.def"
};

/// Keys of board capture and playback.
class ZEL_API SourceProperty {
 public:
  SourceProperty() = delete;
#include "zel/runtime/vocabulary/source_keys.def"
};

/// Keys of one media stream in a container.
class ZEL_API MediaProperty {
 public:
  MediaProperty() = delete;
#include "zel/runtime/vocabulary/media_keys.def"
};

}  // namespace Morvalen::Zel

#undef ZEL_PROPERTY_KEY
