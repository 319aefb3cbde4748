#pragma once

#include <cstdint>

#include "zel/base/export.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/object.h"

namespace Morvalen::Zel {

class CPoolBase;
class CPoolObject;
extern template class ZEL_API RObject<CPoolBase>;

/// Where pooled objects go when their last reference is released. Callers derive concrete pools.
class ZEL_API CPoolBase : public CDependenciesObjectVS2012 {
 public:
  ~CPoolBase() override;
  /// Takes back an object that nobody has a reference to any more. A pool that keeps it adds a
  /// reference; if it doesn't, the object is deleted. Runs on the thread that released the object,
  /// with the object's lock held and one reference counted, and the object no longer refers to the
  /// pool.
  virtual void ReturnToPool(CPoolObject* object) = 0;

 protected:
  CPoolBase();
};

/// An object that goes back to its pool, rather than being deleted, as long as it has one.
class ZEL_API CPoolObject : public CDependenciesObjectVS2012 {
 public:
  ~CPoolObject() override;

  /// Called before the object goes back to its pool, to drop what it holds. Does nothing by itself.
  virtual void ReclaimCleanUp();

 protected:
  /// An object with a type tag, and no pool yet.
  explicit CPoolObject(uint32_t type);

  /// Makes `owner` the pool that the object returns to, with a reference of its own; null for none.
  /// A pool has this called on every object that it hands out, since a return takes it away.
  void Pool(CPoolBase* owner);

 private:
  static void Reclaim(CDependenciesObjectVS2012* object);

  RObject<CPoolBase> pool;
};

}  // namespace Morvalen::Zel
