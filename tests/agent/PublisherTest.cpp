#include "agent/source/Publisher.h"
#include "tests/agent/Documents.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using Agent::parseStateDocument;
using Agent::Publisher;
using testing::ElementsAre;
using testing::IsEmpty;

std::string text(const Routing::Fhrp::VrfIpWithMaskPair& k) {
  return k.vrfName().stringValue().stdString() + " " + k.ipWithMask().stringValue().stdString();
}
std::string text(const Routing::Fhrp::VrfIpPair& k) {
  return k.vrfName().stringValue().stdString() + " " + k.ipAddr().stringValue().stdString();
}

// Watches the five inputs the way the plug-in does (one watcher per virtual
// IP, made when onVirtualIp reports it) and logs every notification. After
// each one it checks that every virtual IP's VRF and interfaces are
// published, and logs each breach in `problems`.
class Recorder {
 public:
  explicit Recorder(const Publisher& p) : p_(p) {
    intf_.notifierIs(p.allIntfStatusDir());
    vrf_.notifierIs(p.allVrfStatusLocal());
    mac_.notifierIs(p.virtualRouterMacStatus());
    vip_.notifierIs(p.virtualIpStatus());
    vip6_.notifierIs(p.virtualIp6Status());
  }
  std::vector<std::string> log;
  std::vector<std::string> problems;

 private:
  template <class Base>
  struct Watch : Base {
    explicit Watch(Recorder* r) : r(r) {}
    Recorder* r;
  };
  template <class Entry>
  struct EntryWatch : Watch<typename Entry::NotifieeConst> {
    EntryWatch(Recorder* r, Kiv::Ptr<const Entry> e) : Watch<typename Entry::NotifieeConst>(r) {
      this->notifierIs(e);
    }
    std::string key() const { return text(this->notifier()->key()); }
    void onNetNs() override { this->r->note("onNetNs " + key()); }
    void onIntfIdSet(Dravo::IntfId id) override {
      this->r->note("onIntfIdSet " + key() + " " + id.stringValue().stdString());
    }
    void onIntfIdSetkivImmediate() override { this->r->note("onIntfIdSetkivImmediate"); }
  };
  template <class Status, class Key>
  struct VipWatch : Watch<typename Status::NotifieeConst> {
    using Entry = EntryWatch<typename Status::IntfStatus>;
    using Watch<typename Status::NotifieeConst>::Watch;
    void notifierIs(const Kiv::Ptr<const Status>& s) override {
      Status::NotifieeConst::notifierIs(s);
      for (auto it = s->virtualIpIterator(); it; ++it)
        entries[text(it.key())] = std::make_unique<Entry>(this->r, it.value());
    }
    void onVirtualIp(const Key& key) override {
      if (auto e = this->notifier()->virtualIp(key))
        entries[text(key)] = std::make_unique<Entry>(this->r, e);
      else
        entries.erase(text(key));
      this->r->note("onVirtualIp " + text(key));
    }
    void onVirtualIpkivImmediate() override { this->r->note("onVirtualIpkivImmediate"); }
    std::map<std::string, std::unique_ptr<Entry>> entries;
  };
  struct IntfWatch : Watch<Interface::AllIntfStatusDir::NotifieeConst> {
    using Watch::Watch;
    void onIntfStatus(const Dravo::IntfId& id) override {
      r->note("onIntfStatus " + id.stringValue().stdString());
    }
  };
  struct VrfWatch : Watch<Ip::AllVrfStatusLocal::NotifieeConst> {
    using Watch::Watch;
    void onVrf(const L3::VrfName& n) override { r->note("onVrf " + n.stringValue().stdString()); }
    void onVrfkivImmediate() override { r->note("onVrfkivImmediate"); }
  };
  struct MacWatch : Watch<Routing::Fhrp::VirtualRouterMacStatus::NotifieeConst> {
    using Watch::Watch;
    void onLumoVirtualMac() override { r->note("onLumoVirtualMac"); }
    void onVrrpVirtualMac() override { r->note("onVrrpVirtualMac"); }
  };

  void note(const std::string& line) {
    log.push_back(line);
    auto check = [&](const auto& status) {
      for (auto v = status->virtualIpIterator(); v; ++v) {
        const L3::VrfName vrf = v.key().vrfName();
        if (!vrf.isDefault() && !p_.allVrfStatusLocal()->vrf(vrf))
          problems.push_back(line + ": " + text(v.key()) + " in unpublished VRF");
        for (auto i = v.value()->intfIdSetIterator(); i; ++i)
          if (!p_.allIntfStatusDir()->intfStatus(i.key()))
            problems.push_back(line + ": " + text(v.key()) + " on unpublished " +
                               i.key().stringValue().stdString());
      }
    };
    check(p_.virtualIpStatus());
    check(p_.virtualIp6Status());
  }

  const Publisher& p_;
  IntfWatch intf_{this};
  VrfWatch vrf_{this};
  MacWatch mac_{this};
  VipWatch<Routing::Fhrp::VirtualIpStatus, Routing::Fhrp::VrfIpWithMaskPair> vip_{this};
  VipWatch<Routing::Fhrp::VirtualIp6Status, Routing::Fhrp::VrfIpPair> vip6_{this};
};

const char* const kBase = AgentTest::baseDocument;

// Where the inputs are published, and with what values, is pinned end to end:
// the agent's tests find the plug-in's rules in the document's namespaces.
TEST(PublisherTest, OnlyRealChangesNotify) {
  Publisher p(new Mirel::EntityManager());
  Recorder r(p);
  // Publishes kBase, then kBase with `from` replaced by `to`; returns the
  // notifications of the second publish.
  auto change = [&](const std::string& from, const std::string& to) {
    p.publish(parseStateDocument(kBase));
    std::string s = kBase;
    s.replace(s.find(from), from.size(), to);
    r.log.clear();
    const std::size_t mutations = p.publish(parseStateDocument(s));
    EXPECT_EQ(mutations, r.log.size()) << s;
    return r.log;
  };
  EXPECT_THAT(change("", ""), IsEmpty());
  EXPECT_THAT(change(R"(["Vlan10"])", R"(["Vlan10", "Vlan20"])"),
              ElementsAre("onIntfIdSet default 10.0.0.1/24 Vlan20"));
  EXPECT_THAT(change(R"(["Vlan10"])", R"({"Vlan10": ""})"), IsEmpty());
  EXPECT_THAT(change(R"(["Vlan10"])", R"({"Vlan10": "unwanted"})"),
              ElementsAre("onIntfIdSet default 10.0.0.1/24 Vlan10"));
  EXPECT_THAT(change(R"({"address": "10.0.0.1/24", "interfaces": ["Vlan10"]},)", ""),
              ElementsAre("onVirtualIp default 10.0.0.1/24"));
  EXPECT_THAT(change(R"("namespace": "ns-red"})", R"("namespace": "ns-red", "state": "deleting"})"),
              ElementsAre("onVrf red"));
  EXPECT_THAT(
      change(R"("address": "10.1.0.1/24",)", R"("address": "10.1.0.1/24", "namespace": "x",)"),
      ElementsAre("onNetNs red 10.1.0.1/24"));
  EXPECT_THAT(change("02:1c:73:00:00:99", "02:1c:73:00:00:98"), ElementsAre("onLumoVirtualMac"));
  EXPECT_THAT(change(R"("device": "vlan10")", R"("device": "vlan11")"),
              ElementsAre("onIntfStatus Vlan10"));
  EXPECT_THAT(r.problems, IsEmpty());
}

TEST(PublisherTest, ReloadPublishesWhatVirtualIpsUseFirstAndRemovesItLast) {
  // From red on Vlan20 to blue on the new Vlan30; Vlan20 and red go away.
  std::string next = kBase;
  for (const auto& [from, to] : {std::pair{"red", "blue"},
                                 {"Vlan20", "Vlan30"},
                                 {"vlan20", "vlan30"},
                                 {R"(["Vlan10"])", R"(["Vlan10", "Vlan30"])"}})
    for (std::size_t at; (at = next.find(from)) != std::string::npos;)
      next.replace(at, std::strlen(from), to);
  Publisher p(new Mirel::EntityManager());
  Recorder r(p);
  p.publish(parseStateDocument(kBase));
  // The recorder checks after every notification that nothing a virtual IP
  // uses is missing: added first, removed last, both ways.
  p.publish(parseStateDocument(next));
  p.publish(parseStateDocument(kBase));
  EXPECT_THAT(r.problems, IsEmpty());
}

}  // namespace
