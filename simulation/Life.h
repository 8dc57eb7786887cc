#pragma once

#include <functional>
#include <set>

#include "KorivaSDK/RunLoopInternals.h"
#include "simulation/Journal.h"
#include "simulation/Model.h"
#include "simulation/Random.h"
#include "testing/KRTesting.h"

namespace koriva::simulation {

/// A random application, a random server and what is known of both. Whatever happens in a step is
/// drawn from the seed and the step's number, so that a step remains what it was when others are
/// left out.
class Life {
 public:
  Life(std::uint64_t seed, Journal& journal);
  ~Life();
  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;

  void step(std::size_t number);
  /// The server gets well, everybody goes, and nothing may be left.
  void end();

  // What connections, delegates and completions tell. Connections.cpp
  void onMade(const std::shared_ptr<Connection>& connection);
  void onDial(const std::shared_ptr<Connection>& connection, const std::string& host,
              std::string_view target);
  void onSend(Connection& connection, std::string_view frame);
  void onClose(Connection& connection);
  void onGone(const Connection& connection);
  /// False when the frame is lost on its way.
  bool onArrival(Connection& connection, std::string_view frame);
  void onBinary(Connection& connection);
  void onEnd(Connection& connection);
  void onWakeUp();

  // Callbacks.cpp
  void onCall(int client, int delegate, std::string_view call, std::optional<int> number);
  void onState(int client, int delegate, const KRConnectionState& state);
  void onQuestion(int client, KRTokenReply reply);
  void onCompletion(int number, bool isSuccess);
  void onCompletionEnd(int number);
  void onTask(int client, int number, bool isReady);

  [[nodiscard]] TimePoint now() const;

 private:
  using Act = void (Life::*)();
  struct Thrown {
    int number;
  };
  /// An event on its way through the delegates.
  struct FanOut {
    int client;
    std::string call;
    std::deque<int> next;
    std::shared_ptr<Connection> connection;  ///< that has to stand for the others to hear of it
  };
  struct Waiting {  ///< for an answer
    testing::Request request;
    int number;
    std::size_t kind;
  };

  void require(bool condition, std::string_view invariant, const auto&... detail) {
    if (!condition) journal_.fail(invariant, texts(detail...));
  }
  void write(const auto&... parts) { writeLine(texts(parts...)); }
  void writeLine(const std::string& line);
  Random& random() { return random_; }
  Act choose(const std::vector<std::pair<Act, unsigned>>& from);
  std::vector<std::pair<Act, unsigned>> weighed(std::vector<std::pair<Act, unsigned>> acts);

  // What the application does. Application.cpp
  void act();
  int pickClient();
  void stop();
  void onClient(std::string_view what, const std::function<void(Client&, KorivaSDK&)>& call);
  void create();
  void setUrl();
  void login();
  void reconnect();
  void changeNetwork();
  void provideTokens();
  void replyLate();
  void replyTo(Client& client);
  void disconnect();
  void logout();
  void leave();
  void ask();
  void askOften();
  void notify();
  void addTask();
  void addDelegate();
  void removeDelegate();
  void release();
  void share();
  void driveWithin();
  void attachOrDetach();
  void postAct();
  void post(Act what);
  void actElsewhere();
  void logoutOf(Client& client, KorivaSDK& sdk);
  void emit(Client& client, bool isDue, const std::function<void(const std::string&)>& call);
  std::shared_ptr<KorivaDelegate> delegate(Client& client, int number);
  std::shared_ptr<void> token(std::string_view of);

  // What the server does. Far.cpp
  const Client& anyClient();
  void answer();
  void push();
  void pushBinary();
  void flood();
  void sayStrange();
  void drop();
  void trouble();
  void recover();
  void unsettle();

  // How time and tasks go on. Life.cpp
  bool drive(const std::function<void()>& call);
  void run(Duration duration);
  bool poll();
  [[nodiscard]] bool isQuiet() const;
  [[nodiscard]] bool isAttached() const { return internals_.isAttached; }
  bool runNetworkTask();
  void onTaskDone();
  bool runNetwork();
  void settle();
  void drain();
  void endDeafness();
  void runSome();
  void pass(Duration duration);
  void passMoment();
  void passTime();
  void passBusy();
  void onIdled();
  bool pollIfWoken();
  void checkFanOuts();
  void rest();
  void restConnections();
  void restClient(Client& client);
  void restAsks();

  // Callbacks.cpp
  void checkMain(std::string_view what);
  void beginFanOut(int client, const std::string& call);
  void continueFanOut(int client, int delegate, const std::string& call);
  void beginConnection(Client& client);
  void takeIncoming(Connection& connection, const std::string& call);
  [[nodiscard]] bool isAlive(const FanOut& fanOut) const;
  void react();

  void onPush(Connection& connection, std::optional<int> number);
  void adopt(const std::shared_ptr<Connection>& connection, int client);
  int indexOf(const Client& client) const;

  Journal& journal_;
  const std::uint64_t seed_;
  KRRunLoop& loop_ = KRRunLoop::main();
  KRRunLoop::Internals& internals_ = loop_.internals();
  Random random_;

  // Drawn once for a life.
  std::vector<std::pair<Act, unsigned>> steps_;
  std::vector<std::pair<Act, unsigned>> acts_;
  std::size_t reacting_;  ///< percent
  std::size_t throwing_;  ///< percent
  std::size_t deaf_;      ///< percent of the wake-ups throw
  std::size_t diving_;    ///< percent of what drives the run loop finds another such task there
  Duration heartbeatLimit_;
  std::size_t maxPayload_;

  std::optional<testing::Server> server_;
  TimePoint start_;
  TimePoint wellSince_;
  TimePoint busyUntil_;
  bool isWell_ = true;
  bool isMute_ = false;  ///< heartbeats are lost
  std::deque<Client> clients_;
  std::vector<std::shared_ptr<Connection>> connections_;
  std::vector<std::shared_ptr<Connection>> orphans_;  ///< made by timers, and not dialled yet
  std::map<int, Ask> asks_;
  std::vector<Waiting> unanswered_;
  std::map<int, std::vector<std::string>> pushed_;  ///< what delegates hear of a push
  std::vector<FanOut> fanOuts_;
  std::size_t firstFanOut_ = 0;  ///< of this drive of the run loop
  std::optional<int> kept_;      ///< the exception to be rethrown by this drive
  std::optional<int> escaping_;  ///< the one of a drive within a callback, from there
  std::set<int> unheard_;        ///< those of wake-ups; of several in a row only one is heard
  bool hasToHear_ = false;       ///< of one of them
  std::optional<TimePoint> wakeUpDue_;  ///< after one that has thrown
  std::optional<TimePoint> stopped_;    ///< since no run has returned
  std::optional<int> atOnce_;           ///< the ready task that has to run now
  int numbers_ = firstNumber;
  int made_ = 0;
  int transports_ = 0;
  int tokens_ = 0;  ///< delegates and tasks that are not destroyed
  int thrown_ = 0;
  int actor_ = Client::nobody;  ///< whose method is being called
  int depth_ = 0;
  int requesting_ = 0;
  int drives_ = 0;       ///< of the run loop, each within the one before
  int runs_ = 0;         ///< those that can be stopped
  int tasksAtOnce_ = 0;  ///< since time has passed
  int callsAtOnce_ = 0;
  int calls_ = 0;
  bool isOnNetwork_ = false;
  bool isWoken_ = false;
  bool hasEnded_ = false;  ///< nobody does anything more
};

}  // namespace koriva::simulation
