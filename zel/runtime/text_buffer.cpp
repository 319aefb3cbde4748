#include "zel/runtime/text_buffer.h"

#include <algorithm>

#include "zel/platform/text_conversion.h"

namespace Morvalen::Zel {

UnitText::UnitText(std::wstring_view elements) : view(elements) {
  const auto isUnit = [](wchar_t element) { return static_cast<uint32_t>(element) <= 0xFFFF; };
  if (std::all_of(elements.begin(), elements.end(), isUnit)) return;
  const size_t count = zel::platform::unitLength(elements.data(), elements.size());
  copy = AllocateText<wchar_t>(count);
  failed = copy == nullptr;
  view = {};
  if (failed) return;
  zel::platform::copyUnits(elements.data(), elements.size(), copy.get());
  view = {copy.get(), count};
}

}  // namespace Morvalen::Zel
