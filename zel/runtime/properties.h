#pragma once

#include <concepts>
#include <cstdint>

#include "zel/base/export.h"

namespace Morvalen::Zel {

class CByteArray;
class CString;
template <class K, class V>
class CDictionary;

/// `long long`, signed or not, where it is another type than the integer of 64 bits.
template <class T>
concept LongLong = (std::same_as<T, long long> && !std::same_as<T, int64_t>) ||
                   (std::same_as<T, unsigned long long> && !std::same_as<T, uint64_t>);

/// A property set: names and the bytes that stand under them, in the order in which the names were
/// first set. It carries configuration between a framework and this library. The set knows nothing
/// of types: a key's type is a convention between who writes it and who reads it
/// (zel/runtime/property_keys.h), and a value is the bytes that the writer put there,
/// little-endian, without tag or terminator:
///
///   bool, unsigned char                 1 byte
///   int16_t, uint16_t                   2 bytes
///   int32_t, uint32_t, float            4 bytes
///   int64_t, uint64_t, double, void*    8 bytes; a pointer means something in its process only
///   four-character code                 4 bytes in reading order: "mp4v" is 0x6D 0x70 0x34 0x76
///   CString*                            the text in UTF-8
///   CByteArray*                         the array itself, by reference
///
/// Names are compared exactly. A null name counts as the empty one. Names are found by walking,
/// which suits some tens of keys.
///
/// Not made directly: derive from it. A derived class may bring a table of accessors, by which its
/// properties have descriptions and can be shown as text.
///
/// Threads: there is no lock. One thread writes; once nobody writes any more, any number may read.
class ZEL_API IProperties {
 public:
  /// One row of a derived class's table, which ends at the first row whose `name` is null.
  struct Accessor {
    char const* name;         ///< the property
    char const* description;  ///< one line for people
    /// Renders the value as text, with a reference for the caller, who passes `text` null.
    /// @return negative on failure.
    int (*getter)(IProperties* properties, char const* name, CString*& text);
    void* reserved;  ///< of the class that defines the table; not read here
  };

  // Copies are made by pointer: see the protected constructor and SetProperties.
  IProperties(IProperties const&) = delete;
  IProperties& operator=(IProperties const&) = delete;

  // The order of the virtual operations is part of the interface.
  virtual ~IProperties();

  /// Copies the value's bytes to `buffer`; with a null `buffer` only tells their count.
  /// @return the value's size, whatever `size` is beyond it; 0, with the buffer untouched, for a
  /// key that is absent or whose value is null; ZelErrorInvalidArgument when `size` is less than
  /// the value's.
  virtual int GetProperty(char const* name, int32_t size, unsigned char* buffer) const;

  /// Stores a copy of `size` bytes. A negative size counts as 0; a null `value` stores zeros.
  /// @return 0, or ZelErrorOutOfMemory.
  virtual int SetProperty(char const* name, int32_t size, unsigned char const* value);

 protected:
  /// The class's table, or null if it has none.
  virtual Accessor const* GetPropertyAccessors();

 public:
  /// Typed reads, by GetProperty(name, size, buffer). The read succeeded if the result is the
  /// type's size. A shorter value fills the first bytes and leaves the rest; a longer one is
  /// ZelErrorInvalidArgument, and an absent one 0, with the variable as it was. A bool is true for
  /// any byte but 0.
  int GetProperty(char const* name, bool& value) const;
  int GetProperty(char const* name, unsigned char& value) const;
  int GetProperty(char const* name, int16_t& value) const;
  int GetProperty(char const* name, uint16_t& value) const;
  int GetProperty(char const* name, int32_t& value) const;
  int GetProperty(char const* name, uint32_t& value) const;
  int GetProperty(char const* name, int64_t& value) const;
  int GetProperty(char const* name, uint64_t& value) const;
  int GetProperty(char const* name, float& value) const;
  int GetProperty(char const* name, double& value) const;
  int GetProperty(char const* name, void*& value) const;

  /// Typed writes, by SetProperty(name, size, value). @return 0, or ZelErrorOutOfMemory.
  int SetProperty(char const* name, bool value);
  int SetProperty(char const* name, unsigned char value);
  int SetProperty(char const* name, int16_t value);
  int SetProperty(char const* name, uint16_t value);
  int SetProperty(char const* name, int32_t value);
  int SetProperty(char const* name, uint32_t value);
  int SetProperty(char const* name, int64_t value);
  int SetProperty(char const* name, uint64_t value);
  int SetProperty(char const* name, float value);
  int SetProperty(char const* name, double value);
  int SetProperty(char const* name, void* value);
  /// Character text would be stored as a bool: make a CString of it.
  int SetProperty(char const* name, void const* value) = delete;

  /// The same for `long long`. Beware of `long`, which has 64 bits on some systems and 32 on
  /// others: use the types with a width.
  template <LongLong Integer>
  int GetProperty(char const* name, Integer& value) const {
    return GetProperty(name, int32_t{sizeof value}, reinterpret_cast<unsigned char*>(&value));
  }
  template <LongLong Integer>
  int SetProperty(char const* name, Integer value) {
    return SetProperty(name, int32_t{sizeof value}, reinterpret_cast<unsigned char*>(&value));
  }

  /// Reads a four-character code. A code and a number of 32 bits differ in byte order: read each as
  /// it was written. The bytes of `code` are reversed after the read, even when nothing was read,
  /// so give it no default: test the result, which is that of GetProperty(name, size, buffer).
  int GetFourProperty(char const* name, unsigned int& code) const;
  int SetFourProperty(char const* name, unsigned int code);

  /// The value as text, what is malformed replaced by U+FFFD, in a new string that the caller owns;
  /// null for a key that is absent or whose value is null. @return 0
  int GetProperty(char const* name, CString*& value) const;
  /// Stores the text in UTF-8. A null `value` stores a null value under the key.
  /// @return 0, or ZelErrorOutOfMemory.
  int SetProperty(char const* name, CString* value);

  /// The value object with a reference for the caller; null for a key that is absent or whose value
  /// is null. Don't change its bytes: other sets may share it.
  CByteArray* GetProperty(char const* name) const;
  CByteArray* GetProperty(CString* name) const;
  /// Stores the array itself, with a reference, as is the name in the second form when it is new to
  /// the set. A null `value` stores a null value. @return 0, or ZelErrorOutOfMemory.
  int SetProperty(char const* name, CByteArray* value);
  int SetProperty(CString* name, CByteArray* value);

  /// Removes the key and its value, if it is there. @return 0
  int RemoveProperty(char const* name);
  /// Removes all keys and values. @return 0
  int ClearProperties();

  /// The dictionary with a reference for the caller; null if nothing was ever set.
  CDictionary<CString, CByteArray>* GetProperties() const;
  /// The number of keys, those with a null value too.
  int32_t GetPropertyCount() const;
  /// The key at a position, in order of first setting, with a reference for the caller; null out of
  /// range.
  CString* GetPropertyName(int32_t index) const;

  /// Sets every pair of `other`, in order, sharing its key and value objects; null values too. A
  /// null `other` changes nothing. It stops at the first pair that can't be stored, keeping those
  /// before it. @return 0, or ZelErrorOutOfMemory.
  int SetProperties(IProperties const* other);

  /// What the accessor table says of a property; `name` itself when it says nothing.
  char const* GetPropertyDescription(char const* name);
  /// The value as text by the accessor table, in a new string that the caller owns: "(null)" when
  /// the table has no such property, "(error)" when its getter fails. May be null.
  CString* GetPropertyValue(char const* name);

 protected:
  /// A set in which nothing was ever set.
  IProperties();
  /// A set with a dictionary of its own and the pairs of `other`, whose key and value objects it
  /// shares. Pairs with a null value are dropped, unlike by SetProperties. With a null `other`, or
  /// one that never had a dictionary, this set has none either.
  explicit IProperties(IProperties const* other);

  /// The table's first row with that name; null if there is none, no table, or no name.
  Accessor const* GetPropertyAccessor(char const* name);

  /// Getters for use in tables. @return a read's negative code, or 0. Don't rely on the text for an
  /// absent key: numbers show 0 and a bool "false", but nothing was read.
  static int GetString(IProperties* properties, char const* name, CString*& text);
  /// "true" if the byte is 1, otherwise "false".
  static int GetBool(IProperties* properties, char const* name, CString*& text);
  static int GetByte(IProperties* properties, char const* name, CString*& text);
  static int GetUInt16(IProperties* properties, char const* name, CString*& text);
  /// As a signed number: a value above 2147483647 shows as negative.
  static int GetUInt32(IProperties* properties, char const* name, CString*& text);

 private:
  CDictionary<CString, CByteArray>* properties;  // one reference; null until the first write

  CDictionary<CString, CByteArray>* EnsureDictionary();
  template <class Name>
  CByteArray* FindValue(Name name) const;
};

}  // namespace Morvalen::Zel
