#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "extensions/KRExport.h"

/// How much a line of the library's log matters.
enum class KRLogLevel : std::int64_t {
  debug,    ///< what is done, with the arguments of some requests
  info,     ///< that a connection stands or has ended
  warning,  ///< what has failed, and why a connection has ended
  error,    ///< that the system has no descriptors left to connect with
};

/// Takes a line of the library's log. `line` is UTF-8 without a line break at its end, though some
/// lines have one within, and lives until the call returns.
using KRLogSink = std::function<void(KRLogLevel level, std::string_view line)>;

namespace koriva {

/// Has `sink` take the lines of all clients from `level` up, in place of standard output, on which
/// nothing is printed then. An empty sink restores standard output: lines of every level, but not
/// those that only a sink gets, such as why a connection has ended.
///
/// In lines for a sink, push tokens and the keys of secret chats are an ellipsis and their last
/// four characters, or a dot for each character where they have less than 16. Standard output
/// shows them whole. Session tokens are in neither.
///
/// May be called from any thread at any time, within a sink too. From when it returns new lines go
/// to the new sink; the one before may still be under way on another thread, and is destroyed after
/// that. A sink that is set at the end of the process is never destroyed, and may be called until
/// then.
///
/// **The sink is called where the line comes up**: on the main thread, on those that call
/// requests, and on the network's thread after KRRunLoop::attach; on several at a time. It keeps
/// that thread, so it should write or pass on the line and return; it must not wait for another
/// thread that may be logging. It may make requests: lines that come up within it, on its
/// thread, go to no sink. What begins or ends a session (`login`, `logout`, `disconnect` and the
/// like) it should leave to a posted task: delegates may not have heard yet of what the line says.
///
/// What it throws is rethrown by the call that drives the run loop next, once for many that nobody
/// has seen yet. In a forked child it is never called, and this function does nothing.
KR_EXPORT void setLogSink(KRLogSink sink, KRLogLevel level = KRLogLevel::debug);

}  // namespace koriva
