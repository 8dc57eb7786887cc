#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "KorivaSDK/KorivaSDK.h"
#include "KorivaSDK/Payload.h"
#include "KorivaSDK/RunLoopInternals.h"
#include "socketio/Connection.h"

namespace koriva {

/// Writes a whole line to standard output, and flushes it.
void printLine(std::string line);

/// What can be decoded of an answer or a push; nothing when there is none. Says so on the console
/// when it is binary.
std::optional<std::string_view> getDataFromAck(const socketio::Items& items);

/// Whether there are data, and the first item is JSON; says so on the console when it is not. Asked
/// only where a decoding has failed, so that good answers are read once.
bool isReadable(std::optional<std::string_view> data);

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
  /// decoding makes of the answer. A decoding is a callable that gets the items of the answer and
  /// returns a `std::optional<KRResult<T>>`; with nothing, the completion is not called.
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
           const auto data = getDataFromAck(items);
           std::optional<KRResult<T>> result;
           if (data) result = decoding(*data);
           const bool isUseless = !result || !result->isSuccess();
           if (isUseless && !isReadable(data)) {
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
