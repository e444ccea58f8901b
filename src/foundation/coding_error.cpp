#include "velquist/foundation/coding_error.h"

#include <utility>

namespace velquist::foundation {

namespace {

std::string messageText(std::string_view kind, const std::vector<CodingKey>& path, std::string_view description) {
  std::string message(kind);
  message += path.empty() ? " at the top level: " : " at " + codingPathText(path) + ": ";
  message += description;
  return message;
}

}  // namespace

std::string codingPathText(const std::vector<CodingKey>& path) {
  std::string text;
  for (const CodingKey& step : path) {
    if (step.intValue) {
      text += '[' + std::to_string(*step.intValue) + ']';
    } else {
      if (!text.empty()) text += '.';
      text += step.stringValue;
    }
  }
  return text;
}

std::string_view kindName(DecodingError::Kind kind) {
  switch (kind) {
    case DecodingError::Kind::keyNotFound: return "keyNotFound";
    case DecodingError::Kind::typeMismatch: return "typeMismatch";
    case DecodingError::Kind::valueNotFound: return "valueNotFound";
    case DecodingError::Kind::dataCorrupted: return "dataCorrupted";
  }
  return "unknown";
}

DecodingError::DecodingError(Kind kind, std::vector<CodingKey> codingPath, std::string debugDescription) {
  std::string message = messageText(kindName(kind), codingPath, debugDescription);
  details_ = std::make_shared<const Details>(
      Details{kind, std::move(codingPath), std::move(debugDescription), std::move(message)});
}

EncodingError::EncodingError(std::vector<CodingKey> codingPath, std::string debugDescription) {
  std::string message = messageText("invalidValue", codingPath, debugDescription);
  details_ = std::make_shared<const Details>(
      Details{std::move(codingPath), std::move(debugDescription), std::move(message)});
}

}  // namespace velquist::foundation
