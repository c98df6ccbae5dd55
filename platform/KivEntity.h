// Entities: named objects that can be watched, with attributes in one pattern.
//
//   bool hwOffloadIpv4() const { return hwOffloadIpv4_; }
//   void hwOffloadIpv4Is(bool value) { attributeIs(hwOffloadIpv4_, value, hwOffloadIpv4Attr); }
//
// A setter stores, releases the old value and notifies only when the value changes.
#pragma once

#include <string_view>
#include <utility>

#include "KivNotifiee.h"
#include "KivPtr.h"
#include "KivString.h"
#include "KivType.h"

namespace Kiv {

class Entity : public PtrInterface {
 public:
  explicit Entity(String name) : name_(std::move(name)) {}
  ~Entity() override;

  NotifieeList* notifieeList() const override { return &notifiees_; }
  virtual const String& name() const;
  // Called after the parent changed. The base does nothing.
  virtual void handleParent();

  // The entity that owns this one, or null. A parent does not count its children's references to it.
  Entity* parent() const { return parent_; }
  void parentIs(Entity* parent);

 protected:
  // Stores a value when it differs and tells the notifiees.
  template <class T, class U>
  void attributeIs(T& held, U&& value, AttributeId attribute) {
    if (held == value) return;
    { [[maybe_unused]] const T released = std::exchange(held, T(std::forward<U>(value))); }
    announce(attribute);
  }
  void announce(AttributeId attribute) const { notifiees_.notifyAttribute(attribute); }
  void announceKey(AttributeId attribute, KeyRef key) const { notifiees_.notifyAttributeKey(attribute, key); }

 private:
  String name_;
  Entity* parent_ = nullptr;
  mutable NotifieeList notifiees_;
};

// Attribute access and handler calls by name on any object, through its type record; see Type for the errors.
Value attribute(const PtrInterface& object, std::string_view name);
void attributeIs(PtrInterface& object, std::string_view name, const Value& value);
Value invoke(PtrInterface& object, std::string_view handler,
             const std::vector<std::pair<String, Value>>& arguments);

}  // namespace Kiv
