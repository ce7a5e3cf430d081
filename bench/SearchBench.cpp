// Benchmarks of the search kernels: the texts of all lines of the sample meetings as one block,
// looked through from end to end for every planted word. The library's own searches, which do not
// fold case, run beside them.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchFiles.h"
#include "GeneratedHome.h"
#include "index/FoldedText.h"
#include "json/JSONParser.h"
#include "terms/ScriptVariants.h"

namespace velta::bench {
namespace {

const std::string& allLines() {
  static const std::string text = [] {
    std::string lines;
    for (const std::string& notes : sampleNotes()) {
      const JSON value = parseJSON(notes);
      for (const JSON& line : *value.asObject()->getArray("lines")) {
        lines.append(line.asObject()->getString("text").value_or("")).push_back('\n');
      }
    }
    return lines;
  }();
  return text;
}

// Counts the lines that `find` finds something in, as a search walks them.
template <class Find>
std::size_t linesWith(std::string_view text, Find find) {
  std::size_t lines = 0;
  for (std::size_t place = find(text, 0); place != std::string_view::npos; ++lines) {
    const std::size_t end = text.find('\n', place);
    if (end == std::string_view::npos) break;
    place = find(text, end + 1);
  }
  return lines;
}

template <class Find>
void walk(benchmark::State& state, Find find) {
  std::size_t lines = 0;
  for (auto _ : state) benchmark::DoNotOptimize(lines = linesWith(allLines(), find));
  state.counters["lines"] = static_cast<double>(lines);
  countBytes(state, allLines().size());
}

void token(benchmark::State& state, const std::string& word) {
  const QueryToken needle(scriptVariants(word));
  walk(state, [&](std::string_view text, std::size_t from) { return needle.find(text, from); });
}

void needle(benchmark::State& state, const std::string& word) {
  const FoldedNeedle folded(word);
  walk(state, [&](std::string_view text, std::size_t from) { return folded.find(text, from); });
}

void plain(benchmark::State& state, const std::string& word) {
  walk(state, [&](std::string_view text, std::size_t from) { return text.find(word, from); });
}

const bool kRegistered = [] {
  for (const PlantedWord& planted : kPlanted) {
    if (planted.frequency == "apart") continue;
    const std::string word(planted.word.traditional);
    const std::string name = std::string(planted.frequency) + ", " + word;
    benchmark::RegisterBenchmark(("Search/token/" + name).c_str(),
                                 [word](benchmark::State& state) { token(state, word); });
    benchmark::RegisterBenchmark(("Search/needle/" + name).c_str(),
                                 [word](benchmark::State& state) { needle(state, word); });
    benchmark::RegisterBenchmark(("std::string_view/find/" + name).c_str(),
                                 [word](benchmark::State& state) { plain(state, word); });
  }
  return true;
}();

}  // namespace
}  // namespace velta::bench
