// The least of a Socket.IO server that the clients can be measured against: echo_server
// [--compression]. It answers every acknowledged event in the namespace /data with what came with
// it, as the "message" of a successful result. A client whose "deviceid" is flood-N gets N pushes.

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <cstdlib>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "bench/Wire.h"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using boost::system::error_code;

// It sends no heartbeats: its clients are gone long before they miss the first.
constexpr std::string_view openPacket =
    R"(0{"sid":"1","upgrades":[],"pingInterval":300000,"pingTimeout":20000,"maxPayload":1000000})";
constexpr std::size_t pushesAtOnce = 64;

const std::string& push() {
  static const std::string text = R"(42/data,["message",)" + bench::readData("push.json") + "]";
  return text;
}

/// As many pushes as are sent at once, as WebSocket frames.
const std::string& pushFrames() {
  static const std::string frames = [] {
    const auto size = push().size();
    if (size < 126 || size > 0xffff) bench::fail("a push of this size has another kind of header");
    const std::string header{'\x81', 126, static_cast<char>(size >> 8), static_cast<char>(size)};
    std::string text;
    for (std::size_t i = 0; i < pushesAtOnce; ++i) text += header + push();
    return text;
  }();
  return frames;
}

std::size_t floodOf(std::string_view target) {
  constexpr std::string_view name = "deviceid=flood-";
  const auto found = target.find(name);
  if (found == std::string_view::npos) return 0;
  return std::strtoul(std::string(target.substr(found + name.size())).c_str(), nullptr, 10);
}

class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(tcp::socket socket, bool compression)
      : ws_(std::move(socket)), compression_(compression) {}

  void start() {
    http::async_read(ws_.next_layer(), buffer_, request_,
                     [self = shared_from_this()](error_code error, std::size_t) {
                       if (!error) self->accept();
                     });
  }

 private:
  void accept() {
    if (compression_) {
      websocket::permessage_deflate deflate;
      deflate.server_enable = true;
      deflate.compLevel = 3;  // the default of Beast takes three times as long
      deflate.memLevel = 8;
      ws_.set_option(deflate);
    }
    ws_.text(true);
    ws_.async_accept(request_, [self = shared_from_this()](error_code error) {
      if (error) return;
      self->send(std::string(openPacket));
      self->read();
    });
  }

  void read() {
    ws_.async_read(buffer_, [self = shared_from_this()](error_code error, std::size_t size) {
      if (error) return;
      self->onText({static_cast<const char*>(self->buffer_.data().data()), size});
      self->buffer_.consume(size);
      self->read();
    });
  }

  void onText(std::string_view text) {
    if (text.starts_with("40")) {
      join(text.substr(2));
    } else if (text.starts_with("42/data")) {
      answer(text.substr(text.find(',') + 1));
    }
  }

  /// To `/data,`, also without the comma or with a query, or to nothing, which is the root.
  void join(std::string_view nsp) {
    nsp = nsp.substr(0, nsp.find_first_of(",?{"));
    if (nsp == "/data") pushesLeft_ = floodOf(request_.target());
    std::string text("40");
    text += nsp;
    if (!nsp.empty()) text += ',';
    send(text + R"({"sid":"1"})");
  }

  /// To `17["event",{...}]`.
  void answer(std::string_view event) {
    const auto bracket = event.find('[');
    const auto comma = event.find(',');
    if (bracket == 0 || comma == std::string_view::npos) return;
    std::string text("43/data,");
    text += event.substr(0, bracket);
    text += R"([{"result":0,"message":)";
    text += event.substr(comma + 1, event.size() - comma - 2);
    text += "}]";
    send(std::move(text));
  }

  void send(std::string text) {
    outgoing_.push_back(std::move(text));
    if (!writing_) writeNext();
  }

  void writeNext() {
    writing_ = true;
    if (!outgoing_.empty()) {
      ws_.async_write(asio::buffer(outgoing_.front()),
                      [self = shared_from_this()](error_code error, std::size_t) {
                        if (error) return;
                        self->outgoing_.pop_front();
                        self->writeNext();
                      });
    } else if (pushesLeft_ > 0) {
      writePushes();
    } else {
      writing_ = false;
    }
  }

  /// Many in one go, so that the server is not what limits their rate; compressed ones depend on
  /// those before them.
  void writePushes() {
    const auto written = [self = shared_from_this()](error_code error, std::size_t) {
      if (!error) self->writeNext();
    };
    if (compression_) {
      --pushesLeft_;
      return ws_.async_write(asio::buffer(push()), written);
    }
    const auto count = std::min(pushesLeft_, pushesAtOnce);
    pushesLeft_ -= count;
    const auto& frames = pushFrames();
    asio::async_write(ws_.next_layer(),
                      asio::buffer(frames.data(), frames.size() / pushesAtOnce * count), written);
  }

  websocket::stream<tcp::socket> ws_;
  const bool compression_;
  beast::flat_buffer buffer_;
  http::request<http::empty_body> request_;
  std::deque<std::string> outgoing_;  // the front is being written
  bool writing_ = false;
  std::size_t pushesLeft_ = 0;
};

void acceptFrom(tcp::acceptor& acceptor, bool compression) {
  acceptor.async_accept([&acceptor, compression](error_code error, tcp::socket socket) {
    if (error) bench::fail("cannot accept a connection: " + error.message());
    socket.set_option(tcp::no_delay(true));
    std::make_shared<Session>(std::move(socket), compression)->start();
    acceptFrom(acceptor, compression);
  });
}

}  // namespace

int main(int argc, char** argv) {
  bench::raiseFileLimit();
  const bool compression = argc > 1 && std::string_view(argv[1]) == "--compression";
  asio::io_context context(1);
  asio::signal_set signals(context, SIGINT, SIGTERM);
  signals.async_wait([&context](error_code, int) { context.stop(); });

  tcp::acceptor acceptor(context, {asio::ip::address_v4::loopback(), 0});
  acceptFrom(acceptor, compression);
  bench::say("listening on http://127.0.0.1:" + std::to_string(acceptor.local_endpoint().port()));
  context.run();
}
