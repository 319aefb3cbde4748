#include <algorithm>
#include <vector>

#include "zel/runtime/four_character_text.h"
#include "zel/runtime/leak_messages.h"
#include "zel/runtime/leak_records.h"

namespace Morvalen::Zel {

namespace {

constexpr int kLevel = zel::platform::kDebugInformation;

uint64_t Limited(size_t count, int32_t limit) {
  return std::min<uint64_t>(count, limit > 0 ? static_cast<uint64_t>(limit) : 0);
}

}  // namespace

// Objects that nothing tells apart.
struct CLeaks::Group {
  Slot const* first;
  uint32_t count;

  bool Takes(Slot const& slot) const {
    return Backtrace::Match(first->backtrace, slot.backtrace) &&
           ReferenceInfo::Compare(first->references.get(), slot.references.get()) == 0;
  }

  bool operator<(Group const& other) const {
    int order = Backtrace::Compare(first->backtrace, other.first->backtrace);
    if (order != 0) return order < 0;
    order = ReferenceInfo::Compare(first->references.get(), other.first->references.get());
    if (order != 0) return order < 0;
    return count < other.count;
  }
};

struct CLeaks::Totals {
  uint64_t trackableObjects = 0;
  uint64_t trackableGroups = 0;
  uint64_t ambiguousObjects = 0;
  uint64_t ambiguousGroups = 0;

  void Count(bool ambiguous, uint32_t objects) {
    (ambiguous ? ambiguousObjects : trackableObjects) += objects;
    ++(ambiguous ? ambiguousGroups : trackableGroups);
  }
};

// A place where references were taken: how many of them are leaks, and how many may be.
struct CLeaks::ReferencePlace {
  Backtrace const* backtrace;
  uint64_t leaked;
  uint64_t possible;
};

void CLeaks::LogObject(Operation& operation, char const* label,
                       CDependenciesObjectVS2012 const* object, uint32_t type, char const* trace) {
  char tag[kFourCharacterTextSize];
  FourCharacterText(type, tag);
  const auto address = reinterpret_cast<uintptr_t>(object);
  if (trace != nullptr) {
    operation.Log(kLevel, LeakMessages::ObjectAtBacktrace, label, address, tag, trace);
  } else {
    operation.Log(kLevel, LeakMessages::ObjectAlone, label, address, tag);
  }
}

void CLeaks::LogLeaksByEquivalentBacktraces(Operation& operation, int32_t limit) {
  std::vector<Group> groups;
  for (uint32_t i = 0; i < tableSize; ++i) {
    Slot const& slot = table[i];
    if (slot.object == nullptr) continue;
    const auto group = std::find_if(groups.begin(), groups.end(),
                                    [&slot](Group const& known) { return known.Takes(slot); });
    if (group != groups.end()) {
      ++group->count;
    } else {
      groups.push_back({&slot, 1});
    }
  }
  std::stable_sort(groups.begin(), groups.end());

  const auto objects = static_cast<int32_t>(objectCount);
  const auto places = static_cast<int32_t>(groups.size());
  const auto peak = static_cast<int32_t>(peakObjects);
  if (places > limit) {
    operation.Log(kLevel, LeakMessages::LeaksBeyondLimit, objects, places, objectsTracked, peak,
                  limit);
  } else {
    operation.Log(kLevel, LeakMessages::AllLeaks, objects, places, objectsTracked, peak);
  }

  Totals totals;
  for (size_t i = 0; i < Limited(groups.size(), limit); ++i) LogGroup(operation, groups[i], totals);
  if (totals.trackableGroups + totals.ambiguousGroups > 0) {
    operation.Log(kLevel, LeakMessages::Classified, totals.trackableObjects, totals.trackableGroups,
                  totals.ambiguousObjects, totals.ambiguousGroups);
  }
}

void CLeaks::LogGroup(Operation& operation, Group const& group, Totals& totals) {
  Slot const& slot = *group.first;
  char const* const trace = slot.backtrace.text.get();
  if (group.count == 1) {
    LogObject(operation, LeakMessages::LeakedObject, slot.object, slot.type, trace);
  } else if (trace != nullptr) {
    operation.Log(kLevel, LeakMessages::ObjectsAtBacktrace, group.count, trace);
  } else {
    operation.Log(kLevel, LeakMessages::ObjectsAlone, group.count);
  }
  LogReferences(operation, group, totals);
}

void CLeaks::LogReferences(Operation& operation, Group const& group, Totals& totals) {
  ReferenceInfo const* const info = group.first->references.get();
  if (info == nullptr) {
    operation.Log(kLevel, LeakMessages::NoReferences);
    return;
  }
  if (info->acquires == 0) {
    operation.Log(kLevel, LeakMessages::CreationOnly);
    totals.Count(false, group.count);
    return;
  }
  const bool ambiguous = info->outstanding != 0 && info->outstanding < info->possible;
  char const* const kind = ambiguous ? LeakMessages::Ambiguous : LeakMessages::Trackable;
  totals.Count(ambiguous, group.count);
  if (info->outstanding == info->possible) {
    operation.Log(kLevel, LeakMessages::SureReferences, kind, info->outstanding);
  } else {
    operation.Log(kLevel, LeakMessages::PossibleReferences, kind, info->outstanding,
                  info->possible);
  }
  if (info->capacity != 0) {
    operation.Log(kLevel, LeakMessages::BacktraceCapacity, info->capacity);
  }
  operation.Log(kLevel, LeakMessages::ReferenceCounts, info->acquires, info->trackableReleases,
                info->ambiguousReleases);
}

void CLeaks::LogReferenceLeaksByBacktrace(Operation& operation, int32_t limit) {
  if (objectCount == 0) return;
  std::vector<ReferencePlace> places;
  for (uint32_t i = 0; i < tableSize; ++i) {
    ReferenceInfo const* const info = table[i].references.get();
    if (table[i].object == nullptr || info == nullptr) continue;
    const bool sure = info->outstanding == info->possible;
    for (uint32_t n = 0; n < info->count; ++n) {
      places.push_back({&info->backtraces[n], sure ? 1u : 0u, sure ? 0u : 1u});
    }
  }
  std::sort(places.begin(), places.end(), [](ReferencePlace const& a, ReferencePlace const& b) {
    return Backtrace::Compare(*a.backtrace, *b.backtrace) < 0;
  });
  // The equal ones are neighbours now, and are counted in the first of them.
  size_t distinct = 0;
  for (size_t i = 0; i < places.size(); ++i) {
    if (distinct > 0 &&
        Backtrace::Compare(*places[distinct - 1].backtrace, *places[i].backtrace) == 0) {
      places[distinct - 1].leaked += places[i].leaked;
      places[distinct - 1].possible += places[i].possible;
    } else {
      places[distinct++] = places[i];
    }
  }
  places.resize(distinct);

  operation.Log(kLevel, LeakMessages::ReferencePlaces, static_cast<int32_t>(distinct));
  for (size_t i = 0; i < Limited(distinct, limit); ++i) {
    ReferencePlace const& place = places[i];
    if (place.leaked > 0 && place.possible > 0) {
      operation.Log(kLevel, LeakMessages::LeakedAndPossiblyFrom, place.leaked, place.possible);
    } else if (place.leaked > 0) {
      operation.Log(kLevel, LeakMessages::LeakedFrom, place.leaked);
    } else {
      operation.Log(kLevel, LeakMessages::PossiblyFrom, place.possible);
    }
    char const* const text = place.backtrace->text.get();
    operation.Log(kLevel, "%s", text != nullptr ? text : LeakMessages::UnknownPlace);
  }
}

}  // namespace Morvalen::Zel
