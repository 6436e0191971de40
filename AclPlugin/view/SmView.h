// The plug-in's read-only view for the host (platform/acl/PluginView.h):
// reads the state machine's inputs, records and backlog, asks the state
// machine's own predicates, and makes and reads rule keys with the plug-in's
// own line builders and listing parser (firewall/RuleListing.h). It decides
// nothing itself and runs no command unless asked to repair.
//
// Repairs go through the backlog (pairQueueIs): the usual decision removes
// and re-adds the pair, with its usual traces and logs. The one exception:
// an arptables rule missing under an unchanged subnet record. The backlog's
// decision leaves such a record alone, so ruleIs() adds the rule again with
// the plug-in's own add operation (a failure is logged as any failed add).
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
  Acl::Expected expected() const override;
  std::vector<std::string> tools() const override;
  std::vector<std::string> listingArgv(const std::string& tool) const override;
  std::vector<Acl::ListedRule> listedRules(const std::string& tool,
                                           const std::string& listing) const override;
  bool pairQueueIs(const Acl::ExpectedPair& pair) override;
  bool ruleIs(const Acl::ExpectedRule& rule) override;

 private:
  Kiv::Ptr<VirtualIpArpTablesSm> sm_;
};

}  // namespace Routing::Fhrp
