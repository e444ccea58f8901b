#include "velquist/foundation/coding.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velquist::foundation {
namespace {

// Small records shaped like the product records that use this coder.

enum class PaymentMode { payAsYouGo, payUpFront, freeTrial };

std::string rawValue(PaymentMode mode) {
  switch (mode) {
    case PaymentMode::payAsYouGo: return "pay_as_you_go";
    case PaymentMode::payUpFront: return "pay_up_front";
    case PaymentMode::freeTrial: return "free_trial";
  }
  return "";
}

std::optional<PaymentMode> paymentModeFromRawValue(std::string_view raw) {
  for (PaymentMode mode : {PaymentMode::payAsYouGo, PaymentMode::payUpFront, PaymentMode::freeTrial}) {
    if (rawValue(mode) == raw) return mode;
  }
  return std::nullopt;
}

enum class Unit { day = 0, week = 1, month = 2, year = 3 };

std::optional<Unit> unitFromRawValue(int raw) {
  if (raw < 0 || raw > 3) return std::nullopt;
  return static_cast<Unit>(raw);
}

struct Period {
  Unit unit = Unit::day;
  int value = 0;
  friend bool operator==(const Period&, const Period&) = default;
};

struct Offer {
  std::optional<std::string> id;
  PaymentMode paymentMode = PaymentMode::payAsYouGo;
  Decimal price;
  Locale priceLocale;
  Period period;
  friend bool operator==(const Offer&, const Offer&) = default;
};

struct Info {
  std::optional<Offer> introductoryOffer;
  std::string subscriptionGroupID;
  Period subscriptionPeriod;
  std::vector<Offer> promotionalOffers;
  bool isEligibleForIntroOffer = false;
  friend bool operator==(const Info&, const Info&) = default;
};

}  // namespace

template <>
struct Coding<PaymentMode> {
  static void encode(Encoder& encoder, PaymentMode mode) { encodeRawValue(encoder, rawValue(mode)); }
  static PaymentMode decode(const Decoder& decoder) {
    return decodeRawValue<std::string>(decoder, "PaymentMode", paymentModeFromRawValue);
  }
};

template <>
struct Coding<Unit> {
  static void encode(Encoder& encoder, Unit unit) { encodeRawValue(encoder, static_cast<int>(unit)); }
  static Unit decode(const Decoder& decoder) { return decodeRawValue<int>(decoder, "Unit", unitFromRawValue); }
};

template <>
struct Coding<Period> {
  static void encode(Encoder& encoder, const Period& period) {
    KeyedEncoder keyed = encoder.keyed();
    keyed.encode("unit", period.unit);
    keyed.encode("value", period.value);
  }
  static Period decode(const Decoder& decoder) {
    const KeyedDecoder keyed = decoder.keyed();
    return {keyed.decode<Unit>("unit"), keyed.decode<int>("value")};
  }
};

template <>
struct Coding<Offer> {
  static void encode(Encoder& encoder, const Offer& offer) {
    KeyedEncoder keyed = encoder.keyed();
    keyed.encodeIfPresent("id", offer.id);
    keyed.encode("paymentMode", offer.paymentMode);
    keyed.encode("price", offer.price);
    keyed.encode("priceLocale", offer.priceLocale);
    keyed.encode("period", offer.period);
  }
  static Offer decode(const Decoder& decoder) {
    const KeyedDecoder keyed = decoder.keyed();
    Offer offer;
    offer.id = keyed.decodeIfPresent<std::string>("id");
    offer.paymentMode = keyed.decode<PaymentMode>("paymentMode");
    offer.price = keyed.decode<Decimal>("price");
    offer.priceLocale = keyed.decode<Locale>("priceLocale");
    offer.period = keyed.decode<Period>("period");
    return offer;
  }
};

template <>
struct Coding<Info> {
  static void encode(Encoder& encoder, const Info& info) {
    KeyedEncoder keyed = encoder.keyed();
    keyed.encodeIfPresent("introductoryOffer", info.introductoryOffer);
    keyed.encode("subscriptionGroupID", info.subscriptionGroupID);
    keyed.encode("subscriptionPeriod", info.subscriptionPeriod);
    keyed.encode("promotionalOffers", info.promotionalOffers);
    keyed.encode("isEligibleForIntroOffer", info.isEligibleForIntroOffer);
  }
  static Info decode(const Decoder& decoder) {
    const KeyedDecoder keyed = decoder.keyed();
    Info info;
    info.introductoryOffer = keyed.decodeIfPresent<Offer>("introductoryOffer");
    info.subscriptionGroupID = keyed.decode<std::string>("subscriptionGroupID");
    info.subscriptionPeriod = keyed.decode<Period>("subscriptionPeriod");
    info.promotionalOffers = keyed.decode<std::vector<Offer>>("promotionalOffers");
    info.isEligibleForIntroOffer = keyed.decode<bool>("isEligibleForIntroOffer");
    return info;
  }
};

namespace {

Decimal decimal(std::string_view text) { return Decimal::fromString(text).value(); }

Info sampleInfo() {
  return {
      .introductoryOffer = Offer{.id = std::nullopt,
                                 .paymentMode = PaymentMode::freeTrial,
                                 .price = Decimal(0),
                                 .priceLocale = Locale("en_US"),
                                 .period = {Unit::week, 1}},
      .subscriptionGroupID = "group",
      .subscriptionPeriod = {Unit::month, 1},
      .promotionalOffers = {Offer{.id = "winback",
                                  .paymentMode = PaymentMode::payUpFront,
                                  .price = decimal("260.3712140000000510976"),
                                  .priceLocale = Locale("en_PT@currency=EUR"),
                                  .period = {Unit::year, 1}},
                            Offer{.id = "",
                                  .paymentMode = PaymentMode::payAsYouGo,
                                  .price = Decimal(499, -2),
                                  .priceLocale = Locale("de_DE"),
                                  .period = {Unit::month, 3}}},
      .isEligibleForIntroOffer = true,
  };
}

const std::string kSampleText =
    R"({"introductoryOffer":{"paymentMode":"free_trial","price":0,"priceLocale":"en_US","period":{"unit":1,"value":1}},)"
    R"("subscriptionGroupID":"group","subscriptionPeriod":{"unit":2,"value":1},)"
    R"("promotionalOffers":[{"id":"winback","paymentMode":"pay_up_front","price":260.3712140000000510976,)"
    R"("priceLocale":"en_PT@currency=EUR","period":{"unit":3,"value":1}},)"
    R"({"id":"","paymentMode":"pay_as_you_go","price":4.99,"priceLocale":"de_DE","period":{"unit":2,"value":3}}],)"
    R"("isEligibleForIntroOffer":true})";

// The sample text with one piece replaced; the piece must occur exactly once.
std::string sampleWith(std::string_view from, std::string_view to) {
  const auto at = kSampleText.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  EXPECT_EQ(kSampleText.find(from, at + 1), std::string::npos) << from;
  if (at == std::string::npos) return kSampleText;
  std::string text = kSampleText;
  text.replace(at, from.size(), to);
  return text;
}

TEST(CodingRecords, EncodeWritesKeysInCallOrderAndOmitsAbsentOptionals) {
  EXPECT_EQ(encodeToJsonText(sampleInfo()), kSampleText);
  Info withoutIntro = sampleInfo();
  withoutIntro.introductoryOffer.reset();
  EXPECT_EQ(encodeToJsonText(withoutIntro).find("introductoryOffer"), std::string::npos);
  EXPECT_EQ(encodeToJsonText(withoutIntro).find("null"), std::string::npos);
}

TEST(CodingRecords, DecodeReadsBackWhatEncodeWrote) {
  EXPECT_EQ(decodeFromJsonText<Info>(kSampleText), sampleInfo());
  Info withoutIntro = sampleInfo();
  withoutIntro.introductoryOffer.reset();
  withoutIntro.promotionalOffers.clear();
  EXPECT_EQ(decodeFromJson<Info>(encodeToJson(withoutIntro)), withoutIntro);
  EXPECT_EQ(decodeFromJsonText<Info>(encodeToJsonText(sampleInfo(), {.prettyPrinted = true})), sampleInfo());
}

TEST(CodingRecords, TolerantReadings) {
  struct Case {
    const char* name;
    std::string text;
    Info expected;
  };
  Info withoutId = sampleInfo();
  withoutId.promotionalOffers[0].id.reset();
  Info withoutIntro = sampleInfo();
  withoutIntro.introductoryOffer.reset();
  const std::vector<Case> cases = {
      {"unknown keys", sampleWith(R"("subscriptionGroupID":"group")", R"("future":{"x":[1]},"subscriptionGroupID":"group")"),
       sampleInfo()},
      {"last duplicate wins", sampleWith(R"("subscriptionGroupID":"group")", R"("subscriptionGroupID":"old","subscriptionGroupID":"group")"),
       sampleInfo()},
      {"null optional", sampleWith(R"("id":"winback")", R"("id":null)"), withoutId},
      {"missing optional", sampleWith(R"("id":"winback",)", ""), withoutId},
      {"null optional record", R"({"introductoryOffer":null,)" + kSampleText.substr(kSampleText.find("\"subscriptionGroupID\"")),
       withoutIntro},
      {"integral spellings", sampleWith(R"("unit":2,"value":3)", R"("unit":2.0,"value":0.3e1)"), sampleInfo()},
  };
  for (const auto& [name, text, expected] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(decodeFromJsonText<Info>(text), expected);
  }
}

struct ErrorCase {
  std::string text;
  DecodingError::Kind kind;
  std::string path;
  std::string description;
};

TEST(CodingErrors, EachFaultReportsItsKindPathAndDescription) {
  using Kind = DecodingError::Kind;
  const std::vector<ErrorCase> cases = {
      {sampleWith(R"(,"isEligibleForIntroOffer":true)", ""), Kind::keyNotFound, "",
       R"(No value associated with key "isEligibleForIntroOffer" ("isEligibleForIntroOffer").)"},
      {sampleWith(R"("unit":2,"value":3)", R"("unit":2)"), Kind::keyNotFound, "promotionalOffers[1].period",
       R"(No value associated with key "value" ("value").)"},
      {sampleWith(R"("isEligibleForIntroOffer":true)", R"("isEligibleForIntroOffer":null)"), Kind::valueNotFound,
       "isEligibleForIntroOffer", "Expected Bool value but found null instead."},
      {sampleWith(R"("priceLocale":"de_DE")", R"("priceLocale":null)"), Kind::valueNotFound,
       "promotionalOffers[1].priceLocale", "Expected Locale value but found null instead."},
      {sampleWith(R"("promotionalOffers":[)", R"("promotionalOffers":[null,)"), Kind::valueNotFound,
       "promotionalOffers[0]", "Cannot get keyed decoding container -- found null value instead."},
      {sampleWith(R"("promotionalOffers":[)", R"("promotionalOffers":null,"ignored":[)"), Kind::valueNotFound,
       "promotionalOffers", "Cannot get unkeyed decoding container -- found null value instead."},
      {sampleWith(R"("price":4.99)", R"("price":"4.99")"), Kind::typeMismatch, "promotionalOffers[1].price",
       "Expected to decode Decimal but found a string instead."},
      {sampleWith(R"("paymentMode":"pay_up_front")", R"("paymentMode":7)"), Kind::typeMismatch,
       "promotionalOffers[0].paymentMode", "Expected to decode String but found a number instead."},
      {sampleWith(R"("subscriptionGroupID":"group")", R"("subscriptionGroupID":["group"])"), Kind::typeMismatch,
       "subscriptionGroupID", "Expected to decode String but found an array instead."},
      {sampleWith(R"("subscriptionPeriod":{"unit":2,"value":1})", R"("subscriptionPeriod":[2,1])"),
       Kind::typeMismatch, "subscriptionPeriod", "Expected to decode Dictionary<String, Any> but found an array instead."},
      {sampleWith(R"("promotionalOffers":[)", R"("promotionalOffers":true,"ignored":[)"), Kind::typeMismatch,
       "promotionalOffers", "Expected to decode Array<Any> but found a bool instead."},
      {sampleWith(R"("isEligibleForIntroOffer":true)", R"("isEligibleForIntroOffer":{})"), Kind::typeMismatch,
       "isEligibleForIntroOffer", "Expected to decode Bool but found a dictionary instead."},
      {sampleWith(R"("unit":1,)", R"("unit":"1",)"), Kind::typeMismatch, "introductoryOffer.period.unit",
       "Expected to decode Int32 but found a string instead."},
      {"[]", Kind::typeMismatch, "", "Expected to decode Dictionary<String, Any> but found an array instead."},
      {sampleWith(R"("paymentMode":"free_trial")", R"("paymentMode":"freeTrial")"), Kind::dataCorrupted,
       "introductoryOffer.paymentMode", "Cannot initialize PaymentMode from invalid String value freeTrial"},
      {sampleWith(R"("paymentMode":"pay_as_you_go")", R"("paymentMode":"payAsYouGo")"), Kind::dataCorrupted,
       "promotionalOffers[1].paymentMode", "Cannot initialize PaymentMode from invalid String value payAsYouGo"},
      {sampleWith(R"("unit":3)", R"("unit":4)"), Kind::dataCorrupted, "promotionalOffers[0].period.unit",
       "Cannot initialize Unit from invalid Int value 4"},
      {sampleWith(R"("unit":3)", R"("unit":-1)"), Kind::dataCorrupted, "promotionalOffers[0].period.unit",
       "Cannot initialize Unit from invalid Int value -1"},
      {sampleWith(R"("value":1}},"subscriptionGroupID")", R"("value":1.5}},"subscriptionGroupID")"),
       Kind::dataCorrupted, "introductoryOffer.period.value", "Parsed JSON number <1.5> does not fit in Int32."},
      {sampleWith(R"("unit":2,"value":1})", R"("unit":2,"value":2147483648})"), Kind::dataCorrupted,
       "subscriptionPeriod.value", "Parsed JSON number <2147483648> does not fit in Int32."},
      {sampleWith(R"("price":0)", R"("price":1e500)"), Kind::dataCorrupted, "introductoryOffer.price",
       "Parsed JSON number <1e500> does not fit in Decimal."},
  };
  for (const auto& [text, kind, path, description] : cases) {
    SCOPED_TRACE(text);
    try {
      (void)decodeFromJsonText<Info>(text);
      ADD_FAILURE() << "decoded";
    } catch (const DecodingError& error) {
      EXPECT_EQ(kindName(error.kind()), kindName(kind));
      EXPECT_EQ(error.codingPathText(), path);
      EXPECT_EQ(error.debugDescription(), description);
    }
  }
}

TEST(CodingErrors, WhatNamesKindPathAndDescription) {
  try {
    (void)decodeFromJsonText<Info>(sampleWith(R"("unit":2,"value":3)", R"("unit":2)"));
    FAIL() << "decoded";
  } catch (const DecodingError& error) {
    EXPECT_STREQ(error.what(),
                 R"(keyNotFound at promotionalOffers[1].period: No value associated with key "value" ("value").)");
    const std::vector<CodingKey> path = {CodingKey::key("promotionalOffers"), CodingKey::index(1), CodingKey::key("period")};
    EXPECT_EQ(error.codingPath(), path);
    EXPECT_EQ(error.codingPath()[1].stringValue, "Index 1");
  }
  try {
    (void)decodeFromJsonText<Info>("{");
    FAIL() << "decoded";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.kind(), DecodingError::Kind::dataCorrupted);
    EXPECT_EQ(std::string(error.what()).rfind("dataCorrupted at the top level: The given data was not valid JSON: ", 0), 0U)
        << error.what();
  }
}

TEST(CodingErrors, RequiredOptionalStillNeedsItsKey) {
  const JsonValue json = parseJson(R"({"present":null})");
  const KeyedDecoder keyed = Decoder(json).keyed();
  EXPECT_EQ(keyed.decode<std::optional<int>>("present"), std::nullopt);
  EXPECT_EQ(keyed.decodeIfPresent<int>("missing"), std::nullopt);
  EXPECT_FALSE(keyed.contains("missing"));
  EXPECT_TRUE(keyed.contains("present"));
  EXPECT_THROW((void)keyed.decode<std::optional<int>>("missing"), DecodingError);
  EXPECT_THROW((void)keyed.nested("missing"), DecodingError);
}

TEST(CodingPaths, TextJoinsKeysWithDotsAndIndicesInBrackets) {
  const auto key = CodingKey::key;
  const auto index = CodingKey::index;
  const std::vector<std::pair<std::vector<CodingKey>, std::string>> cases = {
      {{}, ""},
      {{key("a")}, "a"},
      {{index(0)}, "[0]"},
      {{index(0), index(12)}, "[0][12]"},
      {{index(3), key("b")}, "[3].b"},
      {{key("subscription"), key("promotionalOffers"), index(2), key("paymentMode")},
       "subscription.promotionalOffers[2].paymentMode"},
  };
  for (const auto& [path, text] : cases) EXPECT_EQ(codingPathText(path), text);
}

// The outcome of decoding `json` as T: its value as text, or "<kind>: <description>".
template <class T>
std::string decodeOutcome(std::string_view json) {
  try {
    const T value = decodeFromJsonText<T>(json);
    if constexpr (std::is_same_v<T, bool>) {
      return value ? "true" : "false";
    } else if constexpr (std::is_same_v<T, std::string>) {
      return value;
    } else if constexpr (std::is_same_v<T, Decimal>) {
      return value.description();
    } else if constexpr (std::is_same_v<T, Locale>) {
      return value.identifier();
    } else {
      return std::to_string(value);
    }
  } catch (const DecodingError& error) {
    return std::string(kindName(error.kind())) + ": " + error.debugDescription();
  }
}

struct OutcomeCase {
  std::string (*decode)(std::string_view);
  std::string json;
  std::string outcome;
};

TEST(CodingBuiltIns, IntegersAreExactAndRangeChecked) {
  const std::vector<OutcomeCase> cases = {
      {decodeOutcome<std::int8_t>, "127", "127"},
      {decodeOutcome<std::int8_t>, "-128", "-128"},
      {decodeOutcome<std::int8_t>, "128", "dataCorrupted: Parsed JSON number <128> does not fit in Int8."},
      {decodeOutcome<std::int8_t>, "-129", "dataCorrupted: Parsed JSON number <-129> does not fit in Int8."},
      {decodeOutcome<std::uint8_t>, "255", "255"},
      {decodeOutcome<std::uint8_t>, "256", "dataCorrupted: Parsed JSON number <256> does not fit in UInt8."},
      {decodeOutcome<std::uint8_t>, "-1", "dataCorrupted: Parsed JSON number <-1> does not fit in UInt8."},
      {decodeOutcome<std::uint8_t>, "-0", "0"},
      {decodeOutcome<std::uint8_t>, "-0.0e3", "0"},
      {decodeOutcome<std::int16_t>, "-32768", "-32768"},
      {decodeOutcome<std::uint16_t>, "65536", "dataCorrupted: Parsed JSON number <65536> does not fit in UInt16."},
      {decodeOutcome<std::int32_t>, "-2147483649", "dataCorrupted: Parsed JSON number <-2147483649> does not fit in Int32."},
      {decodeOutcome<std::uint32_t>, "4294967295", "4294967295"},
      {decodeOutcome<std::int64_t>, "9223372036854775807", "9223372036854775807"},
      {decodeOutcome<std::int64_t>, "-9223372036854775808", "-9223372036854775808"},
      {decodeOutcome<std::int64_t>, "9223372036854775808",
       "dataCorrupted: Parsed JSON number <9223372036854775808> does not fit in Int64."},
      {decodeOutcome<std::int64_t>, "-9223372036854775809",
       "dataCorrupted: Parsed JSON number <-9223372036854775809> does not fit in Int64."},
      {decodeOutcome<std::uint64_t>, "18446744073709551615", "18446744073709551615"},
      {decodeOutcome<std::uint64_t>, "18446744073709551616",
       "dataCorrupted: Parsed JSON number <18446744073709551616> does not fit in UInt64."},
      {decodeOutcome<std::uint64_t>, "1.8446744073709551615e19", "18446744073709551615"},
      {decodeOutcome<std::uint64_t>, "184467440737095516150e-1", "18446744073709551615"},
      {decodeOutcome<std::int64_t>, "1.0", "1"},
      {decodeOutcome<std::int64_t>, "1e2", "100"},
      {decodeOutcome<std::int64_t>, "12.30E1", "123"},
      {decodeOutcome<std::int64_t>, "100e-2", "1"},
      {decodeOutcome<std::int64_t>, "0.000e-99999999999999999999", "0"},
      {decodeOutcome<std::int64_t>, "1.5", "dataCorrupted: Parsed JSON number <1.5> does not fit in Int64."},
      {decodeOutcome<std::int64_t>, "1e-1", "dataCorrupted: Parsed JSON number <1e-1> does not fit in Int64."},
      {decodeOutcome<std::int64_t>, "1e19", "dataCorrupted: Parsed JSON number <1e19> does not fit in Int64."},
      {decodeOutcome<std::int64_t>, "1e99999999999999999999",
       "dataCorrupted: Parsed JSON number <1e99999999999999999999> does not fit in Int64."},
      {decodeOutcome<std::int64_t>, "true", "typeMismatch: Expected to decode Int64 but found a bool instead."},
      {decodeOutcome<std::int64_t>, "\"1\"", "typeMismatch: Expected to decode Int64 but found a string instead."},
      {decodeOutcome<std::int64_t>, "null", "valueNotFound: Expected Int64 value but found null instead."},
      {decodeOutcome<unsigned long long>, "7", "7"},
  };
  for (const auto& [decode, json, outcome] : cases) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decode(json), outcome);
  }
}

TEST(CodingBuiltIns, OtherSingleValues) {
  const std::vector<OutcomeCase> cases = {
      {decodeOutcome<bool>, "true", "true"},
      {decodeOutcome<bool>, "false", "false"},
      {decodeOutcome<bool>, "1", "typeMismatch: Expected to decode Bool but found a number instead."},
      {decodeOutcome<bool>, "\"true\"", "typeMismatch: Expected to decode Bool but found a string instead."},
      {decodeOutcome<std::string>, R"("caf\u00e9 \"x\"")", "caf\xC3\xA9 \"x\""},
      {decodeOutcome<std::string>, "\"\"", ""},
      {decodeOutcome<std::string>, "null", "valueNotFound: Expected String value but found null instead."},
      {decodeOutcome<std::string>, "[]", "typeMismatch: Expected to decode String but found an array instead."},
      {decodeOutcome<Decimal>, "4.990", "4.99"},
      {decodeOutcome<Decimal>, "1E2", "100"},
      {decodeOutcome<Decimal>, "-0.0595", "-0.0595"},
      {decodeOutcome<Decimal>, "260.3712140000000510976", "260.3712140000000510976"},
      {decodeOutcome<Decimal>, "123456789012345678901234567890.5", "123456789012345678901234567890.5"},
      {decodeOutcome<Decimal>, "1e500", "dataCorrupted: Parsed JSON number <1e500> does not fit in Decimal."},
      {decodeOutcome<Decimal>, "\"4.99\"", "typeMismatch: Expected to decode Decimal but found a string instead."},
      {decodeOutcome<Locale>, "\"en_PT@currency=EUR\"", "en_PT@currency=EUR"},
      {decodeOutcome<Locale>, "\"\"", ""},
      {decodeOutcome<Locale>, "7", "typeMismatch: Expected to decode Locale but found a number instead."},
  };
  for (const auto& [decode, json, outcome] : cases) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decode(json), outcome);
  }
}

TEST(CodingBuiltIns, EncodeWritesEachValueAsJson) {
  EXPECT_EQ(encodeToJsonText(std::int8_t{-128}), "-128");
  EXPECT_EQ(encodeToJsonText(std::uint64_t{18446744073709551615U}), "18446744073709551615");
  EXPECT_EQ(encodeToJsonText(false), "false");
  EXPECT_EQ(encodeToJsonText(std::string("a\"b\n")), R"("a\"b\n")");
  EXPECT_EQ(encodeToJsonText(decimal("260.3712140000000510976")), "260.3712140000000510976");
  EXPECT_EQ(encodeToJsonText(decimal("123456789012345678901234567890.5")), "123456789012345678901234567890.5");
  EXPECT_EQ(encodeToJsonText(Decimal(499, -2)), "4.99");
  EXPECT_EQ(encodeToJsonText(Decimal(-12000)), "-12000");
  EXPECT_EQ(encodeToJsonText(Locale("en_PT@currency=EUR")), R"("en_PT@currency=EUR")");
  EXPECT_EQ(encodeToJsonText(std::vector<std::optional<int>>{1, std::nullopt, 3}), "[1,null,3]");
  EXPECT_EQ(encodeToJsonText(std::vector<int>{}), "[]");
  EXPECT_EQ(encodeToJsonText(std::optional<std::string>()), "null");
  EXPECT_EQ(encodeToJsonText(parseJson(R"({"b":[1.50],"a":null})")), R"({"b":[1.50],"a":null})");
}

TEST(CodingBuiltIns, ContainersDecodeElementByElement) {
  EXPECT_EQ(decodeFromJsonText<std::vector<std::optional<int>>>("[1,null,3]"),
            (std::vector<std::optional<int>>{1, std::nullopt, 3}));
  EXPECT_EQ(decodeFromJsonText<std::vector<std::vector<bool>>>("[[],[true,false]]"),
            (std::vector<std::vector<bool>>{{}, {true, false}}));
  EXPECT_EQ(decodeFromJsonText<JsonValue>(R"({"k":[1.50]})"), parseJson(R"({"k":[1.50]})"));
  try {
    (void)decodeFromJsonText<std::vector<std::vector<int>>>("[[1],[2,\"x\"]]");
    FAIL() << "decoded";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.codingPathText(), "[1][1]");
    EXPECT_EQ(error.kind(), DecodingError::Kind::typeMismatch);
  }
}

struct Repeated {
  std::optional<int> skipped;
};

}  // namespace

template <>
struct Coding<Repeated> {
  static void encode(Encoder& encoder, const Repeated& value) {
    KeyedEncoder keyed = encoder.keyed();
    keyed.encode("a", 1);
    keyed.encodeIfPresent("skipped", value.skipped);
    keyed.encode("b", 2);
    keyed.encode("a", 3);
    encoder.keyed().encodeNil("c");
  }
};

namespace {

TEST(CodingEncoder, RepeatedKeyReplacesInPlaceAndAbsentOptionalWritesNothing) {
  EXPECT_EQ(encodeToJsonText(Repeated{}), R"({"a":3,"b":2,"c":null})");
  EXPECT_EQ(encodeToJsonText(Repeated{7}), R"({"a":3,"skipped":7,"b":2,"c":null})");
}

TEST(CodingEncoder, NaNDecimalIsRefusedAtItsPath) {
  Info info = sampleInfo();
  info.promotionalOffers[1].price = Decimal::nan();
  try {
    (void)encodeToJson(info);
    FAIL() << "encoded";
  } catch (const EncodingError& error) {
    EXPECT_EQ(error.codingPathText(), "promotionalOffers[1].price");
    EXPECT_STREQ(error.what(), "invalidValue at promotionalOffers[1].price: Decimal NaN cannot be written as a JSON number.");
  }
}

}  // namespace
}  // namespace velquist::foundation
