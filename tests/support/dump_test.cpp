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

// ---------------------------------------------------------------------------------------
// Small types standing in for the records of the examples, each with its hook.

struct User {
  int id = 0;
  std::string name;
};
DumpValue customDumpValue(const User& user) {
  return DumpValue::structure("User", {{"id", dumpValue(user.id)}, {"name", dumpValue(user.name)}});
}

struct Pair {
  User driver;
  User passenger;
};
DumpValue customDumpValue(const Pair& pair) {
  return DumpValue::structure("Pair", {{"driver", dumpValue(pair.driver)}, {"passenger", dumpValue(pair.passenger)}});
}

struct ID {
  std::string rawValue;
};
DumpValue customDumpValue(const ID& id) { return DumpValue::structure("ID", {{"rawValue", dumpValue(id.rawValue)}}); }

// A platform date: a value with its own dump text.
struct Stamp {
  std::string iso;
};
DumpValue customDumpValue(const Stamp& stamp) { return DumpValue::verbatim("Date(" + stamp.iso + ")"); }

struct Inner {
  int x = 0;
};
DumpValue customDumpValue(const Inner& inner) { return DumpValue::structure("Inner", {{"x", dumpValue(inner.x)}}); }

struct Outer {
  Inner inner;
};
DumpValue customDumpValue(const Outer& outer) {
  return DumpValue::structure("Outer", {{"inner", dumpValue(outer.inner)}});
}

struct Wrap {
  std::unordered_map<std::string, int> content;
};
DumpValue customDumpValue(const Wrap& wrap) {
  return DumpValue::structure("Wrap", {{"content", dumpValue(wrap.content)}});
}

// An object; counts how often its fields are asked for.
struct Session {
  std::string userID;
  bool isActive = false;
  mutable int fieldRequests = 0;
};
DumpValue customDumpValue(const Session& session) {
  return DumpValue::object("Session", &session, [&session] {
    ++session.fieldRequests;
    return std::vector<DumpField>{{"userID", dumpValue(session.userID)}, {"isActive", dumpValue(session.isActive)}};
  });
}

struct RecursiveFoo {
  std::shared_ptr<RecursiveFoo> foo;
};
DumpValue customDumpValue(const RecursiveFoo& value) {
  return DumpValue::object("RecursiveFoo", &value, [&value] {
    return std::vector<DumpField>{
        {"foo", value.foo ? DumpValue::wrappedInOptional(dumpValue(*value.foo)) : DumpValue::nil()}};
  });
}

struct Email {
  std::string subject;
  std::string body;
};
DumpValue customDumpValue(const Email& email) {
  return DumpValue::structure("Email", {{"subject", dumpValue(email.subject)}, {"body", dumpValue(email.body)}});
}

// enum Enum { foo, bar(Int), baz(fizz: Double, buzz: String), fizz(Double, buzz: String), fu(bar: Int) }
struct Enum {
  enum class Case { foo, bar, baz, fizz, fu };
  Case which = Case::foo;
  int number = 0;
  double real = 0;
  std::string text = "";
};
DumpValue customDumpValue(const Enum& value) {
  switch (value.which) {
    case Enum::Case::foo:
      return DumpValue::enumeration("Enum", "foo");
    case Enum::Case::bar:
      return DumpValue::enumeration("Enum", "bar", {{"", dumpValue(value.number)}});
    case Enum::Case::baz:
      return DumpValue::enumeration("Enum", "baz", {{"fizz", dumpValue(value.real)}, {"buzz", dumpValue(value.text)}});
    case Enum::Case::fizz:
      return DumpValue::enumeration("Enum", "fizz", {{"", dumpValue(value.real)}, {"buzz", dumpValue(value.text)}});
    case Enum::Case::fu:
      return DumpValue::enumeration("Enum", "fu", {{"bar", dumpValue(value.number)}});
  }
  return DumpValue::nil();
}

struct Product {
  struct SubscriptionPeriod {
    enum class Unit { day, month };
    int value = 0;
    Unit unit = Unit::day;
  };
  std::string id;
  SubscriptionPeriod period;
};
DumpValue customDumpValue(Product::SubscriptionPeriod::Unit unit) {
  return DumpValue::enumeration("Product.SubscriptionPeriod.Unit",
                                unit == Product::SubscriptionPeriod::Unit::day ? "day" : "month");
}
DumpValue customDumpValue(const Product::SubscriptionPeriod& period) {
  return DumpValue::structure("Product.SubscriptionPeriod",
                              {{"value", dumpValue(period.value)}, {"unit", dumpValue(period.unit)}});
}
DumpValue customDumpValue(const Product& product) {
  const DumpValue tagged = DumpValue::structure("Tagged", {{"rawValue", dumpValue(product.id)}});
  return DumpValue::structure("Product", {{"id", tagged}, {"period", dumpValue(product.period)}});
}

// A wrapper written as the value it wraps.
struct Wrapper {
  int rawValue = 0;
};
DumpValue customDumpValue(const Wrapper& wrapper) { return dumpValue(wrapper.rawValue); }

Enum foo() { return {}; }
Enum bar(int number) { return {.which = Enum::Case::bar, .number = number}; }
Enum baz(double real, std::string text) { return {.which = Enum::Case::baz, .real = real, .text = std::move(text)}; }
Enum fizz(double real, std::string text) {
  return {.which = Enum::Case::fizz, .real = real, .text = std::move(text)};
}
Enum fu(int number) { return {.which = Enum::Case::fu, .number = number}; }

const User blob{1, "Blob"};
const User blobJr{2, "Blob, Jr."};
const User blobSr{3, "Blob, Sr."};

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

DumpValue leaf(int number) { return DumpValue::leaf(std::to_string(number)); }

// ---------------------------------------------------------------------------------------

TEST(DumpStructs, ContainerLayoutAndInlineRule) {
  expectRenders({
      {"E1 struct", dumpValue(User{42, "Blob"}), R"(User(
  id: 42,
  name: "Blob"
))"},
      {"E2 nested structs", dumpValue(Pair{blob, blobJr}), R"(Pair(
  driver: User(
    id: 1,
    name: "Blob"
  ),
  passenger: User(
    id: 2,
    name: "Blob, Jr."
  )
))"},
      {"E3 one scalar field is inline", dumpValue(ID{"deadbeef"}), R"(ID(rawValue: "deadbeef"))"},
      {"E3 optional verbatim stays inline",
       DumpValue::structure("NestedDate", {{"date", dumpValue(std::optional<Stamp>(Stamp{"1970-01-01T00:00:00.000Z"}))}}),
       "NestedDate(date: Date(1970-01-01T00:00:00.000Z))"},
      {"E3 empty struct", DumpValue::structure("DumpTests.Inline", {}), "DumpTests.Inline()"},
      {"E4 one dictionary field is a block", dumpValue(Wrap{{{"b", 9}, {"a", 5}}}), R"(Wrap(
  content: [
    "a": 5,
    "b": 9
  ]
))"},
      {"E4 one struct field is a block", dumpValue(Outer{{1}}), R"(Outer(
  inner: Inner(x: 1)
))"},
      {"one empty array field is inline", DumpValue::structure("Box", {{"items", dumpValue(std::vector<int>{})}}),
       "Box(items: [])"},
      {"one non-empty array field is a block", DumpValue::structure("Box", {{"items", dumpValue(std::vector<int>{7})}}),
       R"(Box(
  items: [
    [0]: 7
  ]
))"},
      {"E21 present optional scalar is a block", DumpValue::structure("S", {{"n", dumpValue(std::optional<int>(5))}}),
       R"(S(
  n: 5
))"},
      {"E21 absent optional is inline", DumpValue::structure("S", {{"n", dumpValue(std::optional<int>())}}),
       "S(n: nil)"},
      {"E13 optional at the root", dumpValue(std::optional<User>(User{42, "Blob"})), R"(User(
  id: 42,
  name: "Blob"
))"},
      {"E13 nil at the root", dumpValue(std::optional<User>()), "nil"},
      {"E18 positional tuple", dumpValue(std::tuple<int, int>(1, 2)), R"((
  1,
  2
))"},
      {"E18 labelled tuple", DumpValue::tuple({{"x", leaf(1)}, {"y", leaf(2)}, {"", DumpValue::tuple({})}}), R"((
  x: 1,
  y: 2,
  ()
))"},
      {"one-element tuple is inline", DumpValue::tuple({{"x", leaf(1)}}), "(x: 1)"},
      {"generated storage fields are dropped",
       DumpValue::structure("Model", {{"_$observationRegistrar", leaf(0)}, {"count", leaf(3)}}), "Model(count: 3)"},
      {"multi-line verbatim field is a block", DumpValue::structure("Note", {{"text", DumpValue::verbatim("a\nb")}}),
       "Note(\n  text: a\n  b\n)"},
  });
}

TEST(DumpStructs, RecordsFromTheExamples) {
  const auto transaction = DumpValue::structure(
      "Transaction", {{"id", dumpValue("2000000123")},
                      {"productID", dumpValue("pro.monthly")},
                      {"purchaseDate", dumpValue(Stamp{"1970-01-01T00:00:00.000Z"})},
                      {"quantity", leaf(1)}});
  const auto product = dumpValue(Product{"pro.monthly", {1, Product::SubscriptionPeriod::Unit::month}});
  expectRenders({
      {"E5 record in a dictionary", DumpValue::dictionary({{dumpValue("transaction"), transaction}}), R"([
  "transaction": Transaction(
    id: "2000000123",
    productID: "pro.monthly",
    purchaseDate: Date(1970-01-01T00:00:00.000Z),
    quantity: 1
  )
])"},
      {"E20 tagged identifier and nested type name", product, R"(Product(
  id: Tagged(rawValue: "pro.monthly"),
  period: Product.SubscriptionPeriod(
    value: 1,
    unit: .month
  )
))"},
      {"E20 nested enum at the root", dumpValue(Product::SubscriptionPeriod::Unit::month),
       "Product.SubscriptionPeriod.Unit.month"},
  });
}

TEST(DumpEnums, RootNestedAndPayloads) {
  const auto nestedFizz = DumpValue::enumeration("Nested", "nest", {{"", dumpValue(fizz(0.9, "2"))}});
  const auto result = DumpValue::enumeration(
      "Result", "success", {{"", DumpValue::enumeration("Result", "success", {{"", leaf(42)}})}});
  expectRenders({
      {"E12 case", dumpValue(foo()), "Enum.foo"},
      {"E12 one positional payload", dumpValue(bar(42)), "Enum.bar(42)"},
      {"E12 one labelled payload", dumpValue(fu(42)), "Enum.fu(bar: 42)"},
      {"E12 labelled payloads", dumpValue(baz(0.9, "2")), R"(Enum.baz(
  fizz: 0.9,
  buzz: "2"
))"},
      {"E12 mixed payloads", dumpValue(fizz(0.9, "2")), R"(Enum.fizz(
  0.9,
  buzz: "2"
))"},
      {"E12 nested enum payload", nestedFizz, R"(Nested.nest(
  .fizz(
    0.9,
    buzz: "2"
  )
))"},
      {"E12 generic result", result, R"(Result.success(
  .success(42)
))"},
      {"E12 namespaced", DumpValue::enumeration("Namespaced.Enum", "x", {{"", leaf(0)}}), "Namespaced.Enum.x(0)"},
      {"optional enum at the root", dumpValue(std::optional<Enum>(foo())), ".foo"},
      {"enum in a field", DumpValue::structure("Holder", {{"value", dumpValue(foo())}}), "Holder(value: .foo)"},
      {"enum in an array", dumpValue(std::vector<Enum>{bar(1)}), "[\n  [0]: .bar(1)\n]"},
      {"enum as key and value", DumpValue::dictionary({{dumpValue(foo()), dumpValue(fu(1))}}),
       "[\n  .foo: .fu(bar: 1)\n]"},
      {"E16 struct written as an enum",
       DumpValue::enumeration("Button", "cancel", {{"action", DumpValue::nil()}, {"label", dumpValue("Cancel")}}),
       R"(Button.cancel(
  action: nil,
  label: "Cancel"
))"},
  });
}

TEST(DumpEnums, ErrorEnumsInADictionary) {
  const auto error = [](DumpValue value) { return DumpValue::dictionary({{dumpValue("error"), std::move(value)}}); };
  expectRenders({
      {"E11 case", error(DumpValue::enumeration("PurchaseError", "cancelled")), "[\n  \"error\": .cancelled\n]"},
      {"E11 one payload",
       error(DumpValue::enumeration("PurchaseError", "productNotFound", {{"id", dumpValue("pro")}})),
       "[\n  \"error\": .productNotFound(id: \"pro\")\n]"},
      {"E11 two payloads",
       error(DumpValue::enumeration("PurchaseError", "network", {{"code", leaf(3)}, {"message", dumpValue("offline")}})),
       R"([
  "error": .network(
    code: 3,
    message: "offline"
  )
])"},
  });
}

TEST(DumpObjects, IdentityMarkersAndBackReferences) {
  auto first = std::make_shared<Session>(Session{"u_1", true});
  auto second = std::make_shared<Session>(Session{"u_2", false});
  auto third = std::make_shared<Session>(Session{"u_3", false});
  const auto three = DumpValue::structure(
      "Three", {{"a", dumpValue(first)}, {"b", dumpValue(first)}, {"c", dumpValue(second)}});
  EXPECT_EQ(render(three), R"(Three(
  a: Session(
    userID: "u_1",
    isActive: true
  ),
  b: Session(↩︎),
  c: #1 Session(
    userID: "u_2",
    isActive: false
  )
))");

  // Numbers are per type name; a repeat keeps the number of its first sighting.
  const auto mixed = dumpValue(std::vector<DumpValue>{
      dumpValue(first), dumpValue(second), dumpValue(third), dumpValue(second),
      DumpValue::object("Other", third.get(), [] { return std::vector<DumpField>{}; })});
  EXPECT_EQ(render(mixed), R"([
  [0]: Session(
    userID: "u_1",
    isActive: true
  ),
  [1]: #1 Session(
    userID: "u_2",
    isActive: false
  ),
  [2]: #2 Session(
    userID: "u_3",
    isActive: false
  ),
  [3]: #1 Session(↩︎),
  [4]: Other()
])");
}

TEST(DumpObjects, FieldsAreRequestedOncePerDump) {
  Session session{"u_1", true};
  const auto value = DumpValue::structure(
      "Holder", {{"one", dumpValue(session)},
                 {"many", DumpValue::set({dumpValue(session), dumpValue(session)})},
                 {"keyed", DumpValue::dictionary({{dumpValue(session), leaf(1)}})}});
  render(value);
  EXPECT_EQ(session.fieldRequests, 1);
  render(value, 2);  // each dump asks again
  EXPECT_EQ(session.fieldRequests, 2);
}

TEST(DumpObjects, CyclesNullsAndStateAroundObjects) {
  auto cyclic = std::make_shared<RecursiveFoo>();
  cyclic->foo = cyclic;
  const std::string cycleText = customDump(cyclic);
  cyclic->foo.reset();  // break the cycle so the object is freed
  EXPECT_EQ(cycleText, R"(RecursiveFoo(
  foo: RecursiveFoo(↩︎)
))");

  Session session{"u_1", true};
  const auto error = [](const void* identity, std::vector<std::pair<DumpValue, DumpValue>> userInfo) {
    return DumpValue::object("NSError", identity, [userInfo] {
      return std::vector<DumpField>{{"domain", dumpValue("com.example.store")},
                                    {"code", leaf(42)},
                                    {"userInfo", DumpValue::dictionary(userInfo)}};
    });
  };
  const int outerIdentity = 0;
  const int innerIdentity = 0;
  const auto nested = error(&outerIdentity, {{dumpValue("NSUnderlyingError"), error(&innerIdentity, {})}});
  expectRenders({
      {"E6", DumpValue::structure("PurchaseState",
                                  {{"offer", dumpValue(std::optional<DumpValue>(DumpValue::structure(
                                                 "Offer", {{"id", dumpValue("intro_week")},
                                                           {"price", DumpValue::verbatim("0.99")}})))},
                                   {"isRestoring", dumpValue(false)},
                                   {"session", dumpValue(session)}}),
       R"(PurchaseState(
  offer: Offer(
    id: "intro_week",
    price: 0.99
  ),
  isRestoring: false,
  session: Session(
    userID: "u_1",
    isActive: true
  )
))"},
      {"E10 error object in a dictionary",
       DumpValue::dictionary(
           {{dumpValue("error"), error(&outerIdentity, {{dumpValue("NSLocalizedDescription"),
                                                         dumpValue("An error occurred")}})}}),
       R"([
  "error": NSError(
    domain: "com.example.store",
    code: 42,
    userInfo: [
      "NSLocalizedDescription": "An error occurred"
    ]
  )
])"},
      {"E10 second error object", nested, R"(NSError(
  domain: "com.example.store",
  code: 42,
  userInfo: [
    "NSUnderlyingError": #1 NSError(
      domain: "com.example.store",
      code: 42,
      userInfo: [:]
    )
  ]
))"},
      {"E22 object without fields", DumpValue::object("NSNull", &session, {}), "NSNull()"},
      {"null pointer", dumpValue(std::shared_ptr<Session>()), "(null pointer)"},
      {"null identity", DumpValue::object("Session", nullptr, {}), "(null pointer)"},
      {"storage fields of objects are dropped",
       DumpValue::object("Model", &session,
                         [] { return std::vector<DumpField>{{"_$id", leaf(1)}, {"count", leaf(2)}}; }),
       "Model(count: 2)"},
  });
}

TEST(DumpCollections, ArraysSetsDictionariesAndTheirOrder) {
  const auto users = dumpValue(std::vector<User>{blob, blobJr, blobSr});
  expectRenders({
      {"E17 array", users, R"([
  [0]: User(
    id: 1,
    name: "Blob"
  ),
  [1]: User(
    id: 2,
    name: "Blob, Jr."
  ),
  [2]: User(
    id: 3,
    name: "Blob, Sr."
  )
])"},
      {"E17 set", dumpValue(std::unordered_set<int>{3, 1, 2}), "Set([\n  1,\n  2,\n  3\n])"},
      {"set sorted as text", dumpValue(std::set<int>{2, 10, 1}), "Set([\n  1,\n  10,\n  2\n])"},
      {"set of records sorted by their text", DumpValue::set({dumpValue(User{2, "b"}), dumpValue(User{1, "z"})}),
       "Set([\n  User(\n    id: 1,\n    name: \"z\"\n  ),\n  User(\n    id: 2,\n    name: \"b\"\n  )\n])"},
      {"E17 empty array", dumpValue(std::vector<int>{}), "[]"},
      {"E17 empty set", dumpValue(std::set<int>{}), "Set([])"},
      {"E17 empty dictionary", dumpValue(std::map<int, int>{}), "[:]"},
      {"single element array is a block", dumpValue(std::vector<int>{42}), "[\n  [0]: 42\n]"},
      {"E9 sorted by key", dumpValue(std::unordered_map<std::string, std::string>{{"result", "filtered"},
                                                                                   {"reason", "renewal"}}),
       R"([
  "reason": "renewal",
  "result": "filtered"
])"},
      {"E17 integer keys sorted as text", dumpValue(std::map<int, std::string>{{2, "b"}, {10, "a"}}),
       "[\n  10: \"a\",\n  2: \"b\"\n]"},
      {"quoted keys before numbers, raw keys after quoted",
       DumpValue::dictionary({{leaf(1), leaf(1)}, {dumpValue("a\"b"), leaf(2)}, {dumpValue("z"), leaf(3)}}),
       "[\n  \"z\": 3,\n  #\"a\"b\"#: 2,\n  1: 1\n]"},
  });
}

TEST(DumpDepth, CollapsesContainersWithNoDepthLeft) {
  const auto users = dumpValue(std::vector<User>{blob, blobJr, blobSr});
  Session session{"u_1", true};
  expectRenders({
      {"E2 depth 1", dumpValue(Pair{blob, blobJr}), "Pair(\n  driver: User(…),\n  passenger: User(…)\n)", 1},
      {"E17 depth 1", users, "[\n  [0]: User(…),\n  [1]: User(…),\n  [2]: User(…)\n]", 1},
      {"E17 depth 0", users, "[…]", 0},
      {"negative depth", users, "[…]", std::numeric_limits<std::int64_t>::min()},
      {"enum payload", dumpValue(baz(0.9, "2")), "Enum.baz(…)", 0},
      {"set", dumpValue(std::set<int>{1, 2}), "Set([…])", 0},
      {"dictionary", dumpValue(std::map<int, int>{{1, 2}}), "[…]", 0},
      {"object", dumpValue(session), "Session(…)", 0},
      {"one struct field", dumpValue(Outer{{1}}), "Outer(…)", 0},
      {"inline form in full", dumpValue(ID{"x"}), R"(ID(rawValue: "x"))", 0},
      {"empty forms in full", dumpValue(std::vector<std::map<int, int>>{{}}), "[\n  [0]: [:]\n]", 1},
      {"multi-line string", dumpValue("a\nb"), R"("…")", 0},
      {"multi-line string field", dumpValue(Email{"Hi", "a\nb"}), "Email(\n  subject: \"Hi\",\n  body: \"…\"\n)", 1},
  });
}

TEST(DumpStrings, QuotingRules) {
  struct Case {
    std::string input;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"Hello!", R"("Hello!")"},
      {R"(Hello, "world!")", R"x(#"Hello, "world!""#)x"},
      {R"(This has a "### in it)", R"x(####"This has a "### in it"####)x"},
      {R"(This has a \ in it)", R"x(#"This has a \ in it"#)x"},
      {"This has a \t in it", R"("This has a \t in it")"},
      {"©", R"("©")"},
      {"it's", R"("it\'s")"},
      {std::string("a\0b", 3), R"("a\0b")"},
      {"\x01\x1f\x7f", R"("\u{01}\u{1F}\u{7F}")"},
      {"", R"("")"},
      // Invalid UTF-8: each maximal bad sequence becomes U+FFFD.
      {"a\xff" "b", "\"a\uFFFD" "b\""},
      {"\xe2\x82", "\"\uFFFD\""},
      {"\xe2\x82x", "\"\uFFFDx\""},
      {"\xc0\xaf", "\"\uFFFD\uFFFD\""},
      {"\xed\xa0\x80", "\"\uFFFD\uFFFD\uFFFD\""},
      {"\xf4\x90\x80\x80", "\"\uFFFD\uFFFD\uFFFD\uFFFD\""},
      {"\x85", "\"\uFFFD\""},  // a stray byte, not NEL
      {"\xff\"", "#\"\uFFFD\"\"#"},
      {"\U0001F600", "\"\U0001F600\""},
      // Any newline character gives a block.
      {"Hello,\nWorld!", "\"\"\"\nHello,\nWorld!\n\"\"\""},
      {"a\rb", "\"\"\"\na\rb\n\"\"\""},
      {"a\vb", "\"\"\"\na\vb\n\"\"\""},
      {"a\fb", "\"\"\"\na\fb\n\"\"\""},
      {"a\u0085b", "\"\"\"\na\u0085b\n\"\"\""},
      {"a\u2028b", "\"\"\"\na\u2028b\n\"\"\""},
      {"a\u2029b", "\"\"\"\na\u2029b\n\"\"\""},
      {"x\"\"\"\ny", "#\"\"\"\nx\"\"\"\ny\n\"\"\"#"},
      {"say \"\"\"# and \"\"\"\n", "##\"\"\"\nsay \"\"\"# and \"\"\"\n\n\"\"\"##"},
      {"\"\"\"\"#\n", "##\"\"\"\n\"\"\"\"#\n\n\"\"\"##"},
      {"tab\tand \\ stay\nraw", "\"\"\"\ntab\tand \\ stay\nraw\n\"\"\""},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.input);
    EXPECT_EQ(customDump(testCase.input), testCase.expected);
  }
}

TEST(DumpStrings, MultiLineIndentation) {
  const Email email{"RE: Upcoming Event", "To whom it may concern,\n\nLook forward to it!\n\nYours,\nBlob"};
  const auto note = DumpValue::structure("Note", {{"body", dumpValue(std::optional<std::string>("a\n\nb"))}});
  expectRenders({
      {"E15 labelled field, blank lines hold the indentation", dumpValue(email),
       "Email(\n"
       "  subject: \"RE: Upcoming Event\",\n"
       "  body: \"\"\"\n"
       "    To whom it may concern,\n"
       "    \n"
       "    Look forward to it!\n"
       "    \n"
       "    Yours,\n"
       "    Blob\n"
       "    \"\"\"\n"
       ")"},
      {"only field", DumpValue::structure("Memo", {{"text", dumpValue("a\nb")}}),
       "Memo(\n  text: \"\"\"\n    a\n    b\n    \"\"\"\n)"},
      {"through an optional: no extra indentation", note,
       "Note(\n  body: \"\"\"\n  a\n  \n  b\n  \"\"\"\n)"},
      {"array index is a label", dumpValue(std::vector<std::string>{"a\nb"}),
       "[\n  [0]: \"\"\"\n    a\n    b\n    \"\"\"\n]"},
      {"dictionary key is a label", dumpValue(std::map<int, std::string>{{1, "a\nb"}}),
       "[\n  1: \"\"\"\n    a\n    b\n    \"\"\"\n]"},
      {"set elements have no label", dumpValue(std::set<std::string>{"a\nb"}),
       "Set([\n  \"\"\"\n  a\n  b\n  \"\"\"\n])"},
  });
}

TEST(DumpNumbers, DoubleDescription) {
  struct Case {
    double value;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {42.0, "42.0"},
      {0.9, "0.9"},
      {-3.25, "-3.25"},
      {0.1 + 0.2, "0.30000000000000004"},
      {123456.789, "123456.789"},
      {0.0001, "0.0001"},
      {0.00012, "0.00012"},
      {0.00001, "1e-05"},
      {-0.000015, "-1.5e-05"},
      {2e20, "2e+20"},
      {1.5e300, "1.5e+300"},
      {5e-324, "5e-324"},
      {1e16, "10000000000000000.0"},
      {0x1.0p54, "18014398509481984.0"},
      {std::nextafter(0x1.0p54, 1e300), "1.8014398509481988e+16"},
      {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
      {0.0, "0.0"},
      {-0.0, "-0.0"},
      {std::numeric_limits<double>::quiet_NaN(), "nan"},
      {std::numeric_limits<double>::infinity(), "inf"},
      {-std::numeric_limits<double>::infinity(), "-inf"},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.expected);
    EXPECT_EQ(doubleDescription(testCase.value), testCase.expected);
  }
  EXPECT_EQ(floatDescription(0.1F), "0.1");
  EXPECT_EQ(floatDescription(1e10F), "1e+10");
  EXPECT_EQ(customDump(std::vector<float>{1.5F}), "[\n  [0]: 1.5\n]");
}

TEST(DumpHooks, VerbatimAndSubstitutedValues) {
  const auto loginState = DumpValue::structure(
      "LoginState", {{"email", dumpValue("blob@example.com")}, {"password", DumpValue::verbatim("<redacted>")}});
  expectRenders({
      {"E16 verbatim field", loginState, R"(LoginState(
  email: "blob@example.com",
  password: <redacted>
))"},
      {"E16 substituted value", dumpValue(Wrapper{42}), "42"},
      {"text-like values", dumpValue(std::vector<DumpValue>{dumpValue('x'), dumpValue(std::string_view("y"))}),
       "[\n  [0]: \"x\",\n  [1]: \"y\"\n]"},
      {"null C string", dumpValue(static_cast<const char*>(nullptr)), "(null pointer)"},
      {"pair", dumpValue(std::pair<int, bool>(1, true)), "(\n  1,\n  true\n)"},
  });
}

}  // namespace
}  // namespace velquist::support
