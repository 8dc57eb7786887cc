#include "KorivaSDK/Log.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <new>
#include <utility>

#include "KorivaSDK/RunLoopInternals.h"
#include "extensions/JSONText.h"
#include "socketio/Platform.h"

namespace koriva {

struct LogSink {
  KRLogSink take;
  KRLogLevel lowest;
};

namespace {

constexpr std::ptrdiff_t shortestShown = 16;
constexpr int shownCharacters = 4;

/// Whether the sink is under way on this thread.
constinit thread_local bool isWithinSink = false;

/// What setLogSink has set, read and written by std::atomic_load and std::atomic_store alone. Never
/// destroyed: threads may log until the process ends.
std::shared_ptr<const LogSink>& currentSink() {
  static auto& sink = *new std::shared_ptr<const LogSink>;
  return sink;
}

void writeToStandardOutput(std::string line) {
  static std::atomic<std::size_t> dropped = 0;
  auto missing = dropped.exchange(0);
  if (missing != 0 &&
      platform::writeLine("KorivaSDK - lines dropped: " + std::to_string(missing))) {
    missing = 0;
  }
  if (missing != 0 || !platform::writeLine(std::move(line))) ++missing;
  dropped += missing;
}

/// Has the run loop rethrow what is being handled, unless something waits for that already.
void rethrowLater() {
  static std::atomic<bool> isWaiting = false;
  if (isWaiting.exchange(true)) return;
  auto& loop = KRRunLoop::main().internals();
  try {
    loop.environment().postHandler([&loop, thrown = std::current_exception()] {
      isWaiting = false;
      loop.keepException(thrown);
    });
  } catch (const std::bad_alloc&) {
    isWaiting = false;  // too little memory to tell of it
  }
}

bool beginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

std::string shortened(std::string_view text) {
  const auto count = std::ranges::count_if(text, beginsCharacter);
  if (count < shortestShown) return std::string(static_cast<std::size_t>(count), '.');
  auto from = text.end();
  for (int left = shownCharacters; left > 0;) {
    if (beginsCharacter(*--from)) --left;
  }
  return "…" + std::string(from, text.end());
}

}  // namespace

Log::Log(KRLogLevel level) : level_(level) {
  if (!platform::isForkedChild()) sink_ = std::atomic_load(&currentSink());
}

bool Log::isOn() const {
  if (!sink_) return !platform::isForkedChild();
  return level_ >= sink_->lowest && !isWithinSink;
}

std::string Log::secret(std::string text) const {
  return sink_ ? shortened(json::validUtf8(std::move(text))) : text;
}

void Log::write(std::string line) const {
  if (!sink_) return writeToStandardOutput(std::move(line));
  isWithinSink = true;
  try {
    sink_->take(level_, json::validUtf8(std::move(line)));
  } catch (...) {
    rethrowLater();
  }
  isWithinSink = false;
}

}  // namespace koriva

void koriva::setLogSink(KRLogSink sink, KRLogLevel level) {
  if (platform::isForkedChild()) return;
  std::shared_ptr<const LogSink> next;
  if (sink) next = std::make_shared<const LogSink>(LogSink{std::move(sink), level});
  std::atomic_store(&currentSink(), std::move(next));
}

void koriva::printLine(KRLogLevel level, std::string line) {
  const Log log(level);
  if (log.isOn()) log.write(std::move(line));
}

void koriva::logLine(KRLogLevel level, std::string line) {
  const Log log(level);
  if (log.hasSink() && log.isOn()) log.write(std::move(line));
}
