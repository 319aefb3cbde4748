#pragma once

#include <cinttypes>

/// Every text of the leak tracker. They are printf formats of numbers of fixed width, so that the
/// compiler can check each use.

namespace Morvalen::Zel::LeakMessages {

inline constexpr char NoLeaks[] = "\nNo leaks detected after tracking %" PRIu64 " objects (%" PRId32
                                  " simultaneous object peak).\n";
inline constexpr char LeaksBeyondLimit[] =
    "\n%" PRId32 " leaks detected from %" PRId32 " unique backtraces after tracking %" PRIu64
    " objects (%" PRId32 " simultaneous object peak). Details for the first %" PRId32
    " unique backtraces below:\n\n";
inline constexpr char AllLeaks[] =
    "\n%" PRId32 " leaks detected from %" PRId32 " unique backtraces after tracking %" PRIu64
    " objects (%" PRId32 " simultaneous object peak):\n\n";

// An address has 16 upper-case digits, as the library's other platform prints it.
inline constexpr char ObjectAtBacktrace[] =
    "%s 0x%016" PRIXPTR " [%s]. Object created at backtrace:\n%s";
inline constexpr char ObjectAlone[] = "%s 0x%016" PRIXPTR " [%s]\n";
inline constexpr char ObjectsAtBacktrace[] =
    "%" PRIu32 " objects leaked. Objects were created at backtrace:\n%s";
inline constexpr char ObjectsAlone[] = "%" PRIu32 " objects leaked.\n";

// Labels of the two lines for a single object.
inline constexpr char LeakedObject[] = "Leaked CObject";
inline constexpr char RemoveNotTracked[] = "RemoveObject: CObject not tracked";
inline constexpr char AddReferenceNotTracked[] = "AddObjectReference: CObject not tracked";
inline constexpr char RemoveReferenceNotTracked[] = "RemoveObjectReference: CObject not tracked";

inline constexpr char NoReferences[] = "\n";
inline constexpr char CreationOnly[] =
    "    TRACKABLE: object creation is only leaked reference\n\n";
inline constexpr char Trackable[] = "TRACKABLE";
inline constexpr char Ambiguous[] = "AMBIGUOUS";
inline constexpr char SureReferences[] = "    %s: %" PRId64 " reference leaks\n";
inline constexpr char PossibleReferences[] =
    "    %s: %" PRId64 " reference leaks from %" PRId64 " possible backtraces\n";
inline constexpr char BacktraceCapacity[] =
    "               %" PRIu32 " acquire backtrace capacity\n";
inline constexpr char ReferenceCounts[] =
    "               %" PRIu64 " acquires, %" PRIu64 " trackable releases, %" PRIu64
    " ambiguous releases.\n\n";
inline constexpr char Classified[] =
    "%" PRIu64 " objects were trackably leaked in %" PRIu64 " groups and %" PRIu64
    " were ambiguously leaked in %" PRIu64 " groups.\n";

inline constexpr char ReferencePlaces[] =
    "References leaked and/or possibly leaked from %" PRId32 " backtraces\n";
inline constexpr char LeakedAndPossiblyFrom[] =
    "%" PRIu64 " references leaked and %" PRIu64 " references possibly leaked from backtrace:\n";
inline constexpr char LeakedFrom[] = "%" PRIu64 " references leaked from backtrace:\n";
inline constexpr char PossiblyFrom[] = "%" PRIu64 " references possibly leaked from backtrace:\n";
// Deliberate: the spelling is what readers of such logs search for. Pinned by leak_report_test.cpp,
// AReferenceWithoutATraceIsUnknown.
inline constexpr char UnknownPlace[] = "<UKNOWN>\n";

inline constexpr char AddReferenceInfoNull[] =
    "CLeaks::AddObjectReference: ReferenceInfo pointer is NULL\n";
inline constexpr char RemoveReferenceInfoNull[] =
    "CLeaks::RemoveObjectReference: ReferenceInfo pointer is NULL\n";
inline constexpr char NothingToRelease[] =
    "CLeaks::RemoveObjectReference: object does not have an undecided reference to release\n";

}  // namespace Morvalen::Zel::LeakMessages
