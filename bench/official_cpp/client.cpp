// The official C++ client of Socket.IO, measured: official_client URL
// roundtrip|connect|pushes|idle, with the options and the output of ../client.cpp. What is called
// back comes from its own thread.

#include <sio_client.h>

#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <functional>
#include <map>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>

#include "bench/Wire.h"

namespace {

using bench::Clock;
using Signal = std::counting_semaphore<>;

/// A client that is connected to the namespace /data.
class Connection {
 public:
  using OnPush = std::function<void()>;

  explicit Connection(const std::string& url, const std::string& deviceId = "bench",
                      OnPush onPush = nullptr) {
    client_.set_reconnect_attempts(0);
    client_.set_fail_listener([] { bench::fail("cannot connect"); });
    client_.set_close_listener([](sio::client::close_reason reason) {
      if (reason == sio::client::close_reason_drop) bench::fail("connection lost");
    });
    client_.set_open_listener([this, onPush = std::move(onPush)] {
      auto& socket = this->socket();
      if (onPush) socket.on("message", [onPush](sio::event&) { onPush(); });
    });
    client_.set_socket_open_listener([this](const std::string& nsp) {
      if (nsp == "/data") joined_.release();
    });
    const std::map<std::string, std::string> query{{"session", "token-1001"},
                                                   {"deviceid", deviceId}};
    client_.connect(url, query);
    joined_.acquire();
  }

  sio::socket& socket() { return *client_.socket("/data"); }

 private:
  Signal joined_{0};
  sio::client client_;
};

/// A flat object.
sio::message::ptr readRequest() {
  auto request = sio::object_message::create();
  const auto payload = boost::json::parse(bench::readData("request.json"));
  for (const auto& [key, value] : payload.as_object()) {
    auto& member = request->get_map()[key];
    if (value.is_string()) member = sio::string_message::create(std::string(value.as_string()));
    if (value.is_bool()) member = sio::bool_message::create(value.as_bool());
    if (value.is_int64()) member = sio::int_message::create(value.as_int64());
  }
  return request;
}

std::string roundtrip(const bench::Arguments& arguments) {
  bench::Meter meter(arguments);
  const auto request = readRequest();
  Signal done(0);
  Connection connection(arguments.url());
  bench::say("connected");
  auto& socket = connection.socket();
  const std::function<void()> send = [&] {
    socket.emit("create_message", request,
                [&, begin = Clock::now()](const sio::message::list& answer) {
                  if (answer.size() == 0 || answer[0]->get_map().at("result")->get_int() != 0) {
                    bench::fail("no answer");
                  }
                  meter.add(begin) ? done.release() : send();
                });
  };
  for (auto left = arguments.number("--window"); left > 0; --left) send();
  done.acquire();
  return meter.figures();
}

std::string connect(const bench::Arguments& arguments) {
  bench::Meter meter(arguments);
  for (bool done = false, first = true; !done; first = false) {
    const auto begin = Clock::now();
    const Connection connection(arguments.url());
    if (first) bench::say("connected");
    done = meter.add(begin);
  }
  return meter.figures();
}

std::string pushes(const bench::Arguments& arguments) {
  bench::Counter counter(arguments);
  Signal done(0);
  const Connection connection(arguments.url(), "flood-" + std::to_string(counter.total()), [&] {
    if (counter.add()) done.release();
  });
  bench::say("connected");
  done.acquire();
  return counter.figures();
}

std::string idle(const bench::Arguments& arguments) {
  const Connection connection(arguments.url());
  bench::say("connected");
  std::this_thread::sleep_for(bench::quietTime);
  const bench::Stopwatch stopwatch;
  std::this_thread::sleep_for(std::chrono::seconds(arguments.number("--seconds")));
  return bench::toJson(
      {{"cpu_us", stopwatch.cpuMicroseconds()}, {"rss_kib", bench::residentKib()}});
}

}  // namespace

int main(int argc, char** argv) {
  const bench::Arguments arguments({argv + 1, argv + argc});
  const auto result = [&] {
    if (arguments.mode() == "roundtrip") return roundtrip(arguments);
    if (arguments.mode() == "connect") return connect(arguments);
    if (arguments.mode() == "pushes") return pushes(arguments);
    if (arguments.mode() == "idle") return idle(arguments);
    bench::fail("there is no mode " + arguments.mode());
  }();
  bench::say(result);
}
