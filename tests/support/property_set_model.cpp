#include "tests/support/property_set_model.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "zel/runtime/byte_array.h"
#include "zel/runtime/dictionary.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/properties.h"
#include "zel/runtime/result_codes.h"
#include "zel/runtime/string.h"

namespace zel::test {
namespace {

using Morvalen::Zel::CByteArray;
using Morvalen::Zel::CString;
using Morvalen::Zel::IProperties;
using Morvalen::Zel::RObject;
using Morvalen::Zel::ZelErrorInvalidArgument;

class Set : public IProperties {
 public:
  Set() = default;
  explicit Set(const IProperties* other) : IProperties(other) {}
};

/// Names that are nearly each other. The last two are malformed and have the same wide form, so
/// they are one name.
struct Name {
  const char* text;
  int identity;
};
constexpr std::array<Name, 12> kNames{{
    {"", 0},
    {"a", 1},
    {"A", 2},
    {"aa", 3},
    {"key", 4},
    {"key.", 5},
    {"key.long_enough_to_be_compared_by_vectors.0", 6},
    {"key.long_enough_to_be_compared_by_vectors.1", 7},
    {"\xC3\xA9", 8},
    {"e\xCC\x81", 9},
    {"\xFF", 10},
    {"\xFE", 10},
}};

using Bytes = std::vector<uint8_t>;

struct Pair {
  Name name;  // as it was first set
  std::optional<Bytes> value;
};

class Model {
 public:
  const Pair* find(const Name& name) const {
    const auto at = std::find_if(pairs.begin(), pairs.end(), [&](const Pair& pair) {
      return pair.name.identity == name.identity;
    });
    return at == pairs.end() ? nullptr : &*at;
  }
  void set(const Name& name, std::optional<Bytes> value) {
    written = true;
    if (const Pair* pair = find(name)) {
      pairs[pair - pairs.data()].value = std::move(value);
    } else {
      pairs.push_back({name, std::move(value)});
    }
  }
  void remove(const Name& name) {
    std::erase_if(pairs, [&](const Pair& pair) { return pair.name.identity == name.identity; });
  }

  std::vector<Pair> pairs;
  bool written = false;  // whether the set has a dictionary
};

class Program {
 public:
  explicit Program(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  std::string run() {
    while (!bytes_.empty() && fault_.empty()) step();
    for (int which = 0; which < 2 && fault_.empty(); ++which) compareAll(which);
    return fault_;
  }

 private:
  uint8_t next() {
    if (bytes_.empty()) return 0;
    const uint8_t byte = bytes_.front();
    bytes_ = bytes_.subspan(1);
    return byte;
  }
  Name nextName() { return kNames[next() % kNames.size()]; }
  Bytes nextBytes() {
    Bytes value(next() % 20);
    for (uint8_t& byte : value) byte = next();
    return value;
  }

  void expect(bool holds, const char* what) {
    if (!holds && fault_.empty()) fault_ = what;
  }

  void step() {
    const uint8_t operation = next();
    const int which = operation & 1;
    Set& set = *sets_[which];
    Model& model = models_[which];
    const Name name = nextName();
    switch (operation >> 1 & 15) {
      case 0:
      case 1: {
        const Bytes value = nextBytes();
        expect(set.SetProperty(name.text, static_cast<int32_t>(value.size()), value.data()) == 0,
               "raw write");
        model.set(name, value);
        break;
      }
      case 2: {
        int32_t number = 0;
        for (int byte = 0; byte < 4; ++byte) number = number << 8 | next();
        expect(set.SetProperty(name.text, number) == 0, "number write");
        Bytes value(4);
        std::memcpy(value.data(), &number, 4);
        model.set(name, value);
        break;
      }
      case 3:
        expect(set.SetProperty(name.text, static_cast<CString*>(nullptr)) == 0, "null write");
        model.set(name, std::nullopt);
        break;
      case 4: {
        const RObject<CString> key(new CString(name.text));
        const Bytes value = nextBytes();
        const RObject<CByteArray> array(
            new CByteArray(value.data(), static_cast<int32_t>(value.size())));
        expect(set.SetProperty(key, static_cast<CByteArray*>(array)) == 0, "object write");
        model.set(name, value);
        break;
      }
      case 5:
      case 6:
        expect(set.RemoveProperty(name.text) == 0, "removal");
        model.remove(name);
        break;
      case 7:
        if (next() < 32) {
          expect(set.ClearProperties() == 0, "clearing");
          model.pairs.clear();
        }
        break;
      case 8: {
        const int from = next() & 1;
        expect(set.SetProperties(sets_[from].get()) == 0, "merging");
        const std::vector<Pair> source = models_[from].pairs;
        for (const Pair& pair : source) model.set(pair.name, pair.value);
        break;
      }
      case 9:
        sets_[which] = std::make_unique<Set>(sets_[which ^ 1].get());
        model = models_[which ^ 1];
        std::erase_if(model.pairs, [](const Pair& pair) { return !pair.value; });
        break;
      case 10:
        compareAll(which);
        break;
      default:
        compareOne(set, model, name);
        break;
    }
    expect(sets_[which]->GetPropertyCount() == static_cast<int32_t>(model.pairs.size()), "count");
  }

  void compareOne(const Set& set, const Model& model, const Name& name) {
    const Pair* pair = model.find(name);
    const Bytes expected = pair && pair->value ? *pair->value : Bytes();
    const auto size = static_cast<int32_t>(expected.size());
    expect(set.GetProperty(name.text, 0, nullptr) == size, "size");

    std::array<uint8_t, 32> buffer;
    buffer.fill(0xA5);
    expect(set.GetProperty(name.text, size, buffer.data()) == size, "read");
    expect(std::equal(expected.begin(), expected.end(), buffer.begin()), "bytes");
    expect(buffer[expected.size()] == 0xA5, "bytes behind the value");
    if (size > 0) {
      expect(set.GetProperty(name.text, size - 1, buffer.data()) == ZelErrorInvalidArgument,
             "short buffer");
    }
    const RObject<CByteArray> value(set.GetProperty(name.text));
    expect((value != nullptr) == (pair && pair->value), "presence");
    const RObject<CString> key(new CString(name.text));
    const RObject<CByteArray> same(set.GetProperty(key));
    expect(static_cast<CByteArray*>(same) == static_cast<CByteArray*>(value), "lookup by object");
  }

  void compareAll(int which) {
    const Set& set = *sets_[which];
    const Model& model = models_[which];
    for (const Name& name : kNames) compareOne(set, model, name);
    expect(set.GetPropertyCount() == static_cast<int32_t>(model.pairs.size()), "count of all");
    for (size_t index = 0; index < model.pairs.size(); ++index) {
      const RObject<CString> key(set.GetPropertyName(static_cast<int32_t>(index)));
      expect(key != nullptr && std::strcmp(key->GetChars(), model.pairs[index].name.text) == 0,
             "order");
    }
    auto* const dictionary = set.GetProperties();
    expect((dictionary != nullptr) == model.written, "dictionary");
    if (dictionary) dictionary->Release();
  }

  std::span<const uint8_t> bytes_;
  std::array<std::unique_ptr<Set>, 2> sets_{std::make_unique<Set>(), std::make_unique<Set>()};
  std::array<Model, 2> models_;
  std::string fault_;
};

}  // namespace

std::string runPropertySetProgram(std::span<const uint8_t> program) {
  return Program(program).run();
}

}  // namespace zel::test
