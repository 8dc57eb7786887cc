#include "socketio/Resolver.h"

#include <algorithm>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <system_error>
#include <thread>

namespace koriva::socketio {
namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;

constexpr std::ptrdiff_t maxLookUps = 4;

}  // namespace

Resolver& Resolver::shared() {
  static Resolver& resolver = *new Resolver;  // threads of its own may outlive static objects
  return resolver;
}

void Resolver::resolve(const std::string& name, const Executor& executor, std::weak_ptr<void> owner,
                       Handler handler) {
  const std::lock_guard lock(mutex_);
  forgetAbandoned();
  auto lookUp = std::ranges::find(lookUps_, name, &LookUp::name);
  if (lookUp == lookUps_.end()) lookUp = lookUps_.insert(lookUp, LookUp{name, {}});
  lookUp->waiters.push_back({executor, std::move(owner), std::move(handler)});
  startNext();
}

void Resolver::LookUp::finish(error_code error, const Addresses& found) {
  for (auto& [executor, owner, handler] : waiters) {
    if (owner.expired()) continue;
    boost::asio::post(executor, [owner = owner, handler = std::move(handler), error, found] {
      if (const auto alive = owner.lock()) handler(error, found);
    });
  }
}

void Resolver::forgetAbandoned() {
  for (auto& lookUp : lookUps_) {
    std::erase_if(lookUp.waiters, [](const Waiter& waiter) { return waiter.owner.expired(); });
  }
  lookUps_.remove_if([](const LookUp& it) { return !it.isUnderWay && it.waiters.empty(); });
}

void Resolver::startNext() {
  auto room = maxLookUps - std::ranges::count(lookUps_, true, &LookUp::isUnderWay);
  for (auto it = lookUps_.begin(); it != lookUps_.end() && room > 0;) {
    const auto next = it++;
    if (next->isUnderWay) continue;
    try {
      std::thread([this, name = next->name] { run(name); }).detach();
      next->isUnderWay = true;
      --room;
    } catch (const std::system_error& noThread) {
      next->finish(noThread.code(), {});
      lookUps_.erase(next);
    }
  }
}

void Resolver::run(const std::string& name) {
  boost::asio::io_context context;
  error_code error;
  Addresses found;
  for (const auto& result : tcp::resolver(context).resolve(name, "", error)) {
    found.push_back(result.endpoint().address());
  }
  const std::lock_guard lock(mutex_);
  const auto done = std::ranges::find(lookUps_, name, &LookUp::name);
  done->finish(error, found);
  lookUps_.erase(done);
  forgetAbandoned();
  startNext();
}

}  // namespace koriva::socketio
