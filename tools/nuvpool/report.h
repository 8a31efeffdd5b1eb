/// \file What nuvpool prints: each command's report as text for people and as one JSON document
/// for programs (docs/nuvpool.md lists the JSON fields).
#ifndef NUV_TOOLS_NUVPOOL_REPORT_H
#define NUV_TOOLS_NUVPOOL_REPORT_H

#include "pool_model.h"
#include "processes.h"

#include <string>
#include <vector>

namespace nuvpool {

/// One pool file found by list.
struct ListedPool {
  std::string name;  // the file name without the prefix
  std::string path;
  uint32_t fileSize = 0;
  uint32_t base = 0;
  uint32_t length = 0;
  ByteOrder order = ByteOrder::kBig;
  std::vector<int> attached;
};

/// Owners are named as the statistics name them, or by number; -1 for an unknown name.
int ParseOwner(const std::string& name);

std::string ListText(const std::string& prefix, const std::vector<ListedPool>& pools);
std::string ListJson(const std::string& prefix, const std::vector<ListedPool>& pools);
std::string ShowText(const std::string& path, const PoolModel& model, const Processes& processes);
std::string ShowJson(const std::string& path, const PoolModel& model, const Processes& processes);
std::string CheckText(const std::string& path, const PoolModel& model);
std::string CheckJson(const std::string& path, const PoolModel& model);
/// owner -1 lists the blocks of every owner.
std::string BlocksText(const std::string& path, const PoolModel& model, int owner);
std::string BlocksJson(const std::string& path, const PoolModel& model, int owner);

/// The in-use blocks of owner (-1: all), sentinels left out, largest first.
std::vector<Block> LiveBlocks(const PoolModel& model, int owner);

}  // namespace nuvpool

#endif  // NUV_TOOLS_NUVPOOL_REPORT_H
