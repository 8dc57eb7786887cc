#include "socketio/WebSocket.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <cerrno>
#include <deque>
#include <optional>

#include "socketio/FrameBuffer.h"
#include "socketio/Packet.h"
#include "socketio/Platform.h"
#include "socketio/Resolver.h"
#include "socketio/Stream.h"
#include "socketio/TransportOptions.h"

namespace koriva::socketio {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace ssl = asio::ssl;
namespace websocket = beast::websocket;
using boost::system::error_code;
using tcp = asio::ip::tcp;

constexpr auto attemptDelay = std::chrono::milliseconds(250);
constexpr auto closeLimit = std::chrono::seconds(3);

error_code openSocket(TcpSocket& socket, const tcp& protocol) {
  const int opened = platform::openTcpSocket(protocol == tcp::v6());
  if (opened < 0) return {errno, boost::system::system_category()};
  error_code error;
  socket.assign(protocol, opened, error);
  if (error) platform::closeSocket(opened);
  return error;
}

SSL* newSession(const TransportOptions& options) {
  return (options.trust ? *options.trust : Trust::ofSystem()).newSession();
}

/// Has the server's certificate verified for the host, and nothing else; false when it cannot be.
bool verifyHost(SSL* handle, const Endpoint& endpoint) {
  X509_VERIFY_PARAM* const wanted = SSL_get0_param(handle);
  const auto name = endpoint.certifiedName();
  error_code notAnAddress;
  asio::ip::make_address(endpoint.host(), notAnAddress);
  if (!notAnAddress) return X509_VERIFY_PARAM_set1_ip_asc(wanted, name.c_str()) == 1;
  // The subject of a certificate was never meant to hold a host.
  X509_VERIFY_PARAM_set_hostflags(
      wanted, X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  return X509_VERIFY_PARAM_set1_host(wanted, name.c_str(), name.size()) == 1 &&
         SSL_set_tlsext_host_name(handle, name.c_str()) == 1;
}

struct ProxyTalk {
  ProxyTalk(const Proxy& proxy, const Endpoint& server) : handshake(proxy, server) {}

  ProxyHandshake handshake;
  std::array<char, 1024> heard;
};

class WebSocket final : public Transport, public std::enable_shared_from_this<WebSocket> {
 public:
  explicit WebSocket(const Environment& environment)
      : environment_(environment),
        attemptTimer_(environment.io()),
        socket_(std::make_shared<BufferedSocket>(environment)),
        ws_(socket_),
        closeTimer_(environment.io()) {}

  void open(const Endpoint& endpoint, const std::string& target, const TransportOptions& options,
            std::weak_ptr<Listener> listener) override;
  void send(Frame frame) override;
  void ping() override;
  void close() override;
  void pauseReading(bool pause) override;
  [[nodiscard]] std::size_t queuedBytes() const override {
    return queuedBytes_.load(std::memory_order_relaxed) + socket_->unsentBytes();
  }
  [[nodiscard]] std::uint64_t writes() const override { return socket_->writes(); }

 private:
  enum class State { connecting, open, closing, closed };

  void onResolved(error_code error, const Addresses& found);
  void connectToAny(Addresses addresses);
  void startAttempt();
  void onAttempt(const std::shared_ptr<TcpSocket>& socket, error_code error);
  void abandonAttempts();
  void askProxy();
  void hearProxy();
  void onProxy(std::string_view bytes);
  void failAtProxy(error_code error);
  void greetServer();
  void startTls();
  void handshake();
  void onHandshake(error_code error);
  void applyOptions();
  void read();
  void onRead(error_code error);
  void writeNext();
  void refuseText();
  void closeGracefully();
  void limitClosing();
  void drop();
  void fail(Cause cause, const std::string& what, const error_code& error);
  void tell(Ending ending);

  const Environment& environment_;
  Addresses addresses_;  // still to be tried, the next one last
  std::vector<std::shared_ptr<TcpSocket>> attempts_;
  SystemTimer attemptTimer_;
  const std::shared_ptr<BufferedSocket> socket_;
  websocket::stream<Stream, true> ws_;
  SystemTimer closeTimer_;
  websocket::response_type response_;
  std::weak_ptr<Listener> listener_;
  std::optional<Endpoint> endpoint_;
  std::string target_;
  TransportOptions options_;
  std::unique_ptr<ProxyTalk> proxy_;  // until it has opened the way
  State state_ = State::connecting;
  websocket::close_code closeCode_ = websocket::close_code::normal;
  std::shared_ptr<void> closing_;  // while closing

  FrameBuffer incoming_;
  bool reading_ = false;
  bool readingPaused_ = false;
  bool pinging_ = false;

  std::deque<Frame> outgoing_;  // the front is being written
  std::atomic<std::size_t> queuedBytes_ = 0;
};

void WebSocket::open(const Endpoint& endpoint, const std::string& target,
                     const TransportOptions& options, std::weak_ptr<Listener> listener) {
  endpoint_.emplace(endpoint);
  options_ = options;
  target_ = target;
  listener_ = std::move(listener);
  try {
    if (endpoint.tls()) socket_->useTls(newSession(options));
  } catch (const boost::system::system_error& failure) {
    return asio::post(environment_.io(), [self = shared_from_this(), error = failure.code()] {
      if (self->state_ == State::connecting) self->fail(Cause::local, "cannot connect", error);
    });
  }

  error_code error;
  const auto& host = options.proxy ? options.proxy->host : endpoint.host();
  const auto address = asio::ip::make_address(host, error);
  if (!error) return connectToAny({address});
  resolve(host, environment_.io(), weak_from_this(),
          [this](error_code failure, const auto& found) { onResolved(failure, found); });
}

void WebSocket::onResolved(error_code error, const Addresses& found) {
  if (state_ != State::connecting) return;
  if (!error && !found.empty()) return connectToAny(found);
  const std::string whose = options_.proxy ? "the proxy's host" : "the host";
  fail(options_.proxy ? Cause::proxy : Cause::nameLookup,
       "cannot resolve " + whose + (error ? "" : ": it has no address"), error);
}

// Attempts run side by side, a little apart and with the address families in turn (RFC 8305), so
// that an address that swallows everything costs a fraction of a second.
void WebSocket::connectToAny(Addresses addresses) {
  const auto otherFamily = std::stable_partition(
      addresses.begin(), addresses.end(),
      [isV4 = addresses.front().is_v4()](const auto& address) { return address.is_v4() == isV4; });
  for (auto one = addresses.begin(), other = otherFamily;
       one != otherFamily || other != addresses.end();) {
    if (one != otherFamily) addresses_.push_back(*one++);
    if (other != addresses.end()) addresses_.push_back(*other++);
  }
  std::reverse(addresses_.begin(), addresses_.end());
  startAttempt();
}

void WebSocket::startAttempt() {
  const tcp::endpoint address(addresses_.back(),
                              options_.proxy ? options_.proxy->port : endpoint_->port());
  addresses_.pop_back();
  const auto socket = attempts_.emplace_back(std::make_shared<TcpSocket>(environment_.io()));
  const auto onEnd = [self = shared_from_this(), socket](error_code error) {
    self->onAttempt(socket, error);
  };
  if (const auto error = openSocket(*socket, address.protocol())) {
    asio::post(environment_.io(), [onEnd, error] { onEnd(error); });
  } else {
    socket->async_connect(address, onEnd);
  }
  if (addresses_.empty()) return;
  attemptTimer_.expires_after(attemptDelay);
  attemptTimer_.async_wait([self = shared_from_this()](error_code error) {
    if (!error && !self->addresses_.empty() && !self->attempts_.empty()) self->startAttempt();
  });
}

void WebSocket::onAttempt(const std::shared_ptr<TcpSocket>& socket, error_code error) {
  if (state_ != State::connecting || std::erase(attempts_, socket) == 0) return;
  if (error && !addresses_.empty()) return startAttempt();
  if (error && attempts_.empty() && options_.proxy) {
    return fail(Cause::proxy, "cannot connect to the proxy", error);
  }
  if (error && attempts_.empty()) {
    const bool isHere = error == asio::error::no_descriptors;
    return fail(isHere ? Cause::local : Cause::unreachable, "cannot connect", error);
  }
  if (error) return;

  abandonAttempts();
  error_code ignored;
  socket->set_option(tcp::no_delay(true), ignored);
  socket_->tcp() = std::move(*socket);
  if (!options_.proxy) return greetServer();
  proxy_ = std::make_unique<ProxyTalk>(*options_.proxy, *endpoint_);
  askProxy();
}

void WebSocket::askProxy() {
  asio::async_write(socket_->tcp(), asio::buffer(proxy_->handshake.question()),
                    [self = shared_from_this()](error_code error, std::size_t) {
                      if (self->state_ != State::connecting) return;
                      error ? self->failAtProxy(error) : self->hearProxy();
                    });
}

void WebSocket::hearProxy() {
  socket_->tcp().async_read_some(
      asio::buffer(proxy_->heard), [self = shared_from_this()](error_code error, std::size_t size) {
        if (self->state_ != State::connecting) return;
        error ? self->failAtProxy(error) : self->onProxy({self->proxy_->heard.data(), size});
      });
}

void WebSocket::onProxy(std::string_view bytes) {
  using Step = ProxyHandshake::Step;
  switch (proxy_->handshake.hear(bytes)) {
    case Step::ask:
      return askProxy();
    case Step::listen:
      return hearProxy();
    case Step::failed:
      return fail(Cause::proxy, proxy_->handshake.problem(), {});
    case Step::done:
      proxy_.reset();
      return greetServer();
  }
}

void WebSocket::failAtProxy(error_code error) {
  fail(Cause::proxy, "the proxy broke off", error == asio::error::eof ? error_code() : error);
}

void WebSocket::greetServer() { endpoint_->tls() ? startTls() : handshake(); }

void WebSocket::abandonAttempts() {
  attemptTimer_.cancel();
  error_code ignored;
  for (const auto& socket : std::exchange(attempts_, {})) socket->close(ignored);
}

void WebSocket::startTls() {
  auto& tls = *socket_->tls();
  SSL* const handle = tls.native_handle();
  if (!verifyHost(handle, *endpoint_))
    return fail(Cause::tls, "the server's certificate cannot be verified", {});
  tls.async_handshake(
      ssl::stream_base::client, [self = shared_from_this(), handle](error_code error) {
        if (self->state_ != State::connecting) return;
        const auto refusal = refusalOf(handle);
        if (error && !refusal.empty()) {
          return self->fail(Cause::tls, "the server's certificate was refused: " + refusal, {});
        }
        if (error) return self->fail(Cause::tls, "TLS handshake failed", error);
        self->handshake();
      });
}

void WebSocket::applyOptions() {
  // What comes too late afterwards, or not at all, is for the connection to judge.
  ws_.set_option(websocket::stream_base::timeout{.handshake_timeout = options_.upgradeLimit,
                                                 .idle_timeout = websocket::stream_base::none(),
                                                 .keep_alive_pings = false});
  // Chat frames are small: a cheap level, and only where there is something to gain.
  websocket::permessage_deflate deflate;
  deflate.client_enable = true;
  deflate.compLevel = 3;
  deflate.memLevel = 8;
  deflate.msg_size_threshold = 1024;
  ws_.set_option(deflate);
  ws_.set_option(websocket::stream_base::decorator([](websocket::request_type& request) {
    // Beast names the default window sizes as well, which some servers refuse.
    request.set(http::field::sec_websocket_extensions, "permessage-deflate");
  }));
  ws_.read_message_max(maxIncomingBytes);
  ws_.text(true);
  ws_.control_callback(
      [weak = weak_from_this()](websocket::frame_type type, beast::string_view /*payload*/) {
        const auto self = weak.lock();
        if (!self) return;
        if (type == websocket::frame_type::close) self->limitClosing();
        if (type != websocket::frame_type::pong || self->state_ != State::open) return;
        if (const auto listener = self->listener_.lock()) listener->onPong();
      });
}

void WebSocket::handshake() {
  applyOptions();
  ws_.async_handshake(response_, endpoint_->authority(), target_,
                      [self = shared_from_this()](error_code error) { self->onHandshake(error); });
}

void WebSocket::onHandshake(error_code error) {
  if (state_ != State::connecting) return;
  if (error == websocket::error::upgrade_declined) {
    return fail(Cause::http, "the server answered HTTP " + std::to_string(response_.result_int()),
                {});
  }
  if (error) {
    // The server judges a client's certificate last.
    const bool isTls = error.category() == asio::error::get_ssl_category();
    const auto cause = error == beast::error::timeout ? Cause::timeout
                       : isTls                        ? Cause::tls
                                                      : Cause::http;
    return fail(cause, "WebSocket handshake failed", error);
  }
  response_ = {};
  state_ = State::open;
  read();
}

void WebSocket::read() {
  reading_ = true;
  ws_.async_read(incoming_,
                 asio::bind_executor(Turns(*socket_),
                                     [self = shared_from_this()](error_code error, std::size_t) {
                                       self->onRead(error);
                                     }));
}

void WebSocket::onRead(error_code error) {
  reading_ = false;
  if (state_ != State::open) return;
  if (error == websocket::error::closed) {
    return fail(Cause::server, "the server closed the connection", {});
  }
  if (error) return fail(Cause::lost, "connection lost", error);

  const bool text = ws_.got_text();
  std::string frame = incoming_.take();
  if (text && !isText(frame)) return refuseText();
  if (!readingPaused_) read();
  const auto listener = listener_.lock();
  if (!listener) return;
  text ? listener->onText(std::move(frame)) : listener->onBinary(std::move(frame));
}

void WebSocket::refuseText() {
  closeCode_ = websocket::close_code::bad_payload;
  tell({Cause::lost, "connection lost: the server sent a text that is not UTF-8"});
  if (state_ == State::open) close();
}

void WebSocket::pauseReading(bool pause) {
  readingPaused_ = pause;
  if (!pause && !reading_ && state_ == State::open) read();
}

void WebSocket::send(Frame frame) {
  if (state_ != State::open) return;
  queuedBytes_ += frame.footprint();
  outgoing_.push_back(std::move(frame));
  if (outgoing_.size() == 1) writeNext();
}

void WebSocket::ping() {
  if (state_ != State::open || std::exchange(pinging_, true)) return;
  ws_.async_ping({}, [self = shared_from_this()](error_code error) {
    self->pinging_ = false;
    if (error && self->state_ == State::open) self->fail(Cause::lost, "connection lost", error);
  });
}

void WebSocket::writeNext() {
  ws_.async_write(asio::buffer(outgoing_.front().view()),
                  [self = shared_from_this()](error_code error, std::size_t) {
                    self->queuedBytes_ -= self->outgoing_.front().footprint();
                    self->outgoing_.pop_front();
                    if (self->state_ != State::open && self->state_ != State::closing) return;
                    if (error) return self->fail(Cause::lost, "connection lost", error);
                    if (!self->outgoing_.empty()) return self->writeNext();
                    if (self->state_ == State::closing) self->closeGracefully();
                  });
}

void WebSocket::close() {
  if (state_ != State::open) return drop();
  state_ = State::closing;
  closing_ = environment_.closing();
  limitClosing();
  if (outgoing_.empty()) closeGracefully();
}

void WebSocket::closeGracefully() {
  ws_.async_close(closeCode_, [self = shared_from_this()](error_code) { self->drop(); });
}

void WebSocket::limitClosing() {
  closeTimer_.expires_after(closeLimit);
  closeTimer_.async_wait([self = shared_from_this()](error_code error) {
    if (error) return;
    if (self->state_ == State::open) {
      return self->fail(Cause::server, "the server closed the connection", {});
    }
    self->drop();
  });
}

void WebSocket::drop() {
  closing_.reset();
  state_ = State::closed;
  abandonAttempts();
  closeTimer_.cancel();
  socket_->close();
}

void WebSocket::fail(Cause cause, const std::string& what, const error_code& error) {
  const bool isHeard = state_ != State::closing;
  drop();
  if (isHeard) tell({cause, error ? what + ": " + error.message() : what});
}

void WebSocket::tell(Ending ending) {
  if (const auto listener = listener_.lock()) listener->onClosed(std::move(ending));
}

}  // namespace

std::shared_ptr<Transport> makeWebSocket(const Environment& environment) {
  return std::make_shared<WebSocket>(environment);
}

void prepareTls() { OPENSSL_init_ssl(0, nullptr); }

}  // namespace koriva::socketio
