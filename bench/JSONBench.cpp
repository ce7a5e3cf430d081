// Benchmarks of the JSON parser and writer on notes files of generated meetings: hundreds of lines
// of mixed Chinese and English speech with times and speakers, and the notes. Where RapidJSON,
// simdjson or nlohmann's JSON is installed, it does the same work beside them. One round is all
// sample files, one after the other.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchFiles.h"
#include "OtherJSON.h"
#include "json/JSON.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"

namespace velta::bench {
namespace {

using Texts = std::vector<std::string>;

std::vector<JSON> sampleValues() {
  std::vector<JSON> values;
  for (const std::string& text : sampleNotes()) values.push_back(parseJSON(text));
  return values;
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
  for (auto _ : state) {
    for (const std::string& text : sampleNotes()) {
      Listener listener;
      parseJSONEvents(text, listener);
      benchmark::DoNotOptimize(listener.events);
    }
  }
  countBytes(state, bytesOf(sampleNotes()));
}
BENCHMARK(parseEvents)->Name("JSON/parse/events");

void parseAll(benchmark::State& state, const Texts& texts) {
  for (auto _ : state) {
    for (const std::string& text : texts) {
      const JSON value = parseJSON(text);
      benchmark::DoNotOptimize(value.asObject());
    }
  }
  countBytes(state, bytesOf(texts));
}
void parseIndented(benchmark::State& state) { parseAll(state, sampleNotes()); }
BENCHMARK(parseIndented)->Name("JSON/parse/values");
void parseCompact(benchmark::State& state) { parseAll(state, compactNotes()); }
BENCHMARK(parseCompact)->Name("JSON/parse/values of compact text");

// Writers fill a buffer that is there already, as the server does, so that the writing is measured
// and not the system's handing out of memory.
template <class Append>
void writeAll(benchmark::State& state, Append append) {
  const std::vector<JSON> values = sampleValues();
  std::string out;
  std::size_t bytes = 0;
  for (auto _ : state) {
    bytes = 0;
    for (const JSON& value : values) {
      out.clear();
      append(out, value);
      benchmark::DoNotOptimize(out.data());
      bytes += out.size();
    }
  }
  countBytes(state, bytes);
}
void writeCompactly(benchmark::State& state) {
  writeAll(state, [](std::string& out, const JSON& value) { appendCompact(out, value); });
}
BENCHMARK(writeCompactly)->Name("JSON/write/compact");
void writePretty(benchmark::State& state) {
  writeAll(state, [](std::string& out, const JSON& value) { appendIndented(out, value, 2); });
}
BENCHMARK(writePretty)->Name("JSON/write/indented");

void copy(benchmark::State& state) {
  const JSON value = parseJSON(sampleNotes().front());
  for (auto _ : state) {
    const JSON other(value);
    benchmark::DoNotOptimize(other.asObject());
  }
}
BENCHMARK(copy)->Name("JSON/copy of one file");

void compare(benchmark::State& state) {
  const JSON value = parseJSON(sampleNotes().front());
  const JSON other(value);
  for (auto _ : state) benchmark::DoNotOptimize(value == other);
}
BENCHMARK(compare)->Name("JSON/compare one file");

#ifdef VELTA_HAS_RAPIDJSON

template <unsigned kFlags>
void rapidParse(benchmark::State& state, const Texts& texts) {
  for (auto _ : state) {
    for (const std::string& text : texts) {
      rapidjson::Document document;
      document.Parse<kFlags>(text.data(), text.size());
      benchmark::DoNotOptimize(document.IsObject());
    }
  }
  countBytes(state, bytesOf(texts));
}
void rapidParseIndented(benchmark::State& state) {
  rapidParse<rapidjson::kParseDefaultFlags>(state, sampleNotes());
}
BENCHMARK(rapidParseIndented)->Name("RapidJSON/parse/values");
void rapidParseCompact(benchmark::State& state) {
  rapidParse<rapidjson::kParseDefaultFlags>(state, compactNotes());
}
BENCHMARK(rapidParseCompact)->Name("RapidJSON/parse/values of compact text");
// RapidJSON checks UTF-8 only when asked to; our parser always does.
void rapidParseChecked(benchmark::State& state) {
  rapidParse<rapidjson::kParseValidateEncodingFlag>(state, sampleNotes());
}
BENCHMARK(rapidParseChecked)->Name("RapidJSON/parse/values, UTF-8 checked");

template <class Writer>
void rapidWrite(benchmark::State& state, void (*prepare)(Writer&)) {
  std::vector<rapidjson::Document> documents(sampleNotes().size());
  for (std::size_t i = 0; i < documents.size(); ++i) {
    documents[i].Parse(sampleNotes()[i].data(), sampleNotes()[i].size());
  }
  rapidjson::StringBuffer out;
  std::size_t bytes = 0;
  for (auto _ : state) {
    bytes = 0;
    for (const rapidjson::Document& document : documents) {
      out.Clear();
      Writer writer(out);
      prepare(writer);
      document.Accept(writer);
      benchmark::DoNotOptimize(out.GetString());
      bytes += out.GetSize();
    }
  }
  countBytes(state, bytes);
}
void rapidWriteCompact(benchmark::State& state) {
  using Writer = rapidjson::Writer<rapidjson::StringBuffer>;
  rapidWrite<Writer>(state, [](Writer&) {});
}
BENCHMARK(rapidWriteCompact)->Name("RapidJSON/write/compact");
void rapidWriteIndented(benchmark::State& state) {
  using Writer = rapidjson::PrettyWriter<rapidjson::StringBuffer>;
  rapidWrite<Writer>(state, [](Writer& writer) { writer.SetIndent(' ', 2); });
}
BENCHMARK(rapidWriteIndented)->Name("RapidJSON/write/indented");

#endif

#ifdef VELTA_HAS_SIMDJSON

// simdjson reads padded text and reuses its parser's memory, so both are there already. Its DOM is
// the whole document in one flat tape, which cannot be changed.
void simdParse(benchmark::State& state) {
  std::vector<simdjson::padded_string> texts;
  for (const std::string& text : sampleNotes()) texts.emplace_back(text);
  simdjson::dom::parser parser;
  for (auto _ : state) {
    for (const simdjson::padded_string& text : texts) {
      const simdjson::dom::element element = parser.parse(text);
      benchmark::DoNotOptimize(element.is_object());
    }
  }
  countBytes(state, bytesOf(sampleNotes()));
}
BENCHMARK(simdParse)->Name("simdjson/parse/values");

#endif

#ifdef VELTA_HAS_NLOHMANN

void nlohmannParse(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& text : sampleNotes()) {
      const nlohmann::json value = nlohmann::json::parse(text);
      benchmark::DoNotOptimize(value.is_object());
    }
  }
  countBytes(state, bytesOf(sampleNotes()));
}
BENCHMARK(nlohmannParse)->Name("nlohmann/parse/values");

void nlohmannWrite(benchmark::State& state, int indentation) {
  std::vector<nlohmann::ordered_json> values;
  for (const std::string& text : sampleNotes()) {
    values.push_back(nlohmann::ordered_json::parse(text));
  }
  std::size_t bytes = 0;
  for (auto _ : state) {
    bytes = 0;
    for (const nlohmann::ordered_json& value : values) {
      const std::string out = value.dump(indentation);
      benchmark::DoNotOptimize(out.data());
      bytes += out.size();
    }
  }
  countBytes(state, bytes);
}
void nlohmannWriteCompact(benchmark::State& state) { nlohmannWrite(state, -1); }
BENCHMARK(nlohmannWriteCompact)->Name("nlohmann/write/compact");
void nlohmannWriteIndented(benchmark::State& state) { nlohmannWrite(state, 2); }
BENCHMARK(nlohmannWriteIndented)->Name("nlohmann/write/indented");

#endif

}  // namespace
}  // namespace velta::bench
