#pragma once

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "socketio/Transport.h"

namespace koriva::socketio {

using Executor = boost::asio::io_context::executor_type;

/// A timer of the system's.
using SystemTimer = boost::asio::basic_waitable_timer<
    std::chrono::steady_clock, boost::asio::wait_traits<std::chrono::steady_clock>, Executor>;

class Connection;

/// What connections are built on: where they run, what time it is and how they reach a server.
/// Network I/O runs on one executor, handlers on another (the "handle queue"); the two may be the
/// same. Outlives everything that was built on it.
class Environment {
 public:
  explicit Environment(const Executor& io) : Environment(io, io) {}
  /// `handlerPosted` is called after each task that is posted to the handle queue, on the posting
  /// thread.
  Environment(const Executor& io, const Executor& handlers,
              std::function<void()> handlerPosted = {});

  /// Says whether one thread drives both executors, so that what runs on the I/O executor is on
  /// the handle queue, too. While no other thread drives either.
  void setOneThread(bool isOne) { isOneThread_ = isOne; }

  // From any thread.

  [[nodiscard]] const Executor& io() const { return io_; }
  /// True while the caller is run by the I/O executor.
  [[nodiscard]] bool onIo() const { return io_.running_in_this_thread(); }

  // From both executors.

  /// True while the caller is run by the handle queue.
  [[nodiscard]] bool onHandleQueue() const {
    return (isOneThread_ && onIo()) || handlers_.running_in_this_thread();
  }

  [[nodiscard]] const std::shared_ptr<Clock>& clock() const { return world_.clock; }
  [[nodiscard]] std::shared_ptr<Transport> makeTransport() const { return world_.makeTransport(); }
  [[nodiscard]] double chance() const { return world_.chance(); }

  /// The system's time and chance, and WebSockets.
  [[nodiscard]] World systemWorld() const;
  /// Sets the world of what is built from now on. On the thread that builds.
  void setWorld(World world) { world_ = std::move(world); }

  /// Held while a connection is being closed in the background, after what was sent before.
  [[nodiscard]] std::shared_ptr<void> closing() const { return closing_; }
  [[nodiscard]] bool isClosing() const { return closing_.use_count() > 1; }

  // The connections that may stand. On the I/O executor.
  void add(std::weak_ptr<Connection> connection) const;
  [[nodiscard]] std::vector<std::weak_ptr<Connection>> connections() const { return connections_; }

  /// Runs `task` on the handle queue: now when the caller is on it, else later, in order.
  template <class Task>
  void dispatchHandler(Task task) const {
    onHandleQueue() ? task() : postHandler(std::move(task));
  }

  /// Runs `task` on the handle queue, never before this call returns. From any thread.
  template <class Task>
  void postHandler(Task&& task) const {
    boost::asio::post(handlers_, std::forward<Task>(task));
    if (handlerPosted_) handlerPosted_();
  }

 private:
  const Executor io_;
  const Executor handlers_;
  const std::function<void()> handlerPosted_;
  bool isOneThread_ = false;
  World world_;
  const std::shared_ptr<void> closing_ = std::make_shared<char>();
  mutable std::vector<std::weak_ptr<Connection>> connections_;
};

}  // namespace koriva::socketio
