#include "zel/platform/automation.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace Morvalen::Zel {
namespace {

uint32_t lengthPrefix(BSTR text) {
  uint32_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<char*>(text) - 4, sizeof(bytes));
  return bytes;
}

TEST(Automation, AStringHasItsLengthInBytesBeforeIt) {
  BSTR text = SysAllocString(u"Zel\xD83D\xDE00");
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(lengthPrefix(text), 10u);
  EXPECT_EQ(SysStringLen(text), 5u);
  EXPECT_EQ(text[5], u'\0');
  EXPECT_EQ(std::u16string(text), u"Zel\xD83D\xDE00");
  EXPECT_EQ(reinterpret_cast<uintptr_t>(text) % 8, 0u);
  SysFreeString(text);
}

TEST(Automation, AnEmptyStringIsNotNull) {
  BSTR text = SysAllocString(u"");
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(lengthPrefix(text), 0u);
  EXPECT_EQ(text[0], u'\0');
  SysFreeString(text);
}

TEST(Automation, NullTextIsNoString) {
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  SysFreeString(nullptr);
}

TEST(Automation, ACountedStringKeepsZerosInside) {
  const OLECHAR source[] = {u'a', 0, u'b'};
  BSTR text = SysAllocStringLen(source, 3);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(SysStringLen(text), 3u);
  EXPECT_EQ(std::u16string(text, 4), std::u16string(u"a\0b\0", 4));
  SysFreeString(text);
}

TEST(Automation, ACountedStringWithoutSourceHasRoomAndATerminator) {
  BSTR text = SysAllocStringLen(nullptr, 4);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(SysStringLen(text), 4u);
  EXPECT_EQ(text[4], u'\0');
  SysFreeString(text);
}

TEST(Automation, AStringWhoseBytesDontFitTheirCountIsRefused) {
  EXPECT_EQ(SysAllocStringLen(nullptr, 0x80000000u), nullptr);
  EXPECT_EQ(SysAllocStringLen(nullptr, 0xFFFFFFFFu), nullptr);
}

TEST(Automation, AByteArrayHasTheRecordsOfTheOtherPlatform) {
  SAFEARRAYBOUND bound = {5, 0};
  SAFEARRAY* array = SafeArrayCreate(VT_UI1, 1, &bound);
  ASSERT_NE(array, nullptr);
  EXPECT_EQ(array->cDims, 1);
  EXPECT_EQ(array->fFeatures, FADF_HAVEVARTYPE);
  EXPECT_EQ(array->cbElements, 1u);
  EXPECT_EQ(array->cLocks, 0u);
  EXPECT_EQ(array->rgsabound[0].cElements, 5u);
  EXPECT_EQ(array->rgsabound[0].lLbound, 0);
  uint32_t storedType = 0;
  std::memcpy(&storedType, reinterpret_cast<char*>(array) - 4, sizeof(storedType));
  EXPECT_EQ(storedType, VT_UI1);
  VARTYPE type = 0;
  EXPECT_EQ(SafeArrayGetVartype(array, &type), S_OK);
  EXPECT_EQ(type, VT_UI1);
  EXPECT_EQ(std::memcmp(array->pvData, "\0\0\0\0\0", 5), 0);
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(Automation, BoundsAreCountedFromTheLowerOne) {
  SAFEARRAYBOUND bound = {5, -2};
  SAFEARRAY* array = SafeArrayCreate(VT_UI1, 1, &bound);
  int32_t value = 99;
  EXPECT_EQ(SafeArrayGetLBound(array, 1, &value), S_OK);
  EXPECT_EQ(value, -2);
  EXPECT_EQ(SafeArrayGetUBound(array, 1, &value), S_OK);
  EXPECT_EQ(value, 2);
  EXPECT_EQ(SafeArrayGetLBound(array, 0, &value), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetUBound(array, 2, &value), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetLBound(nullptr, 1, &value), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetUBound(array, 1, nullptr), E_INVALIDARG);
  SafeArrayDestroy(array);
}

TEST(Automation, AnEmptyArrayHasDataAndEndsBeforeItStarts) {
  SAFEARRAYBOUND bound = {0, 0};
  SAFEARRAY* array = SafeArrayCreate(VT_UI1, 1, &bound);
  ASSERT_NE(array, nullptr);
  EXPECT_NE(array->pvData, nullptr);
  int32_t value = 99;
  EXPECT_EQ(SafeArrayGetUBound(array, 1, &value), S_OK);
  EXPECT_EQ(value, -1);
  SafeArrayDestroy(array);
}

TEST(Automation, ALockedArrayIsNotDestroyed) {
  SAFEARRAYBOUND bound = {1, 0};
  SAFEARRAY* array = SafeArrayCreate(VT_UI1, 1, &bound);
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(array, &data), S_OK);
  EXPECT_EQ(data, array->pvData);
  EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  EXPECT_EQ(SafeArrayUnaccessData(array), E_UNEXPECTED);
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
  EXPECT_EQ(SafeArrayDestroy(nullptr), S_OK);
}

TEST(Automation, LocksEndAtSixteenBits) {
  SAFEARRAYBOUND bound = {1, 0};
  SAFEARRAY* array = SafeArrayCreate(VT_UI1, 1, &bound);
  void* data = nullptr;
  for (int i = 0; i < 0xFFFF; ++i) ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
  EXPECT_EQ(SafeArrayAccessData(array, &data), E_UNEXPECTED);
  for (int i = 0; i < 0xFFFF; ++i) ASSERT_EQ(SafeArrayUnaccessData(array), S_OK);
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(Automation, OtherTypesAndShapesAreRefused) {
  SAFEARRAYBOUND bounds[] = {{1, 0}, {1, 0}};
  EXPECT_EQ(SafeArrayCreate(8, 1, bounds), nullptr);
  EXPECT_EQ(SafeArrayCreate(VT_UI1, 0, bounds), nullptr);
  EXPECT_EQ(SafeArrayCreate(VT_UI1, 2, bounds), nullptr);
  EXPECT_EQ(SafeArrayCreate(VT_UI1, 1, nullptr), nullptr);
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(nullptr, &data), E_INVALIDARG);
  EXPECT_EQ(SafeArrayUnaccessData(nullptr), E_INVALIDARG);
  VARTYPE type = 0;
  EXPECT_EQ(SafeArrayGetVartype(nullptr, &type), E_INVALIDARG);
}

}  // namespace
}  // namespace Morvalen::Zel
