#include "socketio/Socket.h"

#include <gmock/gmock.h>

#include <boost/asio/io_context.hpp>

#include "socketio/Manager.h"

namespace koriva::socketio {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* openPacket = R"(0{"sid":"s","pingInterval":1000,"pingTimeout":1000})";

/// The far end of the connection, played by the test.
struct FakeTransport final : Transport {
  void open(const Endpoint&, const std::string& path, std::weak_ptr<Listener> heard) override {
    target = path;
    listener = std::move(heard);
  }
  void send(std::string frame) override { sent.push_back(std::move(frame)); }
  void close() override { closed = true; }
  void setIdleLimit(std::chrono::milliseconds limit) override { idleLimit = limit; }
  void pauseReading(bool pause) override { paused = pause; }
  [[nodiscard]] std::size_t queuedBytes() const override { return queued; }

  void says(const char* frame) { listener.lock()->onText(frame); }

  std::string target;
  std::weak_ptr<Listener> listener;
  std::vector<std::string> sent;
  std::chrono::milliseconds idleLimit{};
  std::size_t queued = 0;
  bool closed = false;
  bool paused = false;
};

class SocketTest : public testing::Test {
 protected:
  void build(Limits limits = {}) {
    Manager::Options options;
    options.nsp = "/data";
    options.connectParameters = {{"session", "t"}};
    options.limits = limits;
    options.transport = far;
    manager = std::make_unique<Manager>(executors, *Endpoint::parse("http://h"), options);
    socket = manager->socket();
    for (const auto event : {connectEvent, disconnectEvent, errorEvent, std::string_view("ev")}) {
      socket->on(event, [this, event](const Items& items) {
        heard.push_back(std::string(event) + ":" + std::string(items.text()));
      });
    }
  }
  void connect(Limits limits = {}) {
    build(limits);
    manager->connect();
    drain();
    far->says(openPacket);
    far->says(R"(40/data,{"sid":"x"})");
    drain();
    far->sent.clear();
    heard.clear();
  }
  void drain() {
    io.restart();
    io.poll();
  }
  Socket::Handler note(const std::string& name) {
    return [this, name](const Items& items) {
      heard.push_back(name + ":" + std::string(items.text()));
    };
  }
  std::vector<std::string> take() {
    drain();
    return std::exchange(heard, {});
  }

  boost::asio::io_context io;
  Executors executors{io.get_executor(), io.get_executor()};
  std::shared_ptr<FakeTransport> far = std::make_shared<FakeTransport>();
  std::unique_ptr<Manager> manager;
  std::shared_ptr<Socket> socket;
  std::vector<std::string> heard;
};

TEST_F(SocketTest, JoinsTheNamespaceAndAnswersHeartbeats) {
  build();
  EXPECT_EQ(socket->status(), Status::notConnected);
  manager->connect();
  EXPECT_EQ(socket->status(), Status::connecting);
  drain();
  EXPECT_EQ(far->target, "/socket.io/?transport=websocket&EIO=4&session=t");
  far->says(openPacket);
  far->says("2");
  EXPECT_THAT(far->sent, ElementsAre("40/data,", "3"));
  EXPECT_EQ(far->idleLimit, 2s);
  far->says(R"(40/other,{"sid":"x"})");
  EXPECT_THAT(take(), IsEmpty());
  far->says(R"(40/data,{"sid":"x"})");
  EXPECT_THAT(take(), ElementsAre("connect:"));
  EXPECT_EQ(socket->status(), Status::connected);
}

TEST_F(SocketTest, RaisesEventsAndDropsWhatIsNone) {
  connect();
  for (const char* frame :
       {R"(42/data,["ev",{"a":1},2])", "42", "43/data,xyz", "junk", "", "6", "42/data,[\"ev\"",
        R"(42/other,["ev",1])", R"(42/data,["connect",1])", R"(42/data,["disconnect",1])",
        R"(42/data,["error",{"error":7}])", R"(42/data,["unheard",1])", openPacket,
        R"(40/data,{"sid":"y"})", R"(42/data,5["ev"])"}) {
    far->says(frame);
  }
  EXPECT_THAT(take(), ElementsAre(R"(ev:{"a":1},2)", R"(error:{"error":7})", "ev:"));
  EXPECT_EQ(socket->status(), Status::connected);
}

TEST_F(SocketTest, ReassemblesBinaryPackets) {
  connect();
  std::vector<std::string> parts;
  socket->on("ev", [&](const Items& items) {
    if (items.firstHoldsBinary) parts = items.attachments;
  });
  const char* announced =
      R"(452-/data,["ev",{"a":{"_placeholder":true,"num":1}},{"_placeholder":true,"num":0}])";
  const auto transport = far->listener.lock();
  transport->onBinary("stray");
  far->says(announced);
  transport->onBinary("one");
  far->says("2");
  EXPECT_THAT(take(), IsEmpty());
  transport->onBinary("two");
  EXPECT_EQ(take().size(), 1U);
  EXPECT_THAT(parts, ElementsAre("one", "two"));

  far->says(announced);
  far->says(R"(42/data,["ev",1])");  // the announced packet never completes
  EXPECT_THAT(take(), ElementsAre("ev:1"));
  far->says(R"(451-/data,["ev",{"_placeholder":true,"num":1}])");
  transport->onBinary("out of range");
  far->says(announced);
  transport->onBinary(std::string(maxIncomingBytes, 'x'));
  transport->onBinary("too large together");
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(SocketTest, EachAcknowledgementEndsOnce) {
  Limits limits;
  limits.acknowledgement = 20ms;
  connect(limits);
  for (const char* name : {"a", "b", "c"}) socket->emitWithAck("ask", "{}", note(name));
  EXPECT_THAT(heard, IsEmpty());
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_THAT(far->sent, ElementsAre(R"(42/data,0["ask",{}])", R"(42/data,1["ask",{}])",
                                     R"(42/data,2["ask",{}])"));
  for (const char* frame : {R"(43/data,1[{"ok":1}])", R"(43/data,1[{"ok":2}])", "43/data,7[1]",
                            R"(43/data,18446744073709551615[1])"}) {
    far->says(frame);
  }
  EXPECT_THAT(take(), ElementsAre(R"(b:{"ok":1})"));
  manager.reset();  // the rest still ends, whatever becomes of the connection
  socket->emitWithAck("ask", "{}", note("d"));
  io.restart();
  io.run_for(5s);
  EXPECT_THAT(heard, ElementsAre(R"(a:"NO ACK")", R"(c:"NO ACK")", R"(d:"NO ACK")"));
}

TEST_F(SocketTest, DropsEmissionsThatCannotLeave) {
  Limits limits;
  limits.outgoingBytes = 1000;
  build(limits);
  socket->emit("early", "1");
  EXPECT_THAT(take(), ElementsAre(R"(error:"\"early\" was not sent: not connected")"));
  far = std::make_shared<FakeTransport>();
  connect(limits);
  far->queued = 990;
  socket->emit("crowded", "1");
  EXPECT_THAT(take(),
              ElementsAre(R"(error:"\"crowded\" was not sent: too much is waiting to be sent")"));
  EXPECT_THAT(far->sent, IsEmpty());
}

TEST_F(SocketTest, DisconnectsOnceWhoeverEndsIt) {
  struct Row {
    const char* frame;  // null: the transport fails
    const char* reason;
  };
  for (const auto& row : std::initializer_list<Row>{
           {"1", "the server closed the connection"},
           {"41/data,", "the server ended the session"},
           {R"(44/data,{"message":"no"})", "the server refused the connection: no"},
           {nullptr, "lost"}}) {
    SCOPED_TRACE(row.reason);
    far = std::make_shared<FakeTransport>();
    connect();
    const auto transport = far->listener.lock();
    row.frame != nullptr ? transport->onText(row.frame) : transport->onClosed("lost");
    transport->onClosed("again");
    transport->onText(R"(42/data,["ev"])");
    const std::string reason = std::string(":\"") + row.reason + "\"";
    EXPECT_THAT(take(), ElementsAre("error" + reason, "disconnect" + reason));
    EXPECT_TRUE(far->closed);
    EXPECT_EQ(socket->status(), Status::disconnected);
    socket->disconnect();
    EXPECT_THAT(take(), IsEmpty());
  }
}

TEST_F(SocketTest, LeavesAfterWhatWasEmittedBefore) {
  connect();
  socket->emit("last", R"("words")");
  socket->disconnect();
  EXPECT_THAT(std::exchange(heard, {}), ElementsAre(R"(disconnect:"disconnected by the client")"));
  far->says(R"(42/data,["ev"])");
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_THAT(far->sent, ElementsAre(R"(42/data,["last","words"])", "41/data,"));
  EXPECT_TRUE(far->closed);
}

TEST_F(SocketTest, IsSilentOnceReleasedEvenFromItsOwnHandler) {
  connect();
  socket->on("ev", [this](const Items&) { manager.reset(); });
  socket->on("ev", note("never"));
  far->says(R"(42/data,["ev",1])");
  far->says(R"(42/data,["ev",2])");
  EXPECT_THAT(take(), ElementsAre("ev:1"));
  EXPECT_TRUE(far->closed);
}

TEST_F(SocketTest, GivesUpOnSilentServers) {
  Limits limits;
  limits.connect = 20ms;
  build(limits);
  manager->connect();
  io.run_for(5s);
  EXPECT_THAT(heard, ElementsAre(R"(error:"the connection attempt timed out")",
                                 R"(disconnect:"the connection attempt timed out")"));
  far = std::make_shared<FakeTransport>();
  connect();
  io.restart();
  io.run_for(5s);
  EXPECT_THAT(heard, ElementsAre(R"(error:"the server's heartbeat stopped")",
                                 R"(disconnect:"the server's heartbeat stopped")"));
}

TEST_F(SocketTest, PausesReadingWhileHandlersLagBehind) {
  boost::asio::io_context network;
  const Executors apart(network.get_executor(), io.get_executor());
  Manager::Options options;
  options.nsp = "/data";
  options.limits.undelivered = 2;
  options.transport = far;
  Manager other(apart, *Endpoint::parse("http://h"), options);
  other.socket()->on("ev", note("ev"));
  other.connect();
  network.poll();
  far->says(openPacket);
  far->says("40/data,{}");
  for (int i = 0; i < 3; ++i) far->says(R"(42/data,["ev"])");
  EXPECT_TRUE(far->paused);
  EXPECT_EQ(take().size(), 3U);
  network.restart();
  network.poll();
  EXPECT_FALSE(far->paused);
}

}  // namespace
}  // namespace koriva::socketio
