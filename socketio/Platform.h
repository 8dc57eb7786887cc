#pragma once

#include <chrono>
#include <string>

/// What needs a system's own interface. From any thread.
namespace koriva::platform {

/// Writes a line to standard output, behind what the application has printed. False when it was
/// dropped because it would have blocked or nobody reads; standard output itself stays blocking,
/// for it is shared with other processes. A long line that was begun is cut, and dropped as well,
/// if the rest is not taken within `patience`.
bool writeLine(std::string line, std::chrono::milliseconds patience = std::chrono::seconds(1));

/// A TCP socket that no started program inherits, and that never stands where a standard stream
/// does, which the application may have closed. -1 when there is none, and errno says why.
int openTcpSocket(bool isV6);
void closeSocket(int socket);

/// Has forks noticed from now on. May be called more than once.
void watchForks();
[[nodiscard]] bool isForkedChild();

}  // namespace koriva::platform
