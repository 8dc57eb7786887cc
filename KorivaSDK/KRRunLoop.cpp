#include "KorivaSDK/KRRunLoop.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <cstdlib>
#include <utility>

#include "KorivaSDK/RunLoopInternals.h"

KRRunLoop::KRRunLoop() : internals_(std::make_unique<Internals>()) {}
KRRunLoop::~KRRunLoop() = default;

KRRunLoop& KRRunLoop::main() {
  static KRRunLoop& loop = *new KRRunLoop;  // outlives every static object that may call it
  return loop;
}

void KRRunLoop::run() { runFor(std::chrono::steady_clock::duration::max()); }

void KRRunLoop::runFor(std::chrono::steady_clock::duration duration) {
  auto& loop = *internals_;
  loop.rethrowKept();
  loop.running = true;
  loop.context.restart();
  // After the restart: a stop from another thread either is seen here or stops the context.
  if (!loop.stopRequested) {
    if (duration == duration.max()) {
      loop.context.run();
    } else {
      loop.context.run_for(duration);
    }
  }
  loop.running = false;
  loop.rethrowKept();
  if (loop.context.stopped() || loop.stopRequested) loop.stopRequested = false;
}

void KRRunLoop::poll() {
  auto& loop = *internals_;
  loop.woken = false;
  loop.rethrowKept();
  loop.context.restart();
  loop.context.poll();
  loop.rethrowKept();
}

void KRRunLoop::stop() {
  internals_->stopRequested = true;
  if (internals_->running) internals_->context.stop();
}

void KRRunLoop::post(std::function<void()> task) {
  if (!task) return;
  boost::asio::post(internals_->context, [task = std::move(task)] { koriva::guarded(task); });
  internals_->wake();
}

bool KRRunLoop::attach(std::function<void()> wakeUp) {
  auto& loop = *internals_;
  const std::lock_guard lock(loop.setUpMutex);
  if (!wakeUp || loop.executors_) return false;

  loop.wakeUp = std::move(wakeUp);
  loop.attached = true;
  loop.executors_.emplace(loop.network.get_executor(), loop.context.get_executor(),
                          [&loop] { loop.wake(); });
  loop.networkThread = std::thread([&loop] { loop.network.run(); });
  std::atexit([] {
    auto& ending = main().internals();
    ending.network.stop();
    if (ending.networkThread.get_id() == std::this_thread::get_id()) {
      ending.networkThread.detach();
    } else {
      ending.networkThread.join();
    }
  });
  loop.wake();  // for what was posted before
  return true;
}

const koriva::socketio::Executors& KRRunLoop::Internals::executors() {
  const std::lock_guard lock(setUpMutex);
  if (!executors_) executors_.emplace(context.get_executor(), context.get_executor());
  return *executors_;
}

void KRRunLoop::Internals::wake() {
  if (!attached || woken.exchange(true)) return;
  boost::asio::dispatch(network, [this] {
    try {
      wakeUp();
    } catch (...) {
      boost::asio::post(context,
                        [this, exception = std::current_exception()] { keepException(exception); });
    }
  });
}

void KRRunLoop::Internals::keepException(std::exception_ptr exception) {
  if (!kept) kept = std::move(exception);
  context.stop();
  wake();  // for the exception, and for what was left undone
}

void KRRunLoop::Internals::rethrowKept() {
  if (kept) std::rethrow_exception(std::exchange(kept, nullptr));
}
