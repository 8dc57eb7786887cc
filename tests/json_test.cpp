#include <gtest/gtest.h>

#include <boost/json/value.hpp>
#include <cmath>

#include "extensions/JSONCoding.h"
#include "extensions/JSONPrinter.h"
#include "extensions/StringRewriters.h"

namespace {

using namespace koriva;
using json::lenient;
using json::required;
using Texts = std::vector<std::string>;
using TextMap = std::map<std::string, std::string>;
using I64 = std::int64_t;
using U64 = std::uint64_t;

/// Numbers and texts start as what no empty or zero value can be mistaken for.
template <class T>
T initial() {
  if constexpr (std::is_arithmetic_v<T>) return static_cast<T>(55);
  if constexpr (std::is_same_v<T, std::string>) return "7";
  return T{};
}

template <class T, bool isRequired = false>
struct One {
  T v = initial<T>();
  static constexpr auto fields =
      json::fields(isRequired ? required<&One::v>("v") : lenient<&One::v>("v"));
};
template <class T>
using Strict = One<T, true>;

struct Pair {
  std::string a;
  I64 b = 7;
  static constexpr auto fields = json::fields(required<&Pair::a>("a"), lenient<&Pair::b>("b"));
};

struct Fallbacks {
  std::string time;
  std::optional<U64> width;
  I64 low = 0;
  bool flag = false;
  double real = 0;
  I64 unwritten = 0;
  static constexpr auto fields =
      json::fields(lenient<&Fallbacks::time>("time", "0"), lenient<&Fallbacks::width>("width", 0),
                   lenient<&Fallbacks::low>("low", -3), lenient<&Fallbacks::flag>("flag", true),
                   lenient<&Fallbacks::real>("real", 0.5),
                   lenient<&Fallbacks::unwritten>("unwritten").readOnly());
};

/// Reads documents within documents from its hook.
class Chain {
 public:
  std::string text;
  int length = 0;
  static constexpr auto fields = json::fields(lenient<&Chain::text>("text"));

 private:
  friend struct json::Access;
  static void afterDecoding(Chain& chain) {
    if (const auto inner = json::decode<Chain>(chain.text)) chain.length = inner->length + 1;
  }
};

/// Is read through another document, and refuses some.
struct Even {
  using Document = Strict<I64>;
  I64 half = 0;
  static std::optional<Even> fromDocument(const Document& document) {
    return document.v % 2 == 0 ? std::optional(Even{document.v / 2}) : std::nullopt;
  }
  static bool writeJson(const Even& even, std::string& out) { return json::append(out, even.half); }
};

/// The document read as a T and written again, or "error".
template <class T>
std::string reread(std::string_view document) {
  const auto value = KRJSONDecoder{}.decode<T>(document);
  return value ? KRJSONEncoder{}.encode(*value) : "error";
}

/// The same for the member of an object that has but one.
template <class T>
std::string member(std::string_view value) {
  const std::string written = reread<T>("{\"v\":" + std::string(value) + "}");
  return written.starts_with("{\"v\":") ? written.substr(5, written.size() - 6) : written;
}

/// The same for the first of the items inside an array.
std::string first(std::string_view items) {
  const auto value = json::decodeFirst<One<I64>>(items);
  return value ? KRJSONEncoder{}.encode(*value) : "error";
}

/// Inputs that all give the same.
struct Case {
  std::string (*function)(std::string_view);
  std::string expected;
  std::vector<std::string> inputs;
};

void check(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    for (const auto& input : c.inputs) {
      EXPECT_EQ(c.function(input), c.expected) << input.substr(0, 99);
    }
  }
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(Json, ReadsAndWritesRecords) {
  constexpr auto integer = &member<One<I64>>;
  constexpr auto natural = &member<One<U64>>;
  constexpr auto real = &member<One<double>>;
  constexpr auto text = &member<One<std::string>>;
  constexpr auto texts = &member<Strict<Texts>>;
  constexpr auto map = &member<Strict<TextMap>>;
  constexpr auto pair = &member<One<Pair>>;
  constexpr auto pairs = &member<One<std::vector<Pair>>>;
  constexpr auto strict = &member<Strict<std::vector<Pair>>>;
  constexpr auto maybe = &member<One<std::optional<Pair>>>;
  constexpr auto document = &reread<One<I64>>;
  const std::string x20k(20'000, 'x');
  check({
      {integer, "-9223372036854775808", {"-9223372036854775808", "-92233720368547758.080e+2"}},
      {integer, "9223372036854775807", {"9223372036854775807", "9223372036854775807.0"}},
      {integer, "9", {"900.00E-2", "2,\"v\":9", "1,\"w\":{\"v\":[2]},\"\\u0076\":9"}},
      {integer, "0", {"0", "-0", "0.000e999"}},
      {integer, "55", {"9223372036854775808", "1e19", "1e999999999", "1.5", "true", "\"12\""}},
      {integer, "55", {"null", "[{\"v\":1}]", "1,\"v\":null", "1,\"v\":{\"v\":1}", "1,\"v\":[]"}},
      {natural, "18446744073709551615", {"18446744073709551615", "1844674407370955161500e-2"}},
      {natural, "55", {"18446744073709551616", "-1", "-9223372036854775808", "0.5"}},
      {real, "72057594037927936", {"72057594037927936", "7.2057594037927933e16"}},
      {real, "2.225073858507201e-308", {"2.2250738585072011e-308"}},
      {real, "-0.3", {"-0.3", "-3E-1", "1e-999,\"v\":-0.3"}},
      {real, "55", {"1e999", "-1e999", "false", "\"1\""}},
      {&member<One<bool>>, "true", {"true", "0", "null", "\"false\""}},
      {text, "\"A\\n\\\"\\\\/é😀é😀\\u0001\"", {R"("\u0041\n\"\\\/\u00e9\ud83d\ude00é😀\u0001")"}},
      {text, "\"\xEF\xBF\xBD😀\xEF\xBF\xBDx\"", {R"("\ud83d\ud83d\ude00\udc00x")"}},
      {text, "\"\\\\ud83d\xEF\xBF\xBD\"", {R"("\\ud83d\ud83d")"}},
      {text, "\"" + x20k + "\\t\"", {"\"" + x20k + "\\t\"", "\"a\\n\",\"v\":\"" + x20k + "\\t\""}},
      {text, "\"7\"", {"7", "null", "\"a\",\"v\":2", "\"a\",\"v\":[\"v\"]"}},
      {texts, R"(["a","","b"])", {R"(["a","","b"])", R"(["c"],"v":["a","","b"])"}},
      {texts, "error", {R"(["a",1])", R"(["a",[["b"]],"c"],"w":"x")", R"(["a",{"b":"c"}])", "{}"}},
      {map, R"({"a":"","k":"2"})", {R"({"k":"1","k":"2","\u0061":""})"}},
      {map, "error", {R"({"k":"1","l":{}})", R"({"k":["1"]})", R"({"k":null})", R"(["k"])"}},
      {pair, R"({"a":"x","b":7})", {R"({"a":"x"})", R"({"a":"x","b":1,"b":"wrong"})"}},
      {pair, R"({"a":"x","b":7})", {R"({"b":1,"a":"y"},"v":{"a":"x"})", R"({"a":1,"a":"x"})"}},
      {pair, R"({"a":"","b":7})", {"1", "{}", "[]", R"({"a":"x","b":1},"v":{"b":2})"}},
      {pairs, R"([{"a":"x","b":7},{"a":"y","b":2}])", {R"([{"a":"x"},{"b":2,"a":"y"}])"}},
      {pairs, "[]", {"[]", R"([{"a":"x"},{"b":2},{"a":"z"}])", R"([{"a":"x"},["y"]])"}},
      {strict, "[]", {"[]", R"([{"a":null}],"v":[])"}},
      {strict, "error", {R"([{"a":null}])", R"([{"a":"x"},{}])", R"([],"v":null)", "1", "{}"}},
      {maybe, R"({"a":"x","b":7})", {R"({"a":"x"})", R"(null,"v":{"a":"x"})"}},
      {maybe, "{}", {"null", "{}", R"({"a":"x"},"v":null)"}},
      {&member<One<std::optional<I64>>>, "1", {"1", "1.0"}},
      {&member<One<std::optional<Texts>>>, "{}", {"null", R"(["a"],"v":[1])"}},
      {&reread<Fallbacks>,
       R"({"time":"0","width":0,"low":-3,"flag":true,"real":0.5})",
       {"{}", R"({"time":1,"width":null,"flag":0,"unwritten":1})", R"({"low":1,"low":"1"})"}},
      {&reread<Fallbacks>,
       R"({"time":"","width":4,"low":1,"flag":false,"real":2})",
       {R"({"time":"","width":4,"low":1,"flag":false,"real":2})"}},
      {document, R"({"v":1})", {" \n{ \"v\" : 1 } \t", "{\"v\":1,\"w\":" + nested(63) + "}"}},
      {document, "error", {R"({"v":1}x)", R"({"v":1,})", R"({"v":1)", "", "[]", "null", "nul"}},
      {document, "error", {"{\"w\":\"\xff\"}", "{\"w\":\"\xed\xa0\x80\"}", "{\"\\udc00\":01}"}},
      {document, "error", {"{\"w\":" + nested(64) + "}", "{\"v\":" + nested(100'000) + "}"}},
      {&reread<std::vector<Pair>>, R"([{"a":"x","b":7}])", {R"([{"a":"x"}])"}},
      {&reread<Even>, "3", {R"({"v":6})"}},
      {&reread<Even>, "error", {R"({"v":5})", "{}"}},
      {&first, R"({"v":1})", {R"({"v":1},nonsense)", R"({"v":1} ,)", R"({"v":1})"}},
      {&first, "error", {R"({"v":1}5)", R"({"v":1}])", R"([1],{})", ",", ""}},
  });
}

TEST(Json, BoundsDocumentsWithinDocuments) {
  std::string document = "{}";
  for (int length = 0; length < 70; ++length) {
    const auto chain = json::decode<Chain>(document);
    ASSERT_TRUE(chain);
    ASSERT_EQ(chain->length, std::min(length, 64));
    // Escapes that grow by a few characters with every level, where backslashes would double.
    std::string quoted;
    for (const char c : document) {
      quoted += c == '"' ? "\\u0022" : c == '\\' ? "\\u005c" : std::string(1, c);
    }
    document = "{\"text\":\"" + quoted + "\"}";
  }
}

TEST(Json, WritesOnlyWhatIsJson) {
  for (const double value : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    std::string out = "kept";
    EXPECT_FALSE(json::append(out, One<double>{value}));
    EXPECT_FALSE(json::write(out, boost::json::value{{"a", {1, value}}}));
    EXPECT_EQ(out, "kept");
    EXPECT_EQ(KRJSONEncoder{}.encode(One<double>{value}), "");
  }
  const std::vector<std::pair<std::string, std::string>> texts = {
      {"\xff", "\xEF\xBF\xBD"},
      {"a\xf0\x9f\x98z", "a\xEF\xBF\xBDz"},
      {"\xc0\xaf\xed\xa0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"é€😀", "é€😀"},
  };
  for (const auto& [bytes, repaired] : texts) {
    const KRDictionary dictionary{{bytes, bytes}};
    std::string written;
    EXPECT_TRUE(json::write(written, dictionary, json::InvalidText::replace));
    EXPECT_EQ(written, KRJSONEncoder{}.encode(TextMap{{repaired, repaired}}));
    EXPECT_EQ(json::validUtf8(bytes), repaired);
    EXPECT_EQ(KRJSONEncoder{}.encode(One<std::string>{bytes}), "{\"v\":\"" + repaired + "\"}");
    EXPECT_EQ(toJsonString(dictionary).has_value(), bytes == repaired);
    EXPECT_EQ(toJsonString(bytes).has_value(), bytes == repaired);
  }
}

TEST(Json, KeepsDynamicValues) {
  const auto dynamic = [](std::string_view text) {
    const auto dictionary = json::parseDictionary(text);
    return dictionary ? toJsonString(*dictionary).value() : "error";
  };
  const auto pretty = [](std::string_view s) { return json::prettyPrinted(s).value_or("error"); };
  const auto form = [](std::string_view s) { return json::printedForm(*json::parseDictionary(s)); };
  const std::string numbers = R"({"a":[1,-2,18446744073709551615,0.3,true,null],"é\u0000":{}})";
  check({{dynamic, numbers, {numbers}},
         {dynamic, "{\"v\":\"\xEF\xBF\xBD\"}", {R"({"v":"\ud83d"})"}},
         {dynamic, "{\"v\":72057594037927936}", {R"({"v":7.2057594037927933e16})"}},
         {dynamic, "error", {"[]", "{", "{\"a\":1e999}", "{}{}", "", "{\"v\":" + nested(64) + "}"}},
         {pretty,
          "{\n  \"a\": [\n    1,\n    {}\n  ],\n  \"b\": []\n}",
          {R"({"a":[1,{}],"b":[]},x)"}},
         {pretty, "error", {"nonsense", ""}},
         {form, R"(["k": 1, "l": ["a\"\\", true]])", {R"({"k":1,"l":["a\"\\",true]})"}}});
}

TEST(StringRewriters, ReplaceStepByStep) {
  check({{escapedString, "\\\"\\/\n", {"\"/\n"}},
         {escapedString, R"(\\\n\\\b\\\f\\\r\\\t\b)", {R"(\n\u{8}\u{12}\r\t\b)"}},
         {unescapeString, "\"/\n\b\x12\r\t\\b", {R"(\"\/\n\u{8}\u{12}\r\t\b)"}},
         {unescapeString, "\\\"\\\n", {R"(\\"\\n)"}},
         {replaceSpecialCharacters, "\\\\\\\"\\r\\n\\t\b", {"\\\"\r\n\t\b"}}});
}

}  // namespace
