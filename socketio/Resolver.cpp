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

constexpr std::ptrdiff_t maxQueries = 4;

}  // namespace

Resolver& Resolver::shared() {
  static Resolver& resolver = *new Resolver;  // threads of its own may outlive static objects
  return resolver;
}

void Resolver::resolve(const std::string& name, const Executor& executor, std::weak_ptr<void> owner,
                       Handler handler) {
  const std::lock_guard lock(mutex_);
  forgetAbandoned();
  auto query = std::ranges::find(queries_, name, &Query::name);
  if (query == queries_.end()) query = queries_.insert(query, Query{name, {}});
  query->waiters.push_back({executor, std::move(owner), std::move(handler)});
  startNext();
}

void Resolver::Query::finish(error_code error, const Addresses& found) {
  for (auto& [executor, owner, handler] : waiters) {
    if (owner.expired()) continue;
    boost::asio::post(executor, [owner = owner, handler = std::move(handler), error, found] {
      if (const auto alive = owner.lock()) handler(error, found);
    });
  }
}

void Resolver::forgetAbandoned() {
  for (auto& query : queries_) {
    std::erase_if(query.waiters, [](const Waiter& waiter) { return waiter.owner.expired(); });
  }
  queries_.remove_if([](const Query& it) { return !it.isUnderWay && it.waiters.empty(); });
}

void Resolver::startNext() {
  auto room = maxQueries - std::ranges::count(queries_, true, &Query::isUnderWay);
  for (auto it = queries_.begin(); it != queries_.end() && room > 0;) {
    const auto next = it++;
    if (next->isUnderWay) continue;
    try {
      std::thread([this, name = next->name] { run(name); }).detach();
      next->isUnderWay = true;
      --room;
    } catch (const std::system_error& noThread) {
      next->finish(noThread.code(), {});
      queries_.erase(next);
    }
  }
}

void Resolver::run(const std::string& name) {
  error_code error;
  Addresses found;
  try {
    boost::asio::io_context context;
    for (const auto& result : tcp::resolver(context).resolve(name, "", error)) {
      found.push_back(result.endpoint().address());
    }
  } catch (const std::exception&) {
    error = boost::asio::error::no_memory;
  }
  const std::lock_guard lock(mutex_);
  const auto done = std::ranges::find(queries_, name, &Query::name);
  done->finish(error, found);
  queries_.erase(done);
  forgetAbandoned();
  startNext();
}

}  // namespace koriva::socketio
