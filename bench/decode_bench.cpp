// Reads what servers send with KRJSONDecoder, and with other libraries into the same records.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "bench/Allocations.h"
#include "bench/Peers.h"
#include "bench/Samples.h"
#include "extensions/JSONCoding.h"

namespace {

/// A parse with SIMD instructions, and a copy of each text.
class DomFloor {
 public:
  using Texts = std::deque<std::string>;

  static Texts read(std::string_view json) {
    Texts texts;
    copyDocument(json, texts);
    return texts;
  }

 private:
  static void copyDocument(std::string_view json, Texts& texts) {
    Simdjson::parse(json, [&](const Simdjson::Value& document) { copy(*document, texts); });
  }

  static void copy(simdjson::dom::element value, Texts& texts) {
    if (value.is_string()) {
      texts.emplace_back(value.get_string().value_unsafe());
    } else if (value.is_array()) {
      for (const auto element : value.get_array()) copy(element, texts);
    } else if (value.is_object()) {
      for (const auto& [key, member] : value.get_object()) {
        copy(member, texts);
        if (key == "attachments" && !texts.back().empty()) copyDocument(texts.back(), texts);
      }
    }
  }
};

struct Sample {
  std::string name;  // of the table, and of the case in it
  std::string json;
  int items;
};

template <class Read>
void measure(const Sample& sample, const std::string& candidate, Read read) {
  benchmark::RegisterBenchmark((sample.name + "/" + candidate).c_str(), [&sample,
                                                                         read](auto& state) {
    const std::size_t before = allocationCount();
    for (auto _ : state) benchmark::DoNotOptimize(read(sample.json));
    const auto count = static_cast<double>(allocationCount() - before);
    state.counters["items"] = sample.items;
    state.counters["bytes"] = static_cast<double>(sample.json.size());
    state.counters["allocations"] = count / static_cast<double>(state.iterations()) / sample.items;
  });
}

template <class Record>
Record decode(std::string_view json) {
  return KRJSONDecoder{}.decode<Record>(json).value();
}

template <class Record, class Library>
void addPeer(const Sample& sample, const char* name) {
  if (Reader<Library>::template decode<Record>(sample.json) != decode<Record>(sample.json)) {
    std::fprintf(stderr, "%s reads something else from %s\n", name, sample.name.c_str());
    std::exit(1);
  }
  measure(sample, name, Reader<Library>::template decode<Record>);
}

template <class Record>
void addSample(std::string name, std::string json, int items) {
  static std::deque<Sample> samples;
  const Sample& sample = samples.emplace_back(Sample{std::move(name), std::move(json), items});
  measure(sample, "KorivaSDK", decode<Record>);
  addPeer<Record, Nlohmann>(sample, "nlohmann-json, DOM by key");
  addPeer<Record, BoostJson>(sample, "Boost.JSON, DOM by key");
  addPeer<Record, RapidJson>(sample, "RapidJSON, DOM by key");
  addPeer<Record, Simdjson>(sample, "simdjson, DOM by key");
  measure(sample, "DOM floor", DomFloor::read);
  const auto record = std::make_shared<const Record>(decode<Record>(sample.json));
  measure(sample, "copy of the records", [record](std::string_view) { return *record; });
}

/// The same page as other servers write it.
void addVariants() {
  const auto add = [](const std::string& name, std::string json) {
    addSample<KRMessageList>("decode variants/" + name, std::move(json), 1'000);
  };
  const std::string page = samplePage(1'000);
  const std::string cyrillic = samplePage(1'000, russian);
  add("sorted keys", nlohmann::json::parse(page).dump());
  add("indented", nlohmann::ordered_json::parse(page).dump(2));
  add("Cyrillic", cyrillic);
  add("Cyrillic, escaped", nlohmann::ordered_json::parse(cyrillic).dump(-1, ' ', true));
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  addSample<KRMessageList>("decode/page of 50 messages", samplePage(50), 50);
  addSample<KRMessageList>("decode/page of 1,000 messages", samplePage(1'000), 1'000);
  addSample<KRMessageList>("decode/page of 20,000 messages", samplePage(20'000), 20'000);
  addSample<KRConversationList>("decode/list of 200 conversations", sampleConversations(200), 200);
  addSample<KRMessage>("decode/single push", samplePush(), 1);
  addVariants();
  benchmark::RunSpecifiedBenchmarks();
}
