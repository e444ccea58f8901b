// l10n_units: writes the unit words of the localisation catalogue from CLDR, through ICU.
//
//     l10n_units <folder with the catalogue files> [--check]
//
// For every data file (`de.json`, `pt_PT.json`, ...) it asks ICU how the file's locale writes
// 1, 3 and 5 days, weeks, months and years, and sets the three forms the library's period
// style uses from the words without their numbers:
//
//     Product.SubscriptionPeriod.Unit.<unit>                  the word with 1   ("день")
//     Product.SubscriptionPeriod.Unit.<Unit>.plural           the word with 3   ("дня"), for 2 to 4
//     Product.SubscriptionPeriod.Unit.<Unit>.plural2          the word with 5   ("дней"), for 5 and more
//
// Every other entry (compact names, recurrence words, payment modes, the free-trial sentence)
// is translated by hand and kept as it is. Entries are written in the order of `en.json`.
//
// With --check nothing is written: each file whose text would change is named and the exit
// status is 1, so a test can prove the committed files are what the generator makes.

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velquist/foundation/locale.h"
#include "velquist/storekit/formatting/plural_period_format_style.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using velquist::storekit::Product;
using Unit = Product::SubscriptionPeriod::Unit;

struct UnitKeys {
  Unit unit;
  std::string_view singular;  // the key of the word with 1
  std::string_view group;     // the key prefix of the plural forms
};

constexpr std::array<UnitKeys, 4> units{{
    {Unit::day, "Product.SubscriptionPeriod.Unit.day", "Product.SubscriptionPeriod.Unit.Day"},
    {Unit::week, "Product.SubscriptionPeriod.Unit.week", "Product.SubscriptionPeriod.Unit.Week"},
    {Unit::month, "Product.SubscriptionPeriod.Unit.month", "Product.SubscriptionPeriod.Unit.Month"},
    {Unit::year, "Product.SubscriptionPeriod.Unit.year", "Product.SubscriptionPeriod.Unit.Year"},
}};

// Where CLDR's duration word is not what a price or a trial says. CLDR writes a day of
// elapsed time as the word for a 24-hour period in these languages ("7 dób", "7 døgn",
// "7 dygn"); a subscription of 7 days is "7 dni", "7 dager", "7 dagar".
struct Override {
  std::string_view language;
  Unit unit;
  std::array<std::string_view, 3> forms;  // with 1, 3 and 5
};

constexpr std::array<Override, 3> overrides{{
    {"pl", Unit::day, {"dzień", "dni", "dni"}},
    {"nb", Unit::day, {"dag", "dager", "dager"}},
    {"sv", Unit::day, {"dag", "dagar", "dagar"}},
}};

std::optional<std::array<std::string, 3>> overridden(std::string_view language, Unit unit) {
  for (const Override& entry : overrides) {
    if (entry.language == language && entry.unit == unit) {
      return std::array<std::string, 3>{std::string(entry.forms[0]), std::string(entry.forms[1]),
                                        std::string(entry.forms[2])};
    }
  }
  return std::nullopt;
}

std::string readFile(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) throw std::runtime_error(path.string() + ": cannot be read");
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

Json parseFile(const fs::path& path, const std::string& text) {
  try {
    Json parsed = Json::parse(text);
    if (!parsed.is_object()) throw std::runtime_error("the top level is not an object");
    return parsed;
  } catch (const std::exception& error) {
    throw std::runtime_error(path.string() + ": not a catalogue file (" + error.what() + "); nothing was written to it");
  }
}

// The catalogue's own layout: one entry a line, two spaces in, text as written (no \u escapes).
std::string render(const Json& entries) {
  std::string text = "{\n";
  bool first = true;
  for (const auto& [key, value] : entries.items()) {
    if (!first) text += ",\n";
    first = false;
    text += "  " + Json(key).dump(-1, ' ', false) + ": " + value.dump(-1, ' ', false);
  }
  text += "\n}\n";
  return text;
}

// The file's entries with the unit words set from CLDR, in English key order, then any keys
// English does not have.
std::string regenerated(const std::string& language, const Json& file, const Json& english) {
  Json words = file;
  const velquist::foundation::Locale locale(language);
  const auto width = Product::SubscriptionPeriod::PluralFormatStyle::Width::complete;
  for (const UnitKeys& keys : units) {
    std::array<std::string, 3> forms;
    if (auto fixed = overridden(language, keys.unit)) {
      forms = *fixed;
    } else {
      forms = {velquist::storekit::pluralUnitWord(keys.unit, 1, width, locale),
               velquist::storekit::pluralUnitWord(keys.unit, 3, width, locale),
               velquist::storekit::pluralUnitWord(keys.unit, 5, width, locale)};
    }
    words[std::string(keys.singular)] = forms[0];
    words[std::string(keys.group) + ".plural"] = forms[1];
    words[std::string(keys.group) + ".plural2"] = forms[2];
  }
  Json ordered = Json::object();
  for (const auto& [key, value] : english.items()) {
    if (words.contains(key)) ordered[key] = words[key];
  }
  for (const auto& [key, value] : words.items()) {
    if (!ordered.contains(key)) ordered[key] = value;
  }
  return render(ordered);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  std::optional<fs::path> folder;
  bool check = false;
  for (const std::string& argument : arguments) {
    if (argument == "--check") {
      check = true;
    } else if (!folder) {
      folder = argument;
    } else {
      folder.reset();
      break;
    }
  }
  if (!folder) {
    std::cerr << "usage: l10n_units <folder with the catalogue files> [--check]\n";
    return 2;
  }
  try {
    const fs::path englishPath = *folder / "en.json";
    const Json english = parseFile(englishPath, readFile(englishPath));
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(*folder)) {
      if (entry.path().extension() == ".json") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    int differing = 0;
    for (const fs::path& path : files) {
      const std::string before = readFile(path);
      const std::string after = regenerated(path.stem().string(), parseFile(path, before), english);
      if (before == after) continue;
      ++differing;
      if (check) {
        std::cerr << path.string() << ": the unit words differ from what CLDR gives (run l10n_units "
                  << folder->string() << " to rewrite them)\n";
        continue;
      }
      const fs::path temporary = path.string() + ".tmp";
      {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << after;
        out.close();
        if (!out) throw std::runtime_error(temporary.string() + ": cannot be written; " + path.string() + " is kept");
      }
      fs::rename(temporary, path);
      std::cout << "wrote " << path.string() << "\n";
    }
    return check && differing > 0 ? 1 : 0;
  } catch (const std::exception& error) {
    std::cerr << "l10n_units: " << error.what() << "\n";
    return 1;
  }
}
