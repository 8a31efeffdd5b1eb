/// \file Throughput of the table's byte hashes on short and long keys, beside strlen's.
#include <nuv/hash_table.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "bench/how_measured.h"
#include "bench/median.h"

namespace {

constexpr int kRuns = 9;

// Keeps the compiler from dropping the calls whose results nothing else reads.
volatile unsigned long sink = 0;

// A key of length bytes, none of them zero, so that it is also a C string.
std::string Key(size_t length) {
  std::string key;
  for (size_t i = 0; i < length; ++i) {
    key.push_back(static_cast<char>('a' + i % 26));
  }
  return key;
}

// About 16 MiB hashed per run whatever the key length.
int IterationsFor(size_t length) { return static_cast<int>((size_t{16} << 20U) / length); }

void Report(const char* what, size_t length, double nanoseconds) {
  std::printf("%-14s %5zu-byte key: %6.2f ns, %5.2f bytes/ns\n", what, length, nanoseconds,
              static_cast<double>(length) / nanoseconds);
}

void MeasureKey(size_t length) {
  const std::string key = Key(length);
  const char* text = key.c_str();
  const int iterations = IterationsFor(length);
  Report("HashString", length,
         nuv::bench::MedianNanoseconds(
             [text] { sink = sink + NuvGenericHashTable::HashString(text); }, kRuns, iterations));
  Report("FastHashBytes", length,
         nuv::bench::MedianNanoseconds(
             [text, length] {
               unsigned long h = sink;
               NuvGenericHashTable::FastHashBytes(text, static_cast<unsigned>(length), h);
               sink = h;
             },
             kRuns, iterations));
  Report("strlen", length,
         nuv::bench::MedianNanoseconds([text] { sink = sink + strlen(text); }, kRuns, iterations));
}

}  // namespace

int main() {
  nuv::bench::PrintHowMeasured();
  MeasureKey(16);
  MeasureKey(1024);
  return 0;
}
