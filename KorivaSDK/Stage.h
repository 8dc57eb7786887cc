#pragma once

#include <functional>
#include <memory>

#include "extensions/KRExport.h"
#include "socketio/Transport.h"

namespace koriva::testing {

/// A world whose time stands still until somebody moves it on.
class Stage {
 public:
  virtual ~Stage() = default;
  virtual socketio::World world() = 0;
  /// Moves time on to what is to be done next, which is posted then. When there is nothing to be
  /// done before, to the end: false.
  virtual bool advance(socketio::TimePoint end) = 0;
  /// `KRRunLoop::run()` returns though nobody has stopped it: nobody will.
  virtual void onEndlessRun() = 0;
  /// Before the main thread's next task: what other threads do in between.
  virtual void onTaskDone() {}
};

/// Has everything that the library builds from now on live on the stage; without one, in the
/// system's world again. Gives the system's clock, or why it is refused. On the main thread.
///
/// Exported, as what follows, for `KorivaSDK::Testing` of the same version alone: no release need
/// keep it.
struct Staging {
  std::shared_ptr<socketio::Clock> systemClock;
  const char* refusal = nullptr;
};
KR_EXPORT Staging setStage(std::shared_ptr<Stage> stage, int version);

/// Runs the task where the library's network I/O runs, later.
KR_EXPORT void postToNetwork(std::function<void()> task);

}  // namespace koriva::testing
