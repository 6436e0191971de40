// The plug-in's trace facility "VirtualIpArpMangleSm" and its statement
// macro. Levels: 0 start-up and failures, 3 backlog and per-pair progress,
// 4 record changes, 5 rule installation and removal, 6 each command line,
// 7 skipped work, 8 handler entry (full signature).
#pragma once

#include "platform/kiv/Trace.h"

namespace Routing::Fhrp {

// Created on first use, once; lives until the plug-in unloads.
const Kiv::TraceHandle& virtualIpArpMangleSmTrace();

}  // namespace Routing::Fhrp

// FHRP_TRACE(level, text << pieces): builds the text only when the level is
// live or coverage is collected; the record names the enclosing function.
#define FHRP_TRACE(level, expr)                                     \
  KIV_TRACE_AT(::Routing::Fhrp::virtualIpArpMangleSmTrace(), level, \
               "AclPlugin/VirtualIpArpTablesPlugin", __func__, expr)

// As FHRP_TRACE, for a step shared by several handlers: the record names the
// handler it runs for.
#define FHRP_TRACE_IN(function, level, expr)                        \
  KIV_TRACE_AT(::Routing::Fhrp::virtualIpArpMangleSmTrace(), level, \
               "AclPlugin/VirtualIpArpTablesPlugin", function, expr)
