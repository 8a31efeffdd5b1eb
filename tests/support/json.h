/// \file A small JSON reader for the tests that check programs' JSON output.
#ifndef NUV_TESTS_SUPPORT_JSON_H
#define NUV_TESTS_SUPPORT_JSON_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace nuv::test {

/// One JSON value. Looking up a missing member or index gives a null value, so that a chain of
/// lookups in a test never crashes and a wrong chain shows as a failed comparison.
class Json {
 public:
  enum class Kind { kNull, kBool, kNumber, kString, kArray, kObject };

  /// Parses text; a text that is not one JSON document gives a null value and error says why.
  static Json Parse(const std::string& text, std::string* error);

  Kind GetKind() const { return kindM; }
  bool IsNull() const { return kindM == Kind::kNull; }
  bool Bool() const { return boolM; }
  int64_t Int() const { return static_cast<int64_t>(numberM); }
  double Number() const { return numberM; }
  const std::string& String() const { return stringM; }
  std::size_t Size() const { return kindM == Kind::kObject ? membersM.size() : itemsM.size(); }
  const Json& operator[](std::size_t index) const;
  const Json& operator[](int index) const { return (*this)[static_cast<std::size_t>(index)]; }
  const Json& operator[](const char* key) const;
  /// The same value without the member key of this object (other values: unchanged).
  Json Without(const char* key) const;

  bool operator==(const Json& other) const;
  bool operator!=(const Json& other) const { return !(*this == other); }

 private:
  friend class JsonParser;

  Kind kindM = Kind::kNull;
  bool boolM = false;
  double numberM = 0;
  std::string stringM;
  std::vector<Json> itemsM;
  std::vector<std::pair<std::string, Json>> membersM;
};

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_JSON_H
