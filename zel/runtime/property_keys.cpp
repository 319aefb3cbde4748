#include "zel/runtime/property_keys.h"

namespace Morvalen::Zel {

#define ZEL_PROPERTY_KEY(name, text) char const* const CodeBookProperty::name = text;
#include "zel/runtime/vocabulary/code_book_keys.def"
#undef ZEL_PROPERTY_KEY

#define ZEL_PROPERTY_KEY(name, text) char const* const ContainerProperty::name = text;
#include "zel/runtime/vocabulary/container_keys.def"
#undef ZEL_PROPERTY_KEY

#define ZEL_PROPERTY_KEY(name, text) char const* const ContainerReaderProperty::name = text;
#include "zel/runtime/vocabulary/container_reader_keys.def"
#undef ZEL_PROPERTY_KEY

#define ZEL_PROPERTY_KEY(name, text) char const* const ContainerWriterProperty::name = text;
#include "zel/runtime/vocabulary/container_writer_keys.def"
#undef ZEL_PROPERTY_KEY

#define ZEL_PROPERTY_KEY(name, text) char const* const SourceProperty::name = text;
#include "zel/runtime/vocabulary/source_keys.def"
#undef ZEL_PROPERTY_KEY

#define ZEL_PROPERTY_KEY(name, text) char const* const MediaProperty::name = text;
#include "zel/runtime/vocabulary/media_keys.def"
#undef ZEL_PROPERTY_KEY

}  // namespace Morvalen::Zel
