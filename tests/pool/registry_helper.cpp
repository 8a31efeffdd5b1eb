/// \file Second program of the registry tests: attaches pool NAME and finds object ID in it.
#include <nuv/mempool.h>
#include <nuv/registry.h>
#include <nuv/seed.h>
#include <nuv/status.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// The tests' registered objects: a seed and a value. Nothing virtual: the tables of virtual
// functions lie at different addresses in independently started programs.
class SharedValue : public NuvSeed {
 public:
  explicit SharedValue(int value) : NuvSeed(NuvMempool::catalog), valueM(value) {}
  int Value() const { return valueM; }

 private:
  int valueM;
};

// The registry hands back seeds; every object that the tests register is a SharedValue.
const SharedValue* AsValue(const NuvSeed* seed) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): no virtuals to check with
  return static_cast<const SharedValue*>(seed);
}

// What the object holds and whether it names the pool as this program attached it.
void Report(const char* what, int id, const NuvSeed* seed, const NuvMempool* pool) {
  printf("%s %d: value %d, count %u, %s pool\n", what, id, AsValue(seed)->Value(),
         seed->GetRefCount(), seed->GetPool() == pool ? "same" : "other");
}

}  // namespace

int main(int argc, char** argv) {
  const bool remove = argc == 4 && strcmp(argv[3], "remove") == 0;
  if (argc != 3 && !remove) {
    fprintf(stderr, "usage: registry_helper NAME ID [remove]\n");
    return 2;
  }
  NuvMempool* pool = nullptr;
  const unsigned result = NuvMempool::Attach(argv[1], pool);
  if (result != kNuvOk) {
    printf("attach failed 0x%x\n", result);
    return 1;
  }
  const int id = atoi(argv[2]);
  NuvMempoolRegistry* registry = pool->GetRegistry();
  const NuvSeed* seed = remove ? registry->RemoveItem(id) : registry->FindItem(id);
  if (seed == nullptr) {
    printf("no object %d\n", id);
  } else {
    Report(remove ? "removed" : "found", id, seed, pool);
  }
  delete pool;
  return 0;
}
