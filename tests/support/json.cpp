/// \file Parsing JSON for the tests.
#include "support/json.h"

#include <cstdlib>

namespace nuv::test {

class JsonParser {
 public:
  explicit JsonParser(const std::string& text) : textM(text) {}

  bool Document(Json* value) {
    if (!Value(value)) {
      return false;
    }
    SkipSpace();
    return atM == textM.size();
  }

  std::size_t At() const { return atM; }

 private:
  void SkipSpace() {
    while (atM < textM.size() &&
           (textM[atM] == ' ' || textM[atM] == '\n' || textM[atM] == '\t' || textM[atM] == '\r')) {
      ++atM;
    }
  }

  bool Take(char c) {
    SkipSpace();
    if (atM < textM.size() && textM[atM] == c) {
      ++atM;
      return true;
    }
    return false;
  }

  bool Word(const char* word) {
    const std::string expected = word;
    if (textM.compare(atM, expected.size(), expected) != 0) {
      return false;
    }
    atM += expected.size();
    return true;
  }

  bool String(std::string* out) {
    if (!Take('"')) {
      return false;
    }
    while (atM < textM.size() && textM[atM] != '"') {
      char c = textM[atM++];
      if (c == '\\' && atM < textM.size()) {
        c = textM[atM++];
        if (c == 'u' && atM + 4 <= textM.size()) {
          c = static_cast<char>(std::strtol(textM.substr(atM, 4).c_str(), nullptr, 16));
          atM += 4;
        } else if (c == 'n') {
          c = '\n';
        }
      }
      *out += c;
    }
    return Take('"');
  }

  bool Array(Json* value) {
    value->kindM = Json::Kind::kArray;
    if (Take(']')) {
      return true;
    }
    do {
      value->itemsM.emplace_back();
      if (!Value(&value->itemsM.back())) {
        return false;
      }
    } while (Take(','));
    return Take(']');
  }

  bool Object(Json* value) {
    value->kindM = Json::Kind::kObject;
    if (Take('}')) {
      return true;
    }
    do {
      std::string key;
      if (!String(&key) || !Take(':')) {
        return false;
      }
      value->membersM.emplace_back(key, Json());
      if (!Value(&value->membersM.back().second)) {
        return false;
      }
    } while (Take(','));
    return Take('}');
  }

  bool Value(Json* value) {
    SkipSpace();
    if (atM >= textM.size()) {
      return false;
    }
    const char c = textM[atM];
    if (c == '{' || c == '[') {
      ++atM;
      return c == '{' ? Object(value) : Array(value);
    }
    if (c == '"') {
      value->kindM = Json::Kind::kString;
      return String(&value->stringM);
    }
    if (Word("true")) {
      value->kindM = Json::Kind::kBool;
      value->boolM = true;
      return true;
    }
    if (Word("false")) {
      value->kindM = Json::Kind::kBool;
      return true;
    }
    if (Word("null")) {
      return true;
    }
    char* end = nullptr;
    value->numberM = std::strtod(textM.c_str() + atM, &end);
    if (end == textM.c_str() + atM) {
      return false;
    }
    value->kindM = Json::Kind::kNumber;
    atM = static_cast<std::size_t>(end - textM.c_str());
    return true;
  }

  const std::string& textM;
  std::size_t atM = 0;
};

namespace {

const Json& NullValue() {
  static const Json null;
  return null;
}

}  // namespace

Json Json::Parse(const std::string& text, std::string* error) {
  Json value;
  JsonParser parser(text);
  if (!parser.Document(&value)) {
    *error = "not JSON at byte " + std::to_string(parser.At());
    return {};
  }
  return value;
}

const Json& Json::operator[](std::size_t index) const {
  return index < itemsM.size() ? itemsM[index] : NullValue();
}

const Json& Json::operator[](const char* key) const {
  for (const auto& member : membersM) {
    if (member.first == key) {
      return member.second;
    }
  }
  return NullValue();
}

Json Json::Without(const char* key) const {
  Json copy = *this;
  copy.membersM.clear();
  for (const auto& member : membersM) {
    if (member.first != key) {
      copy.membersM.push_back(member);
    }
  }
  return copy;
}

bool Json::operator==(const Json& other) const {
  return kindM == other.kindM && boolM == other.boolM && numberM == other.numberM &&
         stringM == other.stringM && itemsM == other.itemsM && membersM == other.membersM;
}

}  // namespace nuv::test
