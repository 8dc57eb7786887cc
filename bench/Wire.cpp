#include "bench/Wire.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace bench {

namespace {

std::FILE* const output = [] {
  std::FILE* const taken = fdopen(dup(STDOUT_FILENO), "w");
  if (!taken || !std::freopen("/dev/null", "w", stdout)) fail("cannot redirect the output");
  return taken;
}();

}  // namespace

void fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::_Exit(EXIT_FAILURE);
}

void say(const std::string& line) {
  std::fprintf(output, "%s\n", line.c_str());
  std::fflush(output);
}

void raiseFileLimit() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

std::string readData(const std::string& name) {
  std::ifstream file(KORIVA_BENCH_DATA "/" + name);
  if (!file) fail("cannot read " + name);
  return {std::istreambuf_iterator<char>(file), {}};
}

double residentKib() {
  std::ifstream statm("/proc/self/statm");
  std::size_t all = 0;
  std::size_t resident = 0;
  if (!(statm >> all >> resident)) fail("cannot read /proc/self/statm");
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

std::string toJson(Figures figures) {
  std::string text;
  for (const auto& [name, value] : figures) {
    char figure[64];
    std::snprintf(figure, sizeof figure, "\"%s\": %.3f", name, value);
    text += text.empty() ? "{" : ", ";
    text += figure;
  }
  return text + "}";
}

Arguments::Arguments(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {
  if (arguments_.size() < 2) fail("URL and mode are missing");
}

std::uint16_t Arguments::port() const {
  const std::string_view digits = std::string_view(url()).substr(url().rfind(':') + 1);
  std::uint16_t port = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), port);
  if (port == 0) fail("no port in " + url());
  return port;
}

std::size_t Arguments::number(std::string_view option) const {
  const auto found = std::find(arguments_.begin(), arguments_.end(), option);
  std::size_t value = 0;
  if (arguments_.end() - found > 1) {
    const auto& text = *(found + 1);
    std::from_chars(text.data(), text.data() + text.size(), value);
  }
  if (value == 0) fail("missing: " + std::string(option) + " NUMBER");
  return value;
}

double Stopwatch::microseconds() const {
  return std::chrono::duration<double, std::micro>(Clock::now() - begin_).count();
}

double Stopwatch::cpuMicroseconds() const { return cpuNow() - cpuBegin_; }

double Stopwatch::cpuNow() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto microseconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
  };
  return microseconds(usage.ru_utime) + microseconds(usage.ru_stime);
}

Counter::Counter(const Arguments& arguments)
    : count_(arguments.number("--count")), warmUp_(arguments.number("--warm-up")) {}

bool Counter::add() {
  if (ended_ == total()) return true;
  ++ended_;
  if (ended_ == warmUp_) stopwatch_.emplace();
  if (ended_ < total()) return false;
  elapsedUs_ = stopwatch_->microseconds();
  cpuUs_ = stopwatch_->cpuMicroseconds();
  return true;
}

std::string Counter::figures() const {
  return toJson({{"rate", rate()}, {"cpu_us", cpuUs()}, {"rss_kib", residentKib()}});
}

Meter::Meter(const Arguments& arguments) : Counter(arguments) { nanoseconds_.reserve(count()); }

bool Meter::add(Clock::time_point begin) {
  if (isMeasuring()) {
    nanoseconds_.push_back(static_cast<std::uint32_t>((Clock::now() - begin).count()));
  }
  return Counter::add();
}

std::string Meter::figures() {
  return toJson({{"median_us", percentileUs(0.5)},
                 {"p99_us", percentileUs(0.99)},
                 {"rate", rate()},
                 {"cpu_us", cpuUs()},
                 {"rss_kib", residentKib()}});
}

double Meter::percentileUs(double part) {
  const auto rank = static_cast<std::ptrdiff_t>(part * static_cast<double>(count() - 1));
  const auto found = nanoseconds_.begin() + rank;
  std::nth_element(nanoseconds_.begin(), found, nanoseconds_.end());
  return *found / 1e3;
}

}  // namespace bench
