#include "velquist/foundation/json.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace velquist::foundation {
namespace {

TEST(Json, CompactPrintOfParsedTextKeepsNumbersTextAndOrder) {
  // Texts that print back unchanged; numbers beyond a double's range sit among ordinary ones.
  for (const std::string& text : std::vector<std::string>{
           "[1.0,1E5,2.50e-3,-0.0,0,260.3712140000000510976,18446744073709551615,-9223372036854775808]",
           "1e500", "[1e309,\"2e999\",7,-1.5E+400,1e-500,0.001e311,1.7e308,{\"k\":9e9999},-1" + std::string(400, '0') + "]",
           R"("a\"b\\c\b\f\n\r\t\u0001\u001f\u0000caf)" "\xC3\xA9\"", R"({"z":1,"a":[[[]],{}],"k":1,"k":{"":""}})"}) {
    EXPECT_EQ(toJsonText(parseJson(text)), text);
  }
  EXPECT_EQ(toJsonText(parseJson(" { \"a\" : [ false , null ] } ")), R"({"a":[false,null]})");
  EXPECT_EQ(toJsonText(parseJson(R"("\/\u00e9\u20ac\ud83d\ude00")")), "\"/\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"");
  EXPECT_EQ(parseJson("-0").numberText(), "0");  // the integer -0 only; -0.0 above stays
}

TEST(Json, PrettyAndSortedOutput) {
  const JsonValue value = parseJson(R"({"unit":1,"value":[true,null],"empty":[],"nested":{"x":{}}})");
  EXPECT_EQ(toJsonText(value, {.prettyPrinted = true}), "{\n  \"unit\": 1,\n  \"value\": [\n    true,\n    null\n  ],\n"
                                                        "  \"empty\": [],\n  \"nested\": {\n    \"x\": {}\n  }\n}");
  EXPECT_EQ(toJsonText(parseJson("7"), {.prettyPrinted = true}), "7");
  const JsonValue unsorted = parseJson(R"({"b":1,"a":{"d":1,"c":2},"B":0,"b":2,"aa":[{"y":0,"x":1}]})");
  EXPECT_EQ(toJsonText(unsorted, {.sortedKeys = true}), R"({"B":0,"a":{"c":2,"d":1},"aa":[{"x":1,"y":0}],"b":1,"b":2})");
}

TEST(Json, StringsThatAreNotUtf8AreRepairedSoTheOutputParses) {
  const std::string bad = "\xEF\xBF\xBD";  // U+FFFD
  for (const auto& [raw, written] : std::vector<std::pair<std::string, std::string>>{
           {"a\xFF" "b", "a" + bad + "b"}, {"\xC3", bad}, {"\xC0\xAF", bad + bad}, {"\xED\xA0\x80", bad + bad + bad},
           {"\xF4\x90\x80\x80", bad + bad + bad + bad}, {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
           {std::string("\x7F\x00", 2), "\x7F\\u0000"}}) {
    EXPECT_EQ(toJsonText(JsonValue(raw)), "\"" + written + "\"") << testing::PrintToString(raw);
    EXPECT_NO_THROW(parseJson(toJsonText(JsonValue(raw))));
  }
}

TEST(Json, ValueAccess) {
  const JsonValue object = parseJson(R"({"k":1,"other":true,"k":2})");
  ASSERT_NE(object.find("k"), nullptr);
  EXPECT_EQ(object.find("k")->numberText(), "2");
  EXPECT_EQ(object.find("missing"), nullptr);
  EXPECT_EQ(parseJson("[1]").find("k"), nullptr);
  for (const char* text : {"-0", "-12", "1E+5", "2.5e-10"}) EXPECT_EQ(JsonValue::number(text).numberText(), text);
  for (const char* text : {"", "-", "+1", "01", "1.", ".5", "1e", "1e+", "0x10", "NaN", " 1", "1 ", "1.5.2"}) {
    EXPECT_THROW(JsonValue::number(text), std::invalid_argument) << text;
  }
  EXPECT_THROW((void)JsonValue("text").boolValue(), std::logic_error);  // a string, not converted to bool
  EXPECT_THROW((void)JsonValue::number("1").stringValue(), std::logic_error);
  EXPECT_THROW((void)JsonValue(true).arrayValue(), std::logic_error);
}

// Malformed text is dataCorrupted at the top level, its description ending with `ending`.
void expectInvalid(const std::string& input, const std::string& ending, const JsonReadOptions& options = {}) {
  try {
    parseJson(input, options);
    ADD_FAILURE() << "parsed " << testing::PrintToString(input.substr(0, 40));
  } catch (const DecodingError& error) {
    const std::string& text = error.debugDescription();
    EXPECT_TRUE(error.kind() == DecodingError::Kind::dataCorrupted && error.codingPath().empty()) << text;
    EXPECT_TRUE(text.starts_with("The given data was not valid JSON: ") && text.ends_with(ending)) << text;
  }
}

TEST(Json, MalformedTextIsDataCorruptedWithReasonAndPosition) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "expected '[', '{', or a literal (at byte 1)."},
      {"[1, tru]", "invalid literal; last read: '1, tru]' (at byte 8)."},
      {"01", "unexpected number literal; expected end of input (at byte 2)."},
      {"[1] // comment", "expected end of input (at byte 5)."},
      {"\"\xFF\"", "ill-formed UTF-8 byte; last read: '\"\xFF' (at byte 2)."},
      {std::string("1\0trailing", 10), ": unexpected NUL byte (at byte 2)."},
      {std::string("\"a\0\"", 4), ": unexpected NUL byte (at byte 3)."},
      // After a number beyond a double's range: positions stay right, stand-ins are not shown.
      {"[1e500, tru]", "parsing value - invalid literal (at byte 12)."},
      {"[1e500 2]", "unexpected number literal; expected ']' (at byte 8)."},
      {"1e500e5", "parsing value - invalid literal; expected end of input (at byte 6)."},
  };
  for (const auto& [input, ending] : cases) expectInvalid(input, ending);
}

TEST(Json, NestingIsCappedAndTopLevelFragmentsCanBeRefused) {
  const auto brackets = [](std::size_t open, std::size_t close) { return std::string(open, '[') + std::string(close, ']'); };
  EXPECT_NO_THROW(parseJson(brackets(511, 511).insert(511, "{}")));
  const std::string deeper = "arrays and objects nest deeper than ";
  expectInvalid(brackets(513, 513), deeper + "512 levels (at byte 513).");
  expectInvalid(brackets(100000, 0), deeper + "512 levels (at byte 513).");  // the cap comes first
  expectInvalid(R"(["[[",{"]":{"]":{"]":0}}}])", deeper + "3 levels (at byte 17).", {.maxDepth = 3});
  expectInvalid("{}", deeper + "0 levels (at byte 1).", {.maxDepth = 0});
  EXPECT_NO_THROW(parseJson("{\"a\":[1]}", {.allowFragments = false}));
  for (const auto& [input, kind] : std::vector<std::pair<std::string, std::string>>{
           {"[]", "array"}, {"1", "number"}, {"\"s\"", "string"}, {"null", "null"}, {"true", "boolean"}}) {
    EXPECT_NO_THROW(parseJson(input));
    expectInvalid(input, "the top-level value must be an object, not " + kind + ".", {.allowFragments = false});
  }
}

// Damaged documents and random bytes either parse, and then print and parse back equal, or
// throw DecodingError. Nothing else may happen.
TEST(Json, ArbitraryBytesEitherParseAndRoundTripOrFailCleanly) {
  std::mt19937 random(20261121);
  std::size_t parsed = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string input = R"({"a":[1,2.5e3,-0.25,"x\u00e9\n",1e400],"b":{"c":null,"d":true,"e":"\ud83d\ude00"}})";
    if (round % 2 == 0) {
      for (int edit = 0; edit <= round % 4; ++edit) input[random() % input.size()] = static_cast<char>(random() % 256);
    } else {
      input.resize(random() % 24);
      for (char& c : input) c = "[]{}\":,0123456789.-eE tfnrulsa\\"[random() % 32];
    }
    try {
      const JsonValue value = parseJson(input);
      ++parsed;
      EXPECT_EQ(parseJson(toJsonText(value)), value) << testing::PrintToString(input);
      EXPECT_EQ(parseJson(toJsonText(value, {.prettyPrinted = true})), value) << testing::PrintToString(input);
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.kind(), DecodingError::Kind::dataCorrupted);
    }
  }
  EXPECT_GT(parsed, 0U);
}

}  // namespace
}  // namespace velquist::foundation
