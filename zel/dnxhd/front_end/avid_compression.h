#pragma once

#include "zel/base/export.h"

namespace Morvalen::Zel {

/// The compression identifiers of the family that DNxHD belongs to: what each is called and which
/// video format it is. Most of them name compressions that this codec doesn't code.
///
/// All operations walk the table from its first row, are pure and may be called on any thread.
class ZEL_API AvidCompression {
 public:
  AvidCompression() = delete;

  /// One row of the table.
  struct Identifier {
    unsigned int id;                ///< the compression id
    unsigned int format;            ///< the family, a code of VideoFormat
    unsigned int equivalentFormat;  ///< the nearest plain format, a code of VideoFormat
    char const* detail;             ///< text that tells the members of a family apart
  };

  /// 61 rows, and then one whose `id` is 0 and whose `detail` is null.
  static Identifier const identifiers[];

  /// The family of the id; 0 when it has no row, and for id 0.
  static unsigned int GetFormat(unsigned int id);

  /// The nearest plain format of the id; 0 when it has no row, and for id 0.
  static unsigned int GetEquivalentFormat(unsigned int id);

  /// The text of the id, which lives as long as the library; null when it has no row.
  static char const* GetDetail(unsigned int id);
};

}  // namespace Morvalen::Zel
