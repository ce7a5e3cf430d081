// BenchFiles: the meetings that the benchmarks work on. VELTA_BENCH_HOME names a home that
// make-home wrote; without it a small one is made in a temporary folder and removed at the end.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "json/JSON.h"

namespace velta::bench {

// Path of the home.
const std::string& benchHome();

// What a configuration file would say about the home: its recordings and nothing else.
const JSONObject& benchConfig();

// The notes files of the home, at most 200 of them, as they are and without white space.
const std::vector<std::string>& sampleNotes();
const std::vector<std::string>& compactNotes();

// The whole file at `path`, read with nothing of the program's own. Ends the process on failure.
void readPlainly(const std::string& path, std::string& buffer);

std::size_t bytesOf(const std::vector<std::string>& texts);
void countBytes(benchmark::State& state, std::size_t bytesEachTime);

}  // namespace velta::bench
