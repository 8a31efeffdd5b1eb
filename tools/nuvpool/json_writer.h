/// \file A small writer of one JSON document: objects, arrays, strings, numbers and booleans,
/// with the commas and the escapes done for the caller.
#ifndef NUV_TOOLS_NUVPOOL_JSON_WRITER_H
#define NUV_TOOLS_NUVPOOL_JSON_WRITER_H

#include <cstdint>
#include <string>
#include <vector>

namespace nuvpool {

class JsonWriter {
 public:
  /// Members of an object: Key, then the value.
  JsonWriter& Key(const char* key);
  JsonWriter& BeginObject();
  JsonWriter& EndObject();
  JsonWriter& BeginArray();
  JsonWriter& EndArray();
  JsonWriter& String(const std::string& text);
  JsonWriter& Number(int64_t value);
  JsonWriter& Fraction(double value);  // three decimals
  JsonWriter& Bool(bool value);
  JsonWriter& Null();

  /// The document, ended by a newline.
  std::string Text() const { return textM + "\n"; }

 private:
  void BeforeValue();
  void AppendQuoted(const std::string& text);

  std::string textM;
  std::vector<bool> firstM;  // per open container: nothing written in it yet
  bool afterKeyM = false;
};

}  // namespace nuvpool

#endif  // NUV_TOOLS_NUVPOOL_JSON_WRITER_H
