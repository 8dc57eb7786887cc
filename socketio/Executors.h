#pragma once

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <functional>
#include <utility>

namespace koriva::socketio {

using Executor = boost::asio::io_context::executor_type;

/// Where things run: network I/O on one executor, handlers on another (the "handle queue").
/// The two may be the same. Outlives everything that was built on it.
class Executors {
 public:
  /// `handlerPosted` is called after each task posted to the handle queue, on the posting thread.
  Executors(Executor io, Executor handlers, std::function<void()> handlerPosted = {})
      : io_(std::move(io)),
        handlers_(std::move(handlers)),
        handlerPosted_(std::move(handlerPosted)) {}

  [[nodiscard]] const Executor& io() const { return io_; }

  /// True while the caller is run by the handle queue.
  [[nodiscard]] bool onHandleQueue() const { return handlers_.running_in_this_thread(); }

  /// How many connections are being closed in the background, after what was sent before.
  [[nodiscard]] std::atomic<int>& farewells() const { return farewells_; }

  /// Runs `task` on the handle queue: now when the caller is on it, else later, in order.
  template <class Task>
  void dispatchHandler(Task&& task) const {
    if (onHandleQueue()) {
      std::forward<Task>(task)();
    } else {
      postHandler(std::forward<Task>(task));
    }
  }

  /// Runs `task` on the handle queue, never before this call returns.
  template <class Task>
  void postHandler(Task&& task) const {
    boost::asio::post(handlers_, std::forward<Task>(task));
    if (handlerPosted_) handlerPosted_();
  }

 private:
  Executor io_;
  Executor handlers_;
  std::function<void()> handlerPosted_;
  mutable std::atomic<int> farewells_ = 0;
};

}  // namespace koriva::socketio
