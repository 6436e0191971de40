// --apply nft: the plug-in's lines become changes of the agent's own
// nftables tables (NftTables.h), applied in process, one netlink socket
// and one libnftables context per namespace (NftContext.h).
//
// Lines with a report are taken for later. doApplyPending applies them in
// order, at most `chunk` lines per call, as one transaction per namespace,
// over netlink (NftNetlink.h): the family tables made sure of first (each
// a batch of its own), then every element and ARP rule change of the chunk
// as one batch, which names the changes the kernel refuses, so the rest is
// sent again without them and exactly the lines that fail are reported,
// each once, with the plug-in's own report. When a batch's outcome cannot
// be known, the same lines go through libnftables as text; a failed text
// transaction (nothing of it took effect) is applied again in halves, down
// to single lines. A line of another shape fails without changing
// anything; a namespace that cannot be entered fails all its lines (the
// plug-in's report probes the namespace itself). A failed line registered
// in KnownAbsent is a success.
//
// Chunking. What is left after a call waits for the next one, and the
// applier posts an empty callback to the loop so that the loop is not idle
// and the host's after-callback hook calls again: a big slice is applied
// over several turns, between other events (a status request is answered
// between two chunks), in the order it was taken. "Applied when the turn
// that took it ends" becomes "applied starting then, in order, before
// anything taken later"; the loop is not idle until all of it is applied.
// A line without a report (a start-up flush) runs at once after
// everything taken before it (doApplyAll), and so does the host's drain
// before a plug-in is unloaded.
//
// Semantics per line, against what iptables would do with the same line:
//   add of an element already present   succeeds, still one element (where
//                                        iptables would hold two rules, of
//                                        which one delete leaves one);
//   delete of an absent element or rule  fails, nothing changes;
//   ARP add                              appends a rule; a delete removes the
//                                        first rule of the same four values
//                                        (found by its handle in a listing of
//                                        the agent's arp table, by the comment
//                                        the agent gives its rules, else by
//                                        expressions; one this transaction
//                                        adds is taken back);
//   flush                                the family's own table made empty
//                                        (and made, if it was not there).
// Counts: each line under its tool as it would run, each transaction under
// "nft". Event-loop thread only; never throws towards the plug-in.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/apply/KnownAbsent.h"
#include "agent/apply/NextTurn.h"
#include "agent/apply/Runner.h"
#include "agent/apply/nft/NftContext.h"
#include "agent/apply/nft/NftLine.h"
#include "agent/apply/nft/NftTables.h"
#include "platform/acl/CommandApplier.h"

namespace Agent::Nft {

class NftApplier : public Acl::CommandApplier {
 public:
  // Asks the loop for another turn (the default posts to the loop in force).
  using Post = NextTurn::Post;
  static constexpr std::size_t kChunk = 2000;

  NftApplier(ApplyStats& stats, KnownAbsent& absent, std::size_t chunk = kChunk,
             Post post = nullptr);
  int lineIs(const std::string& line, FailureReport report) override;
  void doApplyPending() override;
  void doApplyAll() override;
  std::size_t pending() const { return pending_.size(); }
  // The listing of a namespace's own tables (verify's read-back); nullopt
  // when the namespace cannot be entered.
  std::optional<std::vector<Change>> tablesOf(const std::string& ns);

 private:
  struct Entry {
    std::string line;
    std::optional<Change> change;
    FailureReport report;
    int status = 0;
  };
  // A change sent over netlink; a cancelled one (an ARP add the same
  // transaction deletes again) is not sent, and succeeds.
  struct Step {
    Entry* entry;
    std::uint64_t handle = 0;  // an ARP delete's rule
    bool cancelled = false;
  };
  struct Plan {
    std::size_t end;              // entries [begin, end) go in this transaction
    Script script;                // with `direct`, only the tables to make sure of
    std::vector<Step> steps;      // with `direct`: the changes
    std::optional<Family> flush;  // a flush, alone
  };

  // The ARP rules by key, in chain order, with their handles: read by
  // their comments over netlink (cheap), or by their expressions.
  struct ArpListing {
    bool byComment = false;
    std::multimap<std::string, std::uint64_t> handles;
  };
  ArpListing arpRulesIn(Context& ctx, bool byComment);

  void doApplyChunk(std::size_t count);
  void doApply(std::vector<Entry>& chunk);
  void doApplyNamespace(const std::string& ns, std::vector<Entry*>& entries);
  void doApplyRange(Context& ctx, std::vector<Entry*>& es, std::size_t b, std::size_t e);
  // With `direct`, the changes are left to doSteps, over netlink.
  Plan plan(Context& ctx, std::vector<Entry*>& es, std::size_t b, std::size_t e, bool direct);
  int doTransaction(Context& ctx, const Script& script);
  // A transaction done: its families known in place or not, counted under "nft".
  void doneIs(Context& ctx, const std::set<Family>& families, bool committed);
  // The tables of a plan over netlink: made sure of, or made empty for a
  // flush; through libnftables when the outcome cannot be known.
  int doTables(Context& ctx, const Plan& p);
  void doSteps(Context& ctx, std::vector<Step> steps);
  Context* context(const std::string& ns, std::string& why);

  ApplyStats& stats_;
  KnownAbsent& absent_;
  std::size_t chunk_;
  NextTurn nextTurn_;
  bool textOnly_ = false;  // elements through libnftables too
  std::deque<Entry> pending_;
  std::map<std::string, std::unique_ptr<Context>> contexts_;
};

}  // namespace Agent::Nft
