// Benchmarks of reading a home: its files as bytes, as meetings, and into an index. One round is
// every file of the home. The names under "Files" do the same reading with another parser, alone.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchFiles.h"
#include "OtherJSON.h"
#include "config/Config.h"
#include "index/Index.h"
#include "json/JSON.h"
#include "meetings/Sources.h"
#include "platform/Time.h"

namespace velta::bench {
namespace {

const JSONObject& source() { return *benchConfig().getArray("sources")->front().asObject(); }

const std::vector<Sources::FileSet>& fileSets() {
  static const std::vector<Sources::FileSet> sets = Sources("/").listSource(source());
  return sets;
}

std::size_t bytesOfHome() {
  static const std::size_t bytes = [] {
    std::size_t sum = 0;
    std::string buffer;
    for (const Sources::FileSet& set : fileSets()) {
      for (const std::string& path : set.files) {
        readPlainly(path, buffer);
        sum += buffer.size();
      }
    }
    return sum;
  }();
  return bytes;
}

// Hands every file of the home to `work`.
template <class Work>
void readHome(benchmark::State& state, Work work) {
  std::string buffer;
  for (auto _ : state) {
    for (const Sources::FileSet& set : fileSets()) {
      for (const std::string& path : set.files) {
        readPlainly(path, buffer);
        work(buffer);
      }
    }
  }
  countBytes(state, bytesOfHome());
}

void filesRead(benchmark::State& state) {
  readHome(state, [](const std::string& text) { benchmark::DoNotOptimize(text.data()); });
}
BENCHMARK(filesRead)->Name("Files/read")->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef VELTA_HAS_RAPIDJSON
void filesRapid(benchmark::State& state) {
  readHome(state, [](const std::string& text) {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    benchmark::DoNotOptimize(document.IsObject());
  });
}
BENCHMARK(filesRapid)
    ->Name("Files/read and parse with RapidJSON")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
#endif

#ifdef VELTA_HAS_SIMDJSON
void filesSimd(benchmark::State& state) {
  simdjson::dom::parser parser;
  readHome(state, [&](const std::string& text) {
    const simdjson::dom::element element = parser.parse(text);
    benchmark::DoNotOptimize(element.is_object());
  });
}
BENCHMARK(filesSimd)
    ->Name("Files/read and parse with simdjson")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
#endif

void readMeetings(benchmark::State& state) {
  const Instant now = systemNow();
  for (auto _ : state) {
    for (const Sources::FileSet& set : fileSets()) {
      const Meeting meeting = Sources::readMeeting(source(), set, now);
      benchmark::DoNotOptimize(meeting.lines.size());
    }
  }
  countBytes(state, bytesOfHome());
}
BENCHMARK(readMeetings)->Name("Reader/meetings")->Unit(benchmark::kMillisecond)->UseRealTime();

void listHome(benchmark::State& state) {
  Sources sources("/");
  for (auto _ : state) benchmark::DoNotOptimize(sources.listSource(source()).size());
}
BENCHMARK(listHome)->Name("Sources/list")->Unit(benchmark::kMillisecond)->UseRealTime();

Config config() { return {benchHome(), {}}; }

// With the taking down of the index that was there, which a server does not do.
void buildIndex(benchmark::State& state) {
  const Config home = config();
  for (auto _ : state) {
    Index index(home, systemNow);
    index.refresh(/*force=*/true, &benchConfig());
    benchmark::DoNotOptimize(index.entries().size());
    state.PauseTiming();
    if (index.entries().size() != fileSets().size()) state.SkipWithError("meetings are missing");
    state.ResumeTiming();
  }
  countBytes(state, bytesOfHome());
}
BENCHMARK(buildIndex)->Name("Index/build")->Unit(benchmark::kMillisecond)->UseRealTime();

void refreshUnchanged(benchmark::State& state) {
  const Config home = config();
  Index index(home, systemNow);
  index.refresh(/*force=*/true, &benchConfig());
  for (auto _ : state) {
    if (index.refresh(/*force=*/false, &benchConfig()).changed != 0) {
      state.SkipWithError("something changed");
    }
  }
}
BENCHMARK(refreshUnchanged)
    ->Name("Index/refresh, nothing changed")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
}  // namespace velta::bench
