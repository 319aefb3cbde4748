#include "zel/runtime/holder.h"

namespace Morvalen::Zel {

BaseObject::BaseObject() : held(nullptr) {}

BaseObject::BaseObject(CDependenciesObjectVS2012* adopted) : held(adopted) {}

BaseObject::BaseObject(BaseObject const& other) : held(other.ToObject()) {}

BaseObject::~BaseObject() {
  *this = static_cast<CDependenciesObjectVS2012*>(nullptr);
}

BaseObject& BaseObject::operator=(CDependenciesObjectVS2012* adopted) {
  if (held == adopted) return *this;
  // Stores before it releases: the release may run code that looks at this holder again.
  CDependenciesObjectVS2012* const old = held;
  held = adopted;
  if (old != nullptr) old->Release();
  return *this;
}

BaseObject& BaseObject::operator=(BaseObject const& other) {
  if (held == other.held) return *this;
  return *this = other.ToObject();
}

BaseObject BaseObject::FromObject(CDependenciesObjectVS2012* object) {
  if (object != nullptr) object->Acquire();
  return BaseObject(object);
}

CDependenciesObjectVS2012* BaseObject::ToObject() const {
  if (held != nullptr) held->Acquire();
  return held;
}

BaseObject& BaseObject::operator++(int) {
  if (held != nullptr) held->Acquire();
  return *this;
}

uint32_t BaseObject::GetType() const {
  return held != nullptr ? held->GetType() : 0;
}

bool BaseObject::IsType(uint32_t type) const {
  return held != nullptr && held->IsType(type);
}

}  // namespace Morvalen::Zel
