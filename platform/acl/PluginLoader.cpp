#include "platform/acl/PluginLoader.h"

#include "platform/mirel/EntityManager.h"

namespace Plugin::Impl {

namespace {
std::vector<LoaderImpl::Registration>& registry() {
  static auto* r = new std::vector<LoaderImpl::Registration>();
  return *r;
}
}  // namespace

void LoaderImpl::registerPlugin(const std::string& loaderName, const std::string& pluginName,
                                const std::string& library, const std::string& description,
                                const void* initCaller) {
  registry().push_back({loaderName, pluginName, library, description, initCaller});
}

void LoaderImpl::unregisterPlugin(const void* initCaller) {
  std::erase_if(registry(),
                [initCaller](const Registration& r) { return r.initCaller == initCaller; });
}

const std::vector<LoaderImpl::Registration>& LoaderImpl::registrations() {
  return registry();
}

}  // namespace Plugin::Impl

namespace Acl {

PluginContext::PluginContext(Kiv::Ptr<Mirel::EntityManager> em, Kiv::Ptr<CommandApplier> applier)
    : em_(std::move(em)), applier_(std::move(applier)) {}
PluginContext::~PluginContext() = default;

PluginLoader& DefaultPluginLoader() {
  // Never destroyed: plug-ins unload from their own static destructors,
  // possibly after this library's.
  static auto* loader = new PluginLoader("Acl::DefaultPluginLoader");
  return *loader;
}

void PluginBaseInitCaller::init(PluginContext* context) {
  plugin_->init(context);
}

PluginBase::~PluginBase() {
  DefaultPluginLoader().initCallerDel(&initCaller_);
  Plugin::Impl::LoaderImpl::unregisterPlugin(&initCaller_);
}

}  // namespace Acl
