/// \file Every public header of the Nuv runtime library.
#ifndef NUV_NUV_H
#define NUV_NUV_H

#include <nuv/array.h>
#include <nuv/assert.h>
#include <nuv/cbase.h>
#include <nuv/configbase.h>
#include <nuv/fatal.h>
#include <nuv/fd_set.h>
#include <nuv/hash_table.h>
#include <nuv/id_set.h>
#include <nuv/list.h>
#include <nuv/lockword.h>
#include <nuv/logger.h>
#include <nuv/mempool.h>
#include <nuv/messenger.h>
#include <nuv/os_mempool.h>
#include <nuv/os_thread.h>
#include <nuv/registry.h>
#include <nuv/seed.h>
#include <nuv/semaphore.h>
#include <nuv/shared_lock.h>
#include <nuv/socket.h>
#include <nuv/status.h>
#include <nuv/string.h>
#include <nuv/table.h>
#include <nuv/task_manager.h>
#include <nuv/thread.h>
#include <nuv/thread_queue.h>
#include <nuv/time.h>
#include <nuv/tracing.h>
#include <nuv/unistring.h>

#endif  // NUV_NUV_H
