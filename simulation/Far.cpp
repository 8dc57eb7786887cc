#include <algorithm>
#include <boost/algorithm/string/replace.hpp>

#include "simulation/Life.h"

// What the server does.
namespace koriva::simulation {
namespace {

std::string withNumber(std::string_view text, int number) {
  return boost::replace_all_copy(std::string(text), "%", std::to_string(number));
}

}  // namespace

/// One that is connected, rather than another.
const Client& Life::anyClient() {
  std::vector<const Client*> connected;
  for (const auto& client : clients_) {
    if (client.current && client.current->isUp()) connected.push_back(&client);
  }
  if (connected.empty() || random().chance(10)) return clients_[random().below(clients_.size())];
  return *connected[random().below(connected.size())];
}

/// Some request, in any order, perhaps twice.
void Life::answer() {
  if (unanswered_.empty()) return;
  const auto at = random().below(unanswered_.size());
  const auto waiting = unanswered_[at];
  const auto& request = waiting.request;
  if (random().chance(85)) {
    unanswered_.erase(unanswered_.begin() + static_cast<std::ptrdiff_t>(at));
  }
  const auto& answers = random().chance(80) ? kinds()[waiting.kind].answers : uselessAnswers();
  const auto items = answers[random().below(answers.size())].items;
  write("server: answer ", waiting.number, " with [", items, "]");
  // Sent as a frame it comes even if it was answered before; ids begin anew on each connection.
  const bool isCurrent = std::ranges::any_of(clients_, [&](const Client& client) {
    return client.current && client.current->number == request.connection;
  });
  if (!isCurrent || random().chance(80)) return server_->replyRaw(request, items);
  server_->send(texts("43/data,", *request.id, "[", items, "]"), request.token);
}

void Life::push() {
  const auto& push = pushes()[random().below(pushes().size())];
  const auto number = ++numbers_;
  auto& heard = pushed_[number];
  for (const auto call : push.calls) {
    heard.push_back(call.starts_with("didReceiveError") ? std::string(call)
                                                        : texts(call, " ", number));
  }
  const auto item = withNumber(push.item, number);
  write("server: push ", push.event, " ", item);
  const auto& client = anyClient();
  server_->pushRaw(push.event, item, random().chance(50) ? client.token : std::string());
}

/// An event with an attachment.
void Life::pushBinary() {
  const auto number = ++numbers_;
  pushed_[number] = {texts("didDeleteGroup ", number)};
  const auto& token = anyClient().token;
  write("server: push delete_group with an attachment");
  server_->send(texts(R"(451-/data,["delete_group",{"group_id":")", number,
                      R"(","more":{"_placeholder":true,"num":0}}])"),
                token);
  server_->sendBinary("attachment", token);
}

/// More than clients take before they read no further.
void Life::flood() {
  const auto& client = anyClient();
  if (!client.current || !client.current->isUp() || !random().chance(10)) return;
  write("server: push 1500 messages");
  for (auto left = 1500; left > 0; --left) {
    const auto number = ++numbers_;
    pushed_[number] = {texts("didReceive ", number)};
    server_->pushRaw("message", texts(R"({"message_id":")", number, "\"}"), client.token);
  }
  // While the main thread has other things to do.
  while (isAttached() && runNetworkTask()) {
  }
}

void Life::sayStrange() {
  const auto frame =
      withNumber(strangeFrames()[random().below(strangeFrames().size())], ++numbers_);
  const auto& client = anyClient();
  const auto token = random().chance(50) ? client.token : std::string();
  write("server: say ", frame);
  unsettle();
  frame == "b" ? server_->sendBinary(frame, token) : server_->send(frame, token);
}

void Life::drop() {
  const auto& client = anyClient();
  write("server: drop ", client.token);
  unsettle();
  server_->drop(random().chance(80) ? client.token : std::string());
}

void Life::trouble() {
  isWell_ = false;
  unsettle();
  switch (random().below(4)) {
    case 0:
      write("server: refuse");
      return server_->refuse("not now");
    case 1:
      write("server: shut down");
      return server_->shutDown();
    case 2:
      write("server: hang");
      return server_->hang();
    default:
      write("server: no heartbeats");
      isMute_ = true;
  }
}

void Life::recover() {
  write("server: accept");
  server_->accept();
  isMute_ = false;
  if (!std::exchange(isWell_, true)) wellSince_ = now();
}

/// Any connection may end because of what happens now.
void Life::unsettle() { wellSince_ = now(); }

}  // namespace koriva::simulation
