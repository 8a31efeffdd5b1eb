/// \file JSON output.
#include "json_writer.h"

#include <cinttypes>
#include <cstdio>

namespace nuvpool {

void JsonWriter::BeforeValue() {
  if (afterKeyM) {
    afterKeyM = false;
    return;
  }
  if (!firstM.empty()) {
    if (!firstM.back()) {
      textM += ',';
    }
    firstM.back() = false;
  }
}

JsonWriter& JsonWriter::Key(const char* key) {
  BeforeValue();
  AppendQuoted(key);
  textM += ':';
  afterKeyM = true;
  return *this;
}

JsonWriter& JsonWriter::BeginObject() {
  BeforeValue();
  textM += '{';
  firstM.push_back(true);
  return *this;
}

JsonWriter& JsonWriter::EndObject() {
  textM += '}';
  firstM.pop_back();
  return *this;
}

JsonWriter& JsonWriter::BeginArray() {
  BeforeValue();
  textM += '[';
  firstM.push_back(true);
  return *this;
}

JsonWriter& JsonWriter::EndArray() {
  textM += ']';
  firstM.pop_back();
  return *this;
}

JsonWriter& JsonWriter::String(const std::string& text) {
  BeforeValue();
  AppendQuoted(text);
  return *this;
}

void JsonWriter::AppendQuoted(const std::string& text) {
  textM += '"';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      textM += '\\';
      textM += c;
    } else if (byte < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      textM += escaped;
    } else {
      textM += c;
    }
  }
  textM += '"';
}

JsonWriter& JsonWriter::Number(int64_t value) {
  BeforeValue();
  char text[24];
  std::snprintf(text, sizeof text, "%" PRId64, value);
  textM += text;
  return *this;
}

JsonWriter& JsonWriter::Fraction(double value) {
  BeforeValue();
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", value);
  textM += text;
  return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
  BeforeValue();
  textM += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::Null() {
  BeforeValue();
  textM += "null";
  return *this;
}

}  // namespace nuvpool
