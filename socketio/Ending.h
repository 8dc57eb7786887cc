#pragma once

#include <string>

#include "socketio/KRConnectionCause.h"

namespace koriva::socketio {

using Cause = KRConnectionCause;

/// Why a connection has ended, or did not come about.
struct Ending {
  Cause cause = Cause::none;
  std::string reason;  ///< for people
};

}  // namespace koriva::socketio
