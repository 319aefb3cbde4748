#include "zel/runtime/properties.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "zel/runtime/byte_array.h"
#include "zel/runtime/dictionary.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/property_keys.h"
#include "zel/runtime/result_codes.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {

/// What the rules of access let a derived class reach.
class PropertySet : public IProperties {
 public:
  PropertySet() = default;
  explicit PropertySet(IProperties const* other) : IProperties(other) {}
  using IProperties::GetPropertyAccessor;
  using IProperties::GetPropertyAccessors;
};

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<unsigned char>;

Bytes BytesOf(IProperties const& set, char const* name) {
  int const size = set.GetProperty(name, 0, nullptr);
  EXPECT_GE(size, 0);
  Bytes bytes(static_cast<size_t>(size));
  EXPECT_EQ(set.GetProperty(name, size, bytes.data()), size);
  return bytes;
}

/// The text of a string that the caller owns; the reference is given back.
std::string Take(CString* owned) {
  RObject<CString> const text(owned);
  return owned != nullptr ? owned->GetChars() : "(no object)";
}

std::vector<std::string> NamesOf(IProperties const& set) {
  std::vector<std::string> names;
  for (int32_t index = 0; index < set.GetPropertyCount(); ++index) {
    names.push_back(Take(set.GetPropertyName(index)));
  }
  return names;
}

bool HasDictionary(IProperties const& set) {
  RObject<CDictionary<CString, CByteArray>> const dictionary(set.GetProperties());
  return dictionary != nullptr;
}

// An unwritten set

TEST(Properties, UnwrittenSetAnswersEveryReadWithNothing) {
  PropertySet set;
  unsigned char buffer[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  bool flag = true;
  unsigned char byte = 77;
  int16_t int16 = 77;
  uint16_t uint16 = 77;
  int32_t int32 = 77;
  uint32_t uint32 = 77;
  int64_t int64 = 77;
  uint64_t uint64 = 77;
  float single = 77;
  double twice = 77;
  void* pointer = &set;
  EXPECT_EQ(set.GetProperty("a", 8, buffer), 0);
  EXPECT_EQ(set.GetProperty("a", 0, nullptr), 0);
  EXPECT_EQ(set.GetProperty("a", flag), 0);
  EXPECT_EQ(set.GetProperty("a", byte), 0);
  EXPECT_EQ(set.GetProperty("a", int16), 0);
  EXPECT_EQ(set.GetProperty("a", uint16), 0);
  EXPECT_EQ(set.GetProperty("a", int32), 0);
  EXPECT_EQ(set.GetProperty("a", uint32), 0);
  EXPECT_EQ(set.GetProperty("a", int64), 0);
  EXPECT_EQ(set.GetProperty("a", uint64), 0);
  EXPECT_EQ(set.GetProperty("a", single), 0);
  EXPECT_EQ(set.GetProperty("a", twice), 0);
  EXPECT_EQ(set.GetProperty("a", pointer), 0);
  EXPECT_THAT(buffer, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
  EXPECT_TRUE(flag);
  EXPECT_EQ(byte, 77);
  EXPECT_EQ(int16, 77);
  EXPECT_EQ(uint16, 77);
  EXPECT_EQ(int32, 77);
  EXPECT_EQ(uint32, 77u);
  EXPECT_EQ(int64, 77);
  EXPECT_EQ(uint64, 77u);
  EXPECT_EQ(single, 77);
  EXPECT_EQ(twice, 77);
  EXPECT_EQ(pointer, &set);

  RObject<CString> const key(new CString("a"));
  RObject<CString> text(nullptr);
  EXPECT_EQ(set.GetProperty("a", &text), 0);
  EXPECT_EQ(static_cast<CString*>(text), nullptr);
  EXPECT_EQ(set.GetProperty("a"), nullptr);
  EXPECT_EQ(set.GetProperty(static_cast<CString*>(key)), nullptr);
  EXPECT_EQ(set.GetPropertyCount(), 0);
  EXPECT_EQ(set.GetPropertyName(0), nullptr);
  EXPECT_EQ(set.RemoveProperty("a"), 0);
  EXPECT_EQ(set.ClearProperties(), 0);
  EXPECT_FALSE(HasDictionary(set));
}

// Raw operations

TEST(Properties, RawReadTellsTheSizeAndCopies) {
  PropertySet set;
  unsigned char const value[] = {1, 2, 3};
  EXPECT_EQ(set.SetProperty("k", 3, value), 0);
  unsigned char buffer[5] = {9, 9, 9, 9, 9};
  EXPECT_EQ(set.GetProperty("k", 0, nullptr), 3);
  EXPECT_EQ(set.GetProperty("k", 5, buffer), 3);
  EXPECT_THAT(buffer, ElementsAre(1, 2, 3, 9, 9));
}

TEST(Properties, RawReadIntoASmallerBufferFailsAndLeavesIt) {
  PropertySet set;
  unsigned char const value[] = {1, 2, 3};
  EXPECT_EQ(set.SetProperty("k", 3, value), 0);
  unsigned char buffer[2] = {9, 9};
  EXPECT_EQ(set.GetProperty("k", 2, buffer), ZelErrorInvalidArgument);
  EXPECT_EQ(set.GetProperty("k", 0, buffer), ZelErrorInvalidArgument);
  EXPECT_EQ(set.GetProperty("k", -1, buffer), ZelErrorInvalidArgument);
  EXPECT_THAT(buffer, ElementsAre(9, 9));
}

TEST(Properties, RawWriteCopies) {
  PropertySet set;
  unsigned char value[] = {1, 2};
  EXPECT_EQ(set.SetProperty("k", 2, value), 0);
  value[0] = 7;
  EXPECT_THAT(BytesOf(set, "k"), ElementsAre(1, 2));
}

TEST(Properties, RawWriteOfNothingIsAKeyOfNoBytes) {
  PropertySet set;
  unsigned char const value[] = {1, 2};
  EXPECT_EQ(set.SetProperty("none", 0, value), 0);
  EXPECT_EQ(set.SetProperty("negative", -4, value), 0);
  EXPECT_EQ(set.SetProperty("null", 3, nullptr), 0);
  EXPECT_EQ(set.GetPropertyCount(), 3);
  EXPECT_THAT(BytesOf(set, "none"), IsEmpty());
  EXPECT_THAT(BytesOf(set, "negative"), IsEmpty());
  EXPECT_THAT(BytesOf(set, "null"), ElementsAre(0, 0, 0));
}

TEST(Properties, ReplacingAValueKeepsItsPosition) {
  PropertySet set;
  set.SetProperty("a", 1);
  set.SetProperty("b", 5);
  set.SetProperty("a", 2);
  EXPECT_THAT(NamesOf(set), ElementsAre("a", "b"));
  int32_t value = 0;
  EXPECT_EQ(set.GetProperty("a", value), 4);
  EXPECT_EQ(value, 2);
}

// Encodings: one test a row of the table in the header

TEST(PropertyEncoding, Bool) {
  PropertySet set;
  set.SetProperty("t", true);
  set.SetProperty("f", false);
  EXPECT_THAT(BytesOf(set, "t"), ElementsAre(1));
  EXPECT_THAT(BytesOf(set, "f"), ElementsAre(0));
  bool value = false;
  EXPECT_EQ(set.GetProperty("t", value), 1);
  EXPECT_TRUE(value);
  EXPECT_EQ(set.GetProperty("f", value), 1);
  EXPECT_FALSE(value);
}

TEST(PropertyEncoding, BoolReadsAnyByteButZeroAsTrue) {
  PropertySet set;
  set.SetProperty("k", static_cast<unsigned char>(2));
  bool value = false;
  EXPECT_EQ(set.GetProperty("k", value), 1);
  EXPECT_TRUE(value);
}

template <class T>
void ExpectEncoding(T value, Bytes const& bytes) {
  PropertySet set;
  EXPECT_EQ(set.SetProperty("k", value), 0);
  EXPECT_EQ(BytesOf(set, "k"), bytes);
  T read{};
  EXPECT_EQ(set.GetProperty("k", read), static_cast<int>(sizeof(T)));
  EXPECT_EQ(read, value);
}

TEST(PropertyEncoding, Byte) {
  ExpectEncoding<unsigned char>(0xA5, {0xA5});
}

TEST(PropertyEncoding, Int16) {
  ExpectEncoding<int16_t>(-2, {0xFE, 0xFF});
}

TEST(PropertyEncoding, UInt16) {
  ExpectEncoding<uint16_t>(0xABCD, {0xCD, 0xAB});
}

TEST(PropertyEncoding, Int32) {
  ExpectEncoding<int32_t>(-19003, {0xC5, 0xB5, 0xFF, 0xFF});
}

TEST(PropertyEncoding, UInt32) {
  ExpectEncoding<uint32_t>(0xFEDCBA98u, {0x98, 0xBA, 0xDC, 0xFE});
}

TEST(PropertyEncoding, Float) {
  ExpectEncoding<float>(-1.5f, {0x00, 0x00, 0xC0, 0xBF});
}

TEST(PropertyEncoding, Int64) {
  ExpectEncoding<int64_t>(-2, {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
}

TEST(PropertyEncoding, UInt64) {
  ExpectEncoding<uint64_t>(0x0123456789ABCDEFu, {0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01});
}

TEST(PropertyEncoding, LongLong) {
  ExpectEncoding<long long>(0x0102030405060708, {8, 7, 6, 5, 4, 3, 2, 1});
  ExpectEncoding<unsigned long long>(0xF102030405060708, {8, 7, 6, 5, 4, 3, 2, 0xF1});
}

TEST(PropertyEncoding, Double) {
  ExpectEncoding<double>(29.97, {0xB8, 0x1E, 0x85, 0xEB, 0x51, 0xF8, 0x3D, 0x40});
}

TEST(PropertyEncoding, Pointer) {
  ExpectEncoding<void*>(reinterpret_cast<void*>(uintptr_t{0x1122334455667788}),
                        {0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11});
}

TEST(PropertyEncoding, FourCharacterCode) {
  PropertySet set;
  EXPECT_EQ(set.SetFourProperty("k", 0x6D703476), 0);
  EXPECT_THAT(BytesOf(set, "k"), ElementsAre('m', 'p', '4', 'v'));
  unsigned int code = 0;
  EXPECT_EQ(set.GetFourProperty("k", code), 4);
  EXPECT_EQ(code, 0x6D703476u);
}

TEST(PropertyEncoding, FourCharacterCodeAndNumberDifferInByteOrder) {
  PropertySet set;
  set.SetFourProperty("k", 0x6D703476);
  uint32_t number = 0;
  EXPECT_EQ(set.GetProperty("k", number), 4);
  EXPECT_EQ(number, 0x7634706Du);
}

TEST(PropertyEncoding, AbsentFourCharacterCodeReversesTheVariable) {
  PropertySet set;
  unsigned int code = 0x01020304;
  EXPECT_EQ(set.GetFourProperty("k", code), 0);
  EXPECT_EQ(code, 0x04030201u);
  set.SetProperty("other", 1);
  EXPECT_EQ(set.GetFourProperty("k", code), 0);
  EXPECT_EQ(code, 0x01020304u);
}

TEST(PropertyEncoding, FourCharacterCodeOfAnotherSizeReversesToo) {
  PropertySet set;
  set.SetProperty("long", int64_t{1});
  unsigned int code = 0x01020304;
  EXPECT_EQ(set.GetFourProperty("long", code), ZelErrorInvalidArgument);
  EXPECT_EQ(code, 0x04030201u);
}

TEST(PropertyEncoding, TextIsUtf8WithoutTerminator) {
  PropertySet set;
  String const narrow("\xC3\xA9x");
  String const wide(L"\u20AC\U0001D11E");
  EXPECT_EQ(set.SetProperty("narrow", static_cast<CString*>(narrow.operator->())), 0);
  EXPECT_EQ(set.SetProperty("wide", static_cast<CString*>(wide.operator->())), 0);
  EXPECT_THAT(BytesOf(set, "narrow"), ElementsAre(0xC3, 0xA9, 'x'));
  EXPECT_THAT(BytesOf(set, "wide"), ElementsAre(0xE2, 0x82, 0xAC, 0xF0, 0x9D, 0x84, 0x9E));
  RObject<CString> text(nullptr);
  EXPECT_EQ(set.GetProperty("wide", &text), 0);
  EXPECT_STREQ(text->GetChars(), "\xE2\x82\xAC\xF0\x9D\x84\x9E");
  EXPECT_EQ(text->GetLength(), 3);
}

TEST(PropertyEncoding, EmptyTextIsPresentAndNoBytes) {
  PropertySet set;
  RObject<CString> const empty(new CString(""));
  EXPECT_EQ(set.SetProperty("k", static_cast<CString*>(empty)), 0);
  EXPECT_THAT(BytesOf(set, "k"), IsEmpty());
  RObject<CString> text(nullptr);
  EXPECT_EQ(set.GetProperty("k", &text), 0);
  ASSERT_NE(static_cast<CString*>(text), nullptr);
  EXPECT_TRUE(text->IsNullOrEmpty());
}

TEST(PropertyEncoding, MalformedTextReadsAsReplacementCharacters) {
  PropertySet set;
  unsigned char const bytes[] = {'a', 0xFF, 'b'};
  set.SetProperty("k", 3, bytes);
  RObject<CString> text(nullptr);
  EXPECT_EQ(set.GetProperty("k", &text), 0);
  EXPECT_STREQ(text->GetChars(),
               "a\xEF\xBF\xBD"
               "b");
}

TEST(PropertyEncoding, ByteArrayIsKeptByReference) {
  PropertySet set;
  RObject<CByteArray> const array(new CByteArray(4));
  EXPECT_EQ(set.SetProperty("k", static_cast<CByteArray*>(array)), 0);
  EXPECT_EQ(array->GetReferenceCount(), 2);
  RObject<CByteArray> const read(set.GetProperty("k"));
  EXPECT_EQ(static_cast<CByteArray*>(read), static_cast<CByteArray*>(array));
  EXPECT_EQ(array->GetReferenceCount(), 3);
}

// Values of another size than the type

TEST(Properties, BoolReadOfTwoBytesFails) {
  PropertySet set;
  set.SetProperty("k", int16_t{1});
  bool value = true;
  EXPECT_EQ(set.GetProperty("k", value), ZelErrorInvalidArgument);
  EXPECT_TRUE(value);
}

TEST(Properties, ShorterValueFillsTheFirstBytes) {
  PropertySet set;
  set.SetProperty("k", static_cast<unsigned char>(0x11));
  uint32_t value = 0xAABBCCDD;
  EXPECT_EQ(set.GetProperty("k", value), 1);
  EXPECT_EQ(value, 0xAABBCC11u);
}

TEST(Properties, LongerValueFailsAndLeavesTheVariable) {
  PropertySet set;
  set.SetProperty("k", 1.0);
  float value = 7;
  EXPECT_EQ(set.GetProperty("k", value), ZelErrorInvalidArgument);
  EXPECT_EQ(value, 7);
}

TEST(Properties, NoBytesLeaveABoolAsItWas) {
  PropertySet set;
  set.SetProperty("k", 0, nullptr);
  bool value = true;
  EXPECT_EQ(set.GetProperty("k", value), 0);
  EXPECT_TRUE(value);
}

// Null values

TEST(Properties, NullStringIsAKeyWithoutAValue) {
  PropertySet set;
  EXPECT_EQ(set.SetProperty("s", static_cast<CString*>(nullptr)), 0);
  EXPECT_EQ(set.GetPropertyCount(), 1);
  EXPECT_EQ(set.GetProperty("s", 0, nullptr), 0);
  unsigned char buffer[] = {9};
  EXPECT_EQ(set.GetProperty("s", 1, buffer), 0);
  EXPECT_EQ(buffer[0], 9);
  EXPECT_EQ(set.GetProperty("s"), nullptr);
  CString* text = nullptr;
  RObject<CString> const old(new CString("old"));
  text = old;
  EXPECT_EQ(set.GetProperty("s", text), 0);
  EXPECT_EQ(text, nullptr);
}

TEST(Properties, NullReplacesAValueAndReleasesIt) {
  PropertySet set;
  RObject<CByteArray> const array(new CByteArray(4));
  set.SetProperty("k", static_cast<CByteArray*>(array));
  set.SetProperty("k", static_cast<CByteArray*>(nullptr));
  EXPECT_EQ(array->GetReferenceCount(), 1);
  EXPECT_EQ(set.GetPropertyCount(), 1);
}

// Names

TEST(Properties, NamesAreComparedExactly) {
  PropertySet set;
  for (char const* name : {"key", "Key", "ke", "keys", " key", ""}) {
    EXPECT_EQ(set.SetProperty(name, 1), 0);
  }
  EXPECT_THAT(NamesOf(set), ElementsAre("key", "Key", "ke", "keys", " key", ""));
  EXPECT_EQ(set.GetProperty("KEY", 0, nullptr), 0);
  EXPECT_EQ(set.GetProperty("keys ", 0, nullptr), 0);
}

TEST(Properties, NamesBeyondAsciiAreComparedByTheirWideForms) {
  PropertySet set;
  RObject<CString> const wide(new CString(L"caf\u00E9"));
  RObject<CByteArray> const array(new CByteArray(3));
  EXPECT_EQ(set.SetProperty(wide, static_cast<CByteArray*>(array)), 0);
  EXPECT_EQ(set.GetProperty("caf\xC3\xA9", 0, nullptr), 3);
  EXPECT_EQ(set.GetProperty("cafe", 0, nullptr), 0);
  EXPECT_EQ(set.GetProperty("cafe\xCC\x81", 0, nullptr), 0);

  // Malformed bytes become the same character in the wide form.
  EXPECT_EQ(set.SetProperty("x\xFF", int16_t{1}), 0);
  EXPECT_EQ(set.GetProperty("x\xFE", 0, nullptr), 2);
  EXPECT_EQ(set.GetProperty("x\xEF\xBF\xBD", 0, nullptr), 2);
  EXPECT_EQ(set.GetPropertyCount(), 2);
}

TEST(Properties, NameThatWasMadeWideIsFoundByItsNarrowForm) {
  PropertySet set;
  RObject<CString> const wide(new CString(L"mpeg2.ts.pid"));
  RObject<CByteArray> const array(new CByteArray(4));
  set.SetProperty(wide, static_cast<CByteArray*>(array));
  EXPECT_EQ(set.GetProperty(MediaProperty::Mpeg2TransportStreamPid, 0, nullptr), 4);
  set.SetProperty(MediaProperty::Mpeg2TransportStreamPid, int16_t{256});
  EXPECT_EQ(set.GetPropertyCount(), 1);
  RObject<CString> const again(new CString("mpeg2.ts.pid"));
  RObject<CByteArray> const found(set.GetProperty(static_cast<CString*>(again)));
  EXPECT_EQ(found->GetLength(), 2);
}

TEST(Properties, NewNameObjectIsKeptAndALaterEqualOneIsNot) {
  PropertySet set;
  RObject<CString> const first(new CString("k"));
  RObject<CString> const second(new CString("k"));
  RObject<CByteArray> const array(new CByteArray(1));
  set.SetProperty(first, static_cast<CByteArray*>(array));
  set.SetProperty(second, static_cast<CByteArray*>(array));
  EXPECT_EQ(first->GetReferenceCount(), 2);
  EXPECT_EQ(second->GetReferenceCount(), 1);
  RObject<CString> const key(set.GetPropertyName(0));
  EXPECT_EQ(static_cast<CString*>(key), static_cast<CString*>(first));
}

TEST(Properties, NullNameCountsAsTheEmptyOne) {
  PropertySet set;
  EXPECT_EQ(set.SetProperty(static_cast<char const*>(nullptr), int32_t{5}), 0);
  EXPECT_EQ(set.GetProperty("", 0, nullptr), 4);
  EXPECT_THAT(NamesOf(set), ElementsAre(""));
}

TEST(Properties, NullNameObjectIsANameOfItsOwn) {
  PropertySet set;
  RObject<CByteArray> const array(new CByteArray(1));
  EXPECT_EQ(set.SetProperty(static_cast<CString*>(nullptr), static_cast<CByteArray*>(array)), 0);
  EXPECT_EQ(set.SetProperty("", int16_t{1}), 0);
  EXPECT_EQ(set.GetPropertyCount(), 2);
  EXPECT_EQ(set.GetPropertyName(0), nullptr);
  EXPECT_EQ(set.GetProperty("", 0, nullptr), 2);
  RObject<CByteArray> const found(set.GetProperty(static_cast<CString*>(nullptr)));
  EXPECT_EQ(static_cast<CByteArray*>(found), static_cast<CByteArray*>(array));
}

TEST(Properties, NameOutOfRangeIsNull) {
  PropertySet set;
  set.SetProperty("k", 1);
  EXPECT_EQ(set.GetPropertyName(-1), nullptr);
  EXPECT_EQ(set.GetPropertyName(1), nullptr);
}

// Removing

TEST(Properties, RemovingTakesKeyAndValue) {
  PropertySet set;
  RObject<CByteArray> const array(new CByteArray(1));
  set.SetProperty("a", 1);
  set.SetProperty("b", static_cast<CByteArray*>(array));
  set.SetProperty("c", 3);
  EXPECT_EQ(set.RemoveProperty("b"), 0);
  EXPECT_EQ(array->GetReferenceCount(), 1);
  EXPECT_EQ(set.RemoveProperty("b"), 0);
  EXPECT_THAT(NamesOf(set), ElementsAre("a", "c"));
  int32_t value = 0;
  EXPECT_EQ(set.GetProperty("c", value), 4);
  EXPECT_EQ(value, 3);
  set.SetProperty("b", 2);
  EXPECT_THAT(NamesOf(set), ElementsAre("a", "c", "b"));
}

TEST(Properties, ClearingKeepsTheDictionary) {
  PropertySet set;
  set.SetProperty("a", 1);
  RObject<CDictionary<CString, CByteArray>> const before(set.GetProperties());
  EXPECT_EQ(set.ClearProperties(), 0);
  EXPECT_EQ(set.GetPropertyCount(), 0);
  RObject<CDictionary<CString, CByteArray>> const after(set.GetProperties());
  EXPECT_EQ(before, after);
}

TEST(Properties, DictionaryOutlivesTheSet) {
  RObject<CDictionary<CString, CByteArray>> dictionary(nullptr);
  {
    PropertySet set;
    set.SetProperty("a", 1);
    dictionary = set.GetProperties();
    EXPECT_EQ(dictionary->GetReferenceCount(), 2);
  }
  EXPECT_EQ(dictionary->GetReferenceCount(), 1);
  EXPECT_EQ(dictionary->GetCount(), 1);
}

// Merging and copying

TEST(Properties, MergingSetsEveryPairInOrderAndSharesTheObjects) {
  PropertySet from;
  RObject<CByteArray> const array(new CByteArray(2));
  from.SetProperty("b", 20);
  from.SetProperty("array", static_cast<CByteArray*>(array));
  from.SetProperty("null", static_cast<CString*>(nullptr));
  PropertySet to;
  to.SetProperty("a", 1);
  to.SetProperty("b", 2);
  EXPECT_EQ(to.SetProperties(&from), 0);
  EXPECT_THAT(NamesOf(to), ElementsAre("a", "b", "array", "null"));
  int32_t value = 0;
  to.GetProperty("b", value);
  EXPECT_EQ(value, 20);
  EXPECT_EQ(array->GetReferenceCount(), 3);
  RObject<CString> const key(from.GetPropertyName(1));
  RObject<CString> const shared(to.GetPropertyName(2));
  EXPECT_EQ(static_cast<CString*>(key), static_cast<CString*>(shared));
}

TEST(Properties, MergingNothingChangesNothing) {
  PropertySet unwritten;
  PropertySet set;
  EXPECT_EQ(set.SetProperties(nullptr), 0);
  EXPECT_EQ(set.SetProperties(&unwritten), 0);
  EXPECT_FALSE(HasDictionary(set));
}

TEST(Properties, MergingWithItselfChangesNothing) {
  PropertySet set;
  set.SetProperty("a", 1);
  set.SetProperty("null", static_cast<CString*>(nullptr));
  EXPECT_EQ(set.SetProperties(&set), 0);
  EXPECT_THAT(NamesOf(set), ElementsAre("a", "null"));
  EXPECT_THAT(BytesOf(set, "a"), ElementsAre(1, 0, 0, 0));
}

TEST(Properties, CopyHasADictionaryOfItsOwn) {
  PropertySet set;
  RObject<CByteArray> const array(new CByteArray(2));
  set.SetProperty("a", 1);
  set.SetProperty("array", static_cast<CByteArray*>(array));
  PropertySet copy(&set);
  EXPECT_EQ(array->GetReferenceCount(), 3);
  copy.SetProperty("a", 2);
  copy.RemoveProperty("array");
  EXPECT_THAT(NamesOf(set), ElementsAre("a", "array"));
  EXPECT_THAT(BytesOf(set, "a"), ElementsAre(1, 0, 0, 0));
  EXPECT_THAT(BytesOf(copy, "a"), ElementsAre(2, 0, 0, 0));
}

TEST(Properties, CopyDropsNullValues) {
  PropertySet set;
  set.SetProperty("a", 1);
  set.SetProperty("null", static_cast<CString*>(nullptr));
  set.SetProperty("b", 2);
  PropertySet const copy(&set);
  EXPECT_THAT(NamesOf(copy), ElementsAre("a", "b"));
}

TEST(Properties, CopyOfNothingHasNoDictionary) {
  PropertySet const unwritten;
  PropertySet const ofNull(nullptr);
  PropertySet const ofUnwritten(&unwritten);
  EXPECT_FALSE(HasDictionary(ofNull));
  EXPECT_FALSE(HasDictionary(ofUnwritten));
}

TEST(Properties, CopyOfAClearedSetHasAnEmptyDictionary) {
  PropertySet cleared;
  cleared.SetProperty("a", 1);
  cleared.ClearProperties();
  PropertySet const copy(&cleared);
  EXPECT_TRUE(HasDictionary(copy));
  EXPECT_EQ(copy.GetPropertyCount(), 0);
}

// Descriptions and texts

class DescribedSet : public PropertySet {
 public:
  static int Fails(IProperties*, char const*, CString*& text) {
    text = new CString("half done");
    return ZelErrorFailed;
  }
  static int GivesNothing(IProperties*, char const*, CString*&) { return 0; }

  using IProperties::GetPropertyAccessor;

 protected:
  Accessor const* GetPropertyAccessors() override {
    static Accessor const table[] = {
        {"text", "A text", GetString, nullptr},
        {"flag", "A flag", GetBool, nullptr},
        {"byte", "A byte", GetByte, nullptr},
        {"word", "A word", GetUInt16, nullptr},
        {"number", "A number", GetUInt32, nullptr},
        {"fails", "Never works", Fails, nullptr},
        {"nothing", "Works without a text", GivesNothing, nullptr},
        {"blind", "Has no getter", nullptr, nullptr},
        {"byte", "A second row of that name", GetUInt32, nullptr},
        {nullptr, nullptr, nullptr, nullptr},
        {"behind", "Behind the end", GetByte, nullptr},
    };
    return table;
  }
};

TEST(PropertyTexts, ASetWithoutATableShowsNullForEveryName) {
  PropertySet set;
  set.SetProperty("a", 1);
  EXPECT_EQ(set.GetPropertyAccessors(), nullptr);
  EXPECT_EQ(Take(set.GetPropertyValue("a")), "(null)");
  EXPECT_EQ(Take(set.GetPropertyValue("b")), "(null)");
  EXPECT_EQ(Take(set.GetPropertyValue(nullptr)), "(null)");
}

TEST(PropertyTexts, DescriptionIsTheRowsOrTheNameItself) {
  DescribedSet set;
  char const* const unknown = "unknown";
  EXPECT_STREQ(set.GetPropertyDescription("flag"), "A flag");
  EXPECT_STREQ(set.GetPropertyDescription("byte"), "A byte");
  EXPECT_EQ(set.GetPropertyDescription(unknown), unknown);
  EXPECT_EQ(set.GetPropertyDescription(nullptr), nullptr);
}

TEST(PropertyTexts, RowIsFoundByItsBytesBeforeTheEnd) {
  DescribedSet set;
  EXPECT_NE(set.GetPropertyAccessor("flag"), nullptr);
  EXPECT_EQ(set.GetPropertyAccessor("Flag"), nullptr);
  EXPECT_EQ(set.GetPropertyAccessor("behind"), nullptr);
  EXPECT_EQ(set.GetPropertyAccessor(nullptr), nullptr);
}

TEST(PropertyTexts, GettersShowValues) {
  DescribedSet set;
  RObject<CString> const text(new CString("caf\xC3\xA9"));
  set.SetProperty("text", static_cast<CString*>(text));
  set.SetProperty("byte", static_cast<unsigned char>(200));
  set.SetProperty("word", uint16_t{65535});
  EXPECT_EQ(Take(set.GetPropertyValue("text")), "caf\xC3\xA9");
  EXPECT_EQ(Take(set.GetPropertyValue("byte")), "200");
  EXPECT_EQ(Take(set.GetPropertyValue("word")), "65535");
}

TEST(PropertyTexts, BoolIsTrueForTheByteOneOnly) {
  DescribedSet set;
  set.SetProperty("flag", true);
  EXPECT_EQ(Take(set.GetPropertyValue("flag")), "true");
  set.SetProperty("flag", false);
  EXPECT_EQ(Take(set.GetPropertyValue("flag")), "false");
  set.SetProperty("flag", static_cast<unsigned char>(2));
  EXPECT_EQ(Take(set.GetPropertyValue("flag")), "false");
}

TEST(PropertyTexts, LargeNumbersShowAsNegative) {
  DescribedSet set;
  set.SetProperty("number", uint32_t{2147483647});
  EXPECT_EQ(Take(set.GetPropertyValue("number")), "2147483647");
  set.SetProperty("number", uint32_t{2147483648});
  EXPECT_EQ(Take(set.GetPropertyValue("number")), "-2147483648");
  set.SetProperty("number", uint32_t{0xFFFFFFFF});
  EXPECT_EQ(Take(set.GetPropertyValue("number")), "-1");
}

TEST(PropertyTexts, ValueThatDoesNotFitShowsAnError) {
  DescribedSet set;
  for (char const* name : {"flag", "byte", "word", "number"}) {
    set.SetProperty(name, int64_t{1});
    EXPECT_EQ(Take(set.GetPropertyValue(name)), "(error)") << name;
  }
}

TEST(PropertyTexts, FailingGetterShowsAnErrorAndItsTextIsReleased) {
  DescribedSet set;
  EXPECT_EQ(Take(set.GetPropertyValue("fails")), "(error)");
}

TEST(PropertyTexts, GetterMayGiveNothing) {
  DescribedSet set;
  EXPECT_EQ(set.GetPropertyValue("nothing"), nullptr);
  EXPECT_EQ(set.GetPropertyValue("text"), nullptr);  // absent
  EXPECT_EQ(Take(set.GetPropertyValue("blind")), "(null)");
}

// The interface

TEST(Properties, VirtualOperationsStandInTheirOrder) {
  // A pointer to a virtual member holds 1 plus its offset in the table (Itanium C++ ABI, 2.3); the
  // destructor takes the first two entries.
  auto const entry = [](auto member) {
    ptrdiff_t words[2];
    static_assert(sizeof words == sizeof member);
    std::memcpy(words, &member, sizeof words);
    return (words[0] - 1) / ptrdiff_t{sizeof(void*)};
  };
  using Read = int (IProperties::*)(char const*, int32_t, unsigned char*) const;
  using Write = int (IProperties::*)(char const*, int32_t, unsigned char const*);
  EXPECT_EQ(entry(static_cast<Read>(&IProperties::GetProperty)), 2);
  EXPECT_EQ(entry(static_cast<Write>(&IProperties::SetProperty)), 3);
  EXPECT_EQ(entry(&PropertySet::GetPropertyAccessors), 4);
  EXPECT_EQ(sizeof(IProperties), 2 * sizeof(void*));
}

TEST(Properties, AccessorFieldsStandInTheirOrder) {
  EXPECT_EQ(offsetof(IProperties::Accessor, name), 0u);
  EXPECT_EQ(offsetof(IProperties::Accessor, description), 8u);
  EXPECT_EQ(offsetof(IProperties::Accessor, getter), 16u);
  EXPECT_EQ(offsetof(IProperties::Accessor, reserved), 24u);
  EXPECT_EQ(sizeof(IProperties::Accessor), 32u);
}

class WatchedSet : public PropertySet {
 public:
  using IProperties::GetProperty;
  using IProperties::SetProperty;
  int GetProperty(char const* name, int32_t size, unsigned char* buffer) const override {
    ++reads;
    return IProperties::GetProperty(name, size, buffer);
  }
  int SetProperty(char const* name, int32_t size, unsigned char const* value) override {
    ++writes;
    return IProperties::SetProperty(name, size, value);
  }
  mutable int reads = 0;
  int writes = 0;
};

TEST(Properties, TypedFormsGoThroughTheRawOperations) {
  WatchedSet set;
  set.SetProperty("bool", true);
  set.SetProperty("long", int64_t{1});
  set.SetFourProperty("four", 1);
  EXPECT_EQ(set.writes, 3);
  bool flag;
  int64_t number;
  unsigned int code;
  set.GetProperty("bool", flag);
  set.GetProperty("long", number);
  set.GetFourProperty("four", code);
  EXPECT_EQ(set.reads, 3);
}

TEST(Properties, AnyNumberOfThreadsMayRead) {
  PropertySet set;
  for (int32_t index = 0; index < 20; ++index) {
    set.SetProperty(("key." + std::to_string(index)).c_str(), index);
  }
  std::vector<std::thread> threads;
  std::vector<int> faults(4);
  for (int& fault : faults) {
    threads.emplace_back([&set, &fault] {
      PropertySet const copy(&set);
      for (int32_t round = 0; round < 200; ++round) {
        int32_t const index = round % 20;
        std::string const name = "key." + std::to_string(index);
        int32_t value = -1;
        fault += set.GetProperty(name.c_str(), value) != 4 || value != index;
        RObject<CString> const wide(new CString(name.c_str()));
        RObject<CByteArray> const found(copy.GetProperty(static_cast<CString*>(wide)));
        fault += found == nullptr;
        fault += set.GetProperty("caf\xC3\xA9", value) != 0;  // compared by the wide forms
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(faults, testing::Each(0));
}

}  // namespace
}  // namespace Morvalen::Zel
