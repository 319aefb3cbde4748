// Property sets beside the standard library's hash map, at the sizes that sets have: a front end's
// configuration is some tens of keys. And the format table's lookups beside the walk that they
// stand for.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "zel/runtime/properties.h"
#include "zel/runtime/vocabulary.h"

namespace Morvalen::Zel {
namespace {

class PropertySet : public IProperties {};

using Map = std::unordered_map<std::string, std::vector<uint8_t>>;

/// The first `count` real keys, which share long beginnings as real keys do.
std::vector<char const*> keys(size_t count) {
  std::vector<char const*> names;
  for (PropertyKeyClass const& keyClass : GetPropertyKeyClasses()) {
    for (PropertyKey const& key : keyClass.keys) {
      if (names.size() < count) names.push_back(key.text.data());
    }
  }
  return names;
}

void setInMap(Map& map, char const* name, int32_t value) {
  std::vector<uint8_t> bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  map[name] = std::move(bytes);
}

void countKeys(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void propertySetGet(benchmark::State& state) {
  std::vector<char const*> const names = keys(static_cast<size_t>(state.range(0)));
  PropertySet set;
  for (char const* name : names) set.SetProperty(name, int32_t{1});
  for (auto _ : state) {
    for (char const* name : names) {
      int32_t value = 0;
      benchmark::DoNotOptimize(set.GetProperty(name, value));
      benchmark::DoNotOptimize(value);
    }
  }
  countKeys(state);
}
BENCHMARK(propertySetGet)->Arg(4)->Arg(16)->Arg(32)->Arg(64);

void hashMapGet(benchmark::State& state) {
  std::vector<char const*> const names = keys(static_cast<size_t>(state.range(0)));
  Map map;
  for (char const* name : names) setInMap(map, name, 1);
  for (auto _ : state) {
    for (char const* name : names) {
      int32_t value = 0;
      auto const found = map.find(name);
      if (found != map.end() && found->second.size() <= sizeof value) {
        std::memcpy(&value, found->second.data(), found->second.size());
      }
      benchmark::DoNotOptimize(value);
    }
  }
  countKeys(state);
}
BENCHMARK(hashMapGet)->Arg(4)->Arg(16)->Arg(32)->Arg(64);

void propertySetGetAbsent(benchmark::State& state) {
  std::vector<char const*> const names = keys(static_cast<size_t>(state.range(0)));
  PropertySet set;
  for (char const* name : names) set.SetProperty(name, int32_t{1});
  for (auto _ : state) {
    int32_t value = 0;
    benchmark::DoNotOptimize(set.GetProperty("x265_compressor.not_there", value));
  }
}
BENCHMARK(propertySetGetAbsent)->Arg(16)->Arg(64);

void hashMapGetAbsent(benchmark::State& state) {
  std::vector<char const*> const names = keys(static_cast<size_t>(state.range(0)));
  Map map;
  for (char const* name : names) setInMap(map, name, 1);
  for (auto _ : state) benchmark::DoNotOptimize(map.find("x265_compressor.not_there"));
}
BENCHMARK(hashMapGetAbsent)->Arg(16)->Arg(64);

void propertySetBuild(benchmark::State& state) {
  std::vector<char const*> const names = keys(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    PropertySet set;
    for (char const* name : names) set.SetProperty(name, int32_t{1});
    benchmark::DoNotOptimize(set);
  }
  countKeys(state);
}
BENCHMARK(propertySetBuild)->Arg(4)->Arg(16)->Arg(32)->Arg(64);

void hashMapBuild(benchmark::State& state) {
  std::vector<char const*> const names = keys(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    Map map;
    for (char const* name : names) setInMap(map, name, 1);
    benchmark::DoNotOptimize(map);
  }
  countKeys(state);
}
BENCHMARK(hashMapBuild)->Arg(4)->Arg(16)->Arg(32)->Arg(64);

void propertySetReplace(benchmark::State& state) {
  std::vector<char const*> const names = keys(static_cast<size_t>(state.range(0)));
  PropertySet set;
  for (char const* name : names) set.SetProperty(name, int32_t{1});
  for (auto _ : state) {
    for (char const* name : names) set.SetProperty(name, int32_t{2});
  }
  countKeys(state);
}
BENCHMARK(propertySetReplace)->Arg(16)->Arg(64);

void hashMapReplace(benchmark::State& state) {
  std::vector<char const*> const names = keys(static_cast<size_t>(state.range(0)));
  Map map;
  for (char const* name : names) setInMap(map, name, 1);
  for (auto _ : state) {
    for (char const* name : names) setInMap(map, name, 2);
  }
  countKeys(state);
}
BENCHMARK(hashMapReplace)->Arg(16)->Arg(64);

void canonicalFormat(benchmark::State& state) {
  for (auto _ : state) {
    for (FormatConstant const& constant : GetVideoFormatConstants()) {
      benchmark::DoNotOptimize(VideoFormat::GetCanonicalFormat(constant.code));
    }
  }
  state.SetItemsProcessed(state.iterations() *
                          static_cast<int64_t>(GetVideoFormatConstants().size()));
}
BENCHMARK(canonicalFormat);

unsigned int walkToCanonicalFormat(unsigned int format) {
  for (;;) {
    VideoFormat::Format const* row = VideoFormat::formats;
    while (row->format != 0 && row->format != format) ++row;
    if (row->format == 0) return 0;
    if (row->parent == 0) return row->format;
    format = row->parent;
  }
}

void canonicalFormatByWalking(benchmark::State& state) {
  for (auto _ : state) {
    for (FormatConstant const& constant : GetVideoFormatConstants()) {
      benchmark::DoNotOptimize(walkToCanonicalFormat(constant.code));
    }
  }
  state.SetItemsProcessed(state.iterations() *
                          static_cast<int64_t>(GetVideoFormatConstants().size()));
}
BENCHMARK(canonicalFormatByWalking);

}  // namespace
}  // namespace Morvalen::Zel
