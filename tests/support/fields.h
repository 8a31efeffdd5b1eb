/// \file Reading the "key=value" lines that a child process or helper program prints.
#ifndef NUV_TESTS_SUPPORT_FIELDS_H
#define NUV_TESTS_SUPPORT_FIELDS_H

#include <map>
#include <string>

#include "support/log_lines.h"

namespace nuv::test {

using Fields = std::map<std::string, std::string>;

/// Every line of out that holds '=', split at the first one; a later key replaces an earlier.
inline Fields FieldsOf(const std::string& out) {
  Fields fields;
  for (const std::string& line : Lines(out)) {
    const size_t equals = line.find('=');
    if (equals != std::string::npos) {
      fields[line.substr(0, equals)] = line.substr(equals + 1);
    }
  }
  return fields;
}

/// The value of key, or "(missing)" when out did not print it.
inline std::string FieldOf(const Fields& fields, const std::string& key) {
  const auto found = fields.find(key);
  return found == fields.end() ? "(missing)" : found->second;
}

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_FIELDS_H
