// The tracker's hash table: open addressing with linear probing, keyed by an object's address, its
// size a prime. A removal leaves a gap without a mark, so a search can't end at a free slot: it
// goes on until it finds the object or has come all the way round. Hits are near their home slot as
// long as the table is sparse, which the rules of growth see to; a miss costs a full pass, which an
// object created before tracking began pays once, at its end.

#include <cstddef>
#include <iterator>
#include <utility>

#include "zel/runtime/leak_records.h"

namespace Morvalen::Zel {

namespace {

// Each about double the one before.
constexpr uint32_t kPrimes[] = {1021,      2053,      4111,      8231,     16477,    32957,
                                65921,     131849,    263723,    527447,   1054903,  2109841,
                                4219687,   8439383,   16878769,  33757541, 67515083, 135030187,
                                270060379, 540120761, 1080241537};

constexpr uint32_t Share(uint32_t size, double share) {
  return static_cast<uint32_t>(size * share);
}

}  // namespace

uint32_t CLeaks::HomeOf(CDependenciesObjectVS2012 const* object) const {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(object) % tableSize);
}

// The slot of the object, or tableSize. Adds the slots that it looked at to `probes`.
uint32_t CLeaks::FindObjectIndexHoldingLock(CDependenciesObjectVS2012 const* object,
                                            uint64_t& probes) const {
  if (tableSize == 0) return tableSize;
  const uint32_t home = HomeOf(object);
  uint32_t index = home;
  do {
    ++probes;
    if (table[index].object == object) return index;
    if (++index == tableSize) index = 0;
  } while (index != home);
  return tableSize;
}

// There has to be a free slot.
uint32_t CLeaks::FindFreeIndexHoldingLock(CDependenciesObjectVS2012 const* object,
                                          uint64_t& probes) const {
  uint32_t index = HomeOf(object);
  for (++probes; table[index].object != nullptr; ++probes) {
    if (++index == tableSize) index = 0;
  }
  return index;
}

// Whether there's room for one more object, after growing if it's due.
bool CLeaks::GrowForOneMore() {
  const bool due = objectCount + 1 > Share(tableSize, 0.75);
  if (due && primeIndex + 1 < std::size(kPrimes)) Rehash(primeIndex + 1);
  return objectCount < tableSize;
}

void CLeaks::ShrinkIfSparse() {
  if (primeIndex >= 1 && objectCount < 1 + Share(tableSize, 0.2)) Rehash(primeIndex - 1);
}

void CLeaks::Rehash(uint32_t newPrimeIndex) {
  const std::unique_ptr<Slot[]> former = std::move(table);
  const uint32_t formerSize = tableSize;
  primeIndex = newPrimeIndex;
  tableSize = kPrimes[newPrimeIndex];
  table = std::make_unique<Slot[]>(tableSize);
  uint64_t unused = 0;
  for (uint32_t i = 0; i < formerSize; ++i) {
    if (former[i].object == nullptr) continue;
    table[FindFreeIndexHoldingLock(former[i].object, unused)] = std::move(former[i]);
  }
  addLookups = addProbes = removeLookups = removeProbes = 0;
  addReferenceLookups = addReferenceProbes = 0;
  removeReferenceLookups = removeReferenceProbes = 0;
}

}  // namespace Morvalen::Zel
