#include "KorivaSDK/KRError.h"

namespace {

const char* descriptionOf(std::int64_t code) {
  switch (code) {
    case 0:
    case 13:
      return "No error";
    case 2:
      return "Token expired";
    case 3:
      return "User not exist";
    case 4:
      return "Invalid";
    case 5:
      return "Wrong type";
    case 6:
      return "Parsing error";
    case 7:
      return "Login conflict";
    case 8:
      return "User not found";
    case 9:
      return "Header decoding failed";
    case 10:
      return "Wrong session";
    default:
      return "Request failed";
  }
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
