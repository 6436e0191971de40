// The host's plug-in interface.
//
// A Plugin::Loader<Context> keeps an ordered list of init callers; the host
// calls doInit(context) once its state database is ready, and each caller
// initialises one plug-in. Plug-ins register at load time (from static
// constructors of their shared object) and leave at unload.
// Acl::DefaultPluginLoader() is the ACL agent's loader; Acl::PluginBase is the
// base of a plug-in's loader object, whose PluginBaseInitCaller forwards the
// host's init to it.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/acl/CommandApplier.h"
#include "platform/acl/PluginView.h"
#include "platform/kiv/Ptr.h"

namespace Mirel {
class EntityManager;
}

namespace Plugin {

template <class Context>
class Loader {
 public:
  class InitCallerWithContext {
   public:
    virtual ~InitCallerWithContext() = default;
    virtual void init(Context* context) = 0;
  };

  // One entry of the loader's list: the loader and the caller it runs.
  class LoaderInitCallerWithContext {
   public:
    LoaderInitCallerWithContext(Loader* loader, InitCallerWithContext* caller)
        : loader_(loader), caller_(caller) {}
    Loader* loader() const { return loader_; }
    InitCallerWithContext* caller() const { return caller_; }

   private:
    Loader* loader_;
    InitCallerWithContext* caller_;
  };

  explicit Loader(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }

  void initCallerIs(std::unique_ptr<LoaderInitCallerWithContext> c) {
    callers_.push_back(std::move(c));
  }
  // Drops every entry that runs `caller` (at unload).
  void initCallerDel(InitCallerWithContext* caller) {
    std::erase_if(callers_, [caller](const auto& c) { return c->caller() == caller; });
  }
  std::size_t initCallerCount() const { return callers_.size(); }

  // Runs every init caller in registration order.
  void doInit(Context* context) {
    std::vector<InitCallerWithContext*> snapshot;
    for (const auto& c : callers_) snapshot.push_back(c->caller());
    for (InitCallerWithContext* c : snapshot) c->init(context);
  }

 private:
  std::string name_;
  std::vector<std::unique_ptr<LoaderInitCallerWithContext>> callers_;
};

namespace Impl {

// The process-wide record of registered plug-ins.
class LoaderImpl {
 public:
  struct Registration {
    std::string loaderName;
    std::string pluginName;
    std::string library;      // shared object it came from; empty: not recorded
    std::string description;  // free text; empty: none
    const void* initCaller;
  };
  static void registerPlugin(const std::string& loaderName, const std::string& pluginName,
                             const std::string& library, const std::string& description,
                             const void* initCaller);
  static void unregisterPlugin(const void* initCaller);
  static const std::vector<Registration>& registrations();
};

}  // namespace Impl
}  // namespace Plugin

namespace Acl {

// What the host hands each plug-in at init: access to the state database,
// and how to apply packet-filter command lines (null: system() per line).
class PluginContext : public Kiv::PtrInterface {
 public:
  explicit PluginContext(Kiv::Ptr<Mirel::EntityManager> em,
                         Kiv::Ptr<CommandApplier> applier = nullptr);
  ~PluginContext() override;
  const Kiv::Ptr<Mirel::EntityManager>& entityManager() const { return em_; }
  const Kiv::Ptr<CommandApplier>& commandApplier() const { return applier_; }
  // The plug-in's read-only view (null until its state machine exists).
  const Kiv::Ptr<PluginView>& pluginView() const { return view_; }
  void pluginViewIs(Kiv::Ptr<PluginView> view) { view_ = std::move(view); }

 private:
  Kiv::Ptr<Mirel::EntityManager> em_;
  Kiv::Ptr<CommandApplier> applier_;
  Kiv::Ptr<PluginView> view_;
};

using PluginLoader = Plugin::Loader<PluginContext>;

// The ACL agent's loader, named "Acl::DefaultPluginLoader".
PluginLoader& DefaultPluginLoader();

class PluginBase;

class PluginBaseInitCaller : public PluginLoader::InitCallerWithContext {
 public:
  explicit PluginBaseInitCaller(PluginBase* plugin) : plugin_(plugin) {}
  void init(PluginContext* context) override;
  PluginBase* plugin() const { return plugin_; }

 private:
  PluginBase* plugin_;
};

class PluginBase {
 public:
  PluginBase() : initCaller_(this) {}
  // Leaves the default loader and the registry, so an unloaded plug-in is
  // never called.
  virtual ~PluginBase();
  PluginBase(const PluginBase&) = delete;
  PluginBase& operator=(const PluginBase&) = delete;

  virtual void init(PluginContext* context) = 0;
  PluginBaseInitCaller* initCaller() { return &initCaller_; }

 private:
  PluginBaseInitCaller initCaller_;
};

}  // namespace Acl
