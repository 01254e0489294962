// Measures the conversion of JSON text to values, the copying and the destruction of values.
//
//     ValuesBenchmark [--benchmark_OPTION...] [DOCUMENT...]
//     ValuesBenchmark --build=TIMES DOCUMENT     makes the values TIMES times without measurement
//
// Each DOCUMENT is read into memory first. QDOJSONParser and, for comparison, nlohmann-json and
// RapidJSON then make and destroy its values.

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "QDOJSONParser.h"

namespace {

QDOObject BuildValue(const std::string& text) {
  return QDOJSONParser::fromJSON(text, true);
}

nlohmann::json BuildNlohmann(const std::string& text) {
  return nlohmann::json::parse(text);
}

std::unique_ptr<rapidjson::Document> BuildRapid(const std::string& text) {
  auto document = std::make_unique<rapidjson::Document>();
  document->Parse(text.data(), text.size());
  return document;
}

template <typename Build>
void BuildAndDestroy(benchmark::State& state, const std::string& text, Build build) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(build(text));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

std::string ReadDocument(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (text.empty()) {
    throw std::runtime_error(path + " cannot be read");
  }
  return text;
}

void RegisterDocument(const std::string& path) {
  const std::string text = ReadDocument(path);
  const std::string name = path.substr(path.rfind('/') + 1);
  const auto add = [&](const char* reader, auto build) {
    benchmark::RegisterBenchmark((name + "/" + reader).c_str(), [text, build](auto& state) {
      BuildAndDestroy(state, text, build);
    });
  };
  add("this", BuildValue);
  add("nlohmann", BuildNlohmann);
  add("rapidjson", BuildRapid);
}

QDOObject MapOf(std::int64_t members) {
  QDOObject map;
  map.set(QDOObject::Map);
  for (long long i = 0; i < members; ++i) {
    map["member" + std::to_string(i)].set(i);
  }
  return map;
}

void CopyMap(benchmark::State& state) {
  const QDOObject map = MapOf(state.range(0));
  for (auto _ : state) {
    const QDOObject copy = map;
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(CopyMap)->Arg(10)->Arg(1000)->Arg(100000);

/// The lower limit for CopyMap: one allocation and one increment of a reference count.
void CopyAllocatedSharedPointer(benchmark::State& state) {
  const auto element = std::make_shared<int>();
  for (auto _ : state) {
    const auto copy = std::make_unique<std::shared_ptr<int>>(element);
    benchmark::DoNotOptimize(copy.get());
  }
}
BENCHMARK(CopyAllocatedSharedPointer);

void DestroyMap(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    QDOObject map = MapOf(state.range(0));
    state.ResumeTiming();
    map.destroy();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(DestroyMap)->Arg(1000)->Arg(100000);

}  // namespace

int main(int argc, char** argv) {
  const std::string build = "--build=";
  if (argc == 3 && build.compare(0, build.length(), argv[1], build.length()) == 0) {
    const std::string text = ReadDocument(argv[2]);
    for (long times = std::strtol(argv[1] + build.length(), nullptr, 10); times > 0; --times) {
      BuildValue(text);
    }
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    RegisterDocument(argv[i]);
  }
  benchmark::RunSpecifiedBenchmarks();
}
