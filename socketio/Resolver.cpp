#include "socketio/Resolver.h"

#include <algorithm>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <list>
#include <mutex>
#include <system_error>
#include <thread>

namespace koriva::socketio {
namespace {

using boost::system::error_code;

constexpr int maxThreads = 4;

struct Waiter {
  Executor executor;
  std::weak_ptr<void> owner;
  ResolveHandler handler;
};

struct Query {
  std::string name;
  std::vector<Waiter> waiters;
  bool isUnderWay = false;
};

class Resolver {
 public:
  void add(const std::string& name, Waiter waiter) {
    const std::lock_guard lock(mutex_);
    forgetAbandoned();
    auto query = std::ranges::find(queries_, name, &Query::name);
    if (query == queries_.end()) query = queries_.insert(query, Query{name, {}});
    query->waiters.push_back(std::move(waiter));
    if (query->isUnderWay || threads_ == maxThreads) return;
    try {
      std::thread([this, query] { work(query); }).detach();
      query->isUnderWay = true;
      ++threads_;
    } catch (const std::system_error& noThread) {
      finish(query, noThread.code(), {});
    }
  }

 private:
  void work(std::list<Query>::iterator query) {
    while (true) {
      error_code error;
      const auto found = look(query->name, error);
      const std::lock_guard lock(mutex_);
      finish(query, error, found);
      forgetAbandoned();
      query = std::ranges::find(queries_, false, &Query::isUnderWay);
      if (query == queries_.end()) {
        --threads_;
        return;
      }
      query->isUnderWay = true;
    }
  }

  static Addresses look(const std::string& name, error_code& error) {
    Addresses found;
    try {
      boost::asio::io_context context;
      for (const auto& result : boost::asio::ip::tcp::resolver(context).resolve(name, "", error)) {
        found.push_back(result.endpoint().address());
      }
    } catch (const std::exception&) {
      error = boost::asio::error::no_memory;
    }
    return found;
  }

  void finish(std::list<Query>::iterator query, error_code error, const Addresses& found) {
    for (auto& [executor, owner, handler] : query->waiters) {
      if (owner.expired()) continue;
      try {
        boost::asio::post(executor, [owner = owner, handler = std::move(handler), error, found] {
          if (const auto alive = owner.lock()) handler(error, found);
        });
      } catch (const std::bad_alloc&) {
        continue;  // the attempt ends by its time-out
      }
    }
    queries_.erase(query);
  }

  void forgetAbandoned() {
    for (auto& query : queries_) {
      std::erase_if(query.waiters, [](const Waiter& waiter) { return waiter.owner.expired(); });
    }
    queries_.remove_if([](const Query& it) { return !it.isUnderWay && it.waiters.empty(); });
  }

  std::mutex mutex_;
  std::list<Query> queries_;  // in the order in which they are started
  int threads_ = 0;
};

}  // namespace

void resolve(const std::string& name, const Executor& executor, std::weak_ptr<void> owner,
             ResolveHandler handler) {
  static Resolver& resolver = *new Resolver;  // threads of its own may outlive static objects
  resolver.add(name, {executor, std::move(owner), std::move(handler)});
}

}  // namespace koriva::socketio
