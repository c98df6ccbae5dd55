#include "KivType.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>

namespace Kiv {

namespace {

// Registered types by name. A module registers while its library is loaded and leaves when it is unloaded.
std::map<String, const Type*, std::less<>>& registry() {
  static std::map<String, const Type*, std::less<>> types;
  return types;
}

template <class Record>
String names(const std::vector<const Record*>& records) {
  std::vector<std::string_view> all;
  for (const Record* record : records) all.push_back(record->name);
  return all.empty() ? "none" : fmt::format("{}", fmt::join(all, ", "));
}

}  // namespace

bool Type::isA(const Type& other) const {
  for (const Type* type = this; type != nullptr; type = type->base_) {
    if (type == &other) return true;
  }
  return false;
}

std::vector<const Type::Attribute*> Type::attributes() const {
  std::vector<const Attribute*> all =
      base_ != nullptr ? base_->attributes() : std::vector<const Attribute*>();
  for (const Attribute& attribute : attributes_) all.push_back(&attribute);
  return all;
}

std::vector<const Type::Handler*> Type::handlers() const {
  std::vector<const Handler*> all = base_ != nullptr ? base_->handlers() : std::vector<const Handler*>();
  for (const Handler& handler : handlers_) all.push_back(&handler);
  return all;
}

const Type::Attribute* Type::attribute(std::string_view name) const {
  for (const Attribute& attribute : attributes_) {
    if (attribute.name == name) return &attribute;
  }
  return base_ != nullptr ? base_->attribute(name) : nullptr;
}

const Type::Attribute* Type::attribute(AttributeId id) const {
  for (const Attribute& attribute : attributes_) {
    if (attribute.id == id) return &attribute;
  }
  return base_ != nullptr ? base_->attribute(id) : nullptr;
}

const Type::Handler* Type::handler(std::string_view name) const {
  for (const Handler& handler : handlers_) {
    if (handler.name == name) return &handler;
  }
  return base_ != nullptr ? base_->handler(name) : nullptr;
}

Value Type::get(const PtrInterface& object, std::string_view attributeName) const {
  const Attribute* found = attribute(attributeName);
  if (found == nullptr) {
    throw TypeError(
        fmt::format("{} has no attribute \"{}\"; it has: {}", name_, attributeName, names(attributes())));
  }
  return found->get(object);
}

void Type::set(PtrInterface& object, std::string_view attributeName, const Value& value) const {
  const Attribute* found = attribute(attributeName);
  if (found == nullptr) {
    throw TypeError(
        fmt::format("{} has no attribute \"{}\"; it has: {}", name_, attributeName, names(attributes())));
  }
  if (!found->set) throw TypeError(fmt::format("{}.{} is read only", name_, attributeName));
  try {
    found->set(object, value);
  } catch (const ValueError& error) {
    throw ValueError(fmt::format("{}.{}: {}", name_, attributeName, error.what()));
  }
}

Value Type::invoke(PtrInterface& object, std::string_view handlerName,
                   const std::vector<std::pair<String, Value>>& arguments) const {
  const Handler* found = handler(handlerName);
  if (found == nullptr) {
    throw TypeError(
        fmt::format("{} has no handler \"{}\"; it has: {}", name_, handlerName, names(handlers())));
  }
  std::vector<Value> values;
  for (const String& argumentName : found->argumentNames) {
    const auto at = std::find_if(arguments.begin(), arguments.end(),
                                 [&](const auto& argument) { return argument.first == argumentName; });
    if (at == arguments.end()) {
      throw TypeError(fmt::format("{}.{} needs the argument \"{}\"", name_, handlerName, argumentName));
    }
    values.push_back(at->second);
  }
  for (const auto& [given, value] : arguments) {
    if (std::find(found->argumentNames.begin(), found->argumentNames.end(), given) ==
        found->argumentNames.end()) {
      throw TypeError(fmt::format(
          "{}.{} takes no argument \"{}\"; it takes: {}", name_, handlerName, given,
          found->argumentNames.empty() ? "none" : fmt::format("{}", fmt::join(found->argumentNames, ", "))));
    }
  }
  try {
    return found->invoke(object, values);
  } catch (const ValueError& error) {
    throw ValueError(fmt::format("{}.{}: {}", name_, handlerName, error.what()));
  }
}

Ptr<PtrInterface> Type::construct(const std::vector<Value>& arguments) const {
  if (!factory_) throw TypeError(fmt::format("{} cannot be built by name", name_));
  if (arguments.size() != constructorArguments_.size()) {
    throw TypeError(fmt::format("{} is built from {} arguments ({}), not {}", name_,
                                constructorArguments_.size(), fmt::join(constructorArguments_, ", "),
                                arguments.size()));
  }
  return factory_(arguments);
}

Module::Module(String name, std::initializer_list<const Type*> types)
    : name_(std::move(name)), types_(types) {
  kivModuleIs(*this);
}

Module::~Module() {
  kivModuleDel(*this);
}

void kivModuleIs(const Module& module) {
  for (const Type* type : module.types()) {
    if (const Type* known = typeByName(type->name()); known != nullptr && known != type) {
      throw TypeError(fmt::format("module {}: a type {} is registered already", module.name(), type->name()));
    }
  }
  for (const Type* type : module.types()) registry()[type->name()] = type;
}

void kivModuleDel(const Module& module) {
  for (const Type* type : module.types()) {
    const auto at = registry().find(type->name());
    if (at != registry().end() && at->second == type) registry().erase(at);
  }
}

const Type* typeByName(std::string_view name) {
  const auto at = registry().find(name);
  return at == registry().end() ? nullptr : at->second;
}

std::vector<const Type*> registeredTypes() {
  std::vector<const Type*> types;
  for (const auto& [name, type] : registry()) types.push_back(type);
  return types;
}

}  // namespace Kiv
