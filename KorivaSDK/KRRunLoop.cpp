#include "KorivaSDK/KRRunLoop.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <cstdlib>
#include <utility>

#include "KorivaSDK/KRVersion.h"
#include "KorivaSDK/NetworkThread.h"
#include "KorivaSDK/RunLoopInternals.h"
#include "socketio/Platform.h"
#include "socketio/WebSocket.h"

using koriva::platform::isForkedChild;
using std::chrono::steady_clock;

namespace {

constexpr int maxDepth = 8;
constexpr auto closingLimit = std::chrono::seconds(1);
constexpr auto retryInterval = std::chrono::seconds(1);

/// How long a stage's time goes on for a run without an end.
constexpr auto stageLimit = std::chrono::hours(24);

}  // namespace

KRRunLoop::KRRunLoop() : internals_(std::make_unique<Internals>()) {}
KRRunLoop::~KRRunLoop() = default;

KRRunLoop& KRRunLoop::main() {
  static KRRunLoop& loop = *new KRRunLoop;  // outlives every static object that may call it
  return loop;
}

void KRRunLoop::run() { runFor(steady_clock::duration::max()); }

void KRRunLoop::runFor(steady_clock::duration duration) {
  auto& loop = *internals_;
  if (loop.canDrive()) loop.drive([&] { loop.runFor(duration); });
}

void KRRunLoop::poll() {
  auto& loop = *internals_;
  if (!loop.canDrive()) return;
  loop.isWoken = false;
  loop.drive([&] { loop.runReady(false); });
}

void KRRunLoop::stop() {
  auto& loop = *internals_;
  if (isForkedChild()) return;
  loop.stopRequested = true;
  if (loop.runs > 0) loop.environment().postHandler([&loop] { loop.interrupt(); });
}

void KRRunLoop::post(std::function<void()> task) {
  if (!task || isForkedChild()) return;
  internals_->environment().postHandler([task = std::move(task)] { koriva::guarded(task); });
}

bool KRRunLoop::attach(std::function<void()> wakeUp) {
  auto& loop = *internals_;
  if (!wakeUp || isForkedChild()) return false;
  if (loop.isAttached || loop.depth > 0 || loop.stage || !loop.prepareToWait()) return false;
  loop.divide(std::move(wakeUp));
  try {
    loop.networkThread->start();
  } catch (const std::exception&) {
    loop.divide({});
    return false;
  }
  koriva::socketio::prepareTls();
  [[maybe_unused]] static const int error = std::atexit([] {
    if (isForkedChild()) return;
    main().internals().networkThread->endAtExit(steady_clock::now() + closingLimit);
  });
  loop.wake();  // for what was posted before
  return true;
}

void KRRunLoop::detach() {
  auto& loop = *internals_;
  if (isForkedChild() || !loop.isAttached) return;
  loop.leave();
  loop.networkThread->end(steady_clock::now() + closingLimit);
  loop.unite();
}

KRRunLoop::Internals::Internals()
    : networkThread(std::make_unique<koriva::NetworkThread>(io, environment_)) {
  koriva::platform::watchForks();
  environment_.setOneThread(true);
  prepareToWait();
}

bool KRRunLoop::Internals::prepareToWait() {
  try {
    const koriva::socketio::SystemTimer made(io.get_executor());
    return true;
  } catch (const boost::system::system_error&) {
    return false;
  }
}

void KRRunLoop::Internals::keepException(std::exception_ptr exception) {
  if (!kept) kept = std::move(exception);
  interrupt();
  wake();
}

/// Has the calls under way that drive the loop look whether they are over. On the main thread:
/// from another one it might come before a restart.
void KRRunLoop::Internals::interrupt() {
  ready.stop();
  if (!isAttached) io.stop();
}

bool KRRunLoop::Internals::canDrive() const { return depth < maxDepth && !isForkedChild(); }

/// Calls what drives the loop, and rethrows what application code has thrown meanwhile. What was
/// thrown before, in a callback within which this happens, is left to the call outside.
template <class Go>
void KRRunLoop::Internals::drive(Go go) {
  auto outer = depth++ > 0 ? std::exchange(kept, nullptr) : nullptr;
  go();
  if (--depth > 0) interrupt();
  const auto thrown = std::exchange(kept, std::move(outer));
  if (!thrown) return;
  wake();  // for what was left undone
  std::rethrow_exception(thrown);
}

void KRRunLoop::Internals::runFor(Duration duration) {
  const bool isOutermost = runs++ == 0;
  const auto now = steady_clock::now();
  if (stage) {
    runOnStage(duration);
  } else if (duration > now.max() - now) {  // the clock cannot tell the end
    // One by one, tasks would not find the memory of the one before.
    while (!isOver()) runOne([](auto& context) { return context.run(); });
  } else {
    while (!isOver() && runOneUntil(now + duration)) {
    }
  }
  if (isOutermost && stopRequested) {
    if (!isAttached && !isForkedChild()) finishClosing();
    if (!kept) stopRequested = false;
  }
  --runs;
}

// A logout is often the last thing before the loop is stopped.
void KRRunLoop::Internals::finishClosing() {
  const auto end = steady_clock::now() + closingLimit;
  while (environment_.isClosing() && runOneUntil(end)) {
  }
}

void KRRunLoop::Internals::runOnStage(Duration duration) {
  const auto on = stage;  // a callback may end it
  const auto now = on->world().clock->now();
  const bool isEndless = duration > now.max() - now;
  const auto end = isEndless ? now + stageLimit : now + duration;
  do {
    runReady(true);
    if (isOver()) return;
  } while (on->advance(end));
  if (isEndless && stage == on) koriva::guarded([&] { on->onEndlessRun(); });
}

void KRRunLoop::Internals::runReady(bool endsWhenStopped) {
  while (!(endsWhenStopped ? isOver() : kept || isForkedChild())) {
    if (runOne([this](auto& it) { return stage ? it.poll_one() : it.poll(); }) == 0) return;
    if (const auto on = stage) on->onTaskDone();
  }
}

bool KRRunLoop::Internals::runOneUntil(TimePoint end) {
  return runOne([end](auto& context) { return context.run_one_until(end); }) != 0;
}

template <class Run>
std::size_t KRRunLoop::Internals::runOne(Run run) {
  return koriva::runSurviving(environment_, isAttached || marks > 0 ? ready : io, run);
}

void KRRunLoop::Internals::divide(std::function<void()> wakeUp) {
  const bool isApart = static_cast<bool>(wakeUp);
  retry = isApart ? environment_.clock()->makeTimer() : nullptr;
  wakeUp_.swap(wakeUp);  // the one before is destroyed when all is done
  environment_.setOneThread(!isApart);
  isWoken = false;
  isAttached = isApart;
}

void KRRunLoop::Internals::leave() {
  boost::asio::post(io, [this] {
    koriva::socketio::Connection::endAll(environment_, "the run loop was detached");
  });
  isWoken = true;
}

void KRRunLoop::Internals::unite() {
  divide({});
  ++marks;
  boost::asio::post(ready, [this] {
    --marks;
    interrupt();
  });
  drive([this] {
    while (!kept && marks > 0) runOne([](auto& context) { return context.poll_one(); });
  });
}

void KRRunLoop::Internals::onHandlerPosted() {
  if (isAttached) return wake();
  boost::asio::post(io, [this] { takeTurn(); });
}

void KRRunLoop::Internals::wake() {
  if (isAttached && !isWoken) boost::asio::dispatch(io, [this] { takeTurn(); });
}

// There is one for each task in `ready`: whose turn it is may have changed since that was posted.
void KRRunLoop::Internals::takeTurn() {
  if (!isAttached) {
    ready.restart();
    ready.poll_one();
  } else if (!isWoken.exchange(true)) {
    callWakeUp();
  }
}

void KRRunLoop::Internals::callWakeUp() {
  std::exception_ptr thrown;
  try {
    return wakeUp_();
  } catch (...) {
    thrown = std::current_exception();  // which the main thread destroys
  }
  isWoken = false;
  retry->set(environment_.clock()->now() + retryInterval, [this] { wake(); });
  if (hasWakeUpThrown.exchange(true)) return;
  boost::asio::post(ready, [this, thrown = std::move(thrown)] {
    hasWakeUpThrown = false;
    keepException(thrown);
  });
}

koriva::testing::Staging koriva::testing::setStage(std::shared_ptr<Stage> stage, int version) {
  auto& loop = KRRunLoop::main().internals();
  if (version != KORIVA_SDK_VERSION) return {{}, "the library is of another version"};
  if (loop.isAttached) return {{}, "the network has a thread of its own"};
  if (stage && loop.stage) return {{}, "there is another one"};
  const auto system = loop.environment_.systemWorld();
  loop.environment_.setWorld(stage ? stage->world() : system);
  loop.stage = std::move(stage);
  return {system.clock};
}

void koriva::testing::postToNetwork(std::function<void()> task) {
  boost::asio::post(KRRunLoop::main().internals().io,
                    [task = std::move(task)] { koriva::guarded(task); });
}
