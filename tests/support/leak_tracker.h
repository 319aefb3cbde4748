#pragma once

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>

#include "zel/runtime/leak_records.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

/// A leak tracker of the test's own, with what it keeps to itself laid open. The process's tracker
/// is not touched, so the objects of a test are told to this one by hand.
struct CLeaksTestAccess {
  using Object = CDependenciesObjectVS2012 const*;
  using Slot = CLeaks::Slot;
  using Info = CLeaks::ReferenceInfo;
  using Backtrace = CLeaks::Backtrace;
  using Operation = CLeaks::Operation;

  void Begin(int32_t mode, uint32_t type = 0) { leaks.Begin(mode, type); }
  int End(int32_t limit = 128) { return leaks.End(limit); }
  void Add(Object object) { leaks.AddObject(object); }
  void Remove(Object object) { leaks.RemoveObject(object); }
  void Acquire(Object object) { leaks.AddObjectReference(object); }
  void Release(Object object) { leaks.RemoveObjectReference(object); }
  void Retype(Object object, uint32_t former) { leaks.ChangeObjectType(object, former); }
  void ShowReferences(int32_t limit = 128) {
    Operation operation(leaks);
    leaks.LogReferenceLeaksByBacktrace(operation, limit);
  }

  void SetCallback(char* (*callback)()) { leaks.callback = callback; }
  void SetMode(int32_t mode) { leaks.mode.store(mode); }
  int32_t Mode() const { return leaks.mode.load(); }

  uint32_t Count() const { return leaks.objectCount; }
  uint32_t TableSize() const { return leaks.tableSize; }
  uint32_t Peak() const { return leaks.peakObjects; }
  uint64_t Tracked() const { return leaks.objectsTracked; }
  uint64_t AddLookups() const { return leaks.addLookups; }
  uint64_t AddProbes() const { return leaks.addProbes; }
  uint64_t RemoveLookups() const { return leaks.removeLookups; }
  uint64_t RemoveProbes() const { return leaks.removeProbes; }
  uint64_t AddReferenceLookups() const { return leaks.addReferenceLookups; }
  uint64_t RemoveReferenceLookups() const { return leaks.removeReferenceLookups; }

  Slot* Find(Object object) {
    uint64_t probes = 0;
    const uint32_t index = leaks.FindObjectIndexHoldingLock(object, probes);
    return index == leaks.tableSize ? nullptr : &leaks.table[index];
  }
  Info* References(Object object) {
    Slot* const slot = Find(object);
    return slot != nullptr ? slot->references.get() : nullptr;
  }
  std::string Trace(Object object) {
    Slot* const slot = Find(object);
    return slot != nullptr && slot->backtrace.text != nullptr ? slot->backtrace.text.get() : "";
  }
  static int Compare(Backtrace const& a, Backtrace const& b) { return Backtrace::Compare(a, b); }
  static bool Match(Backtrace const& a, Backtrace const& b) { return Backtrace::Match(a, b); }

  CLeaks leaks;
};

/// An object of any tag, on the stack if need be.
class TaggedObject : public CDependenciesObjectVS2012 {
 public:
  static constexpr uint32_t Type = FourCharacterCode("test");
  explicit TaggedObject(uint32_t tag = Type) : CDependenciesObjectVS2012(tag, nullptr) {}
  void Retag(uint32_t tag) { SetType(tag); }
};

/// An address as the tracker's lines have it, behind their "0x".
inline std::string AddressText(CDependenciesObjectVS2012 const* object) {
  char text[32];
  std::snprintf(text, sizeof text, "%016" PRIXPTR, reinterpret_cast<uintptr_t>(object));
  return text;
}

}  // namespace Morvalen::Zel
