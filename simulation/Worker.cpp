#include "simulation/Worker.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <system_error>

#include "simulation/Allocations.h"
#include "simulation/Invariants.h"
#include "simulation/Life.h"

namespace koriva::simulation {
namespace {

// A life takes milliseconds. What is found has to be true on the slowest of machines; whether fewer
// steps will do has not, and a life may hang each time.
constexpr unsigned patienceSeconds = 300;
constexpr unsigned shortPatienceSeconds = 5;
constexpr auto maxShrinking = std::chrono::minutes(2);

unsigned patience = patienceSeconds;

void discard(int descriptor) {
  const int null = open("/dev/null", O_WRONLY);
  dup2(null, descriptor);
  close(null);
}

void runWhatIsLeft() {
  auto& loop = KRRunLoop::main().internals();
  std::size_t count = 0;
  do {
    loop.ready.restart();
    loop.io.restart();
    count = loop.ready.poll() + loop.io.poll();
  } while (count != 0);
}

}  // namespace

void live(std::uint64_t seed, const Steps& steps, Journal& journal) {
  const auto once = [&] {
    const auto before = allocations();
    alarm(patience);
    journal.begin(seed);
    {
      Life life(seed, journal);
      for (const auto step : steps) life.step(step);
      life.end();
    }
    runWhatIsLeft();
    return static_cast<std::ptrdiff_t>(allocations() - before);
  };
  constexpr std::uint64_t everySoOften = 50;
  const auto left = once();
  if (left != 0 || seed % everySoOften == 0) {
    // What is made once in a process, when it is first needed, is not made again.
    const auto digest = journal.digest();
    const auto stillLeft = once();
    if (journal.digest() != digest) journal.fail(invariant::sameRun, "there are two");
    if (stillLeft != 0) journal.fail(invariant::memory, texts(stillLeft, " allocations are left"));
  }
  journal.end();
}

Worker::Worker(std::function<void(Journal&)> work, bool isTrial) {
  process_ = fork();
  if (process_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (process_ > 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  discard(STDOUT_FILENO);
  if (isTrial) {
    discard(STDERR_FILENO);
    patience = shortPatienceSeconds;
  }
  work(journal_);
  _exit(0);
}

bool Worker::wait() {
  int status = 0;
  waitpid(process_, &status, 0);
  return ended(status);
}

bool Worker::ended(int status) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
  if (!journal_.invariant().empty()) return false;
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
    journal_.setFailure(invariant::comesToRest, "the process hangs");
  } else {
    journal_.setFailure(invariant::survives, WIFSIGNALED(status)
                                                 ? texts("signal ", WTERMSIG(status))
                                                 : texts("exit code ", WEXITSTATUS(status)));
  }
  return false;
}

void Worker::kill() {
  ::kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

// Leaves out ever smaller parts, as long as the same goes wrong without them.
Steps shrink(std::uint64_t seed, Steps steps, const std::string& invariant) {
  const auto end = std::chrono::steady_clock::now() + maxShrinking;
  const auto breaks = [&](const Steps& tried) {
    if (std::chrono::steady_clock::now() > end) return false;
    Worker worker([&](Journal& journal) { live(seed, tried, journal); }, true);
    return !worker.wait() && worker.journal().invariant() == invariant;
  };
  const auto leaveOut = [&](std::size_t size) {
    const auto before = steps.size();
    for (std::size_t at = 0; at < steps.size();) {
      auto tried = steps;
      const auto from = tried.begin() + static_cast<std::ptrdiff_t>(at);
      tried.erase(from, from + static_cast<std::ptrdiff_t>(std::min(size, steps.size() - at)));
      if (breaks(tried)) {
        steps = std::move(tried);
      } else {
        at += size;
      }
    }
    return steps.size() < before;
  };
  for (auto size = steps.size() / 2; size > 1; size /= 2) leaveOut(size);
  while (leaveOut(1)) {
  }
  return steps;
}

}  // namespace koriva::simulation
