#include "KorivaSDK/NetworkThread.h"

namespace koriva {

void NetworkThread::start() {
  deadline_.reset();
  std::packaged_task<void()> task([this] { run(); });
  ended_ = task.get_future();
  thread_ = std::thread(std::move(task));
}

void NetworkThread::run() {
  while (!deadline_) runSurviving(environment_, io_, [](auto& io) { return io.run(); });
  const auto runOne = [this](auto& io) { return io.run_one_until(*deadline_); };
  while (environment_.isClosing() && runSurviving(environment_, io_, runOne) != 0) {
  }
}

void NetworkThread::askToEnd(Clock::time_point deadline) {
  boost::asio::post(io_, [this, deadline] {
    deadline_ = deadline;
    io_.stop();
  });
}

void NetworkThread::end(Clock::time_point deadline) {
  if (!thread_.joinable()) return;
  askToEnd(deadline);
  thread_.join();
}

void NetworkThread::endAtExit(Clock::time_point deadline) {
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id()) return thread_.detach();
  askToEnd(deadline);
  const bool hasEnded = ended_.wait_until(deadline) == std::future_status::ready;
  hasEnded ? thread_.join() : thread_.detach();
}

}  // namespace koriva
