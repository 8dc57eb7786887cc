#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "KorivaSDK/KorivaSDK.h"
#include "KorivaSDK/Payload.h"
#include "KorivaSDK/RunLoopInternals.h"

namespace koriva {

/// Writes a whole line to standard output, and flushes it.
void printLine(std::string line);

/// Says that a request had no usable answer.
struct FailureLine {
  std::string_view event;  ///< the name that the line shows; the event's own when empty
  bool printed = true;

  void print(std::string_view sentEvent) const;
};

inline constexpr FailureLine noFailureLine{{}, false};

/// Whether the first item is JSON; says so on the console when it is not. Asked only where a
/// decoding has failed, so that good answers are read once.
bool isReadable(std::string_view items);

}  // namespace koriva

template <class T>
void KorivaSDK::request(std::string_view event, koriva::Payload&& payload, Decoding<T> decoding,
                        KRCompletion<T> completion) {
  request(event, std::move(payload), decoding, std::move(completion), koriva::FailureLine{});
}

template <class T>
void KorivaSDK::request(std::string_view event, koriva::Payload&& payload, Decoding<T> decoding,
                        KRCompletion<T> completion, koriva::FailureLine line) {
  // The names are literals: the views outlive the request.
  emitWithAck(event, std::move(payload),
              [weak = weak_from_this(), event, decoding, completion = std::move(completion),
               line](const koriva::socketio::Items& items) {
                if (weak.expired()) return;
                std::optional<KRResult<T>> result;
                const auto data = getDataFromAck(items);
                if (data) result = decoding(*data);
                const bool useless = !result || !result->isSuccess();
                if (!data || (useless && !koriva::isReadable(*data))) {
                  line.print(event);
                  result = KRResult<T>::failure(KRError::parsingFailed);
                }
                if (!result || !completion) return;
                koriva::guarded([&] { completion(*std::move(result)); });
              });
}
