#pragma once

#include <KorivaSDK/KorivaSDK.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "Console.h"

/// The requests under way: their failures are shown, and the next line of input waits for them.
class Requests {
 public:
  explicit Requests(Console& console) : console_(console) {}

  /// A completion that shows a failure as "cannot <what>", and else hands the value on.
  template <class T>
  KRCompletion<T> orComplain(std::string what, std::function<void(const T&)> onSuccess) {
    if (isIdle()) underWay_ = std::make_shared<int>(0);
    ++*underWay_;
    giveUpAt_ = Clock::now() + std::chrono::seconds(6);
    return [this, what = std::move(what), onSuccess = std::move(onSuccess),
            underWay = underWay_](const KRResult<T>& result) {
      --*underWay;
      if (result) return onSuccess(result.value());
      console_.show(Console::Style::error,
                    "! cannot " + what + ": " + result.error().localizedDescription());
    };
  }

  /// The same for the requests whose refusal is a success that holds false.
  KRCompletion<bool> orComplain(const std::string& what, std::function<void()> onSuccess) {
    return orComplain<bool>(what, [this, what, onSuccess = std::move(onSuccess)](bool isDone) {
      if (isDone) return onSuccess();
      console_.show(Console::Style::error, "! cannot " + what + ": the server refuses");
    });
  }

  /// Whether all outcomes have come. Some answers leave a completion uncalled: not waited for
  /// longer than a request can take.
  bool isIdle() const { return *underWay_ == 0 || Clock::now() >= giveUpAt_; }

 private:
  using Clock = std::chrono::steady_clock;

  Console& console_;
  std::shared_ptr<int> underWay_ = std::make_shared<int>(0);
  Clock::time_point giveUpAt_;
};
