#include "KivEntity.h"

namespace Kiv {

// Notifiees hold counted references to what they watch, so none is left by the time its list goes.
Entity::~Entity() = default;

const String& Entity::name() const {
  return name_;
}

void Entity::handleParent() {}

void Entity::parentIs(Entity* parent) {
  if (parent == parent_) return;
  parent_ = parent;
  handleParent();
}

Value attribute(const PtrInterface& object, std::string_view name) {
  return object.fwkType().get(object, name);
}

void attributeIs(PtrInterface& object, std::string_view name, const Value& value) {
  object.fwkType().set(object, name, value);
}

Value invoke(PtrInterface& object, std::string_view handler,
             const std::vector<std::pair<String, Value>>& arguments) {
  return object.fwkType().invoke(object, handler, arguments);
}

}  // namespace Kiv
