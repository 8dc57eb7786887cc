// Runs whatever reads what others have written over hostile documents of two sizes, and ends with 1
// unless memory and the number of allocations grow no faster than the documents.

#include <cxxabi.h>
#include <malloc.h>

#include <algorithm>
#include <boost/json/value.hpp>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string_view>
#include <typeinfo>

#include "cost/Memory.h"
#include "cost/Records.h"
#include "cost/Shapes.h"
#include "extensions/JSONItems.h"
#include "extensions/JSONText.h"
#include "extensions/StringRewriters.h"
#include "socketio/Packet.h"

namespace {

using koriva::cost::objectsOf;
using koriva::cost::Shape;
namespace json = koriva::json;

constexpr std::size_t factor = 8;

using Run = std::function<void(std::string_view text)>;

struct Entry {
  std::string name;
  Run run;
  std::vector<Shape> shapes;
};

template <class Record>
std::string nameOf() {
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(typeid(Record).name(), nullptr, nullptr, nullptr), &std::free);
  return name.get();
}

template <class Record>
void addRecord(std::vector<Entry>& entries) {
  const auto& coding = Record::coding;
  entries.push_back({"decode " + nameOf<Record>(),
                     [](std::string_view text) { (void)json::decode<Record>(text); },
                     koriva::cost::objectsOf(coding)});
  if (coding.table->read) return;  // of whole documents only
  const std::string smallest = koriva::cost::smallest(coding);
  entries.push_back({"decodeFirst " + nameOf<Record>(),
                     [](std::string_view text) { (void)json::decodeFirst<Record>(text); },
                     {{"records", koriva::cost::repeated(smallest, "," + smallest, "")}}});
}

template <class... Record>
void addRecords(std::vector<Entry>& entries, const std::tuple<Record...>*) {
  (addRecord<Record>(entries), ...);
}

/// Objects with all keys of the changes of a group, of which there is no table here.
Shape inGroupUpdate(const Shape& value) {
  return {"a group's change of " + value.name,
          [text = value.text](std::size_t size, std::size_t times) {
            const std::string one = text(size / 2, times);
            return R"({"added_uins":)" + one + R"(,"removed_uin":)" + one + "}";
          }};
}

/// A message that holds a document.
Shape inMessage(KRMessageType type, const Shape& attachments, int version = 1) {
  const std::string name = koriva::typeName(type) + " " + std::to_string(version);
  const std::string members = "{\"type\":" + std::to_string(koriva::rawValue(type)) +
                              ",\"version\":" + std::to_string(version) + ",\"attachments\":";
  return within("message of type " + name, members, quoted(attachments), "}");
}

/// A message in a message in a message ..., of which each quotation makes more.
Shape inReplies(std::size_t depth, const Shape& shape) {
  const std::size_t largest = (std::size_t{16} << 20) / (depth * depth);
  Shape reply{shape.name, [largest, text = shape.text](std::size_t size, std::size_t times) {
                return text(std::min(size, largest), times);
              }};
  for (std::size_t i = 0; i < depth; ++i) reply = inMessage(KRMessageType::reply, reply);
  reply.name = "replies, " + std::to_string(depth) + " deep, that hold " + shape.name;
  return reply;
}

/// Messages whose contents are documents of their own, in texts.
void addContents(std::vector<Entry>& entries) {
  std::vector<Shape> shapes;
  const auto add = [&shapes](KRMessageType type, const std::vector<Shape>& attachments) {
    for (const Shape& shape : attachments) {
      shapes.push_back(inMessage(type, shape));
    }
  };
  add(KRMessageType::call, objectsOf(KRCall::coding));
  add(KRMessageType::images, objectsOf(KRImageResponse::coding));
  add(KRMessageType::audio, objectsOf(KRAudioResponse::coding));
  add(KRMessageType::video, objectsOf(KRVideoResponse::coding));
  add(KRMessageType::reply, objectsOf(KRMessage::coding));
  add(KRMessageType::sticker, objectsOf(KRSticker::coding));
  add(KRMessageType::file, objectsOf(KRFileResponse::coding));
  for (const Shape& shape : objectsOf(KRImageURLsResponse::coding)) {
    shapes.push_back(inMessage(KRMessageType::images, shape, 0));
  }
  for (const Shape& value : koriva::cost::values()) {
    add(KRMessageType::groupUpdate, {inGroupUpdate(value)});
    shapes.push_back(inReplies(4, value));
  }
  for (const auto* text : {"a", "\\n", "\xC3\xA9"}) {
    const auto message = koriva::cost::repeated("{\"message\":\"", text, "\"}");
    shapes.push_back(inReplies(60, {"message", message}));
  }
  entries.push_back({"contents of KRMessage",
                     [](std::string_view text) { (void)json::decode<KRMessage>(text); }, shapes});

  std::vector<Shape> lists;
  const std::string reply = R"({\"type\":8,\"attachments\":\"{}\"})";
  for (const auto& type : koriva::cases<KRMessageType>) {
    const std::string number = std::to_string(koriva::rawValue(type));
    for (const std::string& attachments : {std::string("{}"), reply}) {
      const std::string message =
          ",{\"type\":" + number + R"(,"attachments":")" + attachments + "\"}";
      lists.push_back({"messages of type " + number + " that hold " + attachments,
                       koriva::cost::repeated(R"({"messages":[{})", message, "]}")});
    }
  }
  entries.push_back({"contents of KRMessageList",
                     [](std::string_view text) { (void)json::decode<KRMessageList>(text); },
                     lists});
}

void addUserInfo(std::vector<Entry>& entries) {
  std::vector<Shape> shapes;
  for (const Shape& value : koriva::cost::values()) {
    shapes.push_back(within("payload", "", value, ""));
    for (const char* key : {"call", "callId", "calleeUins"}) {
      shapes.push_back(within(key, R"({"call":{")" + std::string(key) + "\":", value, "}}"));
    }
  }
  const auto run = [](std::string_view text) {
    (void)KRCall::fromUserInfo({{"Type", "call"}, {"Payload", text}});
  };
  entries.push_back({"KRCall::fromUserInfo", run, shapes});
}

void addTexts(std::vector<Entry>& entries) {
  const auto add = [&entries](std::string name, Run run, std::vector<Shape> shapes) {
    entries.push_back({std::move(name), std::move(run), std::move(shapes)});
  };
  const auto& values = koriva::cost::values();
  add(
      "parseValue", [](auto text) { (void)json::parseValue(text); }, values);
  add(
      "parseDictionary", [](auto text) { (void)json::parseDictionary(text); }, values);

  std::vector<Shape> items = values;
  for (const Shape& value : values) items.push_back(within("items", "{},", value, ",0"));
  items.push_back({"items", koriva::cost::repeated("0", ",0", "")});
  add(
      "areItems", [](auto text) { (void)json::areItems(text); }, items);
  add(
      "isFirstText", [](auto text) { (void)json::isFirstText(text, "NO ACK"); }, items);
  add(
      "prettyPrinted", [](auto text) { (void)json::prettyPrinted(text); }, items);
  add(
      "decodeFirst before items", [](auto text) { (void)json::decodeFirst<KRStopCall>(text); },
      items);

  std::vector<Shape> texts = values;
  for (const char* unit :
       {"\\", "\"", "/", "\n", "\\n", "\\u{8}", "\\u{12}", "\\u{", "\\u{1", "\xFF"}) {
    std::string name = "many ";
    json::appendText(name, unit);
    texts.push_back({name, koriva::cost::repeated("", unit, "")});
  }
  add(
      "escapedString", [](auto text) { (void)koriva::escapedString(text); }, texts);
  add(
      "unescapeString", [](auto text) { (void)koriva::unescapeString(text); }, texts);
  add(
      "replaceSpecialCharacters", [](auto text) { (void)koriva::replaceSpecialCharacters(text); },
      texts);
}

void addPackets(std::vector<Entry>& entries) {
  const auto& values = koriva::cost::values();
  std::vector<Shape> packets;
  std::vector<Shape> items;
  std::vector<Shape> openPackets;
  std::vector<Shape> refusals = values;
  for (const Shape& value : values) {
    packets.push_back(within("event", R"(2/data,["event",)", value, "]"));
    packets.push_back(within("name", "2/data,[", value, "]"));
    packets.push_back(within("acknowledgement", "3/data,1[", value, ",0]"));
    items.push_back(value);
    items.push_back(within("second item", R"({"_placeholder":true,"num":0},)", value, ""));
    items.push_back(within("placeholder", R"({"num":0,"_placeholder":)", value, "}"));
    items.push_back(within("number", R"({"_placeholder":true,"num":)", value, "}"));
    for (const char* key : {"pingInterval", "maxPayload", "other"}) {
      openPackets.push_back(within(key, "{\"" + std::string(key) + "\":", value, "}"));
    }
    refusals.push_back(within("message", R"({"message":)", value, "}"));
  }
  packets.push_back({"namespace", koriva::cost::repeated("2/", "a", ",[\"event\"]")});
  packets.push_back({"id", koriva::cost::repeated("2/data,", "1", "[\"event\"]")});
  packets.push_back({"attachments", koriva::cost::repeated("5", "1", "-/data,[\"event\"]")});

  using namespace koriva::socketio;
  entries.push_back({"parsePacket", [](auto text) { (void)parsePacket(text); }, packets});
  entries.push_back(
      {"firstItemHoldsBinary", [](auto text) { (void)firstItemHoldsBinary(text, 1); }, items});
  entries.push_back({"parseHandshake", [](auto text) { (void)parseHandshake(text); }, openPackets});
  entries.push_back({"refusalText", [](auto text) { (void)refusalText(text); }, refusals});
}

std::vector<Entry> allEntries() {
  std::vector<Entry> entries;
  addRecords(entries, static_cast<const koriva::cost::Records*>(nullptr));
  addContents(entries);
  addUserInfo(entries);
  addTexts(entries);
  addPackets(entries);
  return entries;
}

struct Cost {
  std::size_t bytes = 0;  ///< of the text
  std::size_t allocations = 0;
  std::size_t peak = 0;
  double milliseconds = 0;  ///< of the processor
};

Cost costOf(const Run& run, const std::string& text) {
  const koriva::cost::MemoryUse use;
  const std::clock_t begin = std::clock();
  run(text);
  const auto ticks = static_cast<double>(std::clock() - begin);
  return {text.size(), use.allocations(), use.peak(), ticks * 1'000 / CLOCKS_PER_SEC};
}

/// The same as the mean of several copies, which fill caches as much as the larger text does.
Cost costOfCopies(const Run& run, const std::string& text) {
  const std::vector<std::string> copies(factor, text);
  costOf(run, text);  // some things are made once and stay
  Cost cost;
  double milliseconds = 0;
  for (const std::string& copy : copies) {
    cost = costOf(run, copy);
    milliseconds += cost.milliseconds;
  }
  cost.milliseconds = milliseconds / factor;
  return cost;
}

/// Between two sizes, lists that grow by half are differently full, and what is small stays.
bool isLinear(const Cost& once, const Cost& many) {
  constexpr std::size_t fewAllocations = 16;
  constexpr std::size_t fewBytes = 4'096;
  return many.allocations <= factor * once.allocations + fewAllocations &&
         many.peak <= factor * once.peak * 3 / 2 + fewBytes &&
         many.peak <= 4'194'304 + 32 * many.bytes;
}

double growthOf(const Cost& once, const Cost& many) {
  constexpr double measurable = 0.1;
  return many.milliseconds / std::max(once.milliseconds, measurable);
}

struct Summary {
  std::size_t cases = 0;
  std::size_t failed = 0;
  double worstGrowth = 0;
};

void print(const Entry& entry, const Shape& shape, const Cost& once, const Cost& many) {
  std::printf("%-32s  %-60s  %8zu %8zu B  %8zu %8zu allocations  %9zu %9zu B at most  ",
              entry.name.c_str(), shape.name.c_str(), once.bytes, many.bytes, once.allocations,
              many.allocations, once.peak, many.peak);
  std::printf("%8.3f %8.3f ms, %.1f-fold%s\n", once.milliseconds, many.milliseconds,
              growthOf(once, many), isLinear(once, many) ? "" : "  NOT LINEAR");
}

void measure(const Entry& entry, std::size_t size, bool isVerbose, Summary& summary) {
  for (const Shape& shape : entry.shapes) {
    const Cost once = costOfCopies(entry.run, shape.text(size, 1));
    const Cost many = costOf(entry.run, shape.text(size, factor));
    const bool isFine = isLinear(once, many);
    if (isVerbose || !isFine) print(entry, shape, once, many);
    ++summary.cases;
    if (!isFine) ++summary.failed;
    summary.worstGrowth = std::max(summary.worstGrowth, growthOf(once, many));
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string_view> names(argv + 1, argv + argc);
  const bool isLarge = std::erase(names, "--large") != 0;
  const auto isChosen = [&names](const Entry& entry) {
    return names.empty() || std::ranges::any_of(names, [&](std::string_view name) {
             return entry.name.find(name) != std::string::npos;
           });
  };
  const std::size_t size = isLarge ? std::size_t{2} << 20 : std::size_t{4} << 10;
  // Large blocks always come from the system, and not from what was freed before: that is faster.
  mallopt(M_MMAP_THRESHOLD, 128 << 10);
  Summary summary;
  for (const Entry& entry : allEntries()) {
    if (isChosen(entry)) measure(entry, size, isLarge, summary);
  }
  std::printf("%zu cases, %zu of them not linear\n", summary.cases, summary.failed);
  if (isLarge)
    std::printf("The time grew %.1f-fold at most, the size 8-fold\n", summary.worstGrowth);
  return summary.cases != 0 && summary.failed == 0 ? 0 : 1;
}
