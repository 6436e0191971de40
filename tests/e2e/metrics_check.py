#!/usr/bin/env python3
"""Helpers of agent_metrics.sh.

  metrics_check.py listen SOCKET OUT
      binds a Unix datagram socket where the journal's would be and writes
      each entry it gets to OUT as one line, fields separated by tabs (the
      agent's fields never hold a newline); LISTENING first.
  metrics_check.py compare METRICS STATUS JOURNAL
      parses METRICS with prometheus_client (a parse error fails), and
      checks its figures against STATUS (`status --json`) and its message
      counts against the JOURNAL entries; exit 1 on any difference.
"""
import json
import socket
import sys
from collections import Counter


def listen(path, out_path):
    s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    s.bind(path)
    with open(out_path, "w") as out:
        out.write("LISTENING\n")
        out.flush()
        while True:
            entry = s.recv(1 << 16).decode(errors="replace").rstrip("\n")
            out.write(entry.replace("\n", "\t") + "\n")
            out.flush()


def compare(metrics_path, status_path, journal_path):
    from prometheus_client.parser import text_string_to_metric_families

    fams = {f.name: f for f in text_string_to_metric_families(open(metrics_path).read())}
    status = json.load(open(status_path))
    journal = open(journal_path).read().splitlines()

    def samples(name, suffix=""):
        return {tuple(sorted(s.labels.items())): s.value
                for s in fams[name].samples if s.name == name + suffix}

    def by(label, name, suffix=""):
        return {dict(k)[label]: v for k, v in samples(name, suffix).items()}

    def one(name, suffix=""):
        return samples(name, suffix)[()]

    rules, pairs = Counter(), Counter()
    for v in status["virtualIps"]:
        family = "ipv6" if ":" in v["prefix"] else "ipv4"
        for i in v["interfaces"]:
            rules[(v["namespace"], family)] += 2 * i["installed"]
            pairs["installed"] += i["installed"]
            pairs["queued"] += i["queued"]
            pairs["failed"] += not (i["installed"] or i["queued"] or i["unwanted"])
    for s in status["subnets"]:
        rules[(s["namespace"], "arp")] += 1
    got_rules = {(dict(k)["namespace"], dict(k)["family"]): v
                 for k, v in samples("acl_agent_rules").items()}
    messages = by("message", "acl_agent_log_messages", "_total")
    checks = [
        ("rules", got_rules, {k: v for k, v in rules.items() if v}),
        ("pairs installed", one("acl_agent_pairs_installed"), pairs["installed"]),
        ("pairs queued", one("acl_agent_pairs_queued"), pairs["queued"]),
        ("pairs failed", one("acl_agent_pairs_failed"), pairs["failed"]),
        ("backlog", one("acl_agent_backlog_size"), status["backlog"]["size"]),
        ("slices cut short", one("acl_agent_slices_cut_short", "_total"), status["overruns"]),
        ("commands run", by("tool", "acl_agent_commands", "_total"),
         {t: c["run"] for t, c in status["commands"].items()}),
        ("commands failed", by("tool", "acl_agent_command_failures", "_total"),
         {t: c["failed"] for t, c in status["commands"].items()}),
    ]
    for name in ("FHRP_IPTABLES_ERROR", "FHRP_IPTABLES_FLUSH_ERROR",
                 "FHRP_ARPTABLES_FLUSH_ERROR", "FHRP_ARPTABLES_ERROR"):
        checks.append((name, messages[name],
                       sum(("ACL_MESSAGE=%s\t" % name) in e + "\t" for e in journal)))
    bad = [c for c in checks if c[1] != c[2]]
    for what, got, want in bad:
        print("%s: metrics say %r, status (or the journal) %r" % (what, got, want))
    # The run must show what it is about: a failed pair and failed messages.
    if pairs["failed"] == 0 or messages["FHRP_IPTABLES_ERROR"] == 0:
        print("no failed pair or no failed rule in the run: %r %r" % (pairs, messages))
        return 1
    print("metrics match status: %r, messages %r" % (dict(pairs), messages))
    return 1 if bad else 0


if __name__ == "__main__":
    if sys.argv[1] == "listen":
        listen(sys.argv[2], sys.argv[3])
    else:
        sys.exit(compare(*sys.argv[2:5]))
