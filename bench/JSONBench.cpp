// Benchmarks of the JSON parser and writer on a file like those of a recorded meeting: 700 lines of
// mixed Chinese and English speech with times and speakers, and the notes. Where RapidJSON is
// installed its document model does the same work beside them.
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>

#include "json/JSON.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"

#if __has_include(<rapidjson/document.h>)
#define VELTA_HAS_RAPIDJSON
#if defined(__SSE2__)
#define RAPIDJSON_SSE2
#elif defined(__ARM_NEON)
#define RAPIDJSON_NEON
#endif
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif

namespace velta {
namespace {

constexpr int kLines = 700;
constexpr std::array<std::string_view, 4> kSpeakers = {"Ada", "林海", "S1", "Grace Hopper"};
constexpr std::array<std::string_view, 8> kPhrases = {
    "我们先看一下上周的进度，",     "the index is rebuilt on every change, ",
    "这个问题需要在发布之前解决。", "so let us measure it first. ",
    "预算大概是三十万左右，",       "I will send the minutes today. ",
    "search latency \"p99\" ",      "负责人是谁？"};

std::string speech(int line) {
  std::string text;
  const int phrases = 1 + line * 7 % 6;
  for (int i = 0; i < phrases; ++i) {
    text += kPhrases[static_cast<std::size_t>(line * 5 + i * 3) % kPhrases.size()];
  }
  return text;
}

JSONObject meeting() {
  JSON::Array lines;
  for (int i = 0; i < kLines; ++i) {
    std::string id = "L";
    id += std::to_string(i + 1);
    const int hundredths = i * 512;
    lines.push_back(
        JSONObject{{"id", id},
                   {"t_start", hundredths / 100.0},
                   {"t_end", (hundredths + 487) / 100.0},
                   {"speaker", kSpeakers[static_cast<std::size_t>(i) % kSpeakers.size()]},
                   {"text", speech(i)}});
  }
  JSON::Array decisions;
  for (int i = 0; i < 20; ++i) {
    decisions.push_back(JSONObject{{"text", speech(i)}, {"owner", "Ada"}, {"t", i * 120}});
  }
  return {{"title", "周会 weekly"},
          {"duration_sec", 3600.5},
          {"summary", speech(3)},
          {"decisions", std::move(decisions)},
          {"lines", std::move(lines)}};
}

std::string text() { return writeIndented(meeting(), 2); }

void countBytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
}

// Sees every event and does nothing with it.
struct Listener {
  std::size_t events = 0;
  void onNull() { ++events; }
  void onBool(bool) { ++events; }
  void onInt(std::int64_t) { ++events; }
  void onDouble(double) { ++events; }
  void onString(std::string_view) { ++events; }
  void onKey(std::string_view) { ++events; }
  void onObjectBegin() { ++events; }
  void onObjectEnd() { ++events; }
  void onArrayBegin() { ++events; }
  void onArrayEnd() { ++events; }
};

void parseEvents(benchmark::State& state) {
  const std::string bytes = text();
  for (auto _ : state) {
    Listener listener;
    parseJSONEvents(bytes, listener);
    benchmark::DoNotOptimize(listener.events);
  }
  countBytes(state, bytes.size());
}
BENCHMARK(parseEvents)->Name("JSON/parse/events");

void parseValues(benchmark::State& state) {
  const std::string bytes = text();
  for (auto _ : state) {
    const JSON value = parseJSON(bytes);
    benchmark::DoNotOptimize(value.asObject());
  }
  countBytes(state, bytes.size());
}
BENCHMARK(parseValues)->Name("JSON/parse/values");

void parseValuesCompact(benchmark::State& state) {
  const std::string bytes = writeCompact(meeting());
  for (auto _ : state) {
    const JSON value = parseJSON(bytes);
    benchmark::DoNotOptimize(value.asObject());
  }
  countBytes(state, bytes.size());
}
BENCHMARK(parseValuesCompact)->Name("JSON/parse/values of compact text");

// Writers fill a buffer that is there already, as the server does, so that the writing is measured
// and not the system's handing out of memory.
void write(benchmark::State& state) {
  const JSON value = meeting();
  std::string out;
  for (auto _ : state) {
    out.clear();
    appendCompact(out, value);
    benchmark::DoNotOptimize(out.data());
  }
  countBytes(state, out.size());
}
BENCHMARK(write)->Name("JSON/write/compact");

void writePretty(benchmark::State& state) {
  const JSON value = meeting();
  std::string out;
  for (auto _ : state) {
    out.clear();
    appendIndented(out, value, 2);
    benchmark::DoNotOptimize(out.data());
  }
  countBytes(state, out.size());
}
BENCHMARK(writePretty)->Name("JSON/write/indented");

void copy(benchmark::State& state) {
  const JSON value = meeting();
  for (auto _ : state) {
    const JSON other(value);
    benchmark::DoNotOptimize(other.asObject());
  }
}
BENCHMARK(copy)->Name("JSON/copy");

void compare(benchmark::State& state) {
  const JSON value = meeting();
  const JSON other(value);
  for (auto _ : state) benchmark::DoNotOptimize(value == other);
}
BENCHMARK(compare)->Name("JSON/compare");

#ifdef VELTA_HAS_RAPIDJSON

void rapidParse(benchmark::State& state, const std::string& bytes) {
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse(bytes.data(), bytes.size());
    benchmark::DoNotOptimize(document.IsObject());
  }
  countBytes(state, bytes.size());
}
void rapidParseIndented(benchmark::State& state) { rapidParse(state, text()); }
BENCHMARK(rapidParseIndented)->Name("RapidJSON/parse/values");
void rapidParseCompact(benchmark::State& state) { rapidParse(state, writeCompact(meeting())); }
BENCHMARK(rapidParseCompact)->Name("RapidJSON/parse/values of compact text");

// RapidJSON checks UTF-8 only when asked to; our parser always does.
void rapidParseChecked(benchmark::State& state) {
  const std::string bytes = text();
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(bytes.data(), bytes.size());
    benchmark::DoNotOptimize(document.IsObject());
  }
  countBytes(state, bytes.size());
}
BENCHMARK(rapidParseChecked)->Name("RapidJSON/parse/values, UTF-8 checked");

void rapidWrite(benchmark::State& state) {
  const std::string source = text();
  rapidjson::Document document;
  document.Parse(source.data(), source.size());
  rapidjson::StringBuffer out;
  for (auto _ : state) {
    out.Clear();
    rapidjson::Writer<rapidjson::StringBuffer> writer(out);
    document.Accept(writer);
    benchmark::DoNotOptimize(out.GetString());
  }
  countBytes(state, out.GetSize());
}
BENCHMARK(rapidWrite)->Name("RapidJSON/write/compact");

#endif

}  // namespace
}  // namespace velta
