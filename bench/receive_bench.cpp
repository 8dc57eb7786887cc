// From the text of a frame to the delegate, and from a request to its completion, without a
// network.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/Samples.h"
#include "bench/Unconnected.h"
#include "extensions/JSONCoding.h"

namespace {

constexpr std::size_t burst = 256;  // the caches hold as much

void setItems(benchmark::State& state, std::size_t items, std::size_t bytes) {
  state.counters["items"] = static_cast<double>(items);
  state.counters["bytes"] = static_cast<double>(bytes);
}

struct Counter final : KorivaDelegate {
  void didReceive(const KRMessage& message) override {
    benchmark::DoNotOptimize(&message);
    ++count;
  }
  void didReceiveGroupEvent(const KRGroupEvent& event) override {
    benchmark::DoNotOptimize(&event);
    ++count;
  }
  std::size_t count = 0;
};

struct Push {
  std::string event;
  std::string json;

  [[nodiscard]] std::string frame() const { return "42/data,[\"" + event + "\"," + json + "]"; }
};

/// A burst of pushes reaches this many delegates. The frames are those that the network would
/// have made.
void receivePushes(benchmark::State& state, const Push& push, std::size_t delegates) {
  const auto sdk = Unconnected::login();
  std::vector<std::shared_ptr<Counter>> counters(delegates);
  for (auto& counter : counters) {
    counter = std::make_shared<Counter>();
    sdk->addDelegate(counter);
  }
  std::size_t expected = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<std::string> frames(burst, push.frame());
    state.ResumeTiming();
    onLoop([&frames] {
      for (auto& frame : frames) Unconnected::instance().receive(std::move(frame));
    });
    expected += burst;
  }
  for (auto& counter : counters) {
    if (counter->count != expected) state.SkipWithError("a delegate was not told");
    sdk->removeDelegate(counter);
  }
  setItems(state, burst, burst * push.frame().size());
}

template <class Record>
void decodeAlone(benchmark::State& state, const Push& push) {
  for (auto _ : state) {
    for (std::size_t i = 0; i < burst; ++i) {
      benchmark::DoNotOptimize(KRJSONDecoder{}.decode<Record>(push.json).value());
    }
  }
  setItems(state, burst, burst * push.json.size());
}

/// As many requests are sent before the first is answered.
void keepInFlight(benchmark::State& state, std::size_t requests) {
  const auto sdk = Unconnected::login();
  std::size_t completed = 0;
  std::size_t expected = 0;
  for (auto _ : state) {
    onLoop([&] {
      for (std::size_t i = 0; i < requests; ++i) {
        sdk->muteGroup("10010001002", true, [&](const KRResult<bool>&) { ++completed; });
      }
    });
    onLoop([] { Unconnected::instance().answer(); });
    expected += requests;
  }
  if (completed != expected) state.SkipWithError("a request was not completed");
  setItems(state, requests, 0);
}

template <class Record>
void addPush(const std::string& name, const std::string& event, const std::string& json) {
  const Push push{event, json};
  benchmark::RegisterBenchmark(("receive/" + name + "/delegate call").c_str(),
                               [push](auto& state) { receivePushes(state, push, 1); });
  benchmark::RegisterBenchmark(("receive/" + name + "/bare decode").c_str(),
                               [push](auto& state) { decodeAlone<Record>(state, push); });
}

void addGrowth(const std::string& what, std::size_t number, auto measure) {
  benchmark::RegisterBenchmark(("growth/" + what + "/" + std::to_string(number)).c_str(),
                               [number, measure](auto& state) { measure(state, number); });
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  const std::string text = samplePush();
  addPush<KRMessage>("text message", "message", text);
  addPush<KRMessage>("image message", "message", sampleImagePush());
  addPush<KREvent>("typing", "event",
                   R"({"group_id":"10010001002","sender_uin":"1001","receiver_uin":"","type":9,)"
                   R"("data":""})");
  for (const std::size_t number : {100, 1'000, 10'000, 100'000}) {
    addGrowth("requests in flight", number, keepInFlight);
  }
  for (const std::size_t number : {1, 10, 100, 1'000}) {
    addGrowth("delegates", number, [text](auto& state, std::size_t delegates) {
      receivePushes(state, {"message", text}, delegates);
    });
  }
  benchmark::RunSpecifiedBenchmarks();
}
