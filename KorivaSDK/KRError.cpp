#include "KorivaSDK/KRError.h"

#include <iterator>

namespace {

const char* descriptionOf(std::int64_t code) {
  static constexpr const char* texts[] = {"No error",       "Request failed",
                                          "Token expired",  "User not exist",
                                          "Invalid",        "Wrong type",
                                          "Parsing error",  "Login conflict",
                                          "User not found", "Header decoding failed",
                                          "Wrong session"};
  if (code == KRError::duplicate.code()) return texts[0];
  return texts[code >= 0 && code < std::ssize(texts) ? code : 1];
}

class Category : public std::error_category {
 public:
  const char* name() const noexcept override { return "koriva"; }
  std::string message(int code) const override { return descriptionOf(code); }
};

}  // namespace

std::string KRError::localizedDescription() const { return descriptionOf(code_); }

KRError::operator std::error_code() const {
  static const Category category;
  return {static_cast<int>(code_), category};
}
