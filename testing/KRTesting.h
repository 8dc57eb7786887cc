#pragma once

#include <boost/json/object.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "extensions/JSONCoding.h"
#include "socketio/KRConnectionCause.h"

/// \file
/// A chat server in memory and time that passes when it is told to, for the unit tests of
/// applications. Link the CMake target `KorivaSDK::Testing`, or the pkg-config package
/// `koriva-sdk-testing`. It works with the library of the same version only.

namespace koriva::testing {

/// What a client has sent.
struct Request {
  std::string event;                ///< its name on the wire, such as "create_message"
  KRDictionary payload;             ///< empty if it is no JSON object
  std::string token;                ///< the session token of the client
  std::optional<std::uint64_t> id;  ///< of the acknowledgement, if one is asked for
  int connection = 0;               ///< which of all that clients have made, from 1 on
};

/// A client's attempt to connect.
struct Login {
  std::string server;    ///< the URL that the client was given: scheme, host and port
  std::string token;     ///< the session token
  std::string deviceId;  ///< as given to `KorivaSDK::login`
  bool isNew = false;    ///< whether it is a new device session
  std::string target;    ///< path and query, as the client sent them
};

/// Gives the answer to a request: the first item of the acknowledgement.
using Answer = std::function<KRDictionary(const Request& request)>;

/// What a server says to all connections when they open.
struct Handshake {
  std::chrono::milliseconds pingInterval{25'000};  ///< between two heartbeats
  std::chrono::milliseconds pingTimeout{20'000};   ///< how late a heartbeat may be
  std::uint64_t maxPayload = 1'000'000;            ///< bytes: clients send no larger frame
};

/// The chat server of every client that logs in while it lives. There is no network and no other
/// process, and no time passes but by `advance`, `runUntil` and KRRunLoop::runFor: what takes
/// minutes takes microseconds, and the same happens in every run.
///
/// ```cpp
/// koriva::testing::Server server;
/// server.answer("create_message", [](const koriva::testing::Request& request) {
///   return KRDictionary{{"result", 0}, {"message", request.payload}};
/// });
/// const auto sdk = KorivaSDK::shared();
/// sdk->login("token", 1001, "device", true);
/// server.run();                              // it is connected now
/// server.push("message", {{"message_id", "1"}, {"message", "Hi"}});
/// server.run();                              // delegates have heard of it
/// server.drop();
/// server.advance(std::chrono::seconds(10));  // it is connected again
/// ```
///
/// **Clients.** It serves any number of them, whatever URL they were given, and tells them apart by
/// their session tokens. A client that has logged in before stays where it is, and comes with its
/// next attempt to connect. One that outlives the server loses its connection when the run loop is
/// next driven, and its time-outs go on in real time, so that every completion still comes.
///
/// Of their KRConnectionOptions the times count; chance draws the same in every run.
///
/// **The run loop.** KRRunLoop::poll runs what is ready, as `run` does. KRRunLoop::runFor moves
/// time on, as `advance` does; so does KRRunLoop::run until it is stopped, for a day at most: a run
/// that nobody stops has failed. KRRunLoop::attach returns false. What coroutines and futures wait
/// for comes in the same way; a future is there to be asked for once the server has run.
///
/// **Exceptions** that escape the application's callbacks, answers among them, are thrown by the
/// function that drives the run loop. Dictionaries that JSON cannot say, for NaN in them, are
/// std::invalid_argument.
///
/// Everything belongs to the main thread, and may be called from within the application's callbacks
/// and answers. Clients that go on sending while no time passes, as one that repeats at once what
/// was refused, are a failure: from 100,000 frames on the server hangs.
class Server {
 public:
  /// Of virtual time.
  using Duration = std::chrono::steady_clock::duration;

  /// Takes the place of network and time. Throws std::logic_error when it cannot: there is a server
  /// already, the run loop is attached, or the library is of another version.
  explicit Server(const Handshake& handshake = {});
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Time.

  /// Runs everything that is ready. No time passes.
  void run();

  /// Lets so much time pass, with all timers, time-outs and heartbeats in their order. Ends early
  /// when KRRunLoop::stop is called, and at once when that was called while nothing ran.
  void advance(Duration duration);

  /// Lets time pass until the condition holds, and not longer. Fails at once when it never does:
  /// when it does not within the limit, returns false and tells the failure handler what was waited
  /// for and what is pending.
  bool runUntil(const std::function<bool()>& condition, std::string_view what,
                Duration limit = std::chrono::hours(1));

  /// Hears of waits that have failed, in one line each. Without a handler they go to standard
  /// error.
  void onFailure(std::function<void(const std::string& failure)> handler);

  /// The requests that wait for an answer and the connections, in one line.
  [[nodiscard]] std::string pending() const;

  // Answers. A request whose event has none waits. What belongs in answers and pushes is told by
  // the records and by the table of events in the documentation: an answer to "create_message" that
  // is to be a success needs its "message", a pushed "login" its "uin".

  /// Answers from now on, to each request of the event.
  void answer(std::string_view event, Answer answer);
  /// The same answer to each.
  void answer(std::string_view event, const KRDictionary& answer);

  /// Answers with these items, which are sent as they are: JSON values with commas between, unless
  /// an answer that is no JSON is wanted.
  void answerRaw(std::string_view event, std::string items);

  /// Takes the answer back: the event's requests are not acknowledged from now on.
  void ignore(std::string_view event);

  /// Answers one request that waits, as `sent` gives it. Nothing happens when it waits no longer.
  void reply(const Request& request, const KRDictionary& answer);
  /// The same with these items, sent as they are: as `answerRaw`.
  void replyRaw(const Request& request, std::string_view items);

  // To the client with the session token, or to all. What is sent is on its way when these return.

  /// Pushes an event with one item to those who are connected.
  void push(std::string_view event, const KRDictionary& item, std::string_view token = {});

  /// Pushes an event with these items, sent as they are: as `answerRaw`.
  void pushRaw(std::string_view event, std::string_view items, std::string_view token = {});

  /// Sends a frame of the protocol, such as `41/data,`, also on connections that are being made.
  void send(std::string_view frame, std::string_view token = {});
  /// The same with a binary message of the WebSocket.
  void sendBinary(std::string_view bytes, std::string_view token = {});

  /// Cuts the connection. Clients connect again when their time has come.
  void drop(std::string_view token = {});

  // Faults.

  /// Refuses every session from now on, for the reason given.
  void refuse(std::string_view reason);

  /// Cuts all connections, and takes no others.
  void shutDown();

  /// Has every attempt to connect fail from now on, as it would for this cause.
  void failAttempts(KRConnectionCause cause, std::string_view reason);

  /// Says nothing more by itself and reads nothing more, on any connection, but takes new ones: the
  /// heartbeat stops, requests wait, attempts take too long.
  void hang();

  /// Ends `refuse`, `shutDown`, `failAttempts` and `hang`. What was sent meanwhile is read.
  void accept();

  /// Hears of each session as it begins. What it pushes is the first that the client hears.
  void onLogin(std::function<void(const Login& login)> handler);

  // What clients have done, in order.

  /// Every attempt to connect.
  [[nodiscard]] const std::vector<Login>& logins() const;

  /// The requests that have been sent, of one event or of all, by one client or by all.
  [[nodiscard]] std::vector<Request> sent(std::string_view event = {},
                                          std::string_view token = {}) const;

  /// All that has been sent, as it was.
  [[nodiscard]] const std::vector<std::string>& frames() const;

  /// Forgets all this.
  void forget();

  /// Whether a client has a session, by its token.
  [[nodiscard]] bool isConnected(std::string_view token) const;

 private:
  class World;
  std::shared_ptr<World> world_;
};

}  // namespace koriva::testing
