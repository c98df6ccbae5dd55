// Registration of plugins: a library's static plugin instance registers with the agent's loader while its
// static initialisers run; the loader later calls its init with the agent's context.
#pragma once

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "Kiv.h"

namespace Plugin {

namespace Impl {

class InitCallerNode {
 public:
  virtual ~InitCallerNode() = default;
  virtual bool belongsTo(const void* instance) const = 0;
};

// What is known of a registered plugin.
struct Registration {
  std::string loaderName;
  std::string pluginName;
  std::string loaderType;
  std::string group;
  std::string options;
  InitCallerNode* initCaller = nullptr;
};

// The part of a loader that does not depend on its context.
class LoaderImpl {
 public:
  // Throws Kiv::TypeError when a plugin of this name is registered.
  static void registerPlugin(std::string_view loaderName, std::string_view pluginName,
                             std::string_view loaderType, std::string_view group, std::string_view options,
                             InitCallerNode* initCaller);
  static void unregisterPlugin(const InitCallerNode* initCaller);
  static const std::vector<Registration>& registrations();
};

}  // namespace Impl

// Holds the init callers of the plugins for one kind of context, the newest first.
template <class Context>
class Loader {
 public:
  // Calls the init of one plugin instance.
  class InitCaller {
   public:
    virtual ~InitCaller() = default;
    virtual void callInit(Context* context) = 0;
  };
  // A node of the loader's singly linked list.
  class LoaderInitCallerWithContext : public Impl::InitCallerNode {
   public:
    LoaderInitCallerWithContext(Loader* loader, InitCaller* initCaller)
        : loader_(loader), initCaller_(initCaller) {}
    bool belongsTo(const void* instance) const override { return initCaller_ == instance; }
    void callInit(Context* context) { initCaller_->callInit(context); }

   private:
    friend class Loader;
    Loader* loader_;
    InitCaller* initCaller_;
    std::unique_ptr<LoaderInitCallerWithContext> next_;
  };

  Loader(std::string name, std::string type) : name_(std::move(name)), type_(std::move(type)) {}
  const std::string& name() const { return name_; }
  const std::string& type() const { return type_; }

  void push(std::unique_ptr<LoaderInitCallerWithContext> node) {
    node->next_ = std::move(head_);
    head_ = std::move(node);
  }
  // Takes an instance's caller out; called as the instance is destroyed.
  void remove(const InitCaller* initCaller) {
    for (auto* at = &head_; *at; at = &(*at)->next_) {
      if ((*at)->belongsTo(initCaller)) {
        Impl::LoaderImpl::unregisterPlugin(at->get());
        std::erase(called_, at->get());  // a later node may get its address
        *at = std::move((*at)->next_);
        return;
      }
    }
  }
  // Calls the init of every registered plugin that has not been called yet, in the order of registration.
  void initPlugins(Context* context) {
    std::vector<LoaderInitCallerWithContext*> waiting;
    for (auto* node = head_.get(); node != nullptr; node = node->next_.get())
      waiting.insert(waiting.begin(), node);
    for (auto* node : waiting) {
      if (std::find(called_.begin(), called_.end(), node) != called_.end()) continue;
      called_.push_back(node);
      node->callInit(context);
    }
  }
  std::size_t size() const {
    std::size_t count = 0;
    for (auto* node = head_.get(); node != nullptr; node = node->next_.get()) ++count;
    return count;
  }

 private:
  std::string name_;
  std::string type_;
  std::unique_ptr<LoaderInitCallerWithContext> head_;
  std::vector<LoaderInitCallerWithContext*> called_;
};

}  // namespace Plugin

// Base of plugin instances. Its embedded init caller points back at the instance; the loader calls through
// it.
template <class Context>
class PluginBase {
 public:
  class PluginBaseInitCaller : public Plugin::Loader<Context>::InitCaller {
   public:
    explicit PluginBaseInitCaller(PluginBase* instance) : instance_(instance) {}
    void callInit(Context* context) override { instance_->init(context); }

   private:
    PluginBase* instance_;
  };

  explicit PluginBase(Plugin::Loader<Context>& loader) : loader_(loader), initCaller_(this) {}
  PluginBase(const PluginBase&) = delete;
  PluginBase& operator=(const PluginBase&) = delete;
  virtual ~PluginBase() { loader_.remove(&initCaller_); }
  virtual void init(Context* context) = 0;

 protected:
  PluginBaseInitCaller* initCaller() { return &initCaller_; }

 private:
  Plugin::Loader<Context>& loader_;
  PluginBaseInitCaller initCaller_;
};
