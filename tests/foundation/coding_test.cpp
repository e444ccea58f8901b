#include "velquist/foundation/coding.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velquist::foundation {
namespace {

// A recursive record: paths mix keys and indices at any depth.
struct Node {
  std::string name;
  std::optional<Decimal> price;
  std::vector<Node> children;
};

}  // namespace

template <>
struct Coding<Node> {
  static void encode(Encoder& encoder, const Node& node) {
    KeyedEncoder keyed = encoder.keyed();
    keyed.encode("name", node.name);
    keyed.encodeIfPresent("price", node.price);
    if (!node.children.empty()) keyed.encode("children", node.children);
  }
  static Node decode(const Decoder& decoder) {
    const KeyedDecoder keyed = decoder.keyed();
    return {keyed.decode<std::string>("name"), keyed.decodeIfPresent<Decimal>("price"),
            keyed.decodeIfPresent<std::vector<Node>>("children").value_or(std::vector<Node>{})};
  }
};

namespace {

// Decodes `json` as T and writes the result back as JSON text, or gives the error's what().
template <class T>
std::string decoded(std::string_view json) {
  try {
    return encodeToJsonText(decodeFromJsonText<T>(json));
  } catch (const DecodingError& error) {
    return error.what();
  }
}

struct Case {
  std::string (*decode)(std::string_view);
  std::string json;
  std::string outcome;
};

TEST(Coding, DecodesEachTypeOrReportsKindPathAndDescription) {
  const std::string top = "dataCorrupted at the top level: Parsed JSON number ";
  const std::vector<Case> cases = {
      {decoded<std::int8_t>, "128", top + "<128> does not fit in Int8."},
      {decoded<std::int8_t>, "-129", top + "<-129> does not fit in Int8."},
      {decoded<std::uint8_t>, "256", top + "<256> does not fit in UInt8."},
      {decoded<std::uint8_t>, "-1", top + "<-1> does not fit in UInt8."},
      {decoded<std::uint8_t>, "-0.0e3", "0"},
      {decoded<std::int16_t>, "32768", top + "<32768> does not fit in Int16."},
      {decoded<std::uint16_t>, "65536", top + "<65536> does not fit in UInt16."},
      {decoded<std::uint32_t>, "4294967296", top + "<4294967296> does not fit in UInt32."},
      {decoded<long long>, "9223372036854775807", "9223372036854775807"},
      {decoded<std::int64_t>, "-9223372036854775808", "-9223372036854775808"},
      {decoded<std::int64_t>, "9223372036854775808", top + "<9223372036854775808> does not fit in Int64."},
      {decoded<std::int64_t>, "-9223372036854775809", top + "<-9223372036854775809> does not fit in Int64."},
      {decoded<unsigned long long>, "18446744073709551615", "18446744073709551615"},
      {decoded<std::uint64_t>, "18446744073709551616", top + "<18446744073709551616> does not fit in UInt64."},
      {decoded<std::uint64_t>, "1.8446744073709551615e19", "18446744073709551615"},
      {decoded<std::uint64_t>, "184467440737095516150e-1", "18446744073709551615"},
      {decoded<std::int64_t>, "12.30E1", "123"}, {decoded<std::int64_t>, "100e-2", "1"},
      {decoded<std::int64_t>, "0.000e-99999999999999999999", "0"},
      {decoded<std::int64_t>, "1.5", top + "<1.5> does not fit in Int64."},
      {decoded<std::int64_t>, "1e99999999999999999999", top + "<1e99999999999999999999> does not fit in Int64."},
      {decoded<std::int64_t>, "true", "typeMismatch at the top level: Expected to decode Int64 but found a bool instead."},
      {decoded<std::int64_t>, "null", "valueNotFound at the top level: Expected Int64 value but found null instead."},
      {decoded<bool>, "false", "false"},
      {decoded<bool>, "1", "typeMismatch at the top level: Expected to decode Bool but found a number instead."},
      {decoded<std::string>, R"("caf\u00e9")", "\"caf\xC3\xA9\""},
      {decoded<std::string>, "null", "valueNotFound at the top level: Expected String value but found null instead."},
      {decoded<Decimal>, "4.990", "4.99"}, {decoded<Decimal>, "1E2", "100"},
      {decoded<Decimal>, "260.3712140000000510976", "260.3712140000000510976"},
      {decoded<Decimal>, "1e500", top + "<1e500> does not fit in Decimal."},
      {decoded<Decimal>, R"("4.99")",
       "typeMismatch at the top level: Expected to decode Decimal but found a string instead."},
      {decoded<Locale>, R"("en_PT@currency=EUR")", R"("en_PT@currency=EUR")"},
      {decoded<Locale>, "7", "typeMismatch at the top level: Expected to decode Locale but found a number instead."},
      {decoded<JsonValue>, R"({"k":[1.50]})", R"({"k":[1.50]})"},
      {decoded<std::optional<int>>, "null", "null"}, {decoded<std::vector<int>>, "[]", "[]"},
      {decoded<std::vector<std::optional<int>>>, "[1,null,3]", "[1,null,3]"},
      {decoded<std::vector<std::vector<int>>>, R"([[1],[2,"x"]])",
       "typeMismatch at [1][1]: Expected to decode Int32 but found a string instead."},
      {decoded<std::vector<int>>, "null",
       "valueNotFound at the top level: Cannot get unkeyed decoding container -- found null value instead."},
      // Records: keys are written in call order; unknown keys are ignored, the last duplicate
      // counts, and a missing or null optional is absent (and then not written).
      {decoded<Node>,
       R"({"children":[{"name":"b"},{"price":null,"name":"c"}],"x":[{}],"price":2.50,"name":"o","name":"a"})",
       R"({"name":"a","price":2.5,"children":[{"name":"b"},{"name":"c"}]})"},
      {decoded<Node>, R"({"name":"a","children":[{"name":"b"},{"price":1}]})",
       R"(keyNotFound at children[1]: No value associated with key "name" ("name").)"},
      {decoded<Node>, R"({"name":null})", "valueNotFound at name: Expected String value but found null instead."},
      {decoded<Node>, R"({"name":{}})", "typeMismatch at name: Expected to decode String but found a dictionary instead."},
      {decoded<Node>, R"({"name":"a","children":[null]})",
       "valueNotFound at children[0]: Cannot get keyed decoding container -- found null value instead."},
      {decoded<Node>, R"({"name":"a","children":[{"name":"b","children":[[]]}]})",
       "typeMismatch at children[0].children[0]: Expected to decode Dictionary<String, Any> "
       "but found an array instead."},
      {decoded<Node>, R"({"name":"a","children":true})",
       "typeMismatch at children: Expected to decode Array<Any> but found a bool instead."},
      {decoded<Node>, R"({"name":"a","children":[{"name":"b","price":1e500}]})",
       "dataCorrupted at children[0].price: Parsed JSON number <1e500> does not fit in Decimal."},
  };
  for (const auto& [decode, json, outcome] : cases) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decode(json), outcome);
  }
}

TEST(Coding, RequiredOptionalStillNeedsItsKey) {
  const JsonValue json = parseJson(R"({"present":null})");
  const KeyedDecoder keyed = Decoder(json).keyed();
  EXPECT_EQ(keyed.decode<std::optional<int>>("present"), std::nullopt);
  EXPECT_TRUE(keyed.contains("present"));
  EXPECT_FALSE(keyed.contains("missing"));
  EXPECT_THROW((void)keyed.decode<std::optional<int>>("missing"), DecodingError);
}

TEST(Coding, EncoderReplacesARepeatedKeyInPlaceAndKeepsItsContainer) {
  Encoder encoder;
  KeyedEncoder keyed = encoder.keyed();
  keyed.encode("a", 1);
  keyed.encodeIfPresent("skipped", std::optional<int>());
  keyed.encode("b", 2);
  keyed.encode("a", 3);
  encoder.keyed().encodeNil("c");
  EXPECT_EQ(toJsonText(encoder.value()), R"({"a":3,"b":2,"c":null})");
  Encoder elements;
  elements.unkeyed().encode(1);
  elements.unkeyed().encode(std::optional<int>());
  EXPECT_EQ(toJsonText(elements.value()), "[1,null]");
}

TEST(Coding, NaNDecimalIsRefusedAtItsPath) {
  const Node tree{"a", std::nullopt, {Node{"b", std::nullopt, {}}, Node{"c", Decimal::nan(), {}}}};
  try {
    (void)encodeToJson(tree);
    FAIL() << "encoded";
  } catch (const EncodingError& error) {
    EXPECT_STREQ(error.what(), "invalidValue at children[1].price: Decimal NaN cannot be written as a JSON number.");
  }
}

TEST(Coding, PathTextJoinsKeysWithDotsAndIndicesInBrackets) {
  const auto key = CodingKey::key;
  const auto index = CodingKey::index;
  EXPECT_EQ(codingPathText({index(3), key("b"), key("c"), index(0), index(12), key("d")}), "[3].b.c[0][12].d");
  EXPECT_EQ(index(2), (CodingKey{"Index 2", 2}));
}

}  // namespace
}  // namespace velquist::foundation
