#pragma once

#include <openssl/evp.h>

#include <string>
#include <string_view>

namespace koriva::socketio {

/// `bytes` in Base64, padded and in one line. They are few.
inline std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');  // a NUL is written behind it
  const auto* from = reinterpret_cast<const unsigned char*>(bytes.data());
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), from,
                  static_cast<int>(bytes.size()));
  text.pop_back();
  return text;
}

}  // namespace koriva::socketio
