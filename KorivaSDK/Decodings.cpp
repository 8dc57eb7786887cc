#include "KorivaSDK/Decodings.h"

namespace koriva {

constinit const json::Coding detail::ResultCode::coding =
    json::required<json::Field<"result", &ResultCode::result>>;

Decoded<std::string> decodeResultCode(Answer& answer) {
  const auto code = answer.read<detail::ResultCode>();
  if (!code) return std::nullopt;
  if (code->result != 0) return KRResult<std::string>::failure(KRError(code->result));
  return KRResult<std::string>::success("Success");
}

}  // namespace koriva
