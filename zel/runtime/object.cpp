#include "zel/runtime/object.h"

#include <cstdlib>

#include "zel/runtime/lock.h"

namespace Morvalen::Zel {

CDependenciesObjectVS2012::CDependenciesObjectVS2012() : CDependenciesObjectVS2012(0, nullptr) {}

CDependenciesObjectVS2012::CDependenciesObjectVS2012(uint32_t tag, DestroyCallback destroy)
    : type(tag), references(1), lock(nullptr), destroyCallback(destroy) {}

CDependenciesObjectVS2012::~CDependenciesObjectVS2012() {
  delete lock.load(std::memory_order_acquire);
}

bool CDependenciesObjectVS2012::IsType(uint32_t tag) const {
  return type == tag;
}

uint32_t CDependenciesObjectVS2012::GetHashCode() {
  const uint64_t address = reinterpret_cast<uintptr_t>(this);
  return static_cast<uint32_t>(address) + static_cast<uint32_t>(address >> 32);
}

void CDependenciesObjectVS2012::Acquire() const {
  references.fetch_add(1, std::memory_order_relaxed);
}

void CDependenciesObjectVS2012::Release() const {
  // Not above zero, rather than zero: an object that was released once too often is destroyed too.
  if (references.fetch_sub(1, std::memory_order_acq_rel) > 1) return;
  auto* self = const_cast<CDependenciesObjectVS2012*>(this);
  if (destroyCallback != nullptr) {
    // Back to life with the one reference of this release, so that the callback can hand it on.
    references.fetch_add(1, std::memory_order_relaxed);
    self->Enter();
    destroyCallback(self);
    const int32_t before = references.fetch_sub(1, std::memory_order_acq_rel);
    self->Exit();
    if (before > 1) return;
  }
  delete self;
}

void CDependenciesObjectVS2012::Synchronize() {
  static CDependenciesLock creation;
  creation.Enter();
  if (lock.load(std::memory_order_relaxed) == nullptr) {
    lock.store(new CDependenciesLock, std::memory_order_release);
  }
  creation.Exit();
}

CDependenciesLock& CDependenciesObjectVS2012::EnsureLock() {
  if (lock.load(std::memory_order_acquire) == nullptr) Synchronize();
  return *lock.load(std::memory_order_acquire);
}

int CDependenciesObjectVS2012::Enter() {
  return EnsureLock().Enter();
}
bool CDependenciesObjectVS2012::TryEnter() {
  return EnsureLock().TryEnter();
}
bool CDependenciesObjectVS2012::Wait(int32_t milliseconds) {
  return EnsureLock().Wait(milliseconds);
}
bool CDependenciesObjectVS2012::Wait() {
  return EnsureLock().Wait();
}
int CDependenciesObjectVS2012::Notify() {
  return EnsureLock().Notify();
}
int CDependenciesObjectVS2012::NotifyAll() {
  return EnsureLock().NotifyAll();
}
void CDependenciesObjectVS2012::Exit() {
  EnsureLock().Exit();
}

CDependenciesObjectVS2012* CDependenciesObjectVS2012::CreateForLock() {
  auto* object = new CDependenciesObjectVS2012;
  object->Synchronize();
  return object;
}

void* CDependenciesObjectVS2012::operator new(size_t size) noexcept {
  return std::malloc(size);
}
void CDependenciesObjectVS2012::operator delete(void* memory) noexcept {
  std::free(memory);
}

CDependenciesObjectVS2012::CAutoLock::CAutoLock(CDependenciesObjectVS2012* const held)
    : object(held) {
  if (object != nullptr) object->Enter();
}

CDependenciesObjectVS2012::CAutoLock::~CAutoLock() {
  if (object != nullptr) object->Exit();
  object = nullptr;
}

}  // namespace Morvalen::Zel
