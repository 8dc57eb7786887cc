#include "socketio/Platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <iostream>
#include <semaphore>
#include <set>
#include <thread>

#include "KorivaSDK/RequestChannel.h"
#include "socketio/Environment.h"
#include "socketio/WebSocket.h"

using namespace std::chrono_literals;
using koriva::printLine;
using koriva::platform::writeLine;

namespace {

/// Ends the process of a test within the test.
void demand(bool condition, const std::string& otherwise) {
  if (condition) return;
  std::cerr << otherwise << std::endl;
  std::_Exit(1);
}

bool isReady(int descriptor, short events) {
  pollfd asked{descriptor, events, 0};
  return poll(&asked, 1, 0) == 1;
}

using Ends = std::array<int, 2>;  // the reader's first

Ends makePipe() {
  Ends ends{};
  demand(pipe(ends.data()) == 0, "no pipe");
  return ends;
}

Ends makeSockets() {
  Ends ends{};
  demand(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0, "no sockets");
  return ends;
}

Ends makeTerminal() {
  const int reader = posix_openpt(O_RDWR | O_NOCTTY);
  demand(grantpt(reader) == 0 && unlockpt(reader) == 0, "no terminal");
  return {reader, open(ptsname(reader), O_RDWR | O_NOCTTY)};
}

/// What this process prints, as far as it was read.
struct Output {
  explicit Output(const Ends& ends) : reader(ends[0]) {
    alarm(60);  // ends a process that hangs
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
  }

  void read(std::size_t most = 4096) {
    std::string some(most, '\0');
    const auto count = ::read(reader, some.data(), most);
    demand(count > 0, "nothing more is printed");
    all.append(some, 0, static_cast<std::size_t>(count));
  }
  void expect(const std::string& printed) {
    while (all.size() < printed.size()) read();
    demand(all == printed, "printed was " + all.substr(0, 1000));
  }

  int reader;
  std::string all;
};

std::string numbered(std::size_t number) { return std::to_string(number) + std::string(60, '.'); }

/// Whether lines have been dropped, and read again after them. Each number has to be there, whole
/// and in its place, or to be counted there.
bool isAccountedFor(const std::string& printed) {
  const std::string notice = "KorivaSDK - lines dropped: ";
  std::size_t number = 0;
  bool isDropped = false;
  for (std::size_t at = 0, end = 0; (end = printed.find('\n', at)) != printed.npos; at = end + 1) {
    const auto line = printed.substr(at, end - at);
    if (line.starts_with(notice)) {
      number += std::stoul(line.substr(notice.size()));
      isDropped = true;
    } else {
      demand(line == numbered(number), line + " is not number " + std::to_string(number));
      ++number;
      if (isDropped) return true;
    }
  }
  return false;
}

void dropsAndCountsWhatNobodyReads(const Ends& ends) {
  Output output(ends);
  std::size_t number = 0;
  while (isReady(STDOUT_FILENO, POLLOUT)) printLine(numbered(number++));
  for (int i = 0; i < 10; ++i) printLine(numbered(number++));
  while (!isAccountedFor(output.all)) {
    output.read();
    printLine(numbered(number++));
  }
}

void filledTerminal() {
  const Output output(makeTerminal());
  while (writeLine(numbered(0), 0ms)) {
  }
}

void printingThatBlocks() {
  static const std::string much(1 << 20, 'x');
  Output output(makePipe());
  std::thread([] { std::fwrite(much.data(), 1, much.size(), stdout); }).detach();
  while (isReady(STDOUT_FILENO, POLLOUT)) std::this_thread::yield();
  printLine("dropped");
  output.expect(much);
  printLine("end");
  output.expect(much + "KorivaSDK - lines dropped: 1\nend\n");
}

void printingAtTheSameTime() {
  Output output(makePipe());
  std::binary_semaphore isStarted(0);
  flockfile(stdout);
  std::thread other([&] {
    isStarted.release();
    printLine("other");
  });
  isStarted.acquire();
  for (int i = 0; i < 1000; ++i) std::this_thread::yield();
  std::printf("one, ");
  funlockfile(stdout);
  other.join();
  std::printf("an");
  printLine("other");
  output.expect("one, other\nanother\n");
}

void readersThatHaveLeft(const Ends& ends) {
  shutdown(ends[0], SHUT_RD) == 0 || close(ends[0]) == 0;
  const Output output(ends);
  std::printf("for nobody");
  printLine("for nobody");
  sigset_t blocked;
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  demand(sigismember(&blocked, SIGPIPE) == 0, "the signal stays blocked");
}

void longLines() {
  const std::string line(300 << 10, 'x');
  Output output(makePipe());
  std::thread reader([&] {
    while (!output.all.ends_with('\n')) output.read(1000);
  });
  demand(writeLine(line, 1h), "a long line was dropped");
  reader.join();
  output.expect(line + '\n');

  output.all.clear();
  demand(!writeLine(line, 0ms), "a pipe takes it all");
  while (isReady(output.reader, POLLIN)) output.read();
  printLine("next");
  output.expect(line.substr(0, output.all.size()) + "\nnext\n");
}

/// TCP sockets over IPv4.
std::set<int> sockets() {
  std::set<int> found;
  for (int one = 0; one < 1000; ++one) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    const auto known = getsockname(one, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    if (known && address.ss_family == AF_INET) found.insert(one);
  }
  return found;
}

void closedStandardStreams() {
  boost::asio::io_context io;
  const koriva::socketio::Environment environment(io.get_executor(), io.get_executor());
  const auto transport = environment.makeTransport();
  const auto before = sockets();
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(standard);
  transport->open(*koriva::socketio::Endpoint::parse("http://127.0.0.1:9"), "/", {});
  auto opened = sockets();
  std::erase_if(opened, [&](int one) { return before.contains(one); });
  if (opened.size() != 1 || *opened.begin() <= STDERR_FILENO) std::_Exit(2);
  std::_Exit((fcntl(*opened.begin(), F_GETFD) & FD_CLOEXEC) != 0 ? 0 : 3);
}

const testing::ExitedWithCode cleanly(0);

TEST(StandardOutput, HoldsNobodyUpAndLosesNothingSilently) {
  const auto test = [](auto&& life) { EXPECT_EXIT((life(), std::_Exit(0)), cleanly, ""); };
  test([] { dropsAndCountsWhatNobodyReads(makePipe()); });
  test([] { dropsAndCountsWhatNobodyReads(makeSockets()); });
  test([] { readersThatHaveLeft(makePipe()); });
  test([] { readersThatHaveLeft(makeSockets()); });
  test(filledTerminal);
  test(printingThatBlocks);
  test(printingAtTheSameTime);
  test(longLines);
}

TEST(Sockets, StandInForNoStandardStream) { EXPECT_EXIT(closedStandardStreams(), cleanly, ""); }

TEST(Forks, AreNoticedInTheChild) {
  koriva::platform::watchForks();
  EXPECT_FALSE(koriva::platform::isForkedChild());
  EXPECT_EXIT(std::_Exit(koriva::platform::isForkedChild() ? 0 : 1), cleanly, "");
}

}  // namespace
