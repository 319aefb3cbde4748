#include "zel/runtime/string.h"

namespace Morvalen::Zel {
namespace {

// A null text makes an empty string, as the constructors of CString have it.
CDependenciesObjectVS2012* Make(char const* text) {
  return new CString(text);
}
CDependenciesObjectVS2012* Make(wchar_t const* text) {
  return new CString(text);
}

}  // namespace

String::String() = default;

String::String(CString* text) : BaseObject(text) {}

String::String(String const& other) = default;

String::String(char const* text) : BaseObject(Make(text)) {}

String::String(wchar_t const* text) : BaseObject(Make(text)) {}

String::~String() = default;

String& String::operator=(String const& other) {
  Object::operator=(other);
  return *this;
}

String::operator char const*() const {
  return typed != nullptr ? typed->GetChars() : nullptr;
}

String::operator wchar_t const*() const {
  return typed != nullptr ? typed->GetWChars() : nullptr;
}

String String::FromObject(CString* text) {
  // The stand-alone holder owns nothing: the reference that it added is the new holder's.
  return String(static_cast<CString*>(Object::FromObject(text)));
}

}  // namespace Morvalen::Zel
