// Order in which the plug-in's module-level objects are built when the
// shared object loads (and destroyed, in reverse, when it unloads): trace
// handles, then log handles, then the loader that registers the plug-in.
// Used with __attribute__((init_priority(...))), which orders static objects
// across the plug-in's translation units.
#pragma once

#define FHRP_INIT_TRACE_HANDLES 1001
#define FHRP_INIT_LOG_HANDLES 1002
#define FHRP_INIT_LOADER 1003
