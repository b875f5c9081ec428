// Document model hot paths: dictionary look-ups, attribute sets and object block round trips.

#include "base/VrDict.h"
#include "document/VrDescription.h"

#include <benchmark/benchmark.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<std::string> makeKeys(size_t n) {
  std::vector<std::string> keys;
  keys.reserve(n);
  for (size_t i = 0; i < n; ++i) keys.push_back("attribute_" + std::to_string(i * 2654435761u % 100000));
  return keys;
}

void BM_VrDictInsert(benchmark::State& state) {
  const auto keys = makeKeys(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    VrDict<int> dict;
    for (size_t i = 0; i < keys.size(); ++i) dict.insert(keys[i], static_cast<int>(i));
    benchmark::DoNotOptimize(dict.size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_VrDictInsert)->Arg(64)->Arg(4096);

void BM_VrDictFind(benchmark::State& state) {
  const auto keys = makeKeys(static_cast<size_t>(state.range(0)));
  VrDict<int> dict;
  for (size_t i = 0; i < keys.size(); ++i) dict.insert(keys[i], static_cast<int>(i));
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(dict.find(keys[i].c_str()));
    if (++i == keys.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_VrDictFind)->Arg(64)->Arg(4096);

void BM_DescriptionSetAttr(benchmark::State& state) {
  VrDescription description;
  const std::string values[] = {"0.25", "0.5", "0.75"};
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(description.setAttr("minDensity", values[i % 3]));
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DescriptionSetAttr);

void BM_DescriptionBlockRoundTrip(benchmark::State& state) {
  VrDescription source;
  for (int i = 0; i < 20; ++i) source.setAttr("custom_float_g" + std::to_string(i), "$u*" + std::to_string(i));
  std::ostringstream written;
  source.exportObj(written);
  const std::string text = written.str().substr(std::string("\nDescription\n").size());
  for (auto _ : state) {
    VrDescription copy;
    std::istringstream in(text);
    benchmark::DoNotOptimize(copy.importObj(in, ""));
    std::ostringstream out;
    copy.exportObj(out);
    benchmark::DoNotOptimize(out.str().size());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_DescriptionBlockRoundTrip);

}  // namespace
