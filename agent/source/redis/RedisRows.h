// The state as rows of a Redis database, and the model they make: the very
// StateDocument a JSON document makes, checked by the same per-entry checks
// (EntryChecks.h). Every row is a hash; '|' separates the parts of a key.
//
//   VRF|<vrf>                               namespace, state
//   INTERFACE|<intfId>                      device
//   VIRTUAL_ROUTER_MAC|GLOBAL               lumo, vrrp
//   VIRTUAL_IP|<vrf>|<a.b.c.d/len>|<intfId> namespace, value (all optional)
//   VIRTUAL_IP6|<vrf>|<ipv6>|<intfId>       namespace, value (all optional)
//   ACL_AGENT_INPUT|READY                   any: the writers' mark that the
//                                           tables are complete
//
// A row without fields is written as the field NULL with value NULL; that
// field is ignored anywhere. A virtual IP row is one (VRF, address, interface)
// pair; `value`, when not empty, makes the pair unwanted (as in a document's
// interface object). Fields default as in the document.
//
// Rows are refused one by one, each with its reason; every other row still
// counts. A row refers to others (a virtual IP to its VRF and interface, an
// IPv4 virtual IP under /32 to the lumo MAC), so the model is made from all
// rows at once, and a refused row may be taken later, when what it lacks
// comes. Rows of one virtual IP must agree on its prefix length and its
// namespace: of rows that disagree, those agreeing with the model in force
// are kept (else those of the first key), the others refused, so that a
// writer changing a mask row by row changes nothing until the old row goes.
// Pure functions; any thread.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "agent/source/StateDocument.h"

namespace Agent::Redis {

inline constexpr std::string_view kReadyKey = "ACL_AGENT_INPUT|READY";

struct Row {
  std::map<std::string, std::string> fields;
  bool hash = true;  // false: the key holds another type
  friend bool operator==(const Row&, const Row&) = default;
};
using Rows = std::map<std::string, Row>;  // key -> row

// Whether the key is in one of the input tables above.
bool isInputKey(std::string_view key);

struct RowModel {
  StateDocument model;
  std::map<std::string, std::string> refused;  // key -> reason (one line)
  std::size_t accepted = 0;                    // rows in the model
  bool ready = false;                          // the ready row is there
};

// `inForce`: the model published last (it settles disagreeing rows).
RowModel modelOfRows(const Rows& rows, const StateDocument& inForce);

// How a key shows in messages: escaped, cut to 128 bytes with "...".
std::string shownKey(std::string_view key);

}  // namespace Agent::Redis
