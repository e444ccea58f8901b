#include "velquist/foundation/json.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace velquist::foundation {
namespace {

// Text that survives parse and compact print, byte for byte or as given.
struct RoundTripCase {
  std::string input;
  std::string compact;
};

TEST(JsonRoundTrip, CompactPrintOfParsedTextKeepsNumbersAndOrder) {
  const std::vector<RoundTripCase> cases = {
      {"null", "null"},
      {"true", "true"},
      {" false ", "false"},
      {"260.3712140000000510976", "260.3712140000000510976"},
      {"123456789012345678901234567890.5", "123456789012345678901234567890.5"},
      {"-123456789012345678901234567890", "-123456789012345678901234567890"},
      {"18446744073709551615", "18446744073709551615"},
      {"-9223372036854775808", "-9223372036854775808"},
      {"[1.0, 1E5, 2.50e-3, -0.0, 0]", "[1.0,1E5,2.50e-3,-0.0,0]"},
      // Beyond the range of a double, mixed with ordinary numbers and number-like strings.
      {"1e500", "1e500"},
      {"[1e309, \"2e999\", 7, -1.5E+400, 1e-500, 0.001e311, 1.7e308, {\"k\": 9e9999}]",
       "[1e309,\"2e999\",7,-1.5E+400,1e-500,0.001e311,1.7e308,{\"k\":9e9999}]"},
      {"1" + std::string(400, '0'), "1" + std::string(400, '0')},
      {"\"a\\\"b\\\\c\\/d\"", "\"a\\\"b\\\\c/d\""},
      {"\"\\b\\f\\n\\r\\t\\u0001\\u001f\"", "\"\\b\\f\\n\\r\\t\\u0001\\u001f\""},
      {"\"\\u00e9\\u20ac\\ud83d\\ude00\"", "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\""},
      {"\"caf\xC3\xA9\"", "\"caf\xC3\xA9\""},
      {"\"nul\\u0000byte\"", "\"nul\\u0000byte\""},
      {"{ \"z\" : 1 , \"a\" : [ ] , \"m\" : { } }", "{\"z\":1,\"a\":[],\"m\":{}}"},
      {"{\"k\":1,\"k\":2}", "{\"k\":1,\"k\":2}"},
      {"[[[]],[{}],{\"\":\"\"}]", "[[[]],[{}],{\"\":\"\"}]"},
  };
  for (const auto& [input, compact] : cases) {
    SCOPED_TRACE(input);
    const JsonValue value = parseJson(input);
    EXPECT_EQ(toJsonText(value), compact);
    EXPECT_EQ(parseJson(toJsonText(value)), value);
  }
}

TEST(JsonRoundTrip, NegativeZeroIntegerReadsAsZero) {
  EXPECT_EQ(parseJson("-0").numberText(), "0");
  EXPECT_EQ(parseJson("-0.0").numberText(), "-0.0");
}

TEST(JsonWrite, PrettyPrintingIndentsByTwoSpaces) {
  const JsonValue value = parseJson(R"({"unit":1,"value":[true,null,"a\"b"],"empty":[],"nested":{"x":{}}})");
  EXPECT_EQ(toJsonText(value, {.prettyPrinted = true}),
            "{\n"
            "  \"unit\": 1,\n"
            "  \"value\": [\n"
            "    true,\n"
            "    null,\n"
            "    \"a\\\"b\"\n"
            "  ],\n"
            "  \"empty\": [],\n"
            "  \"nested\": {\n"
            "    \"x\": {}\n"
            "  }\n"
            "}");
  EXPECT_EQ(toJsonText(parseJson("7"), {.prettyPrinted = true}), "7");
}

TEST(JsonWrite, SortedKeysSortsEveryObjectAndKeepsDuplicatesInOrder) {
  const JsonValue value = parseJson(R"({"b":1,"a":{"d":1,"c":2},"B":0,"b":2,"aa":[{"y":0,"x":1}]})");
  EXPECT_EQ(toJsonText(value, {.sortedKeys = true}),
            R"({"B":0,"a":{"c":2,"d":1},"aa":[{"x":1,"y":0}],"b":1,"b":2})");
  EXPECT_EQ(toJsonText(value), R"({"b":1,"a":{"d":1,"c":2},"B":0,"b":2,"aa":[{"y":0,"x":1}]})");
}

TEST(JsonWrite, StringsThatAreNotUtf8AreRepairedSoTheOutputParses) {
  const std::string replacement = "\xEF\xBF\xBD";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"a\xFF" "b", "a" + replacement + "b"},
      {"\xC3", replacement},                          // cut short
      {"\xC0\xAF", replacement + replacement},        // overlong
      {"\xED\xA0\x80", replacement + replacement + replacement},  // surrogate
      {"\xF4\x90\x80\x80", replacement + replacement + replacement + replacement},  // above U+10FFFF
      {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
      {std::string("\x7F\x00", 2), std::string("\x7F") + "\\u0000"},
  };
  for (const auto& [raw, written] : cases) {
    SCOPED_TRACE(testing::PrintToString(raw));
    const std::string text = toJsonText(JsonValue(raw));
    EXPECT_EQ(text, "\"" + written + "\"");
    EXPECT_NO_THROW(parseJson(text));
  }
}

TEST(JsonValueTest, FindAnswersTheLastOccurrenceOfAKey) {
  const JsonValue value = parseJson(R"({"k":1,"other":true,"k":2})");
  ASSERT_NE(value.find("k"), nullptr);
  EXPECT_EQ(value.find("k")->numberText(), "2");
  EXPECT_EQ(value.find("missing"), nullptr);
  EXPECT_EQ(value.objectValue().size(), 3U);
  EXPECT_EQ(parseJson("[1]").find("k"), nullptr);
}

TEST(JsonValueTest, NumberAcceptsExactlyTheJsonNumberGrammar) {
  for (const char* text : {"0", "-0", "7", "-12", "4.99", "1e5", "1E+5", "2.5e-10", "123456789012345678901234567890.5"}) {
    EXPECT_EQ(JsonValue::number(text).numberText(), text);
  }
  for (const char* text : {"", "-", "+1", "01", "1.", ".5", "1e", "1e+", "0x10", "NaN", "Infinity", " 1", "1 ", "1.5.2"}) {
    SCOPED_TRACE(text);
    EXPECT_THROW(JsonValue::number(text), std::invalid_argument);
  }
  EXPECT_EQ(JsonValue::number(std::int8_t{-128}).numberText(), "-128");
  EXPECT_EQ(JsonValue::number(std::uint64_t{18446744073709551615U}).numberText(), "18446744073709551615");
}

TEST(JsonValueTest, AskingForTheWrongKindIsALogicError) {
  const JsonValue number = JsonValue::number("1");
  EXPECT_THROW((void)number.stringValue(), std::logic_error);
  EXPECT_THROW((void)number.boolValue(), std::logic_error);
  EXPECT_THROW((void)JsonValue("text").numberText(), std::logic_error);
  EXPECT_THROW((void)JsonValue().objectValue(), std::logic_error);
  EXPECT_THROW((void)JsonValue(true).arrayValue(), std::logic_error);
  EXPECT_EQ(JsonValue("text").kind(), JsonValue::Kind::string);  // not converted to bool
}

struct MalformedCase {
  std::string input;
  std::string reason;  // part of the parser's reason
  std::size_t byte;
};

TEST(JsonParse, MalformedTextIsDataCorruptedWithPositionAndReason) {
  const std::vector<MalformedCase> cases = {
      {"", "unexpected end of input", 1},
      {"   ", "unexpected end of input", 4},
      {"tru", "invalid literal", 4},
      {"[1, tru]", "invalid literal", 8},
      {"{\"a\":1,}", "expected string literal", 8},
      {"{\"a\" 1}", "expected ':'", 6},
      {"[1,2", "unexpected end of input", 5},
      {"[1,]", "unexpected ']'", 4},
      {"1 2", "expected end of input", 3},
      {"01", "expected end of input", 2},
      {"\"\xFF\"", "ill-formed UTF-8", 2},
      {"\"a\nb\"", "control character", 3},
      {"\"\\ud800\"", "surrogate", 8},
      {"\"\\x\"", "invalid string", 3},
      {"NaN", "invalid literal", 1},
      {"'a'", "invalid literal", 1},
      {std::string("[\0]", 3), "unexpected NUL byte", 2},
      {std::string("1\0trailing", 10), "unexpected NUL byte", 2},
      {std::string("\"a\0\"", 4), "unexpected NUL byte", 3},
      {"[1] // comment", "expected end of input", 5},
      {"[1e500, tru]", "invalid literal", 12},
      {"[1e500 2]", "expected ']'", 8},
      {"1e500e5", "invalid literal; expected end of input", 6},
      {"1e500.", "invalid literal; expected end of input", 6},
      {"[1.]", "expected digit after '.'", 4},
  };
  for (const auto& [input, reason, byte] : cases) {
    SCOPED_TRACE(testing::PrintToString(input));
    try {
      parseJson(input);
      ADD_FAILURE() << "parsed";
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.kind(), DecodingError::Kind::dataCorrupted);
      EXPECT_TRUE(error.codingPath().empty());
      EXPECT_EQ(error.debugDescription().rfind("The given data was not valid JSON: ", 0), 0U) << error.debugDescription();
      EXPECT_NE(error.debugDescription().find(reason), std::string::npos) << error.debugDescription();
      EXPECT_NE(error.debugDescription().find("(at byte " + std::to_string(byte) + ")."), std::string::npos)
          << error.debugDescription();
    }
  }
}

std::string nested(std::size_t depth, std::string_view open, std::string_view innermost, std::string_view close) {
  std::string text;
  for (std::size_t i = 0; i < depth; ++i) text += open;
  text += innermost;
  for (std::size_t i = 0; i < depth; ++i) text += close;
  return text;
}

TEST(JsonParse, NestingIsCappedAndTheCapIsReported) {
  EXPECT_NO_THROW(parseJson(nested(512, "[", "", "]")));
  EXPECT_NO_THROW(parseJson(nested(511, "{\"a\":", "{}", "}")));
  struct DepthCase {
    std::string input;
    std::size_t maxDepth;
    std::size_t byte;
  };
  const std::vector<DepthCase> cases = {
      {nested(513, "[", "", "]"), 512, 513},
      {nested(100000, "[", "", ""), 512, 513},  // never closed: the cap comes first
      {"[\"[[\"," + nested(3, "{\"]\":", "0", "}") + "]", 3, 17},
      {"[[]]", 1, 2},
      {"{}", 0, 1},
  };
  for (const auto& [input, maxDepth, byte] : cases) {
    SCOPED_TRACE(input.substr(0, 40));
    try {
      parseJson(input, {.maxDepth = maxDepth});
      ADD_FAILURE() << "parsed";
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.kind(), DecodingError::Kind::dataCorrupted);
      EXPECT_EQ(error.debugDescription(), "The given data was not valid JSON: arrays and objects nest deeper than " +
                                              std::to_string(maxDepth) + " levels (at byte " + std::to_string(byte) +
                                              ").");
    }
  }
}

TEST(JsonParse, FragmentRuleDecidesWhichTopLevelValuesAreAccepted) {
  struct FragmentCase {
    std::string input;
    const char* kind;  // nullptr when accepted as object
  };
  const std::vector<FragmentCase> cases = {
      {"{}", nullptr}, {"{\"a\":[1]}", nullptr}, {"[]", "array"},   {"1", "number"},
      {"\"s\"", "string"}, {"null", "null"},   {"true", "boolean"},
  };
  for (const auto& [input, kind] : cases) {
    SCOPED_TRACE(input);
    EXPECT_NO_THROW(parseJson(input));  // fragments allowed by default
    if (kind == nullptr) {
      EXPECT_NO_THROW(parseJson(input, {.allowFragments = false}));
      continue;
    }
    try {
      parseJson(input, {.allowFragments = false});
      ADD_FAILURE() << "accepted";
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.kind(), DecodingError::Kind::dataCorrupted);
      EXPECT_EQ(error.debugDescription(),
                std::string("The given data was not valid JSON: the top-level value must be an object, not ") + kind + ".");
    }
  }
}

// Random bytes and random damage to a valid document: parsing either succeeds, and then the
// printed value parses back equal, or it throws DecodingError. Nothing else may happen.
TEST(JsonParse, ArbitraryBytesEitherParseAndRoundTripOrFailCleanly) {
  const std::string document =
      R"({"a":[1,2.5e3,-0.25,"x\u00e9\n"],"b":{"c":null,"d":true,"e":"\ud83d\ude00"},"f":123456789012345678901234567890.5})";
  std::mt19937 random(20261121);
  std::uniform_int_distribution<int> byteValue(0, 255);
  std::size_t parsed = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string input;
    if (round % 2 == 0) {
      input = document;
      const int edits = 1 + round % 4;
      for (int edit = 0; edit < edits; ++edit) {
        const std::size_t at = random() % input.size();
        input[at] = static_cast<char>(byteValue(random));
      }
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
