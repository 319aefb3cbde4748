// Any text as the encoder's command line: it is split, and x265 is given what the option table
// knows. Nothing is encoded.

#include <x265.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/x265_parameters.h"
#include "zel/encoder/command_line.h"
#include "zel/encoder/encoder_configuration.h"
#include "zel/encoder/x265_defects.h"
#include "zel/encoder/x265_encoder_api.h"
#include "zel/runtime/property_keys.h"
#include "zel/runtime/result_codes.h"

namespace {

using namespace Morvalen::Zel;
using namespace zel::encoder;

void require(bool condition) {
  if (!condition) std::abort();
}

// Answers with the command line alone.
class CommandLineConsumer final : public IMorvalenEncoderConsumer {
 public:
  explicit CommandLineConsumer(std::string_view text) : text_(text) {}
  int GetProperty(char const* name, int32_t size, unsigned char* buffer) override {
    require(std::strcmp(name, CodeBookProperty::X265CommandLine) == 0);
    if (text_.size() > size_t(size)) return ZelErrorInvalidArgument;
    if (!text_.empty()) std::memcpy(buffer, text_.data(), text_.size());
    return int(text_.size());
  }
  int WriteSample(unsigned char const*, int32_t, int32_t, int32_t,
                  CDependenciesObjectVS2012*) override {
    std::abort();
  }
  int WriteHeaders(unsigned char const*, int32_t) override { std::abort(); }

 private:
  std::string_view text_;
};

// What must hold of each option, whatever the text: its name is in the table, its value has no
// separator and lies within the text.
struct Bounds {
  char const* begin;
  char const* end;
};

void check(void* context, char const* name, char const* value) {
  Bounds const& bounds = *static_cast<Bounds*>(context);
  auto const option =
      std::find_if(kCommandLineOptions.begin(), kCommandLineOptions.end(),
                   [name](CommandLineOption const& row) { return row.longName == name; });
  require(option != kCommandLineOptions.end());
  require(option->kind != OptionKind::kNoValue || value == nullptr);
  if (value == nullptr) return;
  require(value >= bounds.begin && value < bounds.end && *value != '\0');
  require(std::strpbrk(value, " =\t") == nullptr);
}

void splitOnly(std::string_view input) {
  // On the heap and no longer than it must be, so that a read past its end shows.
  std::vector<char> text(input.begin(), input.end());
  text.push_back('\0');
  Bounds bounds{text.data(), text.data() + text.size()};
  ParseCommandLine(text.data(), kCommandLineOptions, {&bounds, check});
}

void configure(std::string_view input) {
  zel::test::X265Parameters const parameters = zel::test::newX265Parameters();
  parameters->logLevel = X265_LOG_NONE;
  CommandLineConsumer consumer(input);
  int const result = ConfigureFromCommandLine(*parameters, consumer);
  int const expected = input.empty() || input.size() > 2048
                           ? 1
                           : (input.size() == 2048 ? ZelErrorInvalidArgument : 0);
  require(result == expected);
  IsSafe(*parameters);
  // Copies of the options' values, which x265 doesn't free.
  std::free(const_cast<char*>(parameters->csvfn));
  std::free(const_cast<char*>(parameters->rc.lambdaFileName));
  parameters->csvfn = parameters->rc.lambdaFileName = nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string_view const input(reinterpret_cast<char const*>(data), size);
  splitOnly(input);
  configure(input);
  return 0;
}
