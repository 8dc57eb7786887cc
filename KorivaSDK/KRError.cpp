#include "KorivaSDK/KRError.h"

#include <iterator>

namespace {

class Category : public std::error_category {
 public:
  const char* name() const noexcept override { return "koriva"; }
  std::string message(int code) const override { return KRError(code).localizedDescription(); }
};

}  // namespace

std::string KRError::localizedDescription() const {
  static constexpr const char* texts[] = {"No error",       "Request failed",
                                          "Token expired",  "User not exist",
                                          "Invalid",        "Wrong type",
                                          "Parsing error",  "Login conflict",
                                          "User not found", "Header decoding failed",
                                          "Wrong session"};
  return texts[code_ < std::ssize(texts) ? code_ : 0];
}

KRError::operator std::error_code() const {
  static const Category category;
  return {static_cast<int>(code_), category};
}
