// A chat client for the terminal, on KorivaSDK. It owns its main loop, which waits for keys and for
// the library at once, and so shows how an application with a loop of its own takes the library in.

#include <KorivaSDK/KorivaSDK.h>
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Chat.h"
#include "Commands.h"
#include "Console.h"

namespace {

/// A descriptor that becomes readable when the library wants the main thread.
class WakeUp {
 public:
  WakeUp() {
    if (pipe2(ends_.data(), O_NONBLOCK | O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const bool isFirst = KRRunLoop::main().attach([end = ends_[1]] {
      const char byte = 0;
      [[maybe_unused]] const auto written = write(end, &byte, 1);  // full is good enough
    });
    if (!isFirst) throw std::logic_error("the run loop is attached already");
  }

  int fd() const { return ends_[0]; }

  /// To be called before the loop is polled, so that no call is missed.
  void clear() {
    std::array<char, 64> bytes;
    while (read(ends_[0], bytes.data(), bytes.size()) > 0) continue;
  }

 private:
  std::array<int, 2> ends_{};
};

/// Standard output is the console's: the library's log is shown there or nowhere. The log comes up
/// on any thread, the console is the main thread's.
void takeLog(Console& console, bool isShown) {
  koriva::setLogSink([&console, isShown](KRLogLevel, std::string_view line) {
    if (!isShown) return;
    KRRunLoop::main().post(
        [&console, text = std::string(line)] { console.show(Console::Style::faint, text); });
  });
}

struct Options {
  Chat::Identity identity{"http://localhost:2082", 1001, "", "terminal", false};
  std::string proxy;
  unsigned patience = 15;
  bool verbose = false;
};

void addOptions(CLI::App& app, Options& options) {
  app.add_option("--url", options.identity.url, "The chat server")->capture_default_str();
  app.add_option("--uin", options.identity.uin, "Your user id")
      ->capture_default_str()
      ->check([](const std::string& text) {
        return text.starts_with('-') || text == "0" ? "not a user id: " + text : std::string();
      });
  app.add_option("--token", options.identity.token,
                 "Your session token; without it, the one that the sandbox takes");
  app.add_option("--device", options.identity.deviceId, "Your device id")->capture_default_str();
  app.add_option("--proxy", options.proxy,
                 "A proxy: http://[USER:PASSWORD@]HOST[:PORT], or socks5h");
  app.add_flag("--new", options.identity.isNew, "Begin a new device session");
  app.add_flag("--verbose", options.verbose, "Show the library's diagnostics");
  app.add_option("--patience", options.patience, "How many seconds /wait waits")
      ->capture_default_str();
}

int run(const Options& options) {
  constexpr std::chrono::milliseconds forever(-1);
  constexpr std::chrono::milliseconds untilLookingAgain(100);  // at what has a time limit

  Console console(Commands::names());
  takeLog(console, options.verbose);
  WakeUp wakeUp;
  const auto chat = std::make_shared<Chat>(console, options.identity);
  Commands commands(console, *chat, std::chrono::seconds(options.patience));
  const auto turn = [&](bool wantsInput, std::chrono::milliseconds longest) {
    if (!console.wait(wakeUp.fd(), wantsInput, longest)) return;
    wakeUp.clear();
    KRRunLoop::main().poll();
  };

  KorivaSDK::shared()->addDelegate(chat);
  console.setPrompt("> ");
  chat->begin();
  if (console.isInteractive()) {
    console.show(Console::Style::faint, "/help shows what you can do; Tab completes a command");
  } else {
    commands.waitFor("connected to");
  }
  while (!commands.isOver()) {
    const bool isReady = commands.isReady();
    const auto line = isReady ? console.nextLine() : std::nullopt;
    if (line) {
      commands.run(*line);
    } else if (isReady && console.isAtEnd()) {
      commands.quit();
    } else {
      turn(isReady || console.isInteractive(), isReady ? forever : untilLookingAgain);
    }
  }
  chat->sayGoodbye();
  while (!chat->isIdle()) turn(false, untilLookingAgain);
  chat->end();
  KRRunLoop::main().detach();
  return commands.exitCode();
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("A chat client for the terminal; /help inside shows what it can do");
  Options options;
  addOptions(app, options);
  CLI11_PARSE(app, argc, argv);
  if (options.identity.token.empty()) {
    options.identity.token = "token-" + std::to_string(options.identity.uin);
  }
  if (!KorivaSDK::shared()->setBaseUrl(options.identity.url)) {
    std::cerr << "--url: not an http, https, ws or wss address: " << options.identity.url << '\n';
    return 2;
  }
  if (!KorivaSDK::shared()->setConnectionOptions(KRConnectionOptions().setProxy(options.proxy))) {
    std::cerr << "--proxy: not an http or socks5h address\n";
    return 2;
  }
  try {
    return run(options);
  } catch (const std::exception& error) {
    std::cerr << "koriva_chat: " << error.what() << '\n';
    return 1;
  }
}
