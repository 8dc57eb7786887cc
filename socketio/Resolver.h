#pragma once

#include <boost/asio/ip/address.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "socketio/Environment.h"

namespace koriva::socketio {

using Addresses = std::vector<boost::asio::ip::address>;
using ResolveHandler = std::function<void(boost::system::error_code, const Addresses&)>;

/// Resolves a name, and calls `handler` once, on `executor` and never before this returns, if
/// `owner` is still there by then. Without an error there may be no address either.
///
/// Names are resolved on threads, for the whole process: one that hangs, as they do when a device
/// changes networks, holds up no other. So that they do not pile up there are at most four at a
/// time and one a name, and the other names wait for their turn.
void resolve(const std::string& name, const Executor& executor, std::weak_ptr<void> owner,
             ResolveHandler handler);

}  // namespace koriva::socketio
