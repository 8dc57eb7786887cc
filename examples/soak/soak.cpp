// The client of script/soak: koriva_soak URL SECONDS FAULTS
// Two users keep the server busy while it is ended and frozen FAULTS times. Ends with 0 only if
// every request ended exactly once, every fault was recovered from, and neither memory nor
// descriptors have grown. Reports on standard error; standard output has the library's lines.

#include <KorivaSDK/KorivaSDK.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

const std::string kGroup = "10010001002";  // the sandbox's conversation of the two users

// What may be more at the end than it was after the first part of the run.
constexpr std::int64_t kResidentAllowance = 2048;  // KiB: the allocator's fragments
constexpr std::int64_t kHeapAllowance = 64;        // KiB: what is allocated

class User : public KorivaDelegate, public std::enable_shared_from_this<User> {
 public:
  User(std::string url, std::int64_t uin) : url_(std::move(url)), uin_(uin) {}

  /// Logs in with a new client; the one before must be idle.
  void begin() {
    client_.reset();
    client_ = KorivaSDK::create();
    client_->setBaseUrl(url_);
    client_->addDelegate(shared_from_this());
    client_->login("token-" + std::to_string(uin_), uin_, "soak-device", true);
  }

  void end() {
    client_->sendLogoutEvent(uin_, 1);
    client_->logout();
  }

  /// Makes one request or another.
  void act() {
    switch (++acts_ % 8) {
      case 0:
        return client_->getListMessage(kGroup, "", 0, 20, counted<KRMessageList>());
      case 1:
        return client_->getListConversation(uin_, 0, 20, counted<KRConversationList>());
      case 2:
        return client_->muteGroup(kGroup, acts_ % 16 == 2, counted<bool>());
      case 3:
        return client_->sendGroupEvent(std::to_string(uin_), {kGroup, {}});
      case 4:
        return client_->getBlockContactList(std::to_string(uin_), counted<KRBlockContactList>());
      default:
        return client_->sendMessage(newMessage(), counted<KRMessage>());
    }
  }

  void didConnect() override { ++connects; }
  void didReceive(const KRMessage& message) override {
    ++pushes;
    if (pushes % 4 == 0) {
      client_->updateMessageStatus(message, koriva::rawValue(KRDefines::MessageStatus::seen),
                                   counted<KRMessage>());
    }
  }
  void didReceiveGroupEvent(const KRGroupEvent&) override { ++pushes; }

  bool isConnected() const { return client_->isConnected(); }
  bool isIdle() const { return completions == requests; }

  std::int64_t requests = 0;
  std::int64_t completions = 0;
  std::int64_t failures = 0;
  std::int64_t repetitions = 0;
  std::int64_t pushes = 0;
  std::int64_t connects = 0;

 private:
  template <class T>
  KRCompletion<T> counted() {
    ++requests;
    return [this, ended = std::make_shared<bool>(false)](const KRResult<T>& result) {
      if (std::exchange(*ended, true)) {
        ++repetitions;
      } else {
        ++completions;
      }
      if (!result) ++failures;
    };
  }

  KRMessage newMessage() const {
    const std::string id = std::to_string(Clock::now().time_since_epoch().count());
    KRMessage message(id, kGroup, "Message " + id, "", "", std::to_string(uin_), false);
    if (acts_ % 3 == 0) {
      message.type = koriva::rawValue(KRMessageType::images);
      message.version = 1;
      message.attachments = R"({"images":[{"url":"https://images.invalid/1.png"}]})";
    }
    return message;
  }

  std::string url_;
  std::int64_t uin_;
  std::int64_t acts_ = 0;
  std::shared_ptr<KorivaSDK> client_;
};

struct Footprint {
  std::int64_t resident;  // KiB
  std::int64_t heap;      // KiB
  std::int64_t descriptors;
};

std::ostream& operator<<(std::ostream& out, const Footprint& it) {
  return out << it.resident << " KiB resident, " << it.heap << " KiB allocated, " << it.descriptors
             << " descriptors";
}

Footprint footprint() {
  malloc_trim(0);
  std::int64_t size = 0;
  std::int64_t pages = 0;
  std::ifstream("/proc/self/statm") >> size >> pages;
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return {pages * sysconf(_SC_PAGESIZE) / 1024,
          static_cast<std::int64_t>(mallinfo2().uordblks / 1024),
          std::distance(begin(descriptors), end(descriptors))};
}

class Soak {
 public:
  Soak(const std::string& url, std::chrono::seconds duration, std::int64_t faults)
      : steady_(std::make_shared<User>(url, 1001)),
        fickle_(std::make_shared<User>(url, 1002)),
        end_(Clock::now() + duration),
        faults_(faults) {
    steady_->begin();
    fickle_->begin();
  }

  bool run() {
    const auto start = Clock::now();
    const auto warm = start + (end_ - start) / 3;
    work(warm);
    const Footprint before = settled();
    std::cerr << "after the first third: " << before << '\n';
    work(end_);
    const Footprint after = settled();
    std::cerr << "at the end:            " << after << '\n';
    return succeeded(before, after);
  }

 private:
  void work(Clock::time_point until) {
    while (Clock::now() < until) {
      steady_->act();
      if (!isLeaving_) fickle_->act();
      KRRunLoop::main().runFor(5ms);
      changeMind();
      report();
    }
  }

  /// The fickle user leaves and comes back, with another client, again and again.
  void changeMind() {
    if (isLeaving_ && fickle_->isIdle()) {
      fickle_->begin();
      isLeaving_ = false;
      ++logins_;
      nextLeave_ = Clock::now() + 7s;
    } else if (!isLeaving_ && Clock::now() >= nextLeave_) {
      fickle_->end();
      isLeaving_ = true;
    }
  }

  void report() {
    if (Clock::now() < nextReport_) return;
    nextReport_ += 60s;
    std::cerr << requests() << " requests, " << completions() << " completions, "
              << steady_->connects - 1 << " reconnects, " << footprint() << '\n';
  }

  /// The footprint of two connected users who wait for nothing.
  Footprint settled() {
    const auto deadline = Clock::now() + 60s;
    while (Clock::now() < deadline) {
      KRRunLoop::main().runFor(10ms);
      changeMind();
      nextLeave_ = Clock::now() + 7s;
      if (!isLeaving_ && steady_->isIdle() && fickle_->isIdle() && steady_->isConnected() &&
          fickle_->isConnected()) {
        break;
      }
    }
    return footprint();
  }

  bool succeeded(const Footprint& before, const Footprint& after) const {
    const auto reconnects = steady_->connects - 1;
    const auto repetitions = steady_->repetitions + fickle_->repetitions;
    std::cerr << requests() << " requests, " << completions() << " completions ("
              << steady_->failures + fickle_->failures << " of them failures), "
              << steady_->pushes + fickle_->pushes << " pushes, " << faults_ << " faults, "
              << reconnects << " reconnects, " << logins_ << " further logins\n";
    bool isGood = true;
    const auto demand = [&isGood](bool condition, const char* complaint) {
      if (!condition) std::cerr << "FAILED: " << complaint << '\n';
      isGood = isGood && condition;
    };
    demand(completions() == requests(), "a completion was lost");
    demand(repetitions == 0, "a completion was called twice");
    demand(steady_->isConnected() && fickle_->isConnected(), "a user is not connected");
    demand(reconnects >= faults_, "there are fewer reconnects than faults");
    demand(steady_->pushes > 0 && fickle_->pushes > 0, "nothing was pushed");
    demand(after.resident - before.resident <= kResidentAllowance, "resident memory has grown");
    demand(after.heap - before.heap <= kHeapAllowance, "allocated memory has grown");
    demand(after.descriptors <= before.descriptors, "there are more open descriptors");
    return isGood;
  }

  std::int64_t requests() const { return steady_->requests + fickle_->requests; }
  std::int64_t completions() const { return steady_->completions + fickle_->completions; }

  std::shared_ptr<User> steady_;
  std::shared_ptr<User> fickle_;
  Clock::time_point end_;
  Clock::time_point nextLeave_ = Clock::now() + 7s;
  Clock::time_point nextReport_ = Clock::now() + 60s;
  std::int64_t faults_;
  std::int64_t logins_ = 0;
  bool isLeaving_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "Usage: koriva_soak URL SECONDS FAULTS\n";
    return 2;
  }
  Soak soak(argv[1], std::chrono::seconds(std::atoll(argv[2])), std::atoll(argv[3]));
  return soak.run() ? 0 : 1;
}
