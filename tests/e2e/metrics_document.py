#!/usr/bin/env python3
"""The metrics tests' document: EXAMPLE plus VRF green (ns-green) with
10.0.66.1, VRF gone (ns-gone, a namespace nobody makes: its flushes fail)
with 10.0.77.1, VRF dying (being deleted: its pair is dropped, "not
installed") with 10.0.88.1, and N more virtual IPs in green, all on Vlan30.

usage: metrics_document.py EXAMPLE N > state.json
"""
import json
import sys

d = json.load(open(sys.argv[1]))
n = int(sys.argv[2])
d["vrfs"]["green"] = {"state": "active", "namespace": "ns-green"}
d["vrfs"]["gone"] = {"state": "active", "namespace": "ns-gone"}
d["vrfs"]["dying"] = {"state": "deleting", "namespace": "ns-dying"}
d["virtualIps"] += [
    {"vrf": "green", "address": "10.0.66.1/32", "interfaces": ["Vlan30"]},
    {"vrf": "gone", "address": "10.0.77.1/32", "interfaces": ["Vlan30"]},
    {"vrf": "dying", "address": "10.0.88.1/32", "interfaces": ["Vlan30"]},
]
d["virtualIps"] += [
    {"vrf": "green", "address": "10.1.%d.%d/32" % (i // 250, 1 + i % 250), "interfaces": ["Vlan30"]}
    for i in range(n)
]
json.dump(d, sys.stdout)
