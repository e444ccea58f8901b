#include "velquist/foundation/decimal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace velquist::foundation {
namespace {

using Mode = Decimal::RoundingMode;

// --- the generated vectors, encoded as the file's header describes --------------------------

/// `none`, `NaN` or `<sign>:<mantissa>:<exponent>` exactly as stored.
std::string encode(const std::optional<Decimal>& value) {
  if (!value) return "none";
  if (value->isNaN()) return "NaN";
  std::string digits;
  for (UInt128 rest = value->mantissa(); digits.empty() || rest != 0; rest /= 10) {
    digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(rest % 10)));
  }
  return (value->isNegative() ? "-:" : "+:") + digits + ":" + std::to_string(value->exponent());
}

Decimal decode(const std::string& token) {
  if (token == "NaN") return Decimal::nan();
  const std::size_t colon = token.find(':', 2);
  if (token.size() < 5 || (token[0] != '+' && token[0] != '-') || token[1] != ':' || colon == std::string::npos) {
    throw std::invalid_argument("malformed value " + token);
  }
  UInt128 mantissa = 0;
  for (std::size_t i = 2; i < colon; ++i) mantissa = mantissa * 10 + static_cast<unsigned>(token[i] - '0');
  return Decimal::fromParts(token[0] == '-', mantissa, std::stoi(token.substr(colon + 1)));
}

std::string unquote(const std::string& token) {
  std::string text;
  for (std::size_t i = 1; i + 1 < token.size(); i += token[i] == '%' ? 3 : 1) {
    text += token[i] == '%' ? static_cast<char>(std::stoi(token.substr(i + 1, 2), nullptr, 16)) : token[i];
  }
  return text;
}

/// Exact text of a double (every NaN alike), so that equal texts mean identical bits.
std::string hexDouble(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%a", value);
  return std::isnan(value) ? "nan" : buffer;
}

/// Runs one vector line; returns the expected and the actual result as text.
std::pair<std::string, std::string> runVector(const std::string& line) {
  static const std::map<std::string, Mode> modes = {
      {"plain", Mode::plain}, {"down", Mode::down}, {"up", Mode::up}, {"bankers", Mode::bankers}};
  std::istringstream stream(line);
  const std::vector<std::string> f{std::istream_iterator<std::string>(stream), {}};
  const std::string& op = f.at(0);
  const auto v = [&](std::size_t i) { return decode(f.at(i)); };
  if (op == "from_int") return {f.at(2), encode(Decimal(static_cast<std::int64_t>(std::stoll(f.at(1)))))};
  if (op == "from_double") return {f.at(2), encode(Decimal::fromDouble(std::strtod(f.at(1).c_str(), nullptr)))};
  if (op == "parse") return {f.at(2), encode(Decimal::fromString(unquote(f.at(1))))};
  if (op == "to_text") return {f.at(2), v(1).description()};
  if (op == "to_double") return {hexDouble(std::strtod(f.at(2).c_str(), nullptr)), hexDouble(v(1).doubleValue())};
  if (op == "add") return {f.at(3), encode(v(1) + v(2))};
  if (op == "sub") return {f.at(3), encode(v(1) - v(2))};
  if (op == "mul") return {f.at(3), encode(v(1) * v(2))};
  if (op == "div") return {f.at(3), encode(v(1) / v(2))};
  if (op == "round") return {f.at(4), encode(v(1).rounded(std::stoi(f.at(2)), modes.at(f.at(3))))};
  if (op == "compare") return {f.at(3), std::to_string((v(2) < v(1)) - (v(1) < v(2)))};
  throw std::invalid_argument("unknown operation " + op);
}

TEST(DecimalVectors, AgreeWithReference) {
  std::ifstream file(VELQUIST_TEST_DATA_DIR "/decimal_vectors.txt");
  int total = 0;
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    if (line.empty() || line[0] == '#') continue;
    ++total;
    try {
      const auto [expected, actual] = runVector(line);
      EXPECT_EQ(actual, expected) << "decimal_vectors.txt line " << number << ": " << line;
    } catch (const std::exception& error) {
      ADD_FAILURE() << "decimal_vectors.txt line " << number << " is malformed (" << error.what() << "): " << line;
    }
  }
  // A regenerated file must update the count deliberately.
  EXPECT_EQ(total, 7784) << "decimal_vectors.txt is truncated or was regenerated";
}

// --- hand-written cases --------------------------------------------------------------------

Decimal text(std::string_view value) { return Decimal::fromString(value).value(); }

TEST(DecimalConstruction, OddInputsAndExtremeScales) {
  const Decimal big(5, 100);
  constexpr int kMin = std::numeric_limits<int>::min();
  const std::pair<Decimal, std::string_view> stored[] = {
      {Decimal(-150, -2), "-:15:-1"}, {Decimal(0, 5), "+:0:0"}, {Decimal(1, 128), "NaN"}, {Decimal(1, -129), "NaN"},
      {Decimal(100, 126), "+:10:127"}, {Decimal::fromParts(true, 0, -2), "+:0:-2"},
      {Decimal::fromParts(false, 1, 200), "NaN"}, {-Decimal(), "+:0:0"},
      {-Decimal::fromParts(false, 150, -2), "-:150:-2"}, {-Decimal::nan(), "NaN"},
      {big.rounded(-170, Mode::up), "NaN"}, {big.rounded(kMin, Mode::up), "NaN"},  // the unit is too large to store
      {big.rounded(kMin, Mode::plain), "+:0:0"}, {big.rounded(std::numeric_limits<int>::max(), Mode::plain), "+:5:100"},
  };
  for (const auto& [value, expected] : stored) EXPECT_EQ(encode(value), expected);
  // Bytes that are not UTF-8, or cut-off sequences, are neither white space nor digits.
  const std::string_view notUtf8[] = {"\xff" "1", "\xc2", "\xe2\x80", "\xe3\x80" "1", std::string_view("\0" "1", 2)};
  for (const std::string_view input : notUtf8) {
    EXPECT_FALSE(Decimal::fromString(input).has_value()) << testing::PrintToString(std::string(input));
  }
}

TEST(DecimalOrdering, EqualValuesHashEqualAndGroupsAreOrdered) {
  // Each group holds one number stored in different ways; the groups ascend.
  const std::vector<std::vector<Decimal>> groups = {
      {Decimal::nan(), Decimal(1) / Decimal(0), -Decimal::nan()}, {Decimal::fromParts(true, ~UInt128{0}, 127)},
      {Decimal(-15, -1), Decimal::fromParts(true, 150, -2), text("-1.50e")},
      {Decimal(), Decimal::fromParts(false, 0, 9), Decimal::fromParts(true, 0, -3), text("0.00e"), text("-0")},
      {Decimal::fromParts(false, 1, -128), text("1e-128"), text("0.1e-127")},
      {text("0.15"), Decimal::fromParts(false, 15, -2), Decimal::fromParts(false, 1500000, -7)},
      {Decimal(15, -1), Decimal::fromParts(false, 150, -2), text("1.50e"), text("1.5000000000000000000000000000000")},
      {Decimal(12000), Decimal::fromParts(false, 12, 3), Decimal::fromParts(false, 1200000, -2)},
      {Decimal::fromParts(false, 1, 127), Decimal::fromParts(false, 1000, 124)},
      {Decimal::fromParts(false, ~UInt128{0}, 126)},
  };
  // Distinct hashes are not required, but one that ignored the sign or the exponent would
  // make some of these collide.
  for (std::size_t g = 0; g < groups.size(); ++g) {
    for (std::size_t h = g; h < groups.size(); ++h) {
      for (const Decimal& a : groups[g]) {
        for (const Decimal& b : groups[h]) {
          EXPECT_TRUE((a == b) == (g == h) && (a < b) == (g < h) && (b > a) == (g < h) && !(b < a) &&
                      (a.hashValue() == b.hashValue()) == (g == h))
              << encode(a) << " vs " << encode(b);
        }
      }
    }
  }
  EXPECT_EQ(std::hash<Decimal>()(text("1.50e")), text("1.5").hashValue());
}

TEST(DecimalDeathTest, FromInfinityStops) {
  EXPECT_DEATH(Decimal::fromDouble(std::numeric_limits<double>::infinity()), "fromDouble.*\\+infinity");
  EXPECT_DEATH(Decimal::fromDouble(-std::numeric_limits<double>::infinity()), "fromDouble.*-infinity");
}

}  // namespace
}  // namespace velquist::foundation
