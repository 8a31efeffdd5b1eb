/// \file Finding logger records in captured standard output.
#ifndef NUV_TESTS_SUPPORT_LOG_LINES_H
#define NUV_TESTS_SUPPORT_LOG_LINES_H

#include <string>
#include <vector>

namespace nuv::test {

/// The texts of the records in out (logger lines "<value>Mmm dd hh:mm:ss tag[pid]: text\n")
/// that carry this priority value, tag and pid, in order; the 15-character stamp is only
/// checked for its shape.
std::vector<std::string> LogRecords(const std::string& out, int value, const std::string& tag,
                                    int pid);

/// The lines of text, without their line ends.
std::vector<std::string> Lines(const std::string& text);

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_LOG_LINES_H
