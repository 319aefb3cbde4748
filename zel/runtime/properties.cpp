#include "zel/runtime/properties.h"

#include <bit>
#include <cstddef>
#include <cstring>

#include "zel/runtime/byte_array.h"
#include "zel/runtime/dictionary.h"
#include "zel/runtime/encoding.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/result_codes.h"
#include "zel/runtime/string.h"

// Keys are compared by their wide forms. Nearly every name is ASCII, and then two texts have equal
// wide forms exactly if they have equal narrow ones, since no malformed or replaced character can
// take part. So an ASCII name is compared as it stands with the narrow forms of the keys, which are
// there from the start as a rule: a lookup makes no string and converts none.

namespace Morvalen::Zel {
namespace {

using Dictionary = CDictionary<CString, CByteArray>;

static_assert(std::endian::native == std::endian::little,
              "typed values are stored as they lie in memory");
static_assert(sizeof(void*) == 8, "a pointer takes eight bytes in a property set");

bool IsAscii(char const* text) {
  unsigned char bits = 0;  // all at once, without a branch a byte
  for (size_t index = 0, size = std::strlen(text); index < size; ++index) {
    bits = static_cast<unsigned char>(bits | static_cast<unsigned char>(text[index]));
  }
  return bits < 0x80;
}

/// Tells whether a key of the dictionary equals a name.
class KeyMatcher {
 public:
  explicit KeyMatcher(char const* name) : made(nullptr), chars(name != nullptr ? name : "") {
    if (IsAscii(chars)) return;
    made = new CString(chars);
    UseWideForm(made);
  }
  explicit KeyMatcher(CString* name) : made(nullptr) {
    if (name == nullptr) return;
    chars = name->GetChars();
    if (chars == nullptr || !IsAscii(chars)) UseWideForm(name);
  }

  bool operator()(CString* key) const {
    if (key == nullptr) return chars == nullptr && units == nullptr;
    if (chars == nullptr) return key->Equals(units);
    // CString::Equals would measure both texts first; most keys differ early.
    char const* const text = key->GetChars();
    return text != nullptr && std::strcmp(text, chars) == 0;
  }

 private:
  void UseWideForm(CString* name) {
    chars = nullptr;
    units = name->GetWChars();
  }

  RObject<CString> made;  // what `units` points into where the name was no object
  // The name in one of its forms; both are null for a null name, which equals a null key only.
  char const* chars = nullptr;
  wchar_t const* units = nullptr;
};

template <class T>
int ReadBytes(IProperties const& properties, char const* name, T& value) {
  return properties.GetProperty(name, static_cast<int32_t>(sizeof value),
                                reinterpret_cast<unsigned char*>(&value));
}

template <class T>
int WriteBytes(IProperties& properties, char const* name, T const& value) {
  return properties.SetProperty(name, static_cast<int32_t>(sizeof value),
                                reinterpret_cast<unsigned char const*>(&value));
}

/// Reads a number as a getter does. It starts as 0, so that an absent key has a text that doesn't
/// change from call to call; callers may rely on no text for it.
template <class T>
int ShowNumber(IProperties const* properties, char const* name, CString*& text) {
  T value = 0;
  int const result = ReadBytes(*properties, name, value);
  if (result < 0) return result;
  text = CString::WithFormat("%d", static_cast<int32_t>(value));
  return 0;
}

}  // namespace

IProperties::IProperties() : properties(nullptr) {}

IProperties::IProperties(IProperties const* other) : properties(nullptr) {
  if (other == nullptr || other->properties == nullptr) return;
  Dictionary* const copy = EnsureDictionary();
  if (copy == nullptr) return;
  // Deliberate: pairs with a null value stay behind, unlike in SetProperties. Pinned by
  // properties_test.cpp, CopyDropsNullValues.
  other->properties->ForEach([copy](CString* key, CByteArray* value) {
    return value != nullptr ? copy->Append(key, value) : 0;
  });
}

IProperties::~IProperties() {
  if (properties != nullptr) properties->Release();
}

IProperties::Accessor const* IProperties::GetPropertyAccessors() {
  return nullptr;
}

Dictionary* IProperties::EnsureDictionary() {
  if (properties == nullptr) properties = new Dictionary;
  return properties;
}

template <class Name>
CByteArray* IProperties::FindValue(Name name) const {
  return properties != nullptr ? properties->FindValue(KeyMatcher(name)) : nullptr;
}

// Raw bytes

int IProperties::GetProperty(char const* name, int32_t size, unsigned char* buffer) const {
  CByteArray* const value = FindValue(name);
  if (value == nullptr) return 0;
  int32_t const length = value->GetLength();
  if (buffer == nullptr) return length;
  if (size < length) return ZelErrorInvalidArgument;
  if (length == 0) return 0;
  unsigned char const* const bytes = value->GetData();
  if (bytes == nullptr) return ZelErrorOutOfMemory;
  std::memcpy(buffer, bytes, static_cast<size_t>(length));
  return length;
}

int IProperties::SetProperty(char const* name, int32_t size, unsigned char const* value) {
  RObject<CByteArray> bytes(new CByteArray(value, size));
  if (bytes == nullptr || bytes->GetData() == nullptr) return ZelErrorOutOfMemory;
  if (value == nullptr) bytes->Clear();
  return SetProperty(name, static_cast<CByteArray*>(bytes));
}

// Typed forms

int IProperties::GetProperty(char const* name, bool& value) const {
  // By way of a byte, since no bool may hold what another writer could have stored.
  unsigned char byte = 0;
  int const result = ReadBytes(*this, name, byte);
  if (result == static_cast<int>(sizeof byte)) value = byte != 0;
  return result;
}

int IProperties::GetProperty(char const* name, unsigned char& value) const {
  return ReadBytes(*this, name, value);
}

int IProperties::GetProperty(char const* name, int16_t& value) const {
  return ReadBytes(*this, name, value);
}

int IProperties::GetProperty(char const* name, uint16_t& value) const {
  return ReadBytes(*this, name, value);
}

int IProperties::GetProperty(char const* name, int32_t& value) const {
  return ReadBytes(*this, name, value);
}

int IProperties::GetProperty(char const* name, uint32_t& value) const {
  return ReadBytes(*this, name, value);
}

int IProperties::GetProperty(char const* name, int64_t& value) const {
  return ReadBytes(*this, name, value);
}

int IProperties::GetProperty(char const* name, uint64_t& value) const {
  return ReadBytes(*this, name, value);
}

int IProperties::GetProperty(char const* name, float& value) const {
  return ReadBytes(*this, name, value);
}

int IProperties::GetProperty(char const* name, double& value) const {
  return ReadBytes(*this, name, value);
}

int IProperties::GetProperty(char const* name, void*& value) const {
  return ReadBytes(*this, name, value);
}

int IProperties::SetProperty(char const* name, bool value) {
  return SetProperty(name, static_cast<unsigned char>(value ? 1 : 0));
}

int IProperties::SetProperty(char const* name, unsigned char value) {
  return WriteBytes(*this, name, value);
}

int IProperties::SetProperty(char const* name, int16_t value) {
  return WriteBytes(*this, name, value);
}

int IProperties::SetProperty(char const* name, uint16_t value) {
  return WriteBytes(*this, name, value);
}

int IProperties::SetProperty(char const* name, int32_t value) {
  return WriteBytes(*this, name, value);
}

int IProperties::SetProperty(char const* name, uint32_t value) {
  return WriteBytes(*this, name, value);
}

int IProperties::SetProperty(char const* name, int64_t value) {
  return WriteBytes(*this, name, value);
}

int IProperties::SetProperty(char const* name, uint64_t value) {
  return WriteBytes(*this, name, value);
}

int IProperties::SetProperty(char const* name, float value) {
  return WriteBytes(*this, name, value);
}

int IProperties::SetProperty(char const* name, double value) {
  return WriteBytes(*this, name, value);
}

int IProperties::SetProperty(char const* name, void* value) {
  return WriteBytes(*this, name, value);
}

int IProperties::GetFourProperty(char const* name, unsigned int& code) const {
  int const result = ReadBytes(*this, name, code);
  // Deliberate: also when nothing was read. Pinned by properties_test.cpp,
  // AbsentFourCharacterCodeReversesTheVariable.
  code = __builtin_bswap32(code);
  return result;
}

int IProperties::SetFourProperty(char const* name, unsigned int code) {
  return WriteBytes(*this, name, __builtin_bswap32(code));
}

int IProperties::GetProperty(char const* name, CString*& value) const {
  CByteArray* const bytes = FindValue(name);
  value = bytes == nullptr ? nullptr
                           : CEncoding::GetUtf8()->GetString(bytes->GetData(), bytes->GetLength());
  return 0;
}

int IProperties::SetProperty(char const* name, CString* value) {
  if (value == nullptr) return SetProperty(name, static_cast<CByteArray*>(nullptr));
  RObject<CByteArray> bytes(CEncoding::GetUtf8()->GetBytes(value->GetWChars()));
  if (bytes == nullptr) return ZelErrorOutOfMemory;
  return SetProperty(name, static_cast<CByteArray*>(bytes));
}

// Objects

CByteArray* IProperties::GetProperty(char const* name) const {
  CByteArray* const value = FindValue(name);
  if (value != nullptr) value->Acquire();
  return value;
}

CByteArray* IProperties::GetProperty(CString* name) const {
  CByteArray* const value = FindValue(name);
  if (value != nullptr) value->Acquire();
  return value;
}

int IProperties::SetProperty(char const* name, CByteArray* value) {
  Dictionary* const dictionary = EnsureDictionary();
  if (dictionary == nullptr) return ZelErrorOutOfMemory;
  int32_t const index = dictionary->IndexWhere(KeyMatcher(name));
  if (index >= 0) return dictionary->SetValueAt(index, value);
  RObject<CString> key(new CString(name));
  if (key == nullptr) return ZelErrorOutOfMemory;
  return dictionary->Append(key, value);
}

int IProperties::SetProperty(CString* name, CByteArray* value) {
  Dictionary* const dictionary = EnsureDictionary();
  if (dictionary == nullptr) return ZelErrorOutOfMemory;
  int32_t const index = dictionary->IndexWhere(KeyMatcher(name));
  if (index >= 0) return dictionary->SetValueAt(index, value);
  return dictionary->Append(name, value);
}

int IProperties::RemoveProperty(char const* name) {
  if (properties == nullptr) return 0;
  int32_t const index = properties->IndexWhere(KeyMatcher(name));
  if (index >= 0) properties->RemoveAt(index);
  return 0;
}

int IProperties::ClearProperties() {
  if (properties != nullptr) properties->Clear();
  return 0;
}

Dictionary* IProperties::GetProperties() const {
  if (properties != nullptr) properties->Acquire();
  return properties;
}

int32_t IProperties::GetPropertyCount() const {
  return properties != nullptr ? properties->GetCount() : 0;
}

CString* IProperties::GetPropertyName(int32_t index) const {
  return properties != nullptr ? properties->GetKeyAt(index) : nullptr;
}

int IProperties::SetProperties(IProperties const* other) {
  if (other == nullptr || other->properties == nullptr) return 0;
  return other->properties->ForEach(
      [this](CString* key, CByteArray* value) { return SetProperty(key, value); });
}

// Descriptions and text

IProperties::Accessor const* IProperties::GetPropertyAccessor(char const* name) {
  Accessor const* row = GetPropertyAccessors();
  if (row == nullptr || name == nullptr) return nullptr;
  for (; row->name != nullptr; ++row) {
    if (std::strcmp(row->name, name) == 0) return row;
  }
  return nullptr;
}

char const* IProperties::GetPropertyDescription(char const* name) {
  Accessor const* const row = GetPropertyAccessor(name);
  return row != nullptr ? row->description : name;
}

CString* IProperties::GetPropertyValue(char const* name) {
  Accessor const* const row = GetPropertyAccessor(name);
  if (row == nullptr || row->getter == nullptr) return new CString("(null)");
  RObject<CString> text(nullptr);
  if (row->getter(this, name, &text) < 0) return new CString("(error)");
  return text.SafeAcquire();
}

int IProperties::GetString(IProperties* properties, char const* name, CString*& text) {
  return properties->GetProperty(name, text);
}

int IProperties::GetBool(IProperties* properties, char const* name, CString*& text) {
  unsigned char byte = 0;
  int const result = properties->GetProperty(name, byte);
  if (result < 0) return result;
  text = new CString(byte == 1 ? "true" : "false");
  return 0;
}

int IProperties::GetByte(IProperties* properties, char const* name, CString*& text) {
  return ShowNumber<unsigned char>(properties, name, text);
}

int IProperties::GetUInt16(IProperties* properties, char const* name, CString*& text) {
  return ShowNumber<uint16_t>(properties, name, text);
}

int IProperties::GetUInt32(IProperties* properties, char const* name, CString*& text) {
  return ShowNumber<uint32_t>(properties, name, text);
}

}  // namespace Morvalen::Zel
