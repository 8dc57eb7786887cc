// What a WebSocket costs at least: frames as KorivaSDK exchanges them, with no Socket.IO and no
// JSON in between. floor URL roundtrip|connect|pushes|idle, with the options of client.

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/field.hpp>
#include <boost/beast/websocket.hpp>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/Wire.h"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using bench::Clock;
using boost::system::error_code;

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  using Executor = asio::io_context::executor_type;
  using OnText = std::function<void(std::string_view text)>;

  Connection(asio::io_context& context, std::uint16_t port)
      : address_(asio::ip::address_v4::loopback(), port), ws_(context) {}

  /// `onText` hears of every text from the answer of the namespace on.
  void open(const std::string& deviceId, OnText onText) {
    onText_ = std::move(onText);
    target_ = "/socket.io/?transport=websocket&EIO=4&session=token-1001&deviceid=" + deviceId;
    ws_.next_layer().async_connect(address_, [self = shared_from_this()](error_code error) {
      if (error) bench::fail("cannot connect: " + error.message());
      self->shakeHands();
    });
  }

  /// The text must stay as it is until it has been written.
  void send(std::string_view text) {
    ws_.async_write(asio::buffer(text), [self = shared_from_this()](error_code error, std::size_t) {
      if (error) bench::fail("connection lost: " + error.message());
      if (self->onWritten) self->onWritten();
    });
  }

  void close() {
    closing_ = true;
    ws_.async_close(websocket::close_code::normal, [self = shared_from_this()](error_code) {});
  }

  std::function<void()> onWritten;

 private:
  void shakeHands() {
    ws_.next_layer().set_option(tcp::no_delay(true));
    websocket::permessage_deflate deflate;
    deflate.client_enable = true;
    deflate.compLevel = 3;
    deflate.memLevel = 8;
    deflate.msg_size_threshold = 1024;
    ws_.set_option(deflate);
    ws_.set_option(websocket::stream_base::decorator([](websocket::request_type& request) {
      request.set(beast::http::field::sec_websocket_extensions, "permessage-deflate");
    }));
    ws_.text(true);
    ws_.async_handshake("127.0.0.1", target_, [self = shared_from_this()](error_code error) {
      if (error) bench::fail("WebSocket handshake failed: " + error.message());
      self->read();
    });
  }

  void read() {
    ws_.async_read(buffer_, [self = shared_from_this()](error_code error, std::size_t size) {
      if (self->closing_) return;
      if (error) bench::fail("connection lost: " + error.message());
      const std::string_view text(static_cast<const char*>(self->buffer_.data().data()), size);
      if (text.starts_with("0{")) {
        self->send("40/data,");
      } else {
        self->onText_(text);
      }
      self->buffer_.consume(size);
      self->read();
    });
  }

  const tcp::endpoint address_;
  websocket::stream<asio::basic_stream_socket<tcp, Executor>> ws_;
  std::string target_;
  beast::flat_buffer buffer_;
  OnText onText_;
  bool closing_ = false;
};

bool isJoined(std::string_view text) { return text.starts_with("40/data,{"); }

/// Keeps requests in flight until enough were answered. The texts differ in their ids, which all
/// have as many digits.
class RoundTrips {
 public:
  RoundTrips(const bench::Arguments& arguments, asio::io_context& context)
      : meter_(arguments),
        sentAt_(arguments.number("--window")),
        context_(context),
        connection_(std::make_shared<Connection>(context, arguments.port())) {
    connection_->open("floor", [this](std::string_view text) { onText(text); });
  }

  bench::Meter& meter() { return meter_; }

 private:
  void onText(std::string_view text) {
    if (isJoined(text)) return begin();
    if (!text.starts_with("43/data,")) bench::fail("not an answer: " + std::string(text));
    // Answers come in the order of the requests.
    if (meter_.add(sentAt_[answered_++ % sentAt_.size()])) return context_.stop();
    send();
  }

  void begin() {
    bench::say("connected");
    connection_->onWritten = [this] {
      writing_ = false;
      if (unwritten_ > 0) writeNext();
    };
    for (std::size_t i = 0; i < sentAt_.size(); ++i) send();
  }

  void send() {
    sentAt_[sent_++ % sentAt_.size()] = Clock::now();
    ++unwritten_;
    if (!writing_) writeNext();
  }

  void writeNext() {
    --unwritten_;
    writing_ = true;
    auto id = written_++;
    for (auto digit = idEnd_; digit != idEnd_ - 5; id /= 10) {
      frame_[--digit] = static_cast<char>('0' + id % 10);
    }
    connection_->send(frame_);
  }

  bench::Meter meter_;
  std::vector<Clock::time_point> sentAt_;  // of those in flight
  asio::io_context& context_;
  std::shared_ptr<Connection> connection_;
  std::string frame_ =
      R"(42/data,100000["create_message",)" + bench::readData("request.json") + "]";
  const std::size_t idEnd_ = frame_.find('[');
  std::size_t sent_ = 0;
  std::size_t answered_ = 0;
  std::size_t written_ = 0;
  std::size_t unwritten_ = 0;
  bool writing_ = false;
};

std::string roundtrip(const bench::Arguments& arguments, asio::io_context& context) {
  RoundTrips trips(arguments, context);
  context.run();
  return trips.meter().figures();
}

/// Connects again and again, and leaves each connection when it is usable.
class Connects {
 public:
  Connects(const bench::Arguments& arguments, asio::io_context& context)
      : meter_(arguments), port_(arguments.port()), context_(context) {
    next();
  }

  bench::Meter& meter() { return meter_; }

 private:
  void next() {
    begin_ = Clock::now();
    connection_ = std::make_shared<Connection>(context_, port_);
    connection_->open("floor", [this](std::string_view text) { onText(text); });
  }

  void onText(std::string_view text) {
    if (!isJoined(text)) bench::fail("the namespace was not joined: " + std::string(text));
    if (!std::exchange(connected_, true)) bench::say("connected");
    if (meter_.add(begin_)) return context_.stop();
    connection_->close();
    next();
  }

  bench::Meter meter_;
  const std::uint16_t port_;
  asio::io_context& context_;
  std::shared_ptr<Connection> connection_;
  Clock::time_point begin_;
  bool connected_ = false;
};

std::string connect(const bench::Arguments& arguments, asio::io_context& context) {
  Connects connects(arguments, context);
  context.run();
  return connects.meter().figures();
}

std::string pushes(const bench::Arguments& arguments, asio::io_context& context) {
  bench::Counter counter(arguments);
  const auto connection = std::make_shared<Connection>(context, arguments.port());
  connection->open("flood-" + std::to_string(counter.total()), [&](std::string_view text) {
    if (isJoined(text)) {
      bench::say("connected");
    } else if (!text.starts_with("42/data,")) {
      bench::fail("not a push: " + std::string(text));
    } else if (counter.add()) {
      context.stop();
    }
  });
  context.run();
  return counter.figures();
}

/// Not by `run_for`, which looks at the time every second.
void waitFor(bench::Clock::duration time, asio::io_context& context) {
  asio::steady_timer timer(context, time);
  timer.async_wait([&context](boost::system::error_code) { context.stop(); });
  context.restart();
  context.run();
}

std::string idle(const bench::Arguments& arguments, asio::io_context& context) {
  const auto connection = std::make_shared<Connection>(context, arguments.port());
  connection->open("floor", [&](std::string_view) {
    bench::say("connected");
    context.stop();
  });
  context.run();
  waitFor(bench::quietTime, context);
  const bench::Stopwatch stopwatch;
  waitFor(std::chrono::seconds(arguments.number("--seconds")), context);
  return bench::toJson(
      {{"cpu_us", stopwatch.cpuMicroseconds()}, {"rss_kib", bench::residentKib()}});
}

}  // namespace

int main(int argc, char** argv) {
  const bench::Arguments arguments({argv + 1, argv + argc});
  asio::io_context context;
  const auto result = [&] {
    if (arguments.mode() == "roundtrip") return roundtrip(arguments, context);
    if (arguments.mode() == "connect") return connect(arguments, context);
    if (arguments.mode() == "pushes") return pushes(arguments, context);
    if (arguments.mode() == "idle") return idle(arguments, context);
    bench::fail("there is no mode " + arguments.mode());
  }();
  bench::say(result);
}
