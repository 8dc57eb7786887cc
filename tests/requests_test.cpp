#include <set>

#include "tests/support/Harness.h"
#include "tests/support/Table.h"

using namespace koriva::test;

namespace {

/// An event whose ids are not those that the request is given.
KRCallEvent callEvent(std::string_view type) {
  using E = KRCallEvent;
  using Key = E::Key;
  const auto call = koriva::json::decode<KRCall>(readTable("records.txt").at(1).input).value();
  const std::map<Key, E> events{
      {Key::startCall, E::StartCall{call}},
      {Key::createCall, E::CreateCall{call}},
      {Key::answerCall, E::AnswerCall{{"x", "2", 1}}},
      {Key::stopCall, E::StopCall{{"x", "y"}}},
      {Key::iceSdp, E::IceSdp{{"v=0", 1}}},
      {Key::iceCandindate, E::IceCandidate{{"can", "mid", 3}}},
      {Key::customEvent, E::CustomEvent{{"x", "y", 3, "data", "g0", "c0"}}},
      {Key::sendEventCall, E::SendEventCall{{"x", "y", 2}}}};
  const auto& event = events.at(koriva::fromRawValue<Key>(type).value());
  EXPECT_EQ(event.type(), type);
  EXPECT_EQ(text(event), *koriva::toJsonString({{type, event.toDictionary()}}));
  return event;
}

/// An argument of a request, made of what a heading tells; of a completion that is its name.
template <class T>
T argument(const json::value& value) {
  using Kind = KRGroupEventKind;
  if constexpr (std::is_convertible_v<Done, T>) {
    return Done{json::value_to<std::string>(value)};
  } else if constexpr (std::is_same_v<T, std::string>) {
    return boost::replace_all_copy(json::value_to<T>(value), "(bad byte)", "\xff");
  } else if constexpr (std::is_same_v<T, KRCallEvent>) {
    return callEvent(value.as_string());
  } else if constexpr (std::is_same_v<T, KRGroupEvent>) {
    return {"g1", value == "start" ? Kind(Kind::StartTyping{}) : Kind(Kind::UpdateMessage{})};
  } else if constexpr (std::is_enum_v<T>) {
    return koriva::fromRawValue<T>(value.as_int64()).value();
  } else if constexpr (requires { T::coding; }) {
    return koriva::json::decode<T>(json::serialize(value)).value();
  } else {
    return json::value_to<T>(value);
  }
}

using Call = std::function<void(const json::array& arguments)>;

template <class... A>
Call call(void (KorivaSDK::*request)(A...)) {
  return [=](const json::array& arguments) {
    const auto invoke = [&]<std::size_t... i>(std::index_sequence<i...>) {
      std::invoke(request, KorivaSDK::shared(), argument<std::decay_t<A>>(arguments.at(i))...);
    };
    invoke(std::index_sequence_for<A...>());
  };
}

std::map<std::string, Call> mapOf(const auto&... pairs) { return {pairs...}; }

#define CALL(name) std::pair(#name, call(&KorivaSDK::name))
const auto calls =
    mapOf(CALL(getListConversation), CALL(deleteConversation), CALL(muteGroup), CALL(togglePin),
          CALL(checkGroup), CALL(getListMessage), CALL(sendMessage), CALL(updateMessageStatus),
          CALL(deleteMessage), CALL(createGroup), CALL(updateGroup), CALL(deleteGroup),
          CALL(leaveGroup), CALL(sendGroupEvent), CALL(createJoinGroupLink),
          CALL(joinGroupWithLink), CALL(disableJoinGroupLink), CALL(getListGroupLink),
          CALL(getGroupInfo), CALL(handleBlockOrUnblockContact), CALL(getBlockContactList),
          CALL(registerFCMToken), CALL(unregisterFCMToken), CALL(sendLogoutEvent), CALL(createCall),
          CALL(checkCall), CALL(send), CALL(startSecretChat), CALL(acceptSecretChat));

using Rows = std::map<std::string, Row>;

/// A call and the rows below it. Those whose input is no word tell of an answer.
struct Request {
  void send(const std::string& completion = "done") const {
    auto all = arguments;
    all.emplace_back(completion);
    located(rows.begin()->second.place, [&] { invoke(all); });
  }

  std::string call;
  Rows rows;
  std::string name = call.substr(0, call.find('('));
  Call invoke = named(calls, name);
  json::array arguments =
      json::parse("[" + call.substr(name.size() + 1, call.size() - name.size() - 2) + "]")
          .as_array();
  json::array sent = json::parse(named(rows, "sends").output).as_array();
  std::string event{sent.at(0).as_string()};
  bool isAsked = sent.at(2).as_bool();
  std::string trace = rows.contains("prints") ? lines(rows.at("prints").output) : "";
  /// When there is no data.
  std::string failure = rows.contains("fails")
                            ? lines(rows.at("fails").output)
                            : "KorivaSDK - " + event + " failed with error: Parsing error\n";
};

bool isWord(const std::string& input) { return !input.empty() && std::isalpha(input.front()) != 0; }

std::vector<Request> readRequests() {
  const std::set<std::string> words{"sends", "prints", "fails", "answers"};
  std::map<std::string, Rows> blocks;
  for (const auto& row : readTable("requests.txt", readTable("records.txt"))) {
    if (isWord(row.input) && !words.contains(row.input)) refuse(row.place, "there is no such row");
    const bool isNew = blocks[row.name].emplace(row.input, row).second;
    if (!isNew) refuse(row.place, "this was said before");
  }
  std::vector<Request> requests;
  std::set<std::string> used{"asked", "unasked"};
  for (const auto& block : blocks) {
    if (!block.first.ends_with(')')) continue;
    requests.push_back(located(block.second.begin()->second.place, [&] {
      auto rows = block.second;
      if (rows.contains("answers")) {
        const auto& answers = *used.insert(rows.at("answers").output).first;
        rows.merge(Rows(named(blocks, answers)));
      }
      Request request{block.first, rows};
      request.rows.merge(Rows(named(blocks, request.isAsked ? "asked" : "unasked")));
      return request;
    }));
  }
  for (const auto& [name, rows] : blocks) {
    const bool isUsed = name.ends_with(')') || used.contains(name);
    if (!isUsed) refuse(rows.begin()->second.place, "this block is of no use");
  }
  return requests;
}

using RequestsTest = ServerTest;

TEST_F(RequestsTest, SendTheirPayloadAndReadTheAnswer) {
  connect();
  for (const auto& request : readRequests()) {
    for (const auto& each : request.rows) {
      const auto& row = each.second;
      if (isWord(row.input) || !canSend(row.input)) continue;
      SCOPED_TRACE(row.place + ": " + request.call);
      located(row.place, [&] { peer->answer(request.event, row.input); });
      peer->forget();
      console.take();  // what gtest says of the row before
      request.send();
      const auto told = boost::replace_all_copy(lines(row.output), "<failure>\n", request.failure);
      EXPECT_EQ(settle(), request.trace + told);
      EXPECT_EQ(peer->reports("event").at(0), request.sent);
    }
  }
}

TEST_F(RequestsTest, WithoutASocketOnlyPrintTheirTrace) {
  std::string traces;
  auto unused = calls;
  for (const auto& request : readRequests()) {
    request.send();
    traces += request.trace;
    unused.erase(request.name);
  }
  EXPECT_TRUE(unused.empty()) << unused.begin()->first;
  KRRunLoop::main().post([] { koriva::test::printLine("end"); });
  EXPECT_EQ(printedTo("end\n"), traces + "end\n");
}

struct TimedRequestsTest : ServerTest {
  TimedRequestsTest() : ServerTest(std::make_unique<MemoryServer>()) {
    koriva::timing() = {};
    connect();
  }

  koriva::testing::Server& far = static_cast<MemoryServer&>(*peer).far;
};

TEST_F(TimedRequestsTest, FailAfterFiveSecondsWithoutAnAnswer) {
  std::string traces;
  std::string outcomes;
  for (const auto& request : readRequests()) {
    if (!request.isAsked) continue;
    request.send();
    request.send("");
    traces += request.trace + request.trace;
    outcomes += request.failure + "done: failure 6\n" + request.failure;
  }
  EXPECT_EQ(console.take(), traces);
  far.advance(5s - 1ns);
  EXPECT_EQ(console.take(), "");
  far.advance(1ns);
  EXPECT_EQ(console.take(), outcomes);
}

TEST_F(TimedRequestsTest, CompleteOnceEachWithTenThousandInFlight) {
  std::vector<int> completions(10'000);
  for (std::size_t i = 0; i < completions.size(); ++i) {
    sdk->createJoinGroupLink(std::to_string(i), [&, i](const KRResult<std::string>& link) {
      completions[i] += link && link.value() == std::to_string(i) ? 1 : 2;
    });
  }
  far.run();
  for (const auto& request : far.sent()) {
    far.reply(request, {{"result", 0}, {"link", request.payload.at("group_id")}});
  }
  far.advance(5s);
  EXPECT_EQ(completions, std::vector<int>(completions.size(), 1));
}

std::string listOf(std::string_view element, std::size_t count) {
  std::string list = "[";
  for (std::size_t i = 0; i < count; ++i) list.append(element) += ',';
  list.back() = ']';
  return list;
}

TEST_F(TimedRequestsTest, FailWhenTheirAnswersWouldTakeTooMuchMemory) {
  sdk->getListMessage("g", "", 0, 0, Done{"list"});
  sdk->createCall(KRCallEvent::CreateCall{}, Done{"call"});
  far.run();
  ASSERT_EQ(far.sent().size(), 2U);
  // A little more than a power of two: the room of the list has just doubled.
  const auto uins = listOf(R"("")", (std::size_t{1} << 19) + 1);
  far.replyRaw(far.sent()[0], "{\"messages\":" + listOf("{}", 30'000) + "}");
  far.replyRaw(far.sent()[1], "{\"call\":{\"callee_uins\":" + uins + "}}");
  far.run();
  const std::string problem =
      "KorivaSDK - getDataFromAck failed with error: there is no memory for the answer\n";
  const std::string failure = "KorivaSDK - create_message failed with error: Parsing error\n";
  EXPECT_EQ(console.take(),
            problem + "list: failure 1\n" + problem + failure + "call: failure 6\n");
}

}  // namespace
