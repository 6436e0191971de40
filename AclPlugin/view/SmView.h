// The plug-in's read-only view for the host (platform/acl/PluginView.h):
// reads the state machine's inputs, records and backlog, and repairs only
// through the state machine's own backlog and rule operations. It decides
// nothing itself and runs no command unless asked to repair.
#pragma once

#include "AclPlugin/sm/VirtualIpArpTablesSm.h"
#include "platform/acl/PluginView.h"

namespace Routing::Fhrp {

class SmView : public Acl::PluginView {
 public:
  explicit SmView(Kiv::Ptr<VirtualIpArpTablesSm> sm) : sm_(std::move(sm)) {}

  std::vector<Acl::VipView> virtualIps() const override;
  std::vector<Acl::SubnetView> subnets() const override;
  Acl::BacklogView backlog() const override;
  std::vector<Acl::ExpectedPair> expectedPairs() const override;
  std::vector<Acl::RuleView> expectedArpRules() const override;
  // As IptablesRules.h writes it.
  std::string ruleComment() const override { return "KESTEL ADDED"; }
  bool pairQueueIs(const Acl::ExpectedPair& pair) override;
  void arpRuleIs(const Acl::RuleView& rule) override;
  int ruleDel(const Acl::RuleView& rule) override;

 private:
  Kiv::Ptr<VirtualIpArpTablesSm> sm_;
};

}  // namespace Routing::Fhrp
