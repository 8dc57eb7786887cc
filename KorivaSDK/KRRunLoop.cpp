#include "KorivaSDK/KRRunLoop.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <cstdlib>
#include <future>
#include <system_error>
#include <utility>

#include "KorivaSDK/KRVersion.h"
#include "KorivaSDK/RunLoopInternals.h"
#include "socketio/Alarm.h"
#include "socketio/WebSocket.h"

namespace {

constexpr auto farewellLimit = std::chrono::seconds(1);

/// How long a stage's time goes on for a run without an end.
constexpr auto stageLimit = std::chrono::hours(24);

/// Makes what a context waits with, unless it has that. False when no descriptors are left for it.
bool prepare(boost::asio::io_context& context) {
  try {
    const koriva::socketio::SystemTimer made(context.get_executor());
    return true;
  } catch (const boost::system::system_error&) {
    return false;
  }
}

}  // namespace

KRRunLoop::KRRunLoop() : internals_(std::make_unique<Internals>()) {
  prepare(*internals_->reserve);
}
KRRunLoop::~KRRunLoop() = default;

KRRunLoop& KRRunLoop::main() {
  static KRRunLoop& loop = *new KRRunLoop;  // outlives every static object that may call it
  return loop;
}

void KRRunLoop::run() { runFor(std::chrono::steady_clock::duration::max()); }

void KRRunLoop::runFor(std::chrono::steady_clock::duration duration) {
  auto& loop = *internals_;
  loop.rethrowKept();
  const bool isNested = loop.running.exchange(true);
  loop.context.restart();
  // After the restart: a stop from another thread either is seen here or stops the context.
  if (!loop.stopRequested) {
    const auto now = std::chrono::steady_clock::now();
    if (loop.stage) {
      loop.runOnStage(duration);
    } else if (duration > now.max() - now) {
      loop.context.run();  // the clock cannot tell the end
    } else {
      loop.context.run_until(now + duration);
    }
  }
  loop.running = isNested;
  if (loop.stopRequested && !loop.attached) loop.finishFarewells();
  loop.stopRequested = false;
  loop.rethrowKept();
}

void KRRunLoop::Internals::runOnStage(std::chrono::steady_clock::duration duration) {
  const auto on = stage;  // a callback may end it
  const auto now = on->world().clock->now();
  const bool isEndless = duration > now.max() - now;
  const auto end = isEndless ? now + stageLimit : now + duration;
  do {
    runReady();
    if (context.stopped() || stopRequested) return;
  } while (on->advance(end));
  if (isEndless && stage == on) koriva::guarded([&] { on->onEndlessRun(); });
}

void KRRunLoop::Internals::runReady() {
  if (!stage) {
    context.poll();
    return;
  }
  while (context.poll_one() != 0) {
    if (const auto on = stage) on->onTaskDone();
  }
}

void KRRunLoop::poll() {
  auto& loop = *internals_;
  loop.woken = false;
  if (loop.kept) loop.wake();  // what is ready is left to the next call
  loop.rethrowKept();
  loop.context.restart();
  loop.runReady();
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
  if (!wakeUp || loop.environment_) return false;
  loop.reserve.reset();
  koriva::socketio::prepareTls();
  try {
    loop.networkThread = std::thread([&loop] { loop.network.run(); });
  } catch (const std::system_error&) {
    return false;
  }
  if (!prepare(loop.network)) {
    loop.network.stop();
    loop.networkThread.join();
    loop.network.restart();
    return false;
  }

  loop.divide(std::move(wakeUp));
  std::atexit([] { main().internals().endNetwork(); });
  loop.wake();  // for what was posted before
  return true;
}

void KRRunLoop::Internals::divide(std::function<void()> wakeMain) {
  wakeUp = std::move(wakeMain);
  attached = true;
  environment_.emplace(network.get_executor());
  environment_->setHandleQueue(context.get_executor(), [this] { wake(); });
}

koriva::testing::Staging koriva::testing::setStage(std::shared_ptr<Stage> stage, int version) {
  auto& loop = KRRunLoop::main().internals();
  if (version != KORIVA_SDK_VERSION) return {{}, "the library is of another version"};
  if (loop.networkThread.joinable()) return {{}, "the network has a thread of its own"};
  if (stage && loop.stage) return {{}, "there is another one"};
  loop.environment();  // settles that the network has no thread of its own
  auto& environment = *loop.environment_;
  const auto system = environment.systemWorld();
  environment.setWorld(stage ? stage->world() : system);
  loop.stage = std::move(stage);
  return {system.clock};
}

void koriva::testing::postToNetwork(std::function<void()> task) {
  boost::asio::post(KRRunLoop::main().internals().environment().io(),
                    [task = std::move(task)] { koriva::guarded(task); });
}

const koriva::socketio::Environment& KRRunLoop::Internals::environment() {
  const std::lock_guard lock(setUpMutex);
  if (!environment_) environment_.emplace(context.get_executor());
  return *environment_;
}

bool KRRunLoop::Internals::prepareToWait() {
  const std::lock_guard lock(setUpMutex);
  reserve.reset();
  return prepare(attached ? network : context);
}

bool KRRunLoop::Internals::isSayingFarewell() {
  return environment_ && environment_->isSayingFarewell();
}

// A logout is often the last thing before the loop is stopped.
void KRRunLoop::Internals::finishFarewells() {
  const auto deadline = std::chrono::steady_clock::now() + farewellLimit;
  while (isSayingFarewell() && std::chrono::steady_clock::now() < deadline) {
    context.restart();
    context.run_one_until(deadline);
  }
  context.stop();
}

// Or the last thing before the process ends.
void KRRunLoop::Internals::endNetwork() {
  if (networkThread.get_id() == std::this_thread::get_id()) {
    networkThread.detach();
    return network.stop();
  }
  const auto deadline = std::chrono::steady_clock::now() + farewellLimit;
  auto reached = std::make_shared<std::promise<void>>();
  boost::asio::post(network, [reached] { reached->set_value(); });
  reached->get_future().wait_until(deadline);
  while (isSayingFarewell() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  network.stop();
  networkThread.join();
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
