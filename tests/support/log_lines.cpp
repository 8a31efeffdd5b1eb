/// \file Logger records in captured output.
#include "support/log_lines.h"

#include <regex>

namespace nuv::test {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      end = text.size();
    }
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

std::vector<std::string> LogRecords(const std::string& out, int value, const std::string& tag,
                                    int pid) {
  const std::string head = "<" + std::to_string(value) + ">";
  const std::string tail = " " + tag + "[" + std::to_string(pid) + "]: ";
  const std::regex stamp("[A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2}");
  const size_t stampLength = 15;
  std::vector<std::string> texts;
  for (const std::string& line : Lines(out)) {
    const size_t tailAt = head.size() + stampLength;
    if (line.compare(0, head.size(), head) == 0 && line.size() >= tailAt + tail.size() &&
        std::regex_match(line.substr(head.size(), stampLength), stamp) &&
        line.compare(tailAt, tail.size(), tail) == 0) {
      texts.push_back(line.substr(tailAt + tail.size()));
    }
  }
  return texts;
}

}  // namespace nuv::test
