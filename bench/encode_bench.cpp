// Makes the frame of a message that is sent, and the same with nlohmann-json and by hand.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "bench/Allocations.h"
#include "bench/Samples.h"
#include "bench/Unconnected.h"
#include "extensions/JSONText.h"
#include "extensions/StringRewriters.h"

namespace {

constexpr int burst = 100;

constexpr auto ignore = [](const KRResult<KRMessage>&) {};

std::string outgoingAttachments(const KRMessage& message) {
  return koriva::replaceAll(koriva::escapedString(message.attachments), R"(\\)", R"(\\\)");
}

std::string withNlohmann(const KRMessage& message, std::uint64_t id) {
  nlohmann::ordered_json payload{{"group_id", message.groupID},
                                 {"message", koriva::replaceSpecialCharacters(message.message)},
                                 {"sender_name", message.senderName},
                                 {"sender_avatar", message.senderAvatar},
                                 {"nonce", message.messageID},
                                 {"version", message.version},
                                 {"is_encrypted", message.isEncrypted}};
  if (message.type != 0) {
    payload["type"] = message.type;
    payload["attachments"] = outgoingAttachments(message);
  }
  return "42/data," + std::to_string(id) + nlohmann::ordered_json{"create_message", payload}.dump();
}

/// Trusts the texts to be UTF-8 without control characters.
void append(std::string& out, const char* key, std::string_view text) {
  out += key;
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
}

std::string byHand(const KRMessage& message, std::uint64_t id) {
  std::string frame;
  frame.reserve(512);
  frame += "42/data,";
  frame += std::to_string(id);
  append(frame, R"(["create_message",{"group_id":")", message.groupID);
  append(frame, R"(","message":")", koriva::replaceSpecialCharacters(message.message));
  append(frame, R"(","sender_name":")", message.senderName);
  append(frame, R"(","sender_avatar":")", message.senderAvatar);
  append(frame, R"(","nonce":")", message.messageID);
  frame += R"(","version":)";
  frame += std::to_string(message.version);
  frame += R"(,"is_encrypted":)";
  frame += message.isEncrypted ? "true" : "false";
  if (message.type != 0) {
    frame += R"(,"type":)";
    frame += std::to_string(message.type);
    append(frame, R"(,"attachments":")", outgoingAttachments(message));
    frame += '"';
  }
  return frame += "}]";
}

void setCounters(benchmark::State& state, std::size_t frameSize, std::size_t allocations) {
  state.counters["items"] = burst;
  state.counters["bytes"] = static_cast<double>(burst * frameSize);
  state.counters["allocations"] =
      static_cast<double>(allocations) / static_cast<double>(state.iterations()) / burst;
}

/// From the call to the frame that the network is given, with all that awaits the answer.
void sendMessages(benchmark::State& state, const KRMessage& message) {
  const auto sdk = Unconnected::login();
  std::size_t allocations = 0;
  for (auto _ : state) {
    const std::size_t before = allocationCount();
    onLoop([&] {
      for (int i = 0; i < burst; ++i) sdk->sendMessage(message, ignore);
    });
    allocations += allocationCount() - before;
    state.PauseTiming();
    onLoop([] { Unconnected::instance().answer(); });
    state.ResumeTiming();
  }
  setCounters(state, Unconnected::instance().lastFrame.size(), allocations);
}

template <std::string (*Encode)(const KRMessage&, std::uint64_t)>
void encode(benchmark::State& state, const KRMessage& message) {
  const std::size_t before = allocationCount();
  std::uint64_t id = 0;
  for (auto _ : state) {
    for (int i = 0; i < burst; ++i) benchmark::DoNotOptimize(Encode(message, id++));
  }
  const std::size_t allocations = allocationCount() - before;
  setCounters(state, Encode(message, 0).size(), allocations);
}

/// All candidates make the same frame, or the program ends.
void check(const KRMessage& message) {
  const auto sdk = Unconnected::login();
  onLoop([&] { sdk->sendMessage(message, ignore); });
  const std::string& frame = Unconnected::instance().lastFrame;
  const std::uint64_t id = Unconnected::instance().lastId();
  onLoop([] { Unconnected::instance().answer(); });
  if (withNlohmann(message, id) == frame && byHand(message, id) == frame) return;
  std::fprintf(stderr, "these frames differ:\n%s\n%s\n%s\n", frame.c_str(),
               withNlohmann(message, id).c_str(), byHand(message, id).c_str());
  std::exit(1);
}

void addMessage(const std::string& name, const KRMessage& message) {
  check(message);
  const auto add = [&](const char* candidate, auto measure) {
    benchmark::RegisterBenchmark(("encode/" + name + "/" + candidate).c_str(),
                                 [message, measure](auto& state) { measure(state, message); });
  };
  add("KorivaSDK", sendMessages);
  add("nlohmann-json", encode<withNlohmann>);
  add("by hand", encode<byHand>);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  addMessage("text message", outgoingText());
  addMessage("image message", outgoingImage());
  benchmark::RunSpecifiedBenchmarks();
}
