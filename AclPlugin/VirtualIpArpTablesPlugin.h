// The plug-in's entry: the loader the host finds at load time, and the
// plug-in entity that mounts the five inputs and owns the state machine.
//
// Road to a running state machine: loading the shared object builds the one
// VirtualIpArpTablesPluginLoader, which registers with the host's default
// loader; the host's init creates the plug-in, which requests its read-only
// mounts and returns; when the mounts complete, the plug-in creates (or keeps,
// when all five inputs are the same objects) the state machine and turns its
// notifications on. All on the agent's event-loop thread.
#pragma once

#include "AclPlugin/sm/VirtualIpArpTablesSm.h"
#include "platform/acl/PluginLoader.h"
#include "platform/mirel/EntityManager.h"

namespace Routing::Fhrp {

class VirtualIpArpTablesPlugin : public Mirel::Mounter {
 public:
  struct Mount {
    const char* path;
    const char* typeName;
    bool cellPath;  // built with Cell::path(path, 0), for mounting and lookup
  };
  // The five inputs, in mount order; all read-only.
  static const Mount mounts[5];

  explicit VirtualIpArpTablesPlugin(Kiv::Name name);
  ~VirtualIpArpTablesPlugin() override;
  const char* fwkTypeName() const override { return "Routing::Fhrp::VirtualIpArpTablesPlugin"; }
  Kiv::String8 attributeString(Kiv::AttrId id) const override;

  const Kiv::Ptr<VirtualIpArpTablesSm>& virtualIpArpTablesSm() const { return sm_; }
  const Kiv::Ptr<Acl::PluginContext>& context() const { return context_; }

  class NotifieeConst : public Kiv::NotifieeConstOf<VirtualIpArpTablesPlugin> {
   public:
    virtual void onVirtualIpArpTablesSm() {}
    virtual void onContext() {}
  };

  // Records the context and requests the mounts; returns at once.
  void init(const Kiv::Ptr<Acl::PluginContext>& context);
  void contextIs(const Kiv::Ptr<Acl::PluginContext>& context);
  // The status is deliberately not examined: an input that failed to mount is null.
  void doMountsComplete(Mirel::MountStatus status,
                        const Kiv::Ptr<Mirel::EntityManager>& em) override;
  // Keeps the stored state machine when its five inputs are these objects;
  // otherwise makes a new one and notifies.
  Kiv::Ptr<VirtualIpArpTablesSm> virtualIpArpTablesSmIs(
      const Kiv::Ptr<const VirtualIpStatus>& vip, const Kiv::Ptr<const VirtualIp6Status>& vip6,
      const Kiv::Ptr<const VirtualRouterMacStatus>& vrMac,
      const Kiv::Ptr<const Interface::AllIntfStatusDir>& allIntf,
      const Kiv::Ptr<const Ip::AllVrfStatusLocal>& allVrf);
  // Constructs a state machine and turns its notifications on; does not store it.
  Kiv::Ptr<VirtualIpArpTablesSm> newVirtualIpArpTablesSm(
      const Kiv::Ptr<const VirtualIpStatus>& vip, const Kiv::Ptr<const VirtualIp6Status>& vip6,
      const Kiv::Ptr<const VirtualRouterMacStatus>& vrMac,
      const Kiv::Ptr<const Interface::AllIntfStatusDir>& allIntf,
      const Kiv::Ptr<const Ip::AllVrfStatusLocal>& allVrf);
  // Releases the stored state machine after turning its notifications off.
  Kiv::Ptr<VirtualIpArpTablesSm> virtualIpArpTablesSmDel();

  static constexpr Kiv::AttrId virtualIpArpTablesSmAttrId = 258;
  static constexpr Kiv::AttrId contextAttrId = 259;

 private:
  template <class Callback>
  void notifyAll(Kiv::AttrId id, Callback cb);

  Kiv::Ptr<VirtualIpArpTablesSm> sm_;
  Kiv::Ptr<Acl::PluginContext> context_;
};

Kiv::Ptr<VirtualIpArpTablesPlugin> virtualIpArpTablesPluginFactory(Kiv::Name name);
Kiv::Ptr<VirtualIpArpTablesSm> virtualIpArpTablesSmFactory(
    const Kiv::Ptr<const VirtualIpStatus>& vip, const Kiv::Ptr<const VirtualIp6Status>& vip6,
    const Kiv::Ptr<const VirtualRouterMacStatus>& vrMac,
    const Kiv::Ptr<const Interface::AllIntfStatusDir>& allIntf,
    const Kiv::Ptr<const Ip::AllVrfStatusLocal>& allVrf);

// One per loaded shared object, built at load time.
class VirtualIpArpTablesPluginLoader : public Acl::PluginBase {
 public:
  static constexpr const char* registeredName = "VirtualIpArpTablesPluginLoader";
  VirtualIpArpTablesPluginLoader();
  void init(Acl::PluginContext* context) override;
  const Kiv::Ptr<VirtualIpArpTablesPlugin>& plugin() const { return plugin_; }

 private:
  Kiv::Ptr<VirtualIpArpTablesPlugin> plugin_;
};

// The loader of this shared object.
VirtualIpArpTablesPluginLoader& virtualIpArpTablesPluginLoader();

}  // namespace Routing::Fhrp
