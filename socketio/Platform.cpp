#include "socketio/Platform.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <string_view>

namespace koriva::platform {
namespace {

using Clock = std::chrono::steady_clock;

int millisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, INT_MAX));
}

/// Whether something can be written by the deadline and somebody is left who may read it. Where the
/// system cannot tell, writing does.
bool isWritable(int output, Clock::time_point deadline = {}) {
  pollfd asked{output, POLLOUT, 0};
  int found = 0;
  do found = ::poll(&asked, 1, millisecondsUntil(deadline));
  while (found < 0 && errno == EINTR);
  return found != 0 && (asked.revents & (POLLERR | POLLHUP)) == 0;
}

/// While it lives, a broken pipe is an error on this thread and no more.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard() {
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signal_, &maskBefore_);
    wasPending_ = isPending();
  }
  ~BrokenPipeGuard() {
    int taken = 0;
    if (!wasPending_ && isPending()) sigwait(&signal_, &taken);
    pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
  }
  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

 private:
  static bool isPending() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
  }

  sigset_t signal_{};
  sigset_t maskBefore_{};
  bool wasPending_ = false;
};

/// Writes what can be written, and gives the rest. Waits only once the text has been begun.
std::string_view writeTo(int output, std::string_view text, std::chrono::milliseconds patience) {
  const auto deadline = Clock::now() + patience;
  for (bool isBegun = false;
       !text.empty() && isWritable(output, isBegun ? deadline : Clock::time_point());) {
    // A pipe that can be written to has room for so much.
    const auto piece = text.substr(0, PIPE_BUF);
    const auto written = ::write(output, piece.data(), piece.size());
    if (written > 0) {
      isBegun = true;
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      break;
    }
  }
  return text;
}

/// A terminal with room may have less than it takes, so it is opened once more for writing without
/// blocking. -1 when standard output is none, or cannot be opened.
int openTerminalOf(int output) {
  std::array<char, 256> name{};
  if (ttyname_r(output, name.data(), name.size()) != 0) return -1;
  return ::open(name.data(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

/// With the stream locked.
bool writeLocked(std::string_view line, std::chrono::milliseconds patience) {
  static std::atomic<bool> isTorn = false;
  const int output = ::fileno(stdout);
  const BrokenPipeGuard guard;
  if (!isWritable(output)) return false;
  std::fflush(stdout);

  const int terminal = openTerminalOf(output);
  const int target = terminal < 0 ? output : terminal;
  auto rest = line;
  if (!isTorn || writeTo(target, "\n", patience).empty()) {
    rest = writeTo(target, line, patience);
    isTorn = !rest.empty() && rest.size() < line.size();
  }
  if (terminal >= 0) ::close(terminal);
  return rest.empty();
}

/// Whoever holds the stream lets go of it as long as its descriptor can be written to; otherwise
/// that may be waited for in vain.
bool lockStandardOutput(Clock::time_point deadline) {
  while (::ftrylockfile(stdout) != 0) {
    if (!isWritable(STDOUT_FILENO) || Clock::now() > deadline) return false;
    ::poll(nullptr, 0, 1);
  }
  return true;
}

#ifdef SOCK_CLOEXEC
constexpr int tcpSocketType = SOCK_STREAM | SOCK_CLOEXEC;
#else
constexpr int tcpSocketType = SOCK_STREAM;
#endif

std::atomic<bool> isForked = false;

}  // namespace

bool writeLine(std::string line, std::chrono::milliseconds patience) {
  line += '\n';
  if (!lockStandardOutput(Clock::now() + patience)) return false;
  const bool isWritten = writeLocked(line, patience);
  ::funlockfile(stdout);
  return isWritten;
}

int openTcpSocket(bool isV6) {
  const int opened = ::socket(isV6 ? AF_INET6 : AF_INET, tcpSocketType, 0);
  if (opened < 0) return opened;
#ifdef SO_NOSIGPIPE
  const int on = 1;
  ::setsockopt(opened, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
  const int moved = ::fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  ::close(opened);
  errno = error;
  return moved;
}

void closeSocket(int socket) { ::close(socket); }

void watchForks() {
  [[maybe_unused]] static const int error =
      pthread_atfork(nullptr, nullptr, [] { isForked = true; });
}

bool isForkedChild() { return isForked.load(std::memory_order_relaxed); }

}  // namespace koriva::platform
