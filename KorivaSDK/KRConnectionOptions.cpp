#include "KorivaSDK/KRConnectionOptions.h"

#include <algorithm>
#include <cmath>

#include "KorivaSDK/State.h"
#include "socketio/Platform.h"

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using Options = KRConnectionOptions;

const Options::Members& Options::members() const {
  static const Members none;
  return members_ ? *members_ : none;
}

Options::Members& Options::edit() {
  const auto copy = std::make_shared<Members>(members());
  members_ = copy;
  return *copy;
}

template <class Member, class Value>
Options& Options::set(Member Members::*member, const Value& value) {
  edit().*member = value;
  return *this;
}

Options& Options::setProxy(std::string_view url) { return set(&Members::proxy, url); }

Options& Options::addAuthorities(std::string_view certificates) {
  edit().trust.authorities.push_back({std::string(certificates)});
  return *this;
}

Options& Options::addAuthoritiesFile(std::string_view path) {
  edit().trust.authorities.push_back({std::string(path), true});
  return *this;
}

Options& Options::setSystemTrusted(bool isTrusted) {
  edit().trust.trustsSystem = isTrusted;
  return *this;
}

Options& Options::setClientCertificate(std::string_view chain, std::string_view key) {
  edit().trust.certificate = {{std::string(chain)}, {std::string(key)}};
  return *this;
}

Options& Options::setClientCertificateFiles(std::string_view chainPath, std::string_view keyPath) {
  edit().trust.certificate = {{std::string(chainPath), true}, {std::string(keyPath), true}};
  return *this;
}

Options& Options::addPin(std::string_view pin) {
  edit().trust.pins.emplace_back(pin);
  return *this;
}

Options& Options::setConnectTimeout(milliseconds timeout) {
  return set(&Members::connectTimeout, timeout);
}

Options& Options::setAnswerTimeout(milliseconds timeout) {
  return set(&Members::answerTimeout, timeout);
}

Options& Options::setReconnectInterval(milliseconds time) { return set(&Members::interval, time); }

Options& Options::setReconnectFactor(double factor) { return set(&Members::factor, factor); }

Options& Options::setMaxReconnectInterval(milliseconds most) {
  return set(&Members::maxInterval, most);
}

Options& Options::setReconnectJitter(double jitter) { return set(&Members::jitter, jitter); }

koriva::socketio::Limits Options::Members::limits() const {
  auto limits = koriva::timing().limits;
  limits.connect = connectTimeout.value_or(limits.connect);
  limits.acknowledgement = answerTimeout.value_or(limits.acknowledgement);
  return limits;
}

milliseconds Options::Members::firstInterval() const {
  return interval.value_or(koriva::timing().reconnectInterval);
}

milliseconds Options::Members::intervalAfter(std::int64_t failures) const {
  const auto first = firstInterval();
  const auto most = maxInterval.value_or(std::max<milliseconds>(first, 5min));
  const auto growth = std::pow(factor, std::max<std::int64_t>(failures - 1, 0));
  const auto grown = static_cast<double>(first.count()) * growth;
  return grown < static_cast<double>(most.count())
             ? milliseconds(static_cast<milliseconds::rep>(grown))
             : most;
}

bool Options::Members::areTimesPossible() const {
  for (const auto& time : {connectTimeout, answerTimeout, interval, maxInterval}) {
    if (time && (*time <= 0ms || *time > 24h)) return false;
  }
  // Neither holds for NaN.
  return factor >= 1 && jitter >= 0 && jitter <= 1 && maxInterval.value_or(24h) >= firstInterval();
}

std::optional<koriva::socketio::TransportOptions> Options::Members::transport() const {
  koriva::socketio::TransportOptions made;
  if (!proxy.empty() && !(made.proxy = koriva::socketio::Proxy::parse(proxy))) return std::nullopt;
  if (connectTimeout) made.upgradeLimit = *connectTimeout;
  if (trust.isDefault()) return made;
  try {
    made.trust = koriva::socketio::Trust::make(trust);
  } catch (const boost::system::system_error&) {
    return std::nullopt;  // no descriptors are left to read the system's store with
  }
  return made.trust ? std::optional(made) : std::nullopt;
}

bool KorivaSDK::setConnectionOptions(const KRConnectionOptions& options) {
  if (koriva::platform::isForkedChild() || !options.members().areTimesPossible()) return false;
  const auto transport = options.members().transport();
  if (!transport) return false;
  state_->options = options;
  state_->transportOptions = *transport;
  return true;
}
