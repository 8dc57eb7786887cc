#pragma once

#include <openssl/types.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace koriva::socketio {

/// Certificates or a key as PEM: the text, or the path of a file with it.
struct Pem {
  std::string value;
  bool isPath = false;
};

/// Whom a client trusts, and by what it is known itself. Nothing of it makes a connection accept a
/// certificate that was not verified.
struct TrustOptions {
  bool trustsSystem = true;
  std::vector<Pem> authorities;
  std::vector<Pem> certificate;   ///< none, or its chain, the client's first, and its key
  std::vector<std::string> pins;  ///< SHA-256 of public keys, in Base64; none: any key will do

  [[nodiscard]] bool isDefault() const {
    return trustsSystem && authorities.empty() && certificate.empty() && pins.empty();
  }
};

using Digest = std::array<unsigned char, 32>;

/// What TLS sessions with servers are made of. They may outlive it only if they have shaken hands.
class Trust {
 public:
  /// Null for options that cannot be. Throws a system_error as long as no descriptors are left, as
  /// a few timers take: found unreadable, the system's store would stay empty for good.
  static std::shared_ptr<const Trust> make(const TrustOptions& options);

  /// That of the default options, for the whole process. Throws as `make`.
  static const Trust& ofSystem();

  Trust(const Trust&) = delete;
  Trust& operator=(const Trust&) = delete;
  ~Trust();

  /// Never null. It verifies the server's certificate, but for no host yet.
  [[nodiscard]] SSL* newSession() const;

 private:
  Trust();
  bool apply(const TrustOptions& options);
  bool addAuthorities(const Pem& pem);
  bool identify(const Pem& chain, const Pem& key);
  bool pin(const std::vector<std::string>& pins);
  static int verifyPinned(X509_STORE_CTX* store, void* trust);

  SSL_CTX* const context_;
  std::vector<Digest> pins_;
};

/// Why the certificate of a session's server was refused; empty when it was not.
std::string refusalOf(const SSL* session);

}  // namespace koriva::socketio
