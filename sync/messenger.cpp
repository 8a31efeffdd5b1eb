/// \file NuvMessenger: a pool's numbered message queues.
#include <nuv/messenger.h>

NuvMessenger::NuvMessenger() : NuvSeed(NuvMempool::nuv) {}
