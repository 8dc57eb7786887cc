#include "socketio/Trust.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <new>
#include <optional>
#include <tuple>

#include "socketio/Base64.h"
#include "socketio/Environment.h"

namespace koriva::socketio {
namespace {

struct Free {
  void operator()(BIO* it) const { BIO_free(it); }
  void operator()(EVP_PKEY* it) const { EVP_PKEY_free(it); }
  void operator()(X509* it) const { X509_free(it); }
};

template <class T>
using Owned = std::unique_ptr<T, Free>;

constexpr std::size_t maxPemBytes = std::size_t{16} << 20;

/// Leaves what the application's own use of OpenSSL has to say as it was.
struct ErrorsApart {
  ErrorsApart() { ERR_set_mark(); }
  ~ErrorsApart() { ERR_pop_to_mark(); }
  ErrorsApart(const ErrorsApart&) = delete;
  ErrorsApart& operator=(const ErrorsApart&) = delete;
};

// Without this OpenSSL asks the terminal.
int noPassword(char* /*buffer*/, int /*size*/, int /*isWriting*/, void* /*data*/) { return -1; }

Owned<BIO> open(const Pem& pem) {
  if (pem.isPath) return Owned<BIO>(BIO_new_file(pem.value.c_str(), "r"));
  if (pem.value.size() > maxPemBytes) return nullptr;
  return Owned<BIO>(BIO_new_mem_buf(pem.value.data(), static_cast<int>(pem.value.size())));
}

/// None unless all can be read.
std::vector<Owned<X509>> readCertificates(const Pem& pem) {
  std::vector<Owned<X509>> all;
  const auto bio = open(pem);
  if (!bio) return all;
  while (Owned<X509> one{PEM_read_bio_X509(bio.get(), nullptr, noPassword, nullptr)}) {
    all.push_back(std::move(one));
  }
  if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE) all.clear();
  return all;
}

std::optional<Digest> digestIn(const std::string& pin) {
  unsigned char bytes[std::tuple_size_v<Digest> + 1];  // the padding leaves a zero
  if (pin.size() != 44) return std::nullopt;
  const auto* from = reinterpret_cast<const unsigned char*>(pin.data());
  if (EVP_DecodeBlock(bytes, from, 44) != sizeof bytes) return std::nullopt;
  Digest digest;
  std::copy_n(bytes, digest.size(), digest.begin());
  const bool isPlain = base64({reinterpret_cast<const char*>(bytes), digest.size()}) == pin;
  return isPlain ? std::optional(digest) : std::nullopt;
}

bool isAmong(const std::vector<Digest>& pins, const X509* certificate) {
  unsigned char* key = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &key);
  if (size < 0) return false;
  Digest digest;
  const int isDone = EVP_Digest(key, static_cast<std::size_t>(size), digest.data(), nullptr,
                                EVP_sha256(), nullptr);
  OPENSSL_free(key);
  return isDone == 1 && std::ranges::find(pins, digest) != pins.end();
}

}  // namespace

Trust::Trust() : context_(SSL_CTX_new(TLS_client_method())) {
  if (!context_) throw std::bad_alloc();
  SSL_CTX_set_min_proto_version(context_, TLS1_2_VERSION);
  SSL_CTX_set_options(context_, SSL_OP_NO_RENEGOTIATION);
  SSL_CTX_set_verify(context_, SSL_VERIFY_PEER, nullptr);
}

Trust::~Trust() { SSL_CTX_free(context_); }

std::shared_ptr<const Trust> Trust::make(const TrustOptions& options) {
  const ErrorsApart apart;
  const std::shared_ptr<Trust> made(new Trust);
  return made->apply(options) ? made : nullptr;
}

const Trust& Trust::ofSystem() {
  static const auto& made = *new std::shared_ptr<const Trust>(make({}));
  return *made;
}

bool Trust::apply(const TrustOptions& options) {
  if (options.trustsSystem) {
    static_cast<void>(SystemTimer(boost::asio::io_context().get_executor()));
    SSL_CTX_set_default_verify_paths(context_);  // an unreadable store leaves nothing trusted
  } else if (options.authorities.empty()) {
    return false;
  }
  const auto& own = options.certificate;
  return std::ranges::all_of(options.authorities,
                             [this](const auto& it) { return addAuthorities(it); }) &&
         (own.empty() || identify(own.front(), own.back())) && pin(options.pins);
}

bool Trust::addAuthorities(const Pem& pem) {
  const auto all = readCertificates(pem);
  X509_STORE* const store = SSL_CTX_get_cert_store(context_);
  return !all.empty() && std::ranges::all_of(all, [store](const auto& each) {
    return X509_STORE_add_cert(store, each.get()) == 1;
  });
}

bool Trust::identify(const Pem& chain, const Pem& key) {
  const auto certificates = readCertificates(chain);
  const auto bio = open(key);
  if (certificates.empty() || !bio) return false;
  if (SSL_CTX_use_certificate(context_, certificates.front().get()) != 1) return false;
  for (std::size_t i = 1; i < certificates.size(); ++i) {
    if (SSL_CTX_add1_chain_cert(context_, certificates[i].get()) != 1) return false;
  }
  const Owned<EVP_PKEY> own(PEM_read_bio_PrivateKey(bio.get(), nullptr, noPassword, nullptr));
  return own && SSL_CTX_use_PrivateKey(context_, own.get()) == 1 &&
         SSL_CTX_check_private_key(context_) == 1;
}

bool Trust::pin(const std::vector<std::string>& pins) {
  for (const auto& pin : pins) {
    const auto digest = digestIn(pin);
    if (!digest) return false;
    pins_.push_back(*digest);
  }
  if (!pins.empty()) SSL_CTX_set_cert_verify_callback(context_, verifyPinned, this);
  return true;
}

// Within the handshake, so that a server without a pinned key is not told who the client is.
// Nothing here may throw, through OpenSSL.
int Trust::verifyPinned(X509_STORE_CTX* store, void* trust) {
  if (X509_verify_cert(store) != 1) return 0;
  const auto& pins = static_cast<const Trust*>(trust)->pins_;
  const auto* const chain = X509_STORE_CTX_get0_chain(store);
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    if (isAmong(pins, sk_X509_value(chain, i))) return 1;
  }
  X509_STORE_CTX_set_error(store, X509_V_ERR_APPLICATION_VERIFICATION);
  return 0;
}

SSL* Trust::newSession() const {
  SSL* const session = SSL_new(context_);
  if (!session) throw std::bad_alloc();
  return session;
}

std::string refusalOf(const SSL* session) {
  const auto verdict = SSL_get_verify_result(session);
  if (verdict == X509_V_OK) return {};
  if (verdict == X509_V_ERR_APPLICATION_VERIFICATION) return "its key is not pinned";
  return X509_verify_cert_error_string(verdict);
}

}  // namespace koriva::socketio
