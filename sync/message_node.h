/// \file A queued message: the seven words and the next node (32 bytes, user "nuv").
#ifndef NUV_SYNC_MESSAGE_NODE_H
#define NUV_SYNC_MESSAGE_NODE_H

#include <nuv/messenger.h>

#include <cstddef>

struct NuvMessageNode {
  NuvMessage message;
  NuvMessageNode* next;
};
static_assert(sizeof(NuvMessage) == 28, "a message is seven words");
static_assert(sizeof(NuvMessageNode) == 32, "a node is the message and a link");
static_assert(offsetof(NuvMessageNode, next) == 28, "node: next");

#endif  // NUV_SYNC_MESSAGE_NODE_H
