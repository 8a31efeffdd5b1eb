/// \file Fuzzes nuvpool's reader: any bytes, read as a pool file and reported by every command,
/// must give a report or a refusal, never a crash, a hang or a read outside the bytes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "pool_image.h"
#include "pool_reader.h"
#include "processes.h"
#include "report.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  nuvpool::PoolImage image(data, size);
  std::string error;
  if (!image.Open(&error)) {
    return 0;
  }
  const nuvpool::PoolModel model = nuvpool::ReadPool(image);
  const nuvpool::Processes none;
  std::size_t printed = nuvpool::ShowJson("fuzz", model, none).size();
  printed += nuvpool::ShowText("fuzz", model, none).size();
  printed += nuvpool::CheckJson("fuzz", model).size() + nuvpool::CheckText("fuzz", model).size();
  printed += nuvpool::BlocksJson("fuzz", model, -1).size();
  printed += nuvpool::BlocksText("fuzz", model, 5).size();
  return printed == 0 ? -1 : 0;
}
