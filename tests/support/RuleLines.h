// The firewall command lines a test expects, written out from their parts.
#pragma once

#include <string>
#include <vector>

// The ACCEPT and DROP mangle lines of one virtual IP on one device, as added
// or as dropped. `prefix` is "" or "ip netns exec <ns> ".
inline std::vector<std::string> mangleLines(const std::string& prefix, bool add,
                                            const std::string& ip, const std::string& dev) {
  const bool v6 = ip.find(':') != std::string::npos;
  const std::string head = prefix + (v6 ? "ip6tables" : "iptables") + " -t mangle " +
                           (add ? "-A" : "-D") + " PREROUTING -p ";
  const std::string match = " -i " + dev + " -m comment --comment \"KESTEL ADDED\" -j ";
  const std::string tail = add ? "" : " 2>/dev/null";
  return {head + (v6 ? "ipv6-icmp" : "icmp") + " -d " + ip + match + "ACCEPT" + tail,
          head + "all -d " + ip + match + "DROP" + tail};
}

inline std::string arpLine(const std::string& prefix, bool add, const std::string& subnet,
                           const std::string& dev, const std::string& mac, const std::string& src) {
  return prefix + "arptables " + (add ? "-A" : "-D") + " OUT -d " + subnet + " -o " + dev +
         " -a 6 --arpop Request -j mangle --mangle-hw-s " + mac + " --mangle-ip-s " + src +
         (add ? "" : " 2>/dev/null");
}

inline std::vector<std::string> concat(std::vector<std::string> a,
                                       const std::vector<std::string>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
