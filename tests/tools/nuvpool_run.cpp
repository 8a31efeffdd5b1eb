/// \file nuvpool from the tests.
#include "tools/nuvpool_run.h"

#include <fstream>
#include <iterator>

namespace nuv::test {

NuvpoolRun Nuvpool(const std::vector<std::string>& args, bool json) {
  std::vector<std::string> all = args;
  if (json) {
    all.emplace_back("--json");
  }
  NuvpoolRun run{RunProgram(NUV_TOOL_NUVPOOL, all), Json()};
  if (json && !run.outcome.out.empty()) {
    std::string error;
    run.json = Json::Parse(run.outcome.out, &error);
    EXPECT_EQ(error, "") << run.outcome.out;
  }
  return run;
}

std::string FixturePath(bool bigEndian) {
  return std::string(NUV_TEST_DATA_DIR) +
         (bigEndian ? "/fixture-big.pool" : "/fixture-little.pool");
}

bool NativeBigEndian() {
  const uint32_t one = 1;
  return *reinterpret_cast<const unsigned char*>(&one) == 0;
}

namespace {

std::vector<unsigned char> ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

// The pool magic tells the order, as nuvpool finds it.
PoolBytes::PoolBytes(const std::string& path)
    : bytesM(ReadBytes(path)), bigM(bytesM.size() > 8 && bytesM[8] == 0xa6) {}

uint32_t PoolBytes::Word(uint32_t offset) const {
  uint32_t value = 0;
  for (unsigned i = 0; i < 4; ++i) {
    const unsigned shift = bigM ? 24 - 8 * i : 8 * i;
    value |= uint32_t{bytesM.at(offset + i)} << shift;
  }
  return value;
}

void PoolBytes::SetWord(uint32_t offset, uint32_t value) {
  for (unsigned i = 0; i < 4; ++i) {
    const unsigned shift = bigM ? 24 - 8 * i : 8 * i;
    bytesM.at(offset + i) = static_cast<unsigned char>(value >> shift);
  }
}

void PoolBytes::WriteTo(const std::string& path) const {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytesM.data()),
             static_cast<std::streamsize>(bytesM.size()));
}

}  // namespace nuv::test
