#pragma once

#include <boost/asio/ip/address.hpp>
#include <boost/system/error_code.hpp>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "socketio/SystemClock.h"

namespace koriva::socketio {

/// Resolves names, for the whole process. Each query has a thread of its own: one that hangs, as
/// they do when a device changes networks, holds up no other name. So that they do not pile up
/// there are at most four at a time and one a name, and the other names wait for their turn.
class Resolver {
 public:
  using Addresses = std::vector<boost::asio::ip::address>;
  using Handler = std::function<void(boost::system::error_code error, const Addresses& found)>;

  static Resolver& shared();

  /// Calls `handler` once, on `executor` and never before this returns, if `owner` is still there
  /// by then. Without an error there may be no address either.
  void resolve(const std::string& name, const Executor& executor, std::weak_ptr<void> owner,
               Handler handler);

 private:
  struct Waiter {
    Executor executor;
    std::weak_ptr<void> owner;
    Handler handler;
  };
  struct Query {
    void finish(boost::system::error_code error, const Addresses& found);

    std::string name;
    std::vector<Waiter> waiters;
    bool isUnderWay = false;
  };

  void forgetAbandoned();
  void startNext();
  void run(const std::string& name);

  std::mutex mutex_;
  std::list<Query> queries_;  // in the order in which they are started
};

}  // namespace koriva::socketio
