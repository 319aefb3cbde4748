#include "zel/runtime/pool.h"

namespace Morvalen::Zel {

template class RObject<CPoolBase>;

CPoolBase::CPoolBase() = default;

CPoolBase::~CPoolBase() = default;

CPoolObject::CPoolObject(uint32_t tag) : CDependenciesObjectVS2012(tag, &Reclaim) {}

CPoolObject::~CPoolObject() = default;

void CPoolObject::ReclaimCleanUp() {}

void CPoolObject::Pool(CPoolBase* owner) {
  pool.SafeAcquire(owner);
}

// The destroy callback: runs inside Release, with the object's lock held and one reference counted.
void CPoolObject::Reclaim(CDependenciesObjectVS2012* object) {
  auto* const returning = static_cast<CPoolObject*>(object);
  if (returning->pool == nullptr) return;
  returning->ReclaimCleanUp();
  // The object must not keep its pool alive from inside the pool, and the pool must live through
  // the call even if this was the last reference to it.
  RObject<CPoolBase> const owner(returning->pool.SafeAcquire());
  returning->pool = nullptr;
  owner->ReturnToPool(returning);
}

}  // namespace Morvalen::Zel
