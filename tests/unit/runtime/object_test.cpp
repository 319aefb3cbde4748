#include "zel/runtime/object.h"

#include <gtest/gtest.h>

namespace Morvalen::Zel {

TEST(Object, StartsWithOneReference) {
  auto* object = new CDependenciesObjectVS2012;
  EXPECT_EQ(object->GetReferenceCount(), 1);
  object->Release();
}

}  // namespace Morvalen::Zel
