#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KorivaSDK/KorivaSDK.h"
#include "socketio/Clock.h"

namespace koriva::simulation {

using socketio::Duration;
using socketio::TimePoint;

/// What requests, emissions and pushes carry to be known by. It is found in any text.
inline constexpr int firstNumber = 900'000'000;
std::optional<int> numberIn(std::string_view text);

/// A connection as both ends of it see it.
struct Connection {
  int number = 0;   ///< which of all, from 1 on
  int client = -1;  ///< whose; not known of those that a timer makes, until they are dialled
  TimePoint made;
  std::string host;  ///< to be dialled; not known of those that a timer makes
  std::optional<TimePoint> dialled;
  TimePoint heartbeat;              ///< the last that has arrived
  bool isGreeted = false;           ///< the server has begun
  bool isJoined = false;            ///< the server has taken the session
  bool isOver = false;              ///< the server's end
  bool isClosed = false;            ///< the client's end
  bool isPaused = false;            ///< the client does not read
  std::optional<TimePoint> probed;  ///< a sign of life was asked for, and has not come
  int heartbeats = 0;               ///< without an answer yet
  bool hasBegun = false;            ///< the client has begun to tell that it is connected
  bool hasToldConnect = false;
  bool hasToldDisconnect = false;
  TimePoint toldDisconnect;
  bool hasLeft = false;  ///< the farewell is sent
  /// The calls that delegates have to hear for what has arrived.
  std::deque<std::vector<std::string>> incoming;
  /// The second calls of what they have begun to hear.
  std::vector<std::string> halfTold;
  std::optional<int> partial;  ///< the push whose attachment is still to come
  /// The numbers of requests by the ids of their acknowledgements.
  std::map<std::uint64_t, int> asked;

  [[nodiscard]] bool isOpen() const { return dialled && !isOver && !isClosed; }
  [[nodiscard]] bool isUp() const { return isJoined && !isOver && !isClosed; }
};

/// What was emitted, by its number.
struct Emission {
  int number;
  int connection;  ///< on which it has to be sent; 0 if it need not be
};

struct Client {
  static constexpr int observer = 0;  ///< the first of the delegates, always
  static constexpr int nobody = -1;

  std::shared_ptr<KorivaSDK> sdk;  ///< null once the application has let go of it
  std::weak_ptr<KorivaSDK> weak;
  std::string token;
  std::string host;
  bool isNew = false;  ///< as the next to dial has to say
  std::vector<int> delegates;
  std::map<int, std::shared_ptr<KorivaDelegate>> ears;  ///< delegates by their numbers
  std::shared_ptr<Connection> current;                  ///< the last of its session
  std::deque<int> waiting;                              ///< ready tasks
  std::vector<std::deque<int>>
      batches;                     ///< of tasks that are being run, each within the one before
  std::deque<Emission> emitted;    ///< to be sent yet
  std::optional<TimePoint> asked;  ///< for a token, and nothing has come of it yet
  bool hasReplied = false;
  KRTokenReply reply;  ///< to the last question
  bool isReady = false;
  KRConnectionState::Phase told{};  ///< the last that delegates have heard
  int disconnecting = 0;            ///< calls under way
  int heard = 0;                    ///< how many connections there were when it last told anything
  TimePoint disturbed;              ///< when it last was kept from staying connected
  TimePoint made;                   ///< when its last connection was made
  std::optional<TimePoint> dialled;
};

/// How a request may end. Silence: its completion is not called.
enum class Outcome { success, failure, silence };

/// A request that asks for an answer.
struct Ask {
  int client;
  std::size_t kind;
  TimePoint asked;
  std::optional<TimePoint> end;  ///< when its time is over, once the emission has had its turn
  bool isDue;                    ///< the completion has to be called
  int calls = 0;
  int completions = 0;                   ///< that have not been destroyed
  std::optional<Outcome> expected = {};  ///< since an answer has arrived
};

/// The call of a request method that is given a number and a completion of any type.
struct Completion;
struct Kind {
  std::string_view event;
  void (*ask)(KorivaSDK& sdk, const std::string& number, const Completion& completion);
  struct Answer {
    std::string_view items;
    Outcome outcome;
  };
  std::vector<Answer> answers;
  bool isSometimesRefused = false;  ///< for its size
};
const std::vector<Kind>& kinds();
/// What is as useless to each.
const std::vector<Kind::Answer>& uselessAnswers();

struct Push {
  std::string_view event;
  std::string_view item;  ///< % stands for the number
  std::vector<std::string_view> calls;
};
const std::vector<Push>& pushes();

/// Frames that no client expects, % for the number. Some end the connection.
const std::vector<std::string_view>& strangeFrames();

}  // namespace koriva::simulation
