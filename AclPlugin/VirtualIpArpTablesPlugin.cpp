#include "AclPlugin/VirtualIpArpTablesPlugin.h"

#include "AclPlugin/ModuleInit.h"
#include "AclPlugin/diagnostics/Trace.h"
#include "AclPlugin/firewall/CommandRunner.h"
#include "AclPlugin/view/SmView.h"

namespace Routing::Fhrp {

namespace {
__attribute__((init_priority(FHRP_INIT_LOADER))) VirtualIpArpTablesPluginLoader loader;

Kiv::String8 mountPath(const VirtualIpArpTablesPlugin::Mount& m) {
  return m.cellPath ? Cell::path(m.path, 0) : Kiv::String8(m.path);
}
}  // namespace

VirtualIpArpTablesPluginLoader& virtualIpArpTablesPluginLoader() {
  return loader;
}

const VirtualIpArpTablesPlugin::Mount VirtualIpArpTablesPlugin::mounts[5] = {
    {"routing/fhrp/virtualIpStatus", "Routing::Fhrp::VirtualIpStatus", false},
    {"routing6/fhrp/virtualIpStatus", "Routing::Fhrp::VirtualIp6Status", false},
    {"routing/fhrp/vrMacStatus", "Routing::Fhrp::VirtualRouterMacStatus", false},
    {"interface/status/all", "Interface::AllIntfStatusDir", false},
    {"ip/vrf/status/local", "Ip::AllVrfStatusLocal", true},
};

VirtualIpArpTablesPluginLoader::VirtualIpArpTablesPluginLoader() {
  Acl::PluginLoader& defaultLoader = Acl::DefaultPluginLoader();
  defaultLoader.initCallerIs(std::make_unique<Acl::PluginLoader::LoaderInitCallerWithContext>(
      &defaultLoader, initCaller()));
  Plugin::Impl::LoaderImpl::registerPlugin(defaultLoader.name(), registeredName, "", "",
                                           initCaller());
  plugin_ = nullptr;
}

void VirtualIpArpTablesPluginLoader::init(Acl::PluginContext* context) {
  // The two pieces run together, as the trace has always read.
  FHRP_TRACE(0,
             "virtual void Routing::Fhrp::VirtualIpArpTablesPluginLoader::init("
             "Acl::PluginContext*)"
                 << "Fhrp Acl Plugin called");
  plugin_ = virtualIpArpTablesPluginFactory("VirtualIpArpTablesPlugin");
  plugin_->init(Kiv::Ptr<Acl::PluginContext>(context));
}

Kiv::Ptr<VirtualIpArpTablesPlugin> virtualIpArpTablesPluginFactory(Kiv::Name name) {
  return Kiv::validPtr(Kiv::Ptr<VirtualIpArpTablesPlugin>(new VirtualIpArpTablesPlugin(name)));
}

Kiv::Ptr<VirtualIpArpTablesSm> virtualIpArpTablesSmFactory(
    const Kiv::Ptr<const VirtualIpStatus>& vip, const Kiv::Ptr<const VirtualIp6Status>& vip6,
    const Kiv::Ptr<const VirtualRouterMacStatus>& vrMac,
    const Kiv::Ptr<const Interface::AllIntfStatusDir>& allIntf,
    const Kiv::Ptr<const Ip::AllVrfStatusLocal>& allVrf) {
  return Kiv::validPtr(
      Kiv::Ptr<VirtualIpArpTablesSm>(new VirtualIpArpTablesSm(vip, vip6, vrMac, allIntf, allVrf)));
}

VirtualIpArpTablesPlugin::VirtualIpArpTablesPlugin(Kiv::Name name)
    : Mirel::Mounter(std::move(name)) {}

VirtualIpArpTablesPlugin::~VirtualIpArpTablesPlugin() {
  virtualIpArpTablesSmDel();
  context_ = nullptr;
  // Notifiees hold references to the plug-in, so none can be left here.
}

Kiv::String8 VirtualIpArpTablesPlugin::attributeString(Kiv::AttrId id) const {
  switch (id) {
    case virtualIpArpTablesSmAttrId:
      return "virtualIpArpTablesSm";
    case contextAttrId:
      return "context";
    default:
      return "unknown";
  }
}

template <class Callback>
void VirtualIpArpTablesPlugin::notifyAll(Kiv::AttrId id, Callback cb) {
  notify<NotifieeConst>(id, cb);
}

void VirtualIpArpTablesPlugin::init(const Kiv::Ptr<Acl::PluginContext>& context) {
  FHRP_TRACE(0, "init");
  contextIs(context);
  commandApplierIs(Kiv::validPtr(context)->commandApplier());
  Kiv::Ptr<Mirel::MountGroup> group =
      Kiv::validPtr(context)->entityManager()->getMountGroup(Kiv::Ptr<Mirel::Mounter>(this));
  for (const Mount& m : mounts) group->doMount(mountPath(m), m.typeName, "r");
  group->doClose(false, "", 0.0);
}

void VirtualIpArpTablesPlugin::contextIs(const Kiv::Ptr<Acl::PluginContext>& context) {
  if (context == context_) return;
  context_ = context;
  notifyAll(contextAttrId, [](NotifieeConst& n) { n.onContext(); });
}

void VirtualIpArpTablesPlugin::doMountsComplete(Mirel::MountStatus,
                                                const Kiv::Ptr<Mirel::EntityManager>& em) {
  FHRP_TRACE(0, "doMountsComplete");
  virtualIpArpTablesSmIs(em->getEntityAs<VirtualIpStatus>(mountPath(mounts[0])),
                         em->getEntityAs<VirtualIp6Status>(mountPath(mounts[1])),
                         em->getEntityAs<VirtualRouterMacStatus>(mountPath(mounts[2])),
                         em->getEntityAs<Interface::AllIntfStatusDir>(mountPath(mounts[3])),
                         em->getEntityAs<Ip::AllVrfStatusLocal>(mountPath(mounts[4])));
}

Kiv::Ptr<VirtualIpArpTablesSm> VirtualIpArpTablesPlugin::newVirtualIpArpTablesSm(
    const Kiv::Ptr<const VirtualIpStatus>& vip, const Kiv::Ptr<const VirtualIp6Status>& vip6,
    const Kiv::Ptr<const VirtualRouterMacStatus>& vrMac,
    const Kiv::Ptr<const Interface::AllIntfStatusDir>& allIntf,
    const Kiv::Ptr<const Ip::AllVrfStatusLocal>& allVrf) {
  Kiv::Ptr<VirtualIpArpTablesSm> sm =
      virtualIpArpTablesSmFactory(vip, vip6, vrMac, allIntf, allVrf);
  sm->hasNotificationActiveIs(true);
  return sm;
}

Kiv::Ptr<VirtualIpArpTablesSm> VirtualIpArpTablesPlugin::virtualIpArpTablesSmIs(
    const Kiv::Ptr<const VirtualIpStatus>& vip, const Kiv::Ptr<const VirtualIp6Status>& vip6,
    const Kiv::Ptr<const VirtualRouterMacStatus>& vrMac,
    const Kiv::Ptr<const Interface::AllIntfStatusDir>& allIntf,
    const Kiv::Ptr<const Ip::AllVrfStatusLocal>& allVrf) {
  if (sm_ && sm_->virtualIpStatus() == vip && sm_->virtualIp6Status() == vip6 &&
      sm_->virtualRouterMacStatus() == vrMac && sm_->allIntfStatusDir() == allIntf &&
      sm_->allVrfStatusLocal() == allVrf)
    return sm_;
  // The old one is only released here; its notifications stay as they were.
  sm_ = newVirtualIpArpTablesSm(vip, vip6, vrMac, allIntf, allVrf);
  // The host's read-only view follows the state machine in force.
  if (context_) context_->pluginViewIs(new SmView(sm_));
  notifyAll(virtualIpArpTablesSmAttrId, [](NotifieeConst& n) { n.onVirtualIpArpTablesSm(); });
  sm_->hasNotificationActiveIs(true);
  return Kiv::validPtr(sm_);
}

Kiv::Ptr<VirtualIpArpTablesSm> VirtualIpArpTablesPlugin::virtualIpArpTablesSmDel() {
  if (!sm_) return nullptr;
  Kiv::Ptr<VirtualIpArpTablesSm> old = std::move(sm_);
  sm_ = nullptr;
  if (context_) context_->pluginViewIs(nullptr);
  notifyAll(virtualIpArpTablesSmAttrId, [](NotifieeConst& n) { n.onVirtualIpArpTablesSm(); });
  old->hasNotificationActiveIs(false);
  return old;
}

}  // namespace Routing::Fhrp
