#include <malloc.h>

#include <boost/json/value.hpp>
#include <cmath>
#include <limits>

#include "extensions/JSONEncoder.h"
#include "extensions/JSONItems.h"
#include "extensions/StringRewriters.h"
#include "support/Table.h"

namespace {

using namespace koriva;
using json::Coding;
using json::Field;
using test::reread;
using I64 = std::int64_t;

/// Numbers and texts start as what no empty or zero value can be mistaken for.
template <class T>
T initial() {
  if constexpr (std::is_arithmetic_v<T>) return static_cast<T>(55);
  if constexpr (std::is_same_v<T, std::string>) return "7";
  return T{};
}

template <class T, bool isStrict = false>
struct One {
  T v = initial<T>();
  static const Coding coding;
};
template <class T, bool isStrict>
constinit const Coding One<T, isStrict>::coding =
    isStrict ? json::required<Field<"v", &One::v>> : json::lenient<Field<"v", &One::v>>;
template <class T>
using Strict = One<T, true>;

struct Inner {
  std::string a;
  static const Coding coding;
};
constinit const Coding Inner::coding = json::required<Field<"a", &Inner::a>>;

/// The only member of an object, as a T.
template <class T>
std::string member(std::string_view value) {
  const std::string written = reread<T>("{\"v\":" + std::string(value) + "}");
  if (written == "{}") return "absent";
  return written.starts_with("{\"v\":") ? written.substr(5, written.size() - 6) : written;
}

std::string dynamic(std::string_view text) {
  const auto dictionary = json::parseDictionary(text);
  return dictionary ? toJsonString(*dictionary).value() : "error";
}

std::string nested(std::size_t depth) {
  return "{\"w\":" + std::string(depth, '[') + std::string(depth, ']') + ",\"v\":1}";
}

TEST(Json, IsReadAndWritten) {
  test::checkTable(
      "json.txt",
      {{"integer", member<One<I64>>},
       {"natural", member<One<std::uint64_t>>},
       {"real", member<One<double>>},
       {"boolean", member<One<bool>>},
       {"text", member<One<std::string>>},
       {"required texts", member<Strict<std::vector<std::string>>>},
       {"required map", member<Strict<std::map<std::string, std::string>>>},
       {"record", member<One<Inner>>},
       {"records", member<One<std::vector<Inner>>>},
       {"required records", member<Strict<std::vector<Inner>>>},
       {"optional", member<One<std::optional<Inner>>>},
       {"document", reread<One<I64>>},
       {"first of items", reread<One<I64>, &json::decodeFirst<One<I64>>>},
       {"dynamic", dynamic},
       {"pretty", [](auto items) { return json::prettyPrinted(items).value_or("error"); }},
       {"printed", [](auto text) { return json::printedForm(json::parseValue(text).value()); }}});
}

TEST(Json, MayBeLongAndDeepWithinBounds) {
  const std::string text = "\"" + std::string(20'000, 'x') + "\\t\"";
  EXPECT_EQ(member<One<std::string>>("\"a\\n\",\"v\":" + text), text);
  EXPECT_EQ(reread<One<I64>>("{" + text + ":2,\"v\":1}"), "{\"v\":1}");
  EXPECT_EQ(reread<One<I64>>(nested(63)), "{\"v\":1}");
  EXPECT_EQ(dynamic(nested(63)), nested(63));
  for (const auto& refused : {nested(64), nested(100'000), std::string("{\"w\":\"\xff\"}")}) {
    EXPECT_EQ(reread<One<I64>>(refused), "error");
    EXPECT_EQ(dynamic(refused), "error");
  }
}

TEST(Json, IsWrittenToABoundedDepth) {
  boost::json::value list = 1;
  boost::json::value object = 1;
  for (int depth = 1; depth <= 65; ++depth) {
    list = boost::json::array{list};
    object = KRDictionary{{"v", object}};
    std::string out;
    EXPECT_EQ(json::write(out, list), depth <= 64);
    EXPECT_EQ(json::write(out, object), depth <= 64);
  }
}

TEST(Json, IsCheckedWithoutBuildingIt) {
  std::string list(60, '[');
  for (int i = 0; i < 1'000'000; ++i) list += "1,";
  list += "1" + std::string(60, ']');
  mallopt(M_MMAP_MAX, 0);  // so that the arena is as large as it has ever had to be
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  const auto before = mallinfo2().arena;
  EXPECT_TRUE(json::areItems(list));
  EXPECT_LE(mallinfo2().arena, before + list.size());
  EXPECT_TRUE(json::prettyPrinted(list) == list) << "too long to be indented";
  EXPECT_LE(mallinfo2().arena, before + 3 * list.size());
}

TEST(Json, IsIndentedUpTo64KiB) {
  const std::string text(65'536 - 8, 'x');
  EXPECT_TRUE(json::prettyPrinted("[\"" + text + "\"]") == "[\n  \"" + text + "\"\n]");
  EXPECT_TRUE(json::prettyPrinted("[ \"" + text + "x\"]") == "[\"" + text + "x\"]");
}

TEST(Json, SaysNoNumberThatIsNone) {
  for (const double value : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    std::string out = "kept";
    EXPECT_FALSE(json::append(out, One<double>{value}));
    EXPECT_FALSE(json::write(out, boost::json::value{{"a", {1, value}}}));
    EXPECT_EQ(out, "kept");
    EXPECT_EQ(KRJSONEncoder{}.encode(One<double>{value}), "");
  }
}

TEST(Json, IsWrittenInUtf8) {
  const std::string bad = "\xEF\xBF\xBD";
  const std::string good = "é€😀\u0080\u07ff\u0800\ud7ff\U00010000\U0010ffff";
  for (const auto& [bytes, repaired] : std::map<std::string, std::string>{
           {"a\xf0\x9f\x98z", "a" + bad + "z"},
           {"\xc0\xaf\xed\xa0\x80\xc1\xbf\xf5\x80\x80\x80\xe0\x9f\xf0\x8f\xf4\x90",
            replaceAll(".................", ".", bad)},
           {good, good}}) {
    const KRDictionary dictionary{{bytes, bytes}};
    std::string written;
    EXPECT_TRUE(json::write(written, dictionary, json::InvalidText::replace));
    EXPECT_EQ(written, "{\"" + repaired + "\":\"" + repaired + "\"}");
    EXPECT_EQ(KRJSONEncoder{}.encode(One<std::string>{bytes}), "{\"v\":\"" + repaired + "\"}");
    EXPECT_EQ(toJsonString(dictionary).has_value(), bytes == repaired);
    EXPECT_EQ(toJsonString(bytes).has_value(), bytes == repaired);
  }
}

TEST(StringRewriters, ReplaceStepByStep) {
  EXPECT_EQ(escapedString("\"/\n"), "\\\"\\/\n");
  EXPECT_EQ(escapedString(R"(\n\u{8}\u{12}\r\t\b)"), R"(\\\n\\\b\\\f\\\r\\\t\b)");
  EXPECT_EQ(unescapeString(R"(\"\/\n\u{8}\u{12}\r\t\b)"), "\"/\n\b\x12\r\t\\b");
  EXPECT_EQ(unescapeString(R"(\\"\\n)"), "\\\"\\\n");
  EXPECT_EQ(replaceSpecialCharacters("\\\"\r\n\t\b"), "\\\\\\\"\\r\\n\\t\b");
}

}  // namespace
