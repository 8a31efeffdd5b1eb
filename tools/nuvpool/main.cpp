/// \file nuvpool: looks inside live and stale pool files without taking part in them.
#include "pool_file.h"
#include "pool_image.h"
#include "pool_reader.h"
#include "processes.h"
#include "report.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace nuvpool;

constexpr int kSound = 0;
constexpr int kUnsound = 1;
constexpr int kFailed = 2;

constexpr const char* kUsage =
    "usage: nuvpool list [--prefix PREFIX] [--json]\n"
    "       nuvpool show POOL [--prefix PREFIX] [--json]\n"
    "       nuvpool check POOL [--prefix PREFIX] [--json]\n"
    "       nuvpool blocks POOL [--owner NAME] [--prefix PREFIX] [--json]\n"
    "POOL is a pool name, looked up as /var/tmp/ + prefix + name, or a path holding a '/'.\n"
    "The prefix is NUV_POOL_PREFIX unless --prefix is given. Exit status: 0 done (check: the\n"
    "pool is sound), 1 check found faults, 2 bad arguments or a file that is not a pool.\n";

struct Arguments {
  std::string command;
  std::string pool;
  std::string prefix;
  std::string owner;
  bool json = false;
};

bool ParseArguments(int argc, char** argv, Arguments* arguments) {
  const char* prefix = std::getenv("NUV_POOL_PREFIX");
  arguments->prefix = prefix != nullptr ? prefix : "";
  std::vector<std::string> words;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const bool valued = word == "--prefix" || word == "--owner";
    if (valued && i + 1 >= argc) {
      return false;
    }
    if (word == "--json") {
      arguments->json = true;
    } else if (valued) {
      (word == "--prefix" ? arguments->prefix : arguments->owner) = argv[++i];
    } else if (word.size() > 1 && word[0] == '-') {
      return false;
    } else {
      words.push_back(word);
    }
  }
  const bool wantsPool = !words.empty() && words[0] != "list";
  if (words.size() != (wantsPool ? 2U : 1U)) {
    return false;
  }
  arguments->command = words[0];
  arguments->pool = wantsPool ? words[1] : "";
  return arguments->owner.empty() || arguments->command == "blocks";
}

void Print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

int Fail(const std::string& message) {
  std::fprintf(stderr, "nuvpool: %s\n", message.c_str());
  return kFailed;
}

// A pool file cut short by another process while it is mapped here faults on the lost pages.
void OnBusError(int /*signal*/) {
  const char message[] = "nuvpool: the pool file shrank while it was being read\n";
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, message, sizeof message - 1);
  _exit(kFailed);
}

int List(const Arguments& arguments) {
  std::vector<ListedPool> pools;
  for (const std::string& name : FilesWithPrefix(arguments.prefix)) {
    const std::string path = kPoolDirectory + name;
    MappedFile file;
    std::string error;
    PoolImage image(nullptr, 0);
    if (!file.Open(path, &error) || !(image = PoolImage(file.Bytes(), file.Size())).Open(&error)) {
      continue;
    }
    pools.push_back({name.substr(arguments.prefix.size()), path, static_cast<uint32_t>(file.Size()),
                     image.Base(), image.Length(), image.Order(),
                     FlockHolders(file.Device(), file.Inode())});
  }
  Print(arguments.json ? ListJson(arguments.prefix, pools) : ListText(arguments.prefix, pools));
  return kSound;
}

int Inspect(const Arguments& arguments) {
  const std::string path = PoolPath(arguments.pool, arguments.prefix);
  int owner = -1;
  if (!arguments.owner.empty() && (owner = ParseOwner(arguments.owner)) < 0) {
    return Fail("unknown owner \"" + arguments.owner + "\"");
  }
  MappedFile file;
  std::string error;
  if (!file.Open(path, &error)) {
    return Fail(error);
  }
  PoolImage image(file.Bytes(), file.Size());
  if (!image.Open(&error)) {
    return Fail(path + ": " + error);
  }
  const PoolModel model = ReadPool(image);
  const bool json = arguments.json;
  if (arguments.command == "show") {
    const Processes processes = LookAtProcesses(model, file.Device(), file.Inode());
    Print(json ? ShowJson(path, model, processes) : ShowText(path, model, processes));
    return kSound;
  }
  if (arguments.command == "check") {
    Print(json ? CheckJson(path, model) : CheckText(path, model));
    return model.findings.empty() ? kSound : kUnsound;
  }
  Print(json ? BlocksJson(path, model, owner) : BlocksText(path, model, owner));
  return kSound;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments arguments;
  const bool known = ParseArguments(argc, argv, &arguments);
  const std::string& command = arguments.command;
  if (!known ||
      (command != "list" && command != "show" && command != "check" && command != "blocks")) {
    std::fputs(kUsage, stderr);
    return kFailed;
  }
  std::signal(SIGBUS, OnBusError);
  return command == "list" ? List(arguments) : Inspect(arguments);
}
