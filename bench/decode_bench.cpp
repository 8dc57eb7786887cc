// Reads a page of 1,000 messages with KRJSONDecoder and with nlohmann-json into the same records,
// and prints how the two compare.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>

#include "extensions/JSONCoding.h"
#include "extensions/StringRewriters.h"
#include "models/KRConversation.h"
#include "models/KRMessage.h"

/// How often the program has allocated memory.
std::size_t allocationCount();

using Json = nlohmann::json;

namespace {

template <class T>
void read(const Json& json, const char* key, T& member) {
  if (const auto found = json.find(key); found != json.end()) found->get_to(member);
}

void from_nlohmann(const Json& json, KRMessage& message);

}  // namespace

void from_json(const Json& json, KRImage& image) {
  read(json, "url", image.url);
  image.width = json.value("width", std::uint64_t{0});
  image.height = json.value("height", std::uint64_t{0});
  image.subIndex = json.value("sub_index", std::uint64_t{0});
}

void from_json(const Json& json, KRFile& file) {
  json.at("url").get_to(file.url);
  json.at("size").get_to(file.size);
  json.at("file_name").get_to(file.fileName);
  json.at("file_extension").get_to(file.fileExtension);
}

void from_json(const Json& json, KRMessage& message) { from_nlohmann(json, message); }

void from_json(const Json& json, KRMessageList& list) {
  read(json, "group_id", list.groupID);
  read(json, "result", list.result);
  read(json, "psize", list.pageSize);
  read(json, "pindex", list.page);
  read(json, "last_message_id", list.lastMessageID);
  read(json, "messages", list.messages);
}

namespace {

KRMessageKind kindOf(const KRMessage& message) {
  const auto attachments = [&] { return Json::parse(message.attachments); };
  switch (message.messageType()) {
    case KRMessageType::images:
      return KRMessageKind::Images{attachments().at("images").get<std::vector<KRImage>>()};
    case KRMessageType::file:
      return KRMessageKind::File{attachments().at("file").get<KRFile>()};
    case KRMessageType::reply:
      return KRMessageKind::Reply{message.message, attachments().get<KRMessage>()};
    default:
      return KRMessageKind::Text{koriva::unescapeString(message.message)};
  }
}

void from_nlohmann(const Json& json, KRMessage& message) {
  read(json, "send_uin", message.send_uin);
  read(json, "recv_uin", message.recv_uin);
  read(json, "group_avatar", message.groupAvatar);
  read(json, "sender_name", message.senderName);
  read(json, "sender_avatar", message.senderAvatar);
  read(json, "group_id", message.groupID);
  read(json, "status", message.status);
  read(json, "seen_uins", message.seenUins);
  read(json, "received_uins", message.receivedUins);
  read(json, "message_id", message.messageID);
  read(json, "created_at", message.createdAt);
  read(json, "sender_uin", message.senderUin);
  read(json, "message", message.message);
  read(json, "recipient_uins", message.recipientUins);
  read(json, "updated_at", message.updatedAt);
  read(json, "deleted_uins", message.deletedUins);
  read(json, "group_name", message.groupName);
  read(json, "type", message.type);
  read(json, "attachments", message.attachments);
  read(json, "version", message.version);
  read(json, "is_encrypted", message.isEncrypted);
  message.kind = kindOf(message);
  const double time = std::strtod(message.createdAt.c_str(), nullptr);
  if (time < 1e10)
    message.createdAt = std::to_string(static_cast<std::int64_t>(time) * 1000000) + ".0";
}

KRMessage sampleMessage(int number) {
  const std::string id = std::to_string(100'000 + number);
  std::string text = "Shall we meet at noon? 😀 I can bring the slides, and coffee ☕ #" + id;
  if (number % 3 == 0) text += "\n\"See you\"";
  KRMessage message("5f0c7e0a-41d2-4c8e-9d3b-" + id, "5f0c7e0a-8d14-4c1e-b7a2-000000000042",
                    koriva::replaceSpecialCharacters(text), "User 1001",
                    "https://files.example/avatars/1001.png", "1001", false);
  message.groupAvatar = "https://files.example/groups/42.png";
  message.groupName = "Project 42";
  message.status = 3;
  message.createdAt = number % 10 == 0 ? "1600000000" : "1600000000" + id;
  message.seenUins = {"1001", "1002"};
  message.receivedUins = {"1001", "1002", "1003"};
  message.recipientUins = {"1002", "1003"};
  return message;
}

std::string attachmentsOf(const char* key, const auto& value) {
  std::string text = std::string("{\"") + key + "\":";
  koriva::json::append(text, value);
  return text + "}";
}

/// 70 % texts, 15 % images, 10 % files and 5 % replies.
KRMessage sampleOfMix(int number) {
  KRMessage message = sampleMessage(number);
  const int share = number % 20;
  if (share < 14) return message;
  message.version = 1;
  if (share < 17) {
    const std::string url = "https://files.example/images/" + message.messageID + ".jpg";
    message.type = koriva::rawValue(KRMessageType::images);
    message.attachments = attachmentsOf("images", std::vector<KRImage>{{url, 1280, 960, 0}});
  } else if (share < 19) {
    message.type = koriva::rawValue(KRMessageType::file);
    message.attachments =
        attachmentsOf("file", KRFile{"https://files.example/f/42", "minutes", "pdf", 48213});
  } else {
    message.type = koriva::rawValue(KRMessageType::reply);
    message.attachments = sampleMessage(number - 1).toString();
  }
  return message;
}

/// The acknowledgement as a server sends it, with the fields that clients do not write.
std::string samplePage() {
  constexpr int count = 1000;
  std::string page = R"({"result":0,"group_id":"42","psize":1000,"pindex":0,"messages":[)";
  for (int i = 0; i < count; ++i) {
    std::string message = sampleOfMix(i).toString();
    message.pop_back();
    page += message + R"(,"send_uin":1001,"recv_uin":1002,"updated_at":1600000000000000},)";
  }
  page.back() = ']';
  return page + "}";
}

const std::string& page() {
  static const std::string text = samplePage();
  return text;
}

KRMessageList decodeOurs() { return KRJSONDecoder{}.decode<KRMessageList>(page()).value(); }
KRMessageList decodeNlohmann() { return Json::parse(page()).get<KRMessageList>(); }

template <KRMessageList (*Decode)()>
void measure(benchmark::State& state) {
  const std::size_t before = allocationCount();
  for (auto _ : state) benchmark::DoNotOptimize(Decode());
  const auto count = static_cast<double>(allocationCount() - before);
  const auto messages = static_cast<double>(state.iterations()) * 1000;
  state.counters["messages"] = benchmark::Counter(messages, benchmark::Counter::kIsRate);
  state.counters["allocations"] = count / messages;
}
BENCHMARK(measure<decodeOurs>)->Name("KRJSONDecoder")->Unit(benchmark::kMicrosecond);
BENCHMARK(measure<decodeNlohmann>)->Name("nlohmann-json")->Unit(benchmark::kMicrosecond);

/// Keeps the fastest repetition of each benchmark, the one that other load disturbed least.
class Comparison : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      Result& result = results_[run.run_name.function_name];
      result.microseconds = std::min(result.microseconds, run.GetAdjustedCPUTime() / 1000);
      result.allocations = run.counters.at("allocations");
    }
  }

  /// Prints how the two compare; false when the difference is too small.
  bool print() {
    const auto [ours, ourAllocations] = results_["KRJSONDecoder"];
    const auto [theirs, theirAllocations] = results_["nlohmann-json"];
    std::printf(
        "%zu bytes a message\n"
        "KRJSONDecoder: %.2f us and %.1f allocations a message\n"
        "nlohmann-json: %.2f us and %.1f allocations a message\n"
        "ratio: %.1f\n",
        page().size() / 1000, ours, ourAllocations, theirs, theirAllocations, theirs / ours);
    return theirs / ours >= 6;
  }

 private:
  struct Result {
    double microseconds = HUGE_VAL;
    double allocations = 0;
  };
  std::map<std::string, Result> results_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  if (decodeOurs() != decodeNlohmann()) {
    std::fputs("the two decoders disagree\n", stderr);
    return 1;
  }
  Comparison comparison;
  benchmark::RunSpecifiedBenchmarks(&comparison);
  return comparison.print() ? 0 : 1;
}
