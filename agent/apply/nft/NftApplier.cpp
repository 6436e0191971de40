#include "agent/apply/nft/NftApplier.h"

#include <chrono>

#include "agent/apply/nft/NftTables.h"
#include "platform/dravo/NamespaceExec.h"
#include "platform/kiv/ActivityManager.h"
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
    : stats_(stats), absent_(absent), chunk_(chunk ? chunk : 1), post_(std::move(post)) {
  if (!post_) post_ = [](std::function<void()> cb) { Kiv::activityManager()->post(std::move(cb)); };
}

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
  if (pending_.empty() || posted_) return;
  posted_ = true;
  // The callback itself does nothing: the host's hook after it applies the next chunk.
  post_([this, self = Kiv::Ptr<NftApplier>(this)] { posted_ = false; });
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
    const Plan p = plan(ctx, es, b, e);
    const int status = p.script.empty() ? 0 : doTransaction(ctx, p.script);
    if (status != 0 && p.end - b == 1) {
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
                                  std::size_t e) {
  Script s;
  std::optional<std::multimap<std::string, std::uint64_t>> listed;  // ARP rules by key, in order
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
      if (i > b) return {i, std::move(s)};
      s.flushIs(c.family);
      return {i + 1, std::move(s)};
    }
    if (c.family != Family::arp) {
      s.elementIs(c);
      continue;
    }
    const std::string key = arpKey(c);
    if (c.op == Op::add) {
      added[key].push_back(s.arpRuleIs(c));
      continue;
    }
    if (!listed) {
      listed.emplace();
      const std::optional<std::string> json = ctx.listJson(std::string("list table arp ") + kTable);
      for (const ListedArpRule& r : arpRulesOf(json.value_or(""))) listed->emplace(r.key, r.handle);
    }
    auto it = listed->find(key);
    if (it != listed->end()) {
      s.arpRuleDel(it->second);
      listed->erase(it);
    } else if (!added[key].empty()) {
      // The first rule of these four values is one this script adds: both go.
      s.arpRuleCancel(added[key].front());
      added[key].pop_front();
    } else {
      en.status = kFailed;  // no such rule
    }
  }
  return {e, std::move(s)};
}

int NftApplier::doTransaction(Context& ctx, const Script& script) {
  std::set<Family> ready;
  for (int f : ctx.ready()) ready.insert(Family(f));
  const int status = ctx.run(script.text(ready));
  // In place after a success; after a failure made sure of again.
  for (Family f : script.touched())
    if (status == 0)
      ctx.ready().insert(int(f));
    else
      ctx.ready().erase(int(f));
  stats_.ranIs(prefixOf(ctx.ns()) + "nft -f -", status == 0 ? 0 : kFailed);
  if (status != 0) NFT_TRACE(6, "Transaction failed: " << ctx.error());
  return status;
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

}  // namespace Agent::Nft
