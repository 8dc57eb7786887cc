#include "socketio/Platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <iostream>
#include <semaphore>
#include <thread>

#include "KorivaSDK/RequestChannel.h"
#include "socketio/Environment.h"

using namespace std::chrono_literals;
using koriva::printLine;
using koriva::platform::writeLine;

namespace {

/// Ends a test that is a process, unless the condition holds.
void demand(bool condition, const std::string& otherwise) {
  if (condition) return;
  std::cerr << otherwise << std::endl;
  std::_Exit(1);
}

using Ends = std::array<int, 2>;  // the reader's first

Ends pipeEnds() {
  Ends ends{};
  demand(pipe(ends.data()) == 0, "no pipe");
  return ends;
}
Ends socketEnds() {
  Ends ends{};
  demand(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0, "no sockets");
  return ends;
}
Ends terminalEnds() {
  const int reader = posix_openpt(O_RDWR | O_NOCTTY);
  demand(grantpt(reader) == 0 && unlockpt(reader) == 0, "no terminal");
  return {reader, open(ptsname(reader), O_RDWR | O_NOCTTY)};
}

/// Standard output of a process, and what was read of it.
struct Output {
  explicit Output(const Ends& ends) : reader(ends[0]) {
    alarm(60);  // ends a process that hangs
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
  }
  ~Output() {
    const bool isBlocking = (fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK) == 0;
    demand(isBlocking, "others would have to cope with a descriptor that does not block");
  }

  void read(std::size_t most = 4096) {
    std::string some(most, '\0');
    const auto count = ::read(reader, some.data(), most);
    demand(count > 0, "no more is printed");
    all.append(some, 0, static_cast<std::size_t>(count));
  }
  void expect(const std::string& printed) {
    while (all.size() < printed.size()) read();
    demand(all == printed, "printed was " + all.substr(0, 1000));
  }

  int reader;
  std::string all;
};

bool isReady(int descriptor, short events) {
  pollfd asked{descriptor, events, 0};
  return poll(&asked, 1, 0) == 1;
}

const std::string line(100, '.');

void countWhatNobodyReads(const Ends& ends) {
  Output output(ends);
  std::string expected;
  for (const std::string count : {"1", "2"}) {
    while (writeLine(line)) expected += line + '\n';
    for (int i = std::stoi(count); i > 0; --i) printLine(line);
    output.expect(expected);
    printLine("end");
    output.expect(expected += "KorivaSDK - lines dropped: " + count + "\nend\n");
  }
}

void fillTerminal() {
  const Output output(terminalEnds());
  const int free = dup(output.reader);
  close(free);
  while (writeLine(line, 0ms)) continue;
  demand(dup(output.reader) == free, "a descriptor was left open");
}

void printBehindOneThatBlocks() {
  static const std::string much(1 << 20, 'x');
  Output output(pipeEnds());
  std::thread([] { std::fwrite(much.data(), 1, much.size(), stdout); }).detach();
  while (isReady(STDOUT_FILENO, POLLOUT)) std::this_thread::yield();
  printLine("dropped");
  output.expect(much);
  printLine("end");
  output.expect(much + "KorivaSDK - lines dropped: 1\nend\n");
}

void printInTurn() {
  Output output(pipeEnds());
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

void printToWhoHasLeft(const Ends& ends) {
  std::signal(SIGPIPE, SIG_DFL);
  if (shutdown(ends[0], SHUT_RD) != 0) close(ends[0]);
  const Output output(ends);
  std::printf("for nobody");
  printLine("for nobody");
  std::fputs("alive", stderr);
  std::fflush(stdout);
}

void printLongLines() {
  const std::string longLine(300 << 10, 'x');
  Output output(pipeEnds());
  std::thread reader([&] {
    while (!output.all.ends_with('\n')) output.read(1000);
  });
  demand(writeLine(longLine, 1h), "a long line was dropped");
  reader.join();
  output.expect(longLine + '\n');

  output.all.clear();
  demand(!writeLine(longLine, 0ms), "a pipe takes it all");
  while (isReady(output.reader, POLLIN)) output.read();
  printLine("next");
  output.expect(longLine.substr(0, output.all.size()) + "\nnext\n");
}

void printToMemory() {
  char* printed = nullptr;
  std::size_t size = 0;
  stdout = open_memstream(&printed, &size);
  printLine("memory");
  demand(std::string(printed, size) == "memory\n", "a stream without descriptor is not written to");
}

bool isSocketOfOurs(int descriptor) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  return getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
         address.ss_family == AF_INET && (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
}

void openSockets() {
  boost::asio::io_context io;
  const koriva::socketio::Environment environment(io.get_executor());
  const std::array transports{environment.makeTransport(), environment.makeTransport()};
  const std::array free{dup(STDERR_FILENO), dup(STDERR_FILENO)};
  std::ranges::for_each(free, close);
  const auto open = [&](const auto& transport) {
    transport->open(*koriva::socketio::Endpoint::parse("http://127.0.0.1:9"), "/", {});
  };
  open(transports[0]);
  for (int standard = 0; standard < 3; ++standard) close(standard);
  open(transports[1]);
  const bool isRight = std::ranges::all_of(free, isSocketOfOurs) && dup(free[0]) == 0;
  std::_Exit(isRight ? 0 : 1);
}

const testing::ExitedWithCode cleanly(0);

void expectEnd(auto&& life, const auto& end, const char* message = "") {
  EXPECT_EXIT((life(), std::_Exit(0)), end, message);
}

TEST(StandardOutput, HoldsNobodyUp) {
  expectEnd([] { countWhatNobodyReads(pipeEnds()); }, cleanly);
  expectEnd([] { countWhatNobodyReads(socketEnds()); }, cleanly);
  expectEnd(fillTerminal, cleanly);
  expectEnd(printBehindOneThatBlocks, cleanly);
  expectEnd(printInTurn, cleanly);
  // The application's own printing may end it.
  expectEnd([] { printToWhoHasLeft(pipeEnds()); }, testing::KilledBySignal(SIGPIPE), "alive");
  expectEnd([] { printToWhoHasLeft(socketEnds()); }, cleanly, "alive");
  expectEnd(printLongLines, cleanly);
  expectEnd(printToMemory, cleanly);
}

TEST(Sockets, AreNoStandardStreamAndInheritedByNobody) { expectEnd(openSockets, cleanly); }

TEST(Forks, AreNoticedInTheChild) {
  koriva::platform::watchForks();
  EXPECT_FALSE(koriva::platform::isForkedChild());
  EXPECT_EXIT(std::_Exit(koriva::platform::isForkedChild() ? 0 : 1), cleanly, "");
}

}  // namespace
