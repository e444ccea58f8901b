#include "velquist/support/dump.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace velquist::support {
namespace {

struct User {
  int id = 0;
  std::string name;
};
DumpValue customDumpValue(const User& user) {
  return DumpValue::structure("User", {{"id", dumpValue(user.id)}, {"name", dumpValue(user.name)}});
}

DumpValue leaf(int number) { return DumpValue::leaf(std::to_string(number)); }
DumpValue str(const char* text) { return DumpValue::string(text); }
DumpValue record(std::string type, std::vector<DumpField> fields) {
  return DumpValue::structure(std::move(type), std::move(fields));
}
DumpValue nested(std::string caseName, std::vector<DumpField> payload = {}) {
  return DumpValue::enumeration("Enum", std::move(caseName), std::move(payload));
}
template <class T>
DumpValue optional(T value) { return dumpValue(std::optional<T>(std::move(value))); }
DumpValue node(const void* identity, const char* type = "Node") { return DumpValue::object(type, identity, {}); }

struct Example {
  std::string name;
  DumpValue value;
  std::string expected;
  std::int64_t maxDepth = unlimitedDumpDepth;
};

void expectRenders(const std::vector<Example>& examples) {
  for (const auto& example : examples) {
    SCOPED_TRACE(example.name);
    EXPECT_EQ(render(example.value, example.maxDepth), example.expected);
  }
}

TEST(DumpStructs, ContainerLayoutAndInlineRule) {
  const auto pair = record("Pair", {{"driver", dumpValue(User{1, "Blob"})}, {"passenger", dumpValue(User{2, "Jr."})}});
  expectRenders({
      {"nested structs", pair, "Pair(\n  driver: User(\n    id: 1,\n    name: \"Blob\"\n  ),\n"
                               "  passenger: User(\n    id: 2,\n    name: \"Jr.\"\n  )\n)"},
      {"one scalar field", record("ID", {{"rawValue", str("deadbeef")}}), R"(ID(rawValue: "deadbeef"))"},
      {"optional verbatim", record("D", {{"date", optional(DumpValue::verbatim("Date(0)"))}}), "D(date: Date(0))"},
      {"empty struct", record("DumpTests.Inline", {}), "DumpTests.Inline()"},
      {"one struct field", record("Outer", {{"inner", record("Inner", {{"x", leaf(1)}})}}),
       "Outer(\n  inner: Inner(x: 1)\n)"},
      {"dict field", record("W", {{"content", dumpValue(std::unordered_map<std::string, int>{{"b", 9}, {"a", 5}})}}),
       "W(\n  content: [\n    \"a\": 5,\n    \"b\": 9\n  ]\n)"},
      {"empty array field", record("B", {{"items", dumpValue(std::vector<int>{})}}), "B(items: [])"},
      {"array field", record("B", {{"items", dumpValue(std::vector<int>{7})}}), "B(\n  items: [\n    [0]: 7\n  ]\n)"},
      {"one present optional", record("S", {{"n", optional(5)}}), "S(\n  n: 5\n)"},
      {"one absent optional", record("S", {{"n", dumpValue(std::optional<int>())}}), "S(n: nil)"},
      {"one multi-line verbatim", record("N", {{"text", DumpValue::verbatim("a\nb")}}), "N(\n  text: a\n  b\n)"},
      {"optional at the root", optional(User{42, "Blob"}), "User(\n  id: 42,\n  name: \"Blob\"\n)"},
      {"nil at the root", dumpValue(std::optional<User>()), "nil"},
      {"storage fields dropped", record("M", {{"_$registrar", leaf(0)}, {"count", leaf(3)}}), "M(count: 3)"},
      {"labelled tuple", DumpValue::tuple({{"x", leaf(1)}, {"y", leaf(2)}, {"", DumpValue::tuple({})}}),
       "(\n  x: 1,\n  y: 2,\n  ()\n)"},
      {"one-element tuple", DumpValue::tuple({{"x", leaf(1)}}), "(x: 1)"},
      {"pair", dumpValue(std::pair<int, bool>(1, true)), "(\n  1,\n  true\n)"},
      {"built-in shapes", dumpValue(std::make_tuple('x', std::string_view("y"), std::make_shared<int>(3),
                                                    std::shared_ptr<int>(), static_cast<const char*>(nullptr))),
       "(\n  \"x\",\n  \"y\",\n  3,\n  (null pointer),\n  (null pointer)\n)"},
  });
}

TEST(DumpEnums, RootNestedAndPayloads) {
  const auto baz = nested("baz", {{"fizz", dumpValue(0.9)}, {"buzz", str("2")}});
  const auto fizz = nested("fizz", {{"", dumpValue(0.9)}, {"buzz", str("2")}});
  expectRenders({
      {"case", nested("foo"), "Enum.foo"},
      {"one positional payload", nested("bar", {{"", leaf(42)}}), "Enum.bar(42)"},
      {"one labelled payload", nested("fu", {{"bar", leaf(42)}}), "Enum.fu(bar: 42)"},
      {"labelled payloads", baz, "Enum.baz(\n  fizz: 0.9,\n  buzz: \"2\"\n)"},
      {"mixed payloads", fizz, "Enum.fizz(\n  0.9,\n  buzz: \"2\"\n)"},
      {"enum payload", DumpValue::enumeration("Nested", "nest", {{"", fizz}}),
       "Nested.nest(\n  .fizz(\n    0.9,\n    buzz: \"2\"\n  )\n)"},
      {"optional at the root", optional(nested("foo")), ".foo"},
      {"in a field", record("Holder", {{"value", nested("foo")}}), "Holder(value: .foo)"},
      {"as key and value", DumpValue::dictionary({{nested("foo"), baz}}),
       "[\n  .foo: .baz(\n    fizz: 0.9,\n    buzz: \"2\"\n  )\n]"},
  });
}

DumpValue session(const void* identity, const char* userID, bool isActive, int* requests = nullptr) {
  return DumpValue::object("Session", identity, [=] {
    if (requests != nullptr) ++*requests;
    return std::vector<DumpField>{{"userID", str(userID)}, {"isActive", dumpValue(isActive)}};
  });
}

TEST(DumpObjects, IdentityMarkersAndBackReferences) {
  const int a = 0, b = 0, c = 0;
  // Numbers count per type name; a repeat keeps the number of its first sighting.
  EXPECT_EQ(render(DumpValue::array({node(&a), node(&b), node(&c), node(&b), node(&a), node(&c, "Other")})),
            "[\n  [0]: Node(),\n  [1]: #1 Node(),\n  [2]: #2 Node(),\n  [3]: #1 Node(↩︎),\n  [4]: Node(↩︎),\n"
            "  [5]: Other()\n]");
  const auto error = [](const void* identity, std::vector<std::pair<DumpValue, DumpValue>> userInfo) {
    return DumpValue::object("NSError", identity, [userInfo] {
      return std::vector<DumpField>{{"code", leaf(42)}, {"userInfo", DumpValue::dictionary(userInfo)}};
    });
  };
  expectRenders({
      {"second error in a dictionary", error(&a, {{str("NSUnderlyingError"), error(&b, {})}}),
       "NSError(\n  code: 42,\n  userInfo: [\n    \"NSUnderlyingError\": #1 NSError(\n      code: 42,\n"
       "      userInfo: [:]\n    )\n  ]\n)"},
      {"cycle", DumpValue::object("Foo", &c, [&c] { return std::vector<DumpField>{{"f", optional(node(&c, "Foo"))}}; }),
       "Foo(\n  f: Foo(↩︎)\n)"},
      {"null identity", node(nullptr), "(null pointer)"},
      {"storage fields dropped",
       DumpValue::object("M", &a, [] { return std::vector<DumpField>{{"_$id", leaf(1)}, {"n", leaf(2)}}; }), "M(n: 2)"},
  });
  // Fields are fetched once per dump, also when sorting sets and dictionary keys.
  int requests = 0;
  const auto counted = session(&a, "u_1", true, &requests);
  const auto holder = record("H", {{"one", counted}, {"many", DumpValue::set({counted, counted})},
                                   {"keyed", DumpValue::dictionary({{counted, leaf(1)}})}});
  render(holder);
  EXPECT_EQ(requests, 1);
  render(holder, 2);
  EXPECT_EQ(requests, 2);
}

TEST(DumpCollections, EmptyFormsAndOrdering) {
  expectRenders({
      {"set sorted as text", dumpValue(std::set<int>{2, 10, 1}), "Set([\n  1,\n  10,\n  2\n])"},
      {"set of records sorted by text", DumpValue::set({dumpValue(User{2, "b"}), dumpValue(User{1, "z"})}),
       "Set([\n  User(\n    id: 1,\n    name: \"z\"\n  ),\n  User(\n    id: 2,\n    name: \"b\"\n  )\n])"},
      {"empty set", dumpValue(std::unordered_set<int>{}), "Set([])"},
      {"integer keys sorted as text", dumpValue(std::map<int, std::string>{{2, "b"}, {10, "a"}}),
       "[\n  10: \"a\",\n  2: \"b\"\n]"},
      {"quoted keys, then raw, then numbers",
       DumpValue::dictionary({{leaf(1), leaf(1)}, {str("a\"b"), leaf(2)}, {str("z"), leaf(3)}}),
       "[\n  \"z\": 3,\n  #\"a\"b\"#: 2,\n  1: 1\n]"},
  });
}

TEST(DumpDepth, CollapsesContainersWithNoDepthLeft) {
  const auto users = dumpValue(std::vector<User>{{1, "a"}, {2, "b"}, {3, "c"}});
  expectRenders({
      {"struct", record("P", {{"a", users}, {"b", users}}), "P(\n  a: […],\n  b: […]\n)", 1},
      {"array depth 0", users, "[…]", 0},
      {"lowest depth", record("M", {{"t", str("a\nb")}}), R"(M(t: "…"))", std::numeric_limits<std::int64_t>::min()},
      {"enum payload", nested("baz", {{"fizz", leaf(1)}, {"buzz", leaf(2)}}), "Enum.baz(…)", 0},
      {"set", dumpValue(std::set<int>{1, 2}), "Set([…])", 0},
      {"dictionary", dumpValue(std::map<int, int>{{1, 2}}), "[…]", 0},
      {"object", session(&users, "u_1", true), "Session(…)", 0},
      {"one multi-line leaf field", record("N", {{"t", DumpValue::leaf("a\nb")}}), "N(…)", 0},
      {"inline form in full", record("ID", {{"rawValue", str("x")}}), R"(ID(rawValue: "x"))", 0},
      {"multi-line string", str("a\nb"), R"("…")", 0},
      {"empty forms in full", dumpValue(std::vector<std::map<int, int>>{{}}), "[\n  [0]: [:]\n]", 1},
  });
}

TEST(DumpStrings, QuotingRules) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"Hello!", R"("Hello!")"}, {"tab\t©", R"("tab\t©")"}, {"it's", R"("it\'s")"}, {"\U0001F600", "\"\U0001F600\""},
      {std::string("a\0b", 3), R"("a\0b")"}, {"\x01\x1f\x7f", R"("\u{01}\u{1F}\u{7F}")"},
      {R"(Hello, "world!")", R"x(#"Hello, "world!""#)x"}, {R"(This has a \ in it)", R"x(#"This has a \ in it"#)x"},
      {R"(This has a "### in it)", R"x(####"This has a "### in it"####)x"},
      // Each maximal invalid UTF-8 sequence becomes U+FFFD before the rules apply.
      {"a\xff" "b", "\"a\uFFFD" "b\""}, {"\xe2\x82x", "\"\uFFFDx\""}, {"\xc0\xaf", "\"\uFFFD\uFFFD\""},
      {"\xed\xa0\x80", "\"\uFFFD\uFFFD\uFFFD\""}, {"\xf4\x90\x80\x80", "\"\uFFFD\uFFFD\uFFFD\uFFFD\""},
      {"\x85", "\"\uFFFD\""}, {"\xe2\x82", "\"\uFFFD\""}, {"\xff\"", "#\"\uFFFD\"\"#"},
      {"Hello,\nWorld!", "\"\"\"\nHello,\nWorld!\n\"\"\""}, {"x\"\"\"\ny", "#\"\"\"\nx\"\"\"\ny\n\"\"\"#"},
      {"say \"\"\"# and \"\"\"\n", "##\"\"\"\nsay \"\"\"# and \"\"\"\n\n\"\"\"##"},
      {"\"\"\"\"#\n", "##\"\"\"\n\"\"\"\"#\n\n\"\"\"##"},
      {"tab\tand \\ stay\nraw", "\"\"\"\ntab\tand \\ stay\nraw\n\"\"\""},
  };
  for (const auto& [input, expected] : cases) {
    SCOPED_TRACE(input);
    EXPECT_EQ(customDump(input), expected);
  }
  for (const std::string separator : {"\r", "\v", "\f", "\u0085", "\u2028", "\u2029"}) {
    EXPECT_EQ(customDump("a" + separator + "b"), "\"\"\"\na" + separator + "b\n\"\"\"");
  }
}

TEST(DumpStrings, MultiLineIndentation) {
  expectRenders({
      {"labelled, blank lines indented too", record("Memo", {{"text", str("a\n\nb")}}),
       "Memo(\n  text: \"\"\"\n    a\n    \n    b\n    \"\"\"\n)"},
      {"optional", record("N", {{"b", optional(std::string("a\n\nb"))}}), "N(\n  b: \"\"\"\n  a\n  \n  b\n  \"\"\"\n)"},
      {"array index", dumpValue(std::vector<std::string>{"a\nb"}), "[\n  [0]: \"\"\"\n    a\n    b\n    \"\"\"\n]"},
      {"dict key", dumpValue(std::map<int, std::string>{{1, "a\nb"}}), "[\n  1: \"\"\"\n    a\n    b\n    \"\"\"\n]"},
      {"set elements unlabelled", dumpValue(std::set<std::string>{"a\nb"}), "Set([\n  \"\"\"\n  a\n  b\n  \"\"\"\n])"},
  });
}

TEST(DumpNumbers, DoubleAndFloatDescription) {
  const std::vector<std::pair<double, std::string>> cases = {
      {42.0, "42.0"}, {0.9, "0.9"}, {-3.25, "-3.25"}, {0.1 + 0.2, "0.30000000000000004"}, {123456.789, "123456.789"},
      {0.0001, "0.0001"}, {0.00012, "0.00012"}, {0.00001, "1e-05"}, {-0.000015, "-1.5e-05"}, {2e20, "2e+20"},
      {1.5e300, "1.5e+300"}, {5e-324, "5e-324"}, {1e16, "10000000000000000.0"}, {0x1.0p54, "18014398509481984.0"},
      {std::nextafter(0x1.0p54, 1e300), "1.8014398509481988e+16"}, {0.0, "0.0"}, {-0.0, "-0.0"},
      {std::numeric_limits<double>::quiet_NaN(), "nan"}, {std::numeric_limits<double>::infinity(), "inf"},
      {-std::numeric_limits<double>::infinity(), "-inf"},
  };
  for (const auto& [value, expected] : cases) EXPECT_EQ(doubleDescription(value), expected);
  EXPECT_EQ(floatDescription(0.1F), "0.1");
  EXPECT_EQ(floatDescription(1e10F), "1e+10");
  EXPECT_EQ(customDump(std::vector<float>{1.5F}), "[\n  [0]: 1.5\n]");
}

}  // namespace
}  // namespace velquist::support
