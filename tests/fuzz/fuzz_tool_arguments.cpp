// Any text where a user types one, and any bytes where the encoder gives them: values are refused
// by WrongUsage or read, and what is read keeps its promises.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

#include "tools/zel/failure.h"
#include "tools/zel/four_character_argument.h"
#include "tools/zel/hevc/access_unit.h"
#include "tools/zel/hevc/encoder_settings.h"
#include "tools/zel/hevc/engine_log.h"
#include "tools/zel/hevc/property_argument.h"
#include "tools/zel/option_values.h"
#include "tools/zel/pattern.h"
#include "tools/zel/suggestion.h"

namespace {

using namespace zel::tool;

void require(bool condition) {
  if (!condition) std::abort();
}

void readValues(const std::string& text) {
  if (const auto number = parseNumber(text)) require(std::isfinite(*number));
  if (const auto bits = parseBits(text)) require(*bits >= 0);
  if (const auto size = parsePictureSize(text)) require(size->width > 0 && size->height > 0);
  parseWholeNumber(text);
  parseSwitch(text);
  for (const EncoderSetting& setting : encoderSettings()) {
    const auto value = settingValue(setting, text);
    if (value && setting.kind == SettingKind::kSwitch) require(value->size() == 1);
    if (value && setting.kind == SettingKind::kReal) require(value->size() == 8);
  }
}

void readProperty(const std::string& text) {
  try {
    require(!parsePropertyArgument(text).key.empty());
  } catch (const WrongUsage& error) {
    require(error.what()[0] != '\0');
  }
}

void readCode(const std::string& text) {
  try {
    const uint32_t code = parseCode(text);
    require(parseCode(codeText(code)) == code);
  } catch (const WrongUsage&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  readValues(text);
  readProperty(text);
  readCode(text);
  require(!accessUnitKind({data, size}, size % 2 == 0).type.empty());
  require(parseEngineLine(text).text.size() <= text.size());
  const std::string names[] = {"--preset", "--property"};
  nearest(text, names);
  const size_t split = size / 2;
  Pattern(text.substr(0, split)).matches(text.substr(split));
  return 0;
}
