#include "zel/runtime/object.h"

#include <cstddef>
#include <cstdlib>
#include <new>

#include "zel/runtime/leak_hooks.h"
#include "zel/runtime/lock.h"
#include "zel/runtime/process_start.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {

// Before the library's other static objects. It stands here since every program that uses the
// library has this file in it.
__attribute__((constructor(101))) static void StartProcess() {
  ProcessStart::Run();
}

CDependenciesObjectVS2012::CDependenciesObjectVS2012() : CDependenciesObjectVS2012(0, nullptr) {}

CDependenciesObjectVS2012::CDependenciesObjectVS2012(uint32_t tag, DestroyCallback destroy)
    : type(tag), references(1), lock(nullptr), destroyCallback(destroy) {
  if constexpr (kLeakHooks) CLeaks::CreateObject(this);
}

CDependenciesObjectVS2012::~CDependenciesObjectVS2012() {
  // Here rather than in Release: a destroy callback may keep the object alive, and not every object
  // ends by a release.
  if constexpr (kLeakHooks) CLeaks::DestroyObject(this);
  delete lock.load(std::memory_order_acquire);
  lock.store(nullptr, std::memory_order_relaxed);
}

bool CDependenciesObjectVS2012::IsType(uint32_t tag) const {
  return type == tag;
}

uint32_t CDependenciesObjectVS2012::GetHashCode() {
  const uint64_t address = reinterpret_cast<uintptr_t>(this);
  return static_cast<uint32_t>(address) + static_cast<uint32_t>(address >> 32);
}

void CDependenciesObjectVS2012::SetType(uint32_t value) {
  [[maybe_unused]] uint32_t const former = type;
  type = value;
  if constexpr (kLeakHooks) CLeaks::RetypeObject(this, former);
}

void CDependenciesObjectVS2012::Acquire() const {
  if constexpr (kLeakHooks) CLeaks::AcquireObject(this);
  references.fetch_add(1, std::memory_order_relaxed);
}

void CDependenciesObjectVS2012::Release() const {
  // Before the count goes down: after that another thread may destroy the object.
  if constexpr (kLeakHooks) CLeaks::ReleaseObject(this);
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

// The lock that guards the making of locks, held only while one is made. It is never destroyed:
// other modules' static objects may lock themselves for the first time while the process ends.
static CDependenciesLock& CreationLock() {
  alignas(CDependenciesLock) static std::byte storage[sizeof(CDependenciesLock)];
  static CDependenciesLock* const creation = new (storage) CDependenciesLock;
  return *creation;
}

void CDependenciesObjectVS2012::Synchronize() {
  CDependenciesLock& creation = CreationLock();
  creation.Enter();
  if (lock.load(std::memory_order_relaxed) == nullptr) {
    // Released, so that a thread that finds the pointer without the creation lock finds it made.
    lock.store(new (std::nothrow) CDependenciesLock, std::memory_order_release);
  }
  creation.Exit();
}

// The object's lock; null when there is no memory for it.
CDependenciesLock* CDependenciesObjectVS2012::EnsureLock() {
  if (lock.load(std::memory_order_acquire) == nullptr) Synchronize();
  return lock.load(std::memory_order_acquire);
}

bool CDependenciesObjectVS2012::HoldsLock() const {
  CDependenciesLock const* const made = lock.load(std::memory_order_acquire);
  return made != nullptr && made->IsHeldByCaller();
}

int CDependenciesObjectVS2012::Enter() {
  CDependenciesLock* const made = EnsureLock();
  return made != nullptr ? made->Enter() : ZelErrorOutOfMemory;
}

bool CDependenciesObjectVS2012::TryEnter() {
  CDependenciesLock* const made = EnsureLock();
  return made != nullptr && made->TryEnter();
}

bool CDependenciesObjectVS2012::Wait(int32_t milliseconds) {
  CDependenciesLock* const made = EnsureLock();
  return made != nullptr && made->Wait(milliseconds);
}

bool CDependenciesObjectVS2012::Wait() {
  CDependenciesLock* const made = EnsureLock();
  return made != nullptr && made->Wait();
}

int CDependenciesObjectVS2012::Notify() {
  CDependenciesLock* const made = EnsureLock();
  return made != nullptr ? made->Notify() : ZelErrorFailed;
}

int CDependenciesObjectVS2012::NotifyAll() {
  CDependenciesLock* const made = EnsureLock();
  return made != nullptr ? made->NotifyAll() : ZelErrorFailed;
}

void CDependenciesObjectVS2012::Exit() {
  if (CDependenciesLock* const made = EnsureLock()) made->Exit();
}

CDependenciesObjectVS2012* CDependenciesObjectVS2012::CreateForLock() {
  auto* const object = new CDependenciesObjectVS2012;
  if (object != nullptr) object->Synchronize();
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
