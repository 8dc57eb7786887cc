#pragma once

#include <coroutine>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

#include "KorivaSDK/KorivaSDK.h"

/// \file
/// Requests as coroutines and futures: include this header besides KorivaSDK.h.
///
/// ```cpp
/// koriva::Detached greet(std::shared_ptr<KorivaSDK> sdk, KRMessage message) {
///   const auto sent = co_await koriva::async(&KorivaSDK::sendMessage, sdk, message);
///   std::cout << (sent ? "sent" : sent.error().localizedDescription()) << std::endl;
/// }
/// ```
///
/// Both always end, as long as the run loop is driven. Where a request never calls its completion
/// (no socket, a method documented so, a client that was released), they end with
/// `KRError::failed` as soon as the client lets go of the completion: at once when nothing was
/// sent, else with the answer or the acknowledgement's time-out, 5 seconds at most.

namespace koriva {

namespace detail {

template <class Result>
Result resultOf(std::function<void(Result)> completion);
template <class... Parameters>
std::tuple_element_t<sizeof...(Parameters) - 1, std::tuple<Parameters...>> completionOf(
    void (KorivaSDK::*method)(Parameters...));

/// The result of the request method `Method`, a `KRResult`.
template <class Method>
using RequestResult = decltype(resultOf(completionOf(std::declval<Method>())));

/// Hands on a request's outcome; that it failed, when the client drops the completion uncalled.
template <class Result>
class Outcome {
 public:
  explicit Outcome(std::function<void(Result)> receiver) : receiver_(std::move(receiver)) {}
  Outcome(const Outcome&) = delete;
  Outcome& operator=(const Outcome&) = delete;

  /// May run inside the request method and on any thread, hence the detour.
  ~Outcome() {
    if (!receiver_) return;
    KRRunLoop::main().post(
        [receiver = std::move(receiver_)] { receiver(Result::failure(KRError::failed)); });
  }

  void operator()(Result result) { std::exchange(receiver_, nullptr)(std::move(result)); }

 private:
  std::function<void(Result)> receiver_;
};

template <class Method, class... Arguments>
void start(Method method, KorivaSDK& sdk, std::function<void(RequestResult<Method>)> receiver,
           Arguments&&... arguments) {
  using Result = RequestResult<Method>;
  auto outcome = std::make_shared<Outcome<Result>>(std::move(receiver));
  std::invoke(method, sdk, std::forward<Arguments>(arguments)...,
              [outcome = std::move(outcome)](Result result) { (*outcome)(std::move(result)); });
}

}  // namespace detail

/// A request under way: `co_await` it, once, for its result.
template <class Result>
class [[nodiscard]] Pending {
 public:
  /// It can only be moved.
  Pending(Pending&&) noexcept = default;
  Pending& operator=(Pending&&) = delete;
  /// A coroutine that is destroyed while it waits is not resumed.
  ~Pending() {
    if (state_) state_->waiting = nullptr;
  }

  bool await_ready() const noexcept { return state_->result.has_value(); }
  void await_suspend(std::coroutine_handle<> coroutine) noexcept { state_->waiting = coroutine; }
  Result await_resume() { return *std::move(state_->result); }

 private:
  template <class Method, class... Arguments>
  friend Pending<detail::RequestResult<Method>> async(Method method,
                                                      const std::shared_ptr<KorivaSDK>& sdk,
                                                      Arguments&&... arguments);

  struct State {
    std::optional<Result> result;
    std::coroutine_handle<> waiting;
  };

  Pending() = default;

  std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// Starts the request `sdk->method(arguments..., completion)`; `co_await` what this returns for the
/// result. Two requests started before the first is awaited are under way at once. On the main
/// thread, where the coroutine is resumed too.
template <class Method, class... Arguments>
Pending<detail::RequestResult<Method>> async(Method method, const std::shared_ptr<KorivaSDK>& sdk,
                                             Arguments&&... arguments) {
  using Result = detail::RequestResult<Method>;
  Pending<Result> pending;
  detail::start(
      method, *sdk,
      [state = pending.state_](Result result) {
        state->result = std::move(result);
        if (const auto waiting = std::exchange(state->waiting, nullptr)) waiting.resume();
      },
      std::forward<Arguments>(arguments)...);
  return pending;
}

/// Starts the request `sdk->method(arguments..., completion)` and returns its result's future. From
/// any thread; but wait for it on another thread than the one that drives the run loop, which
/// brings the result.
template <class Method, class... Arguments>
std::future<detail::RequestResult<Method>> future(Method method,
                                                  const std::shared_ptr<KorivaSDK>& sdk,
                                                  Arguments&&... arguments) {
  using Result = detail::RequestResult<Method>;
  const auto promise = std::make_shared<std::promise<Result>>();
  detail::start(
      method, *sdk, [promise](Result result) { promise->set_value(std::move(result)); },
      std::forward<Arguments>(arguments)...);
  return promise->get_future();
}

/// What a coroutine returns that nobody awaits: it runs at once, up to its first `co_await`, and
/// cleans up after itself. An exception that escapes it is rethrown from the call that drives the
/// run loop. Applications with a task type of their own `co_await` from that instead.
struct Detached {
  struct promise_type {
    Detached get_return_object() const noexcept { return {}; }
    std::suspend_never initial_suspend() const noexcept { return {}; }
    std::suspend_never final_suspend() const noexcept { return {}; }
    void return_void() const noexcept {}
    void unhandled_exception() const {
      KRRunLoop::main().post(
          [exception = std::current_exception()] { std::rethrow_exception(exception); });
    }
  };
};

}  // namespace koriva
