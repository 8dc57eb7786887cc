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
#include <thread>

#include "KorivaSDK/Log.h"
#include "socketio/Environment.h"
#include "socketio/TransportOptions.h"

using namespace std::chrono_literals;
using koriva::platform::writeLine;

namespace {

void printLine(const std::string& line) { koriva::printLine(KRLogLevel::info, line); }

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
Ends terminalEnds() {
  const int reader = posix_openpt(O_RDWR | O_NOCTTY);
  demand(grantpt(reader) == 0 && unlockpt(reader) == 0, "no terminal");
  return {reader, open(ptsname(reader), O_RDWR | O_NOCTTY)};
}

/// Standard output of a process, and what was read of it.
struct Output {
  explicit Output(const Ends& ends = pipeEnds()) : reader(ends[0]) {
    alarm(60);  // ends a process that hangs
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
  }
  ~Output() {
    const bool isBlocking = (fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK) == 0;
    demand(isBlocking, "others would have to cope with a descriptor that does not block");
  }

  void read() {
    std::string some(1000, '\0');
    const auto count = ::read(reader, some.data(), some.size());
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

void countWhatNobodyReads() {
  const std::string line(100, '.');
  Output output;
  std::string expected;
  for (const std::string count : {"1", "2"}) {
    while (writeLine(line)) expected += line + '\n';
    for (int i = std::stoi(count); i > 0; --i) printLine(line);
    output.expect(expected);
    std::printf("the ");
    printLine("end");
    output.expect(expected += "the KorivaSDK - lines dropped: " + count + "\nend\n");
  }
}

void fillTerminal() {
  const Output output(terminalEnds());
  const int free = dup(output.reader);
  close(free);
  while (writeLine("line", 0ms)) continue;
  demand(dup(output.reader) == free, "a descriptor was left open");
}

void printBehindOneThatBlocks() {
  static const std::string much(1 << 20, 'x');
  Output output;
  std::thread([] { std::fwrite(much.data(), 1, much.size(), stdout); }).detach();
  while (isReady(STDOUT_FILENO, POLLOUT)) std::this_thread::yield();
  printLine("dropped");
  output.expect(much);
  printLine("end");
  output.expect(much + "KorivaSDK - lines dropped: 1\nend\n");
}

/// The application's own printing may end it: a socket tells only who writes to it, a pipe at once.
void printToWhoHasLeft() {
  std::signal(SIGPIPE, SIG_DFL);
  Ends sockets{};
  demand(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets.data()) == 0, "no sockets");
  shutdown(sockets[0], SHUT_RD);
  const auto pipe = pipeEnds();
  close(pipe[0]);
  for (const int output : {sockets[1], pipe[1]}) {
    dup2(output, STDOUT_FILENO);
    std::printf("for nobody");
    printLine("for nobody");
  }
  std::fputs("alive", stderr);
  std::fflush(stdout);
}

void printLongLines() {
  const std::string longLine(300 << 10, 'x');
  Output output;
  std::thread reader([&] { output.expect(longLine + '\n'); });
  demand(writeLine(longLine, 1h), "a long line was dropped");
  reader.join();

  output.all.clear();
  demand(!writeLine(longLine, 0ms), "a pipe takes it all");
  while (isReady(output.reader, POLLIN)) output.read();
  printLine("next");
  output.expect(longLine.substr(0, output.all.size()) + "\nnext\n");
}

void openSockets() {
  boost::asio::io_context io;
  const koriva::socketio::Environment environment(io.get_executor());
  const std::array transports{environment.makeTransport(), environment.makeTransport()};
  const std::array free{dup(STDERR_FILENO), dup(STDERR_FILENO)};
  std::ranges::for_each(free, close);
  for (const auto& transport : transports) {
    transport->open(*koriva::socketio::Endpoint::parse("http://127.0.0.1:9"), "/", {}, {});
    for (int standard = 0; standard < 3; ++standard) close(standard);
  }
  const auto isOurs = [](int descriptor) { return fcntl(descriptor, F_GETFD) == FD_CLOEXEC; };
  const bool isRight = std::ranges::all_of(free, isOurs) && dup(free[0]) == 0;
  std::_Exit(isRight ? 0 : 1);
}

const testing::ExitedWithCode cleanly(0);

void expectEnd(auto&& life, const auto& end, const char* message = "") {
  EXPECT_EXIT((life(), std::_Exit(0)), end, message);
}

TEST(StandardOutput, HoldsNobodyUp) {
  expectEnd(countWhatNobodyReads, cleanly);
  expectEnd(fillTerminal, cleanly);
  expectEnd(printBehindOneThatBlocks, cleanly);
  expectEnd(printLongLines, cleanly);
  expectEnd(printToWhoHasLeft, testing::KilledBySignal(SIGPIPE), "alive");
}

TEST(Sockets, AreNoStandardStreamAndInheritedByNobody) { expectEnd(openSockets, cleanly); }

}  // namespace
