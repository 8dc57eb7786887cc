#include "socketio/Stream.h"

#include <gmock/gmock.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <chrono>

namespace koriva::socketio {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

std::string numbers(int end) {
  std::string text;
  for (int i = 0; i < end; ++i) text += std::to_string(i) + " ";
  return text;
}

struct Streams : testing::Test {
  Streams() {
    tcp::acceptor acceptor(*io, {asio::ip::address_v4::loopback(), 0});
    near->tcp().open(tcp::v4());
    near->tcp().set_option(tcp::socket::send_buffer_size(4096));
    near->tcp().connect(acceptor.local_endpoint());
    acceptor.accept(*far);
  }

  bool runUntil(const auto& condition) {
    while (!condition()) {
      io->restart();
      if (io->run_one_for(std::chrono::seconds(60)) == 0) return false;
    }
    return true;
  }
  void runWhatIsReady() {
    io->restart();
    io->poll();
  }

  /// Writes all, part by part, and then ends the stream.
  void write(const std::string& text, std::size_t partSize) {
    if (text.empty()) return near->shutDown([this](error_code) { hasShutDown = true; });
    const auto part = text.substr(0, partSize);
    near->write(asio::buffer(part),
                [this, partSize, rest = text.substr(part.size())](error_code error, std::size_t) {
                  error ? void(writeError = error) : write(rest, partSize);
                });
  }
  /// Reads to the end, and does what is to be done at the tenth part.
  void read() {
    const bool wasReading = std::exchange(isReading, true);
    near->read(target, [this](error_code error, std::size_t size) {
      EXPECT_FALSE(isReading);
      if (error) return void(readError = error);
      heard.append(room.data(), size);
      read();
      if (++parts == 10 && atTen) atTen();
    });
    isReading = wasReading;
  }
  std::string receive() {
    std::string text;
    bool hasEnded = false;
    asio::async_read(*far, asio::dynamic_buffer(text),
                     [&](error_code, std::size_t) { hasEnded = true; });
    EXPECT_TRUE(runUntil([&] { return hasEnded; }));
    return text;
  }

  std::optional<asio::io_context> io{std::in_place};
  Environment environment{io->get_executor()};
  std::shared_ptr<BufferedSocket> near = std::make_shared<BufferedSocket>(environment);
  std::optional<tcp::socket> far{*io};
  std::array<char, 1000> room;
  std::array<asio::mutable_buffer, 2> target{asio::buffer(room, 400), asio::buffer(room) + 400};
  bool isReading = false;
  bool hasShutDown = false;
  error_code readError, writeError;
  std::string heard;
  int parts = 0;
  std::function<void()> atTen;
};

TEST_F(Streams, HoldBackWhatIsNotReadAndLoseNothingAtTheEnd) {
  const auto text = numbers(300'000);
  write(text, 70'000);
  EXPECT_TRUE(environment.isClosing());
  EXPECT_EQ(near->unsentBytes(), 70'000U);
  runWhatIsReady();
  EXPECT_FALSE(hasShutDown || environment.isClosing());
  EXPECT_GT(near->unsentBytes(), 0U);
  EXPECT_LE(near->unsentBytes(), 140'000U);
  EXPECT_TRUE(receive() == text);
  EXPECT_TRUE(runUntil([&] { return hasShutDown; }));
  EXPECT_EQ(near->unsentBytes(), 0U);
}

TEST_F(Streams, WriteAtOnceWhatComesAtOnce) {
  write(numbers(2500), 1000);
  EXPECT_EQ(receive(), numbers(2500));
  EXPECT_EQ(near->writes(), 1U);
}

TEST_F(Streams, ReadAhead) {
  const auto text = numbers(10'000);
  atTen = [&] { EXPECT_TRUE(runUntil([&] { return parts >= 20; })); };
  read();
  asio::write(*far, asio::buffer(text));
  EXPECT_TRUE(runUntil([&] { return heard.size() == text.size(); }));
  EXPECT_EQ(heard, text);
}

TEST_F(Streams, HandNothingOverOnceTheLoopIsStopped) {
  atTen = [&] { io->stop(); };
  read();
  asio::write(*far, asio::buffer(numbers(5000)));
  EXPECT_TRUE(runUntil([&] { return parts >= 10; }));
  EXPECT_EQ(parts, 10);
  EXPECT_TRUE(runUntil([&] { return heard == numbers(5000); }));
}

TEST_F(Streams, EndWhatIsUnderWay) {
  read();
  write(numbers(300'000), 1000);
  runWhatIsReady();
  near->close();
  runWhatIsReady();
  EXPECT_EQ(readError, asio::error::operation_aborted);
  EXPECT_EQ(writeError, asio::error::operation_aborted);
}

TEST_F(Streams, TellTheReaderOfABrokenWrite) {
  read();
  near->tcp().shutdown(tcp::socket::shutdown_send);
  near->write(asio::buffer(room), [](error_code, std::size_t) {});
  EXPECT_TRUE(runUntil([&] { return static_cast<bool>(readError); }));
  EXPECT_EQ(readError, asio::error::broken_pipe);
}

TEST_F(Streams, LeaveNothingBehindWhenTheirLoopIsGone) {
  const std::weak_ptr<BufferedSocket> left = near;
  near->read(target, [kept = near](error_code, std::size_t) {});
  near->write(asio::buffer(room), [kept = near](error_code, std::size_t) {});
  near.reset();
  far.reset();
  io.reset();
  EXPECT_TRUE(left.expired());
}

}  // namespace
}  // namespace koriva::socketio
