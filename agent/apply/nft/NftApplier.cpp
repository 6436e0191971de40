#include "agent/apply/nft/NftApplier.h"

#include <chrono>

#include "agent/apply/nft/NftTables.h"
#include "platform/dravo/NamespaceExec.h"
#include "platform/kiv/Trace.h"

namespace Agent::Nft {

namespace {

// A failed line's status, as system() gives for an exit status of 1.
constexpr int kFailed = 256;

const Kiv::TraceHandle& agentTrace() {
  static const Kiv::TraceHandle* h = new Kiv::TraceHandle("AclAgent");
  return *h;
}

#define NFT_TRACE(level, expr) \
  KIV_TRACE_AT(agentTrace(), level, "agent/apply/nft/NftApplier", __func__, expr)

std::string prefixOf(const std::string& ns) {
  return Dravo::namespaceExecPrefix(Dravo::NamespaceName(ns)).stdString();
}

}  // namespace

NftApplier::NftApplier(ApplyStats& stats, KnownAbsent& absent, std::size_t chunk, Post post)
    : stats_(stats), absent_(absent), chunk_(chunk ? chunk : 1), nextTurn_(std::move(post)) {}

int NftApplier::lineIs(const std::string& line, FailureReport report) {
  if (report) {
    // Read when applied: the plug-in's slice only queues.
    pending_.push_back({line, std::nullopt, std::move(report)});
    return 0;
  }
  doApplyAll();
  std::vector<Entry> now;
  now.push_back({line, std::nullopt, nullptr});
  doApply(now);
  return now.front().status;
}

void NftApplier::doApplyPending() {
  doApplyChunk(chunk_);
  if (!pending_.empty()) nextTurn_.ask();
}

void NftApplier::doApplyAll() {
  while (!pending_.empty()) doApplyChunk(pending_.size());
}

void NftApplier::doApplyChunk(std::size_t count) {
  // Taken first: a report may reach back into the plug-in, which may queue
  // more lines; they wait behind the rest.
  std::vector<Entry> chunk;
  for (; count > 0 && !pending_.empty(); --count) {
    chunk.push_back(std::move(pending_.front()));
    pending_.pop_front();
  }
  doApply(chunk);
}

void NftApplier::doApply(std::vector<Entry>& chunk) {
  // One transaction per namespace, namespaces in the order of their first line.
  std::vector<std::string> order;
  std::map<std::string, std::vector<Entry*>> byNs;
  for (Entry& e : chunk) {
    e.change = changeOf(e.line);
    const std::string ns =
        e.change ? e.change->ns : Dravo::namespacedCommandOf(e.line).ns.stringValue().stdString();
    auto [it, fresh] = byNs.try_emplace(ns);
    if (fresh) order.push_back(ns);
    it->second.push_back(&e);
  }
  for (const std::string& ns : order) doApplyNamespace(ns, byNs[ns]);
  // Outcomes in line order, as the lines were taken.
  for (Entry& e : chunk) {
    if (e.status != 0 && absent_.take(e.line)) e.status = 0;
    stats_.ranIs(e.line, e.status);
    if (e.status != 0 && e.report) e.report();
  }
}

void NftApplier::doApplyNamespace(const std::string& ns, std::vector<Entry*>& entries) {
  const auto start = std::chrono::steady_clock::now();
  std::string why;
  Context* ctx = context(ns, why);
  if (!ctx) {
    for (Entry* e : entries) e->status = kFailed;
    NFT_TRACE(5, "Namespace " << ns << ": " << why << "; " << entries.size() << " lines failed");
    return;
  }
  doApplyRange(*ctx, entries, 0, entries.size());
  const double ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  NFT_TRACE(5,
            "Applied " << entries.size() << " lines on namespace " << ns << " in " << ms << " ms");
}

Context* NftApplier::context(const std::string& ns, std::string& why) {
  auto it = contexts_.find(ns);
  if (it != contexts_.end() && !it->second->current()) {
    contexts_.erase(it);
    it = contexts_.end();
  }
  if (it == contexts_.end()) {
    std::unique_ptr<Context> c = Context::open(ns, why);
    if (!c) return nullptr;
    it = contexts_.emplace(ns, std::move(c)).first;
  }
  return it->second.get();
}

void NftApplier::doApplyRange(Context& ctx, std::vector<Entry*>& es, std::size_t b, std::size_t e) {
  while (b < e) {
    const bool direct = !textOnly_ && ctx.netlink();
    const Plan p = plan(ctx, es, b, e, direct);
    const int status = direct ? doTables(ctx, p) : doTransaction(ctx, p.script);
    if (status == 0 && !p.steps.empty()) {
      doSteps(ctx, p.steps);
    } else if (status != 0 && p.end - b == 1) {
      es[b]->status = kFailed;
    } else if (status != 0) {
      // Nothing of it took effect: each half again, in order.
      const std::size_t mid = b + (p.end - b) / 2;
      doApplyRange(ctx, es, b, mid);
      doApplyRange(ctx, es, mid, p.end);
    }
    b = p.end;
  }
}

NftApplier::Plan NftApplier::plan(Context& ctx, std::vector<Entry*>& es, std::size_t b,
                                  std::size_t e, bool direct) {
  Plan p{e, Script(), {}, std::nullopt};
  Script& s = p.script;
  std::optional<ArpListing> listed;
  std::vector<std::uint64_t> deleted;                    // handles this script deletes
  std::map<std::string, std::deque<std::size_t>> added;  // ARP adds of this script, by key
  for (std::size_t i = b; i < e; ++i) {
    Entry& en = *es[i];
    en.status = 0;
    if (!en.change) {
      en.status = kFailed;
      continue;
    }
    const Change& c = *en.change;
    if (c.op == Op::flush) {
      p.end = i > b ? i : i + 1;
      if (i == b) s.flushIs(c.family);
      if (i == b) p.flush = c.family;
      return p;
    }
    if (direct) s.touch(c.family);
    if (c.family != Family::arp) {
      if (direct)
        p.steps.push_back({&en});
      else
        s.elementIs(c);
      continue;
    }
    const std::string key = arpKey(c);
    if (c.op == Op::add) {
      if (direct) p.steps.push_back({&en});
      added[key].push_back(direct ? p.steps.size() - 1 : s.arpRuleIs(c));
      continue;
    }
    if (!listed) listed = arpRulesIn(ctx, direct);
    if (listed->byComment && !listed->handles.count(key) && added[key].empty()) {
      // A rule without our comment (added by hand, say) is found by its expressions.
      listed = arpRulesIn(ctx, false);
      for (std::uint64_t h : deleted)
        std::erase_if(listed->handles, [h](auto& kv) { return kv.second == h; });
    }
    auto it = listed->handles.find(key);
    if (it != listed->handles.end()) {
      if (direct)
        p.steps.push_back({&en, it->second});
      else
        s.arpRuleDel(it->second);
      deleted.push_back(it->second);
      listed->handles.erase(it);
    } else if (!added[key].empty()) {
      // The first rule of these four values is one this script adds: both go.
      if (direct)
        p.steps[added[key].front()].cancelled = true;
      else
        s.arpRuleCancel(added[key].front());
      added[key].pop_front();
    } else {
      en.status = kFailed;  // no such rule
    }
  }
  return p;
}

NftApplier::ArpListing NftApplier::arpRulesIn(Context& ctx, bool byComment) {
  ArpListing out;
  std::optional<std::vector<std::pair<std::string, std::uint64_t>>> rules;
  if (byComment) rules = ctx.netlink()->arpRules();
  out.byComment = rules.has_value();
  if (rules) {
    for (const auto& [key, handle] : *rules) out.handles.emplace(key, handle);
    return out;
  }
  const std::optional<std::string> json = ctx.listJson(std::string("list table arp ") + kTable);
  for (const ListedArpRule& r : arpRulesOf(json.value_or(""))) out.handles.emplace(r.key, r.handle);
  return out;
}

int NftApplier::doTransaction(Context& ctx, const Script& script) {
  std::set<Family> ready;
  for (int f : ctx.ready()) ready.insert(Family(f));
  const std::string text = script.text(ready);
  if (text.empty()) return 0;
  const int status = ctx.run(text);
  doneIs(ctx, script.touched(), status == 0);
  if (status != 0) NFT_TRACE(6, "Transaction failed: " << ctx.error());
  return status;
}

void NftApplier::doneIs(Context& ctx, const std::set<Family>& families, bool committed) {
  // In place after a success; after a failure made sure of again.
  for (Family f : families)
    if (committed)
      ctx.ready().insert(int(f));
    else
      ctx.ready().erase(int(f));
  stats_.ranIs(prefixOf(ctx.ns()) + "nft -f -", committed ? 0 : kFailed);
}

int NftApplier::doTables(Context& ctx, const Plan& p) {
  std::set<Family> families = p.script.touched();
  for (Family f : families) {
    if (!p.flush && ctx.ready().count(int(f))) continue;
    std::string why;
    const NetlinkSocket::Outcome out = ctx.netlink()->make(f, p.flush.has_value(), why);
    if (out == NetlinkSocket::Outcome::unknown) {
      NFT_TRACE(6, "Tables not known to be made: " << why);
      Script text;
      if (p.flush)
        text.flushIs(f);
      else
        text.touch(f);
      ctx.ready().erase(int(f));
      if (const int status = doTransaction(ctx, text); status != 0) return status;
      continue;
    }
    const bool done = out == NetlinkSocket::Outcome::committed;
    doneIs(ctx, {f}, done);
    if (!done) {
      NFT_TRACE(6, "Transaction failed: " << why);
      return kFailed;
    }
  }
  return 0;
}

std::optional<std::vector<Change>> NftApplier::tablesOf(const std::string& ns) {
  std::string why;
  Context* ctx = context(ns, why);
  if (!ctx) return std::nullopt;
  std::vector<Change> out;
  for (Family f : {Family::ip, Family::ip6}) {
    const std::optional<std::string> json =
        ctx->listJson(std::string("list table ") + familyName(f) + " " + kTable);
    for (Change& c : elementsOf(json.value_or(""), f)) out.push_back(std::move(c));
  }
  const std::optional<std::string> json = ctx->listJson(std::string("list table arp ") + kTable);
  for (const ListedArpRule& r : arpRulesOf(json.value_or(""))) out.push_back(r.change);
  for (Change& c : out) c.ns = ns;
  return out;
}

void NftApplier::doSteps(Context& ctx, std::vector<Step> steps) {
  std::erase_if(steps, [](const Step& st) { return st.cancelled; });
  bool madeSure = false;
  while (!steps.empty()) {
    std::vector<NetlinkSocket::Step> sent;
    for (const Step& st : steps) sent.push_back({&*st.entry->change, st.handle});
    std::vector<std::size_t> refused;
    std::string why;
    const NetlinkSocket::Outcome out = ctx.netlink()->run(sent, refused, why);
    doneIs(ctx, {}, out == NetlinkSocket::Outcome::committed);
    if (out == NetlinkSocket::Outcome::committed) return;
    NFT_TRACE(6, "Batch of " << sent.size() << " changes not applied: " << why);
    if (out == NetlinkSocket::Outcome::unknown) {
      // Nothing is known of it: the same lines through libnftables, halves and all.
      std::vector<Entry*> entries;
      for (const Step& st : steps) entries.push_back(st.entry);
      textOnly_ = true;
      doApplyRange(ctx, entries, 0, entries.size());
      textOnly_ = false;
      return;
    }
    if (refused.size() == steps.size() && !madeSure) {
      // A table someone removed refuses all: the tables are made sure of, once, and all go again.
      madeSure = true;
      Plan ensure{0, Script(), {}, std::nullopt};
      for (const Step& st : steps) ensure.script.touch(st.entry->change->family);
      ctx.ready().clear();
      if (doTables(ctx, ensure) == 0) continue;
    }
    std::vector<Step> rest;
    for (std::size_t i = 0, r = 0; i < steps.size(); ++i)
      if (r < refused.size() && refused[r] == i) {
        steps[i].entry->status = kFailed;
        ++r;
      } else {
        rest.push_back(steps[i]);
      }
    steps.swap(rest);
  }
}

}  // namespace Agent::Nft
