#include "velquist/foundation/decimal.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

namespace velquist::foundation {
namespace {

using Mode = Decimal::RoundingMode;

// The number of cases in data/decimal_vectors.txt; a truncated or regenerated file must
// update this deliberately.
constexpr std::size_t kExpectedVectorCount = 7784;

// --- the vector file's encodings ----------------------------------------------------------

std::string mantissaText(UInt128 value) {
  std::string digits;
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(value % 10)));
    value /= 10;
  } while (value != 0);
  return digits;
}

/// `NaN` or `<sign>:<mantissa>:<exponent>` exactly as stored.
std::string encode(const Decimal& value) {
  if (value.isNaN()) {
    return "NaN";
  }
  return std::string(value.isNegative() ? "-" : "+") + ":" + mantissaText(value.mantissa()) + ":" +
         std::to_string(value.exponent());
}

std::optional<Decimal> decodeValue(const std::string& token) {
  if (token == "NaN") {
    return Decimal::nan();
  }
  const std::size_t first = token.find(':');
  const std::size_t second = token.find(':', first + 1);
  if (token.size() < 5 || (token[0] != '+' && token[0] != '-') || first != 1 || second == std::string::npos) {
    return std::nullopt;
  }
  UInt128 mantissa = 0;
  for (std::size_t i = 2; i < second; ++i) {
    mantissa = mantissa * 10 + static_cast<unsigned>(token[i] - '0');
  }
  return Decimal::fromParts(token[0] == '-', mantissa, std::stoi(token.substr(second + 1)));
}

std::string decodeText(const std::string& token) {
  std::string text;
  for (std::size_t i = 1; i + 1 < token.size(); ++i) {
    if (token[i] == '%') {
      text += static_cast<char>(std::stoi(token.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      text += token[i];
    }
  }
  return text;
}

double decodeDouble(const std::string& token) { return std::strtod(token.c_str(), nullptr); }

std::string encodeDouble(double value) {
  if (std::isnan(value)) {
    return "nan";
  }
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%a", value);
  return buffer;
}

bool sameDouble(double lhs, double rhs) {
  return (std::isnan(lhs) && std::isnan(rhs)) || std::bit_cast<std::uint64_t>(lhs) == std::bit_cast<std::uint64_t>(rhs);
}

Mode decodeMode(const std::string& token) {
  static const std::map<std::string, Mode> modes = {
      {"plain", Mode::plain}, {"down", Mode::down}, {"up", Mode::up}, {"bankers", Mode::bankers}};
  return modes.at(token);
}

struct VectorLine {
  int number = 0;
  std::string text;
  std::vector<std::string> fields;
};

const std::vector<VectorLine>& vectorLines() {
  static const std::vector<VectorLine> lines = [] {
    std::vector<VectorLine> result;
    std::ifstream file(VELQUIST_TEST_DATA_DIR "/decimal_vectors.txt");
    std::string text;
    for (int number = 1; std::getline(file, text); ++number) {
      if (text.empty() || text[0] == '#') {
        continue;
      }
      VectorLine line{number, text, {}};
      std::istringstream stream(text);
      for (std::string field; stream >> field;) {
        line.fields.push_back(field);
      }
      result.push_back(std::move(line));
    }
    return result;
  }();
  return lines;
}

/// Runs one vector line; returns the expected and the actual result as text.
std::pair<std::string, std::string> runVector(const std::vector<std::string>& f) {
  const std::string& op = f.at(0);
  auto value = [&](std::size_t i) {
    const std::optional<Decimal> decoded = decodeValue(f.at(i));
    if (!decoded) {
      throw std::invalid_argument("malformed value " + f.at(i));
    }
    return *decoded;
  };
  if (op == "from_int") {
    return {f.at(2), encode(Decimal(static_cast<std::int64_t>(std::stoll(f.at(1)))))};
  }
  if (op == "from_double") {
    return {f.at(2), encode(Decimal::fromDouble(decodeDouble(f.at(1))))};
  }
  if (op == "parse") {
    const std::optional<Decimal> parsed = Decimal::fromString(decodeText(f.at(1)));
    return {f.at(2), parsed ? encode(*parsed) : "none"};
  }
  if (op == "to_text") {
    return {f.at(2), value(1).description()};
  }
  if (op == "to_double") {
    const double actual = value(1).doubleValue();
    const double expected = decodeDouble(f.at(2));
    return {encodeDouble(expected), sameDouble(actual, expected) ? encodeDouble(expected) : encodeDouble(actual)};
  }
  if (op == "add") {
    return {f.at(3), encode(value(1) + value(2))};
  }
  if (op == "sub") {
    return {f.at(3), encode(value(1) - value(2))};
  }
  if (op == "mul") {
    return {f.at(3), encode(value(1) * value(2))};
  }
  if (op == "div") {
    return {f.at(3), encode(value(1) / value(2))};
  }
  if (op == "round") {
    return {f.at(4), encode(value(1).rounded(std::stoi(f.at(2)), decodeMode(f.at(3))))};
  }
  if (op == "compare") {
    const std::weak_ordering order = value(1) <=> value(2);
    const int sign = order < 0 ? -1 : (order > 0 ? 1 : 0);
    return {f.at(3), std::to_string(sign)};
  }
  throw std::invalid_argument("unknown operation " + op);
}

// --- generated vectors ---------------------------------------------------------------------

TEST(DecimalVectors, FileHasEveryCase) {
  EXPECT_EQ(vectorLines().size(), kExpectedVectorCount) << "decimal_vectors.txt is truncated or was regenerated";
}

class DecimalVectorOperation : public testing::TestWithParam<std::string> {};

TEST_P(DecimalVectorOperation, AgreesWithReference) {
  int checked = 0;
  for (const VectorLine& line : vectorLines()) {
    if (line.fields.empty() || line.fields[0] != GetParam()) {
      continue;
    }
    ++checked;
    try {
      const auto [expected, actual] = runVector(line.fields);
      EXPECT_EQ(actual, expected) << "decimal_vectors.txt line " << line.number << ": " << line.text;
    } catch (const std::exception& error) {
      ADD_FAILURE() << "decimal_vectors.txt line " << line.number << " is malformed (" << error.what()
                    << "): " << line.text;
    }
  }
  EXPECT_GE(checked, 100) << "too few '" << GetParam() << "' cases";
}

INSTANTIATE_TEST_SUITE_P(All, DecimalVectorOperation,
                         testing::Values("from_int", "from_double", "parse", "to_text", "to_double", "add",
                                         "sub", "mul", "div", "round", "compare"),
                         [](const testing::TestParamInfo<std::string>& param) { return param.param; });

// --- reference values of the price arithmetic -------------------------------------------------

Decimal text(std::string_view value) { return Decimal::fromString(value).value(); }

TEST(DecimalReference, FromDouble) {
  const std::vector<std::pair<double, std::string>> cases = {
      {30.417, "30.41700000000000512"},          {365.3, "365.3"},
      {4.345, "4.344999999999998976"},           {52.1786, "52.17860000000001024"},
      {1.0 / 7.0, "0.14285714285714280448"},     {1.0 / 12.0, "0.08333333333333330944"},
      {-0.0, "0"},                               {-2.5, "-2.5"},
  };
  for (const auto& [input, expected] : cases) {
    EXPECT_EQ(Decimal::fromDouble(input).description(), expected) << input;
  }
  EXPECT_TRUE(Decimal::fromDouble(std::numeric_limits<double>::quiet_NaN()).isNaN());
}

TEST(DecimalReference, PriceChain) {
  const Decimal weekly = text("4.99") * Decimal::fromDouble(52.1786);
  EXPECT_EQ(weekly.description(), "260.3712140000000510976");
  const Decimal ratio = text("39.99") / weekly;
  EXPECT_EQ(ratio.description(), "0.153588407050250924251");
  const Decimal roundedRatio = ratio.rounded(2, Mode::bankers);
  EXPECT_EQ(roundedRatio.description(), "0.15");
  EXPECT_EQ((Decimal(1) - roundedRatio).description(), "0.85");
}

TEST(DecimalReference, PriceTimesPeriodFactor) {
  // 9.99 per period converted with the day counts and the four fixed factors.
  const std::vector<std::pair<double, std::string>> cases = {
      {7.0, "69.93"},
      {30.417, "303.8658300000000511488"},
      {365.3, "3649.347"},
      {1.0 / 7.0, "1.4271428571428566167552"},
      {4.345, "43.40654999999998977024"},
      {52.1786, "521.2642140000001022976"},
      {7.0 / 28.0, "2.4975"},
      {12.0, "119.88"},
      {1.0 / 12.0, "0.8324999999999997613056"},
      {7.0 / 336.0, "0.2081249999999999403264"},
  };
  for (const auto& [factor, expected] : cases) {
    EXPECT_EQ((text("9.99") * Decimal::fromDouble(factor)).description(), expected) << factor;
  }
}

TEST(DecimalReference, Discounts) {
  const auto discount = [](const Decimal& price, const Decimal& comparedPrice) {
    return (Decimal(1) - (price / comparedPrice).rounded(2, Mode::bankers)).description();
  };
  EXPECT_EQ(discount(text("39.99"), text("4.99") * Decimal::fromDouble(52.1786)), "0.85");
  EXPECT_EQ(discount(text("59.99"), text("9.99") * Decimal(12)), "0.5");
  EXPECT_EQ(discount(text("19.99"), text("7.99") * Decimal(3)), "0.17");
  EXPECT_EQ(discount(text("12.5"), Decimal(100)), "0.88");  // the tie 0.125 rounds to even
}

// --- construction, text and edges not reachable from the vectors -----------------------------

TEST(DecimalConstruction, StoredParts) {
  struct Case {
    Decimal value;
    std::string stored;
    std::string description;
  };
  const std::vector<Case> cases = {
      {Decimal(12000), "+:12:3", "12000"},
      {Decimal(-150, -2), "-:15:-1", "-1.5"},
      {Decimal(0, 5), "+:0:0", "0"},
      {Decimal(1, 128), "NaN", "NaN"},
      {Decimal(1, -129), "NaN", "NaN"},
      {Decimal(100, 126), "+:10:127", "10" + std::string(127, '0')},
      {Decimal(std::numeric_limits<std::int64_t>::min()), "-:9223372036854775808:0", "-9223372036854775808"},
      {Decimal::fromParts(false, 150, -2), "+:150:-2", "1.50"},
      {Decimal::fromParts(true, 0, -2), "+:0:-2", "0"},
      {Decimal::fromParts(false, 1, 200), "NaN", "NaN"},
      {Decimal::fromParts(true, 7, -128), "-:7:-128", "-0." + std::string(127, '0') + "7"},
      {-Decimal(), "+:0:0", "0"},
      {-Decimal::fromParts(false, 150, -2), "-:150:-2", "-1.50"},
      {-Decimal::nan(), "NaN", "NaN"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(encode(c.value), c.stored) << c.description;
    EXPECT_EQ(c.value.description(), c.description);
  }
}

TEST(DecimalConstruction, MalformedTextGivesNoValue) {
  // Bytes that are not UTF-8, or cut-off sequences, are not white space and not digits.
  const std::string_view inputs[] = {"\xff" "1", "\xc2", "\xe2\x80", "\xe3\x80" "1", std::string_view("\0" "1", 2)};
  for (const std::string_view input : inputs) {
    EXPECT_FALSE(Decimal::fromString(input).has_value()) << encode(Decimal::fromString(input).value_or(Decimal()));
  }
  EXPECT_EQ(encode(Decimal::fromString("\xe2\x80\x89" "1.5").value()), "+:15:-1");
}

TEST(DecimalRounding, UnitTooLargeToStoreIsNaN) {
  const Decimal value(5, 100);
  EXPECT_EQ(value.rounded(-130, Mode::up).description(), "1" + std::string(130, '0'));
  EXPECT_TRUE(value.rounded(-170, Mode::up).isNaN());
  EXPECT_TRUE(value.rounded(std::numeric_limits<int>::min(), Mode::up).isNaN());
  EXPECT_TRUE(value.rounded(std::numeric_limits<int>::min(), Mode::plain).isZero());
  EXPECT_EQ(encode(value.rounded(std::numeric_limits<int>::max(), Mode::plain)), "+:5:100");
}

// --- equality, ordering and hashing ---------------------------------------------------------

TEST(DecimalOrdering, EqualValuesHashEqualAndGroupsAreOrdered) {
  // Each group holds one number stored in different ways; the groups ascend.
  const std::vector<std::vector<Decimal>> groups = {
      {Decimal::nan(), Decimal(1) / Decimal(0), -Decimal::nan()},
      {Decimal::fromParts(true, ~UInt128{0}, 127)},
      {Decimal(-15, -1), Decimal::fromParts(true, 150, -2), text("-1.50e")},
      {Decimal::fromParts(true, 1, -128)},
      {Decimal(), Decimal::fromParts(false, 0, 9), Decimal::fromParts(true, 0, -3), text("0.00e"), text("-0")},
      {Decimal::fromParts(false, 1, -128), text("1e-128"), text("0.1e-127")},
      {text("0.15"), Decimal::fromParts(false, 15, -2), Decimal::fromParts(false, 1500000, -7)},
      {Decimal(15, -1), Decimal::fromParts(false, 150, -2), text("1.50e"), text("1.5000000000000000000000000000000")},
      {Decimal(12000), Decimal::fromParts(false, 12, 3), Decimal::fromParts(false, 1200000, -2)},
      {Decimal::fromParts(false, 1, 127), Decimal::fromParts(false, 1000, 124)},
      {Decimal::fromParts(false, ~UInt128{0}, 126)},
  };
  for (std::size_t g = 0; g < groups.size(); ++g) {
    for (const Decimal& a : groups[g]) {
      for (const Decimal& b : groups[g]) {
        EXPECT_TRUE(a == b) << encode(a) << " == " << encode(b);
        EXPECT_EQ(a <=> b, std::weak_ordering::equivalent) << encode(a) << " <=> " << encode(b);
        EXPECT_EQ(a.hashValue(), b.hashValue()) << encode(a) << " and " << encode(b);
        EXPECT_EQ(std::hash<Decimal>()(a), a.hashValue());
      }
      for (std::size_t h = g + 1; h < groups.size(); ++h) {
        for (const Decimal& b : groups[h]) {
          EXPECT_TRUE(a < b) << encode(a) << " < " << encode(b);
          EXPECT_TRUE(b > a) << encode(b) << " > " << encode(a);
          EXPECT_FALSE(a == b) << encode(a) << " == " << encode(b);
        }
      }
    }
  }
  std::unordered_set<Decimal> distinct;
  for (const auto& group : groups) {
    distinct.insert(group.begin(), group.end());
  }
  EXPECT_EQ(distinct.size(), groups.size());
}

// --- programming errors -------------------------------------------------------------------

TEST(DecimalDeathTest, FromInfinityStops) {
  EXPECT_DEATH(Decimal::fromDouble(std::numeric_limits<double>::infinity()), "fromDouble.*infinity");
  EXPECT_DEATH(Decimal::fromDouble(-std::numeric_limits<double>::infinity()), "fromDouble.*infinity");
}

}  // namespace
}  // namespace velquist::foundation
