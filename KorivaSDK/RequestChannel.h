#pragma once

#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "KorivaSDK/KorivaSDK.h"
#include "KorivaSDK/Log.h"
#include "KorivaSDK/Payload.h"
#include "KorivaSDK/RunLoopInternals.h"
#include "extensions/JSONItems.h"
#include "socketio/Connection.h"

namespace koriva {

/// What the server has answered or pushed, of which only the first item counts. It is read once.
class Answer {
 public:
  /// The items have to outlive it. Says so on the console when the first is binary.
  explicit Answer(const socketio::Items& items);

  /// The record that it says, or why there is none.
  template <class Record>
  boost::system::result<Record> read() {
    if (state_ == State::missing) return json::detail::mismatch();
    auto record = json::decodeFirst<Record>(items_);
    note(record ? boost::system::error_code() : record.error());
    return record;
  }

  /// The whole of it, indented; nothing when it is not JSON.
  std::optional<std::string> prettyPrinted();

  /// Whether there is an answer, and it is JSON.
  bool isJson();

  /// Remembers what came of reading it.
  void note(boost::system::error_code error);

  /// Whether a request has to fail because nothing was there to decode: no answer, or none that is
  /// JSON. Where only the memory was missing, an outcome that there is already stands. Says so on
  /// the console.
  bool isUnusable(bool hasOutcome);

 private:
  enum class State { unread, read, missing, notJson, tooLarge };

  static void printProblem(const char* problem);

  std::string_view items_;
  State state_ = State::unread;
};

/// In place of the name in the line: a request that prints none.
inline constexpr std::string_view noFailureLine;

/// The requests' way to the server, over the connection of the moment. From any thread.
class RequestChannel {
 public:
  explicit RequestChannel(const KorivaSDK& client) : client_(client) {}

  /// Null when there is no socket: nothing is sent then, and no completion is called.
  [[nodiscard]] std::shared_ptr<socketio::Connection> connection() const;
  void setConnection(std::shared_ptr<socketio::Connection> connection);

  /// Emits an event, which the server answers if `onAck` is given.
  void emit(std::string_view event, Payload&& payload, socketio::Handler onAck = {}) const;

  /// Emits an event and completes, at most once and only while the client lives, with what the
  /// decoding makes of the answer. A decoding is a callable that gets the Answer and returns
  /// a `std::optional<KRResult<T>>`; with nothing, the completion is not called.
  ///
  /// Without a usable answer it fails, and a line says so under the event's name or another one:
  /// literals, as the views outlive the request.
  template <class T, class Decoding>
  void request(std::string_view event, Payload&& payload, Decoding decoding,
               KRCompletion<T> completion, std::string_view nameInFailureLine) const {
    emit(event, std::move(payload),
         [client = client_.weak_from_this(), decoding, completion = std::move(completion),
          nameInFailureLine](const socketio::Items& items) {
           if (client.expired()) return;
           Answer answer(items);
           std::optional<KRResult<T>> result;
           try {
             result = decoding(answer);
           } catch (const std::bad_alloc&) {
             answer.note(make_error_code(boost::system::errc::not_enough_memory));
           }
           const bool isUseless = !result || !result->isSuccess();
           if (isUseless && answer.isUnusable(result.has_value())) {
             printFailure(nameInFailureLine);
             result = KRResult<T>::failure(KRError::parsingFailed);
           }
           if (result && completion) guarded([&] { completion(*std::move(result)); });
         });
  }

  template <class T, class Decoding>
  void request(std::string_view event, Payload&& payload, Decoding decoding,
               KRCompletion<T> completion) const {
    request(event, std::move(payload), decoding, std::move(completion), event);
  }

 private:
  static void printFailure(std::string_view name);

  const KorivaSDK& client_;
  /// Read and written by std::atomic_load and std::atomic_store alone: libstdc++ 12's
  /// std::atomic<std::shared_ptr> unlocks with relaxed order, a data race.
  std::shared_ptr<socketio::Connection> connection_;
};

}  // namespace koriva
