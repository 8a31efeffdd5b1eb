/// \file The C interface's process-wide store and iterator, both null at start.
#ifndef NUV_CONFIG_CBASE_STATE_H
#define NUV_CONFIG_CBASE_STATE_H

#include <nuv/configbase.h>

/// The process's store; after CBaseClose it still points at the destroyed store.
extern NuvConfigbase* CBase;
/// The iteration of CBaseIterate and CBaseNext, owned by the C interface.
extern NuvConfigIterator* CBIterator;

#endif  // NUV_CONFIG_CBASE_STATE_H
