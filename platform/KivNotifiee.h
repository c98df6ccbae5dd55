// Watching an object: the list of its notifiees, and the notifiee itself.
//
// A notifiee holds a counted reference to the object it watches (its notifier); the notifier's list holds the
// notifiee without counting it. Notifications are delivered synchronously, in the order of registration.
#pragma once

#include <cassert>
#include <cstdint>
#include <typeinfo>
#include <vector>

#include "KivPtr.h"

namespace Kiv {

// Identifies an attribute within its entity type: the position in the type record, base types first.
using AttributeId = std::uint32_t;

// The key of a changed member of a collection attribute, valid during the notification.
class KeyRef {
 public:
  template <class Key>
  explicit KeyRef(const Key& key) : key_(&key), type_(&typeid(Key)) {}
  // REQUIRES: the collection's keys are of this type.
  template <class Key>
  const Key& as() const {
    assert(*type_ == typeid(Key));
    return *static_cast<const Key*>(key_);
  }
  template <class Key>
  bool is() const {
    return *type_ == typeid(Key);
  }

 private:
  const void* key_;
  const std::type_info* type_;
};

// Base of reactors that watch an object without changing it through this reference. A notifiee delivers only
// while it is active, registered and not flagged for deletion (a "zombie").
class PtrInterface::NotifieeConst : public PtrInterface {
 public:
  NotifieeConst() = default;
  // Leaves the notifier's list. Derived classes that override kivDoZombieReactors call it themselves first.
  ~NotifieeConst() override;

  const Type& fwkType() const override;
  // The notifier's last reference apart from those of its notifiees is gone. The base does nothing.
  virtual void onZeroReferences();
  // An attribute of the notifier changed; for a collection attribute told without a key, any member may have.
  virtual void onAttribute(AttributeId attribute);
  // Flags the notifiee for deletion; a flagged notifiee is told nothing.
  virtual void kivDoZombieReactors(bool zombie);
  // The member under a key of a collection attribute appeared, changed or went. The base calls onAttribute.
  virtual void onAttributeKey(AttributeId attribute, KeyRef key);

  const Ptr<const PtrInterface>& notifier() const { return notifier_; }
  // Leaves the old notifier's list and joins the new one's. The same object again: nothing happens.
  // REQUIRES: the object can be watched (it has a notifiee list), or is empty.
  void notifierIs(const Ptr<const PtrInterface>& notifier);
  bool registered() const { return registered_; }
  bool zombie() const { return zombie_; }

 private:
  friend class NotifieeList;
  void leave();

  Ptr<const PtrInterface> notifier_;
  bool registered_ = false;
  bool zombie_ = false;
};

// The notifiees of one object. Notifiees may come and go while a notification is being delivered: one that
// came during it is not told of it, one that went is not told any more.
class NotifieeList {
 public:
  NotifieeList() = default;
  NotifieeList(const NotifieeList&) = delete;
  NotifieeList& operator=(const NotifieeList&) = delete;

  void notifyAttribute(AttributeId attribute);
  void notifyAttributeKey(AttributeId attribute, KeyRef key);
  void notifyZeroReferences();
  std::size_t size() const;
  bool empty() const { return size() == 0; }

 private:
  friend class PtrInterface::NotifieeConst;
  void join(PtrInterface::NotifieeConst* notifiee);
  void leave(PtrInterface::NotifieeConst* notifiee);
  template <class Call>
  void deliver(const Call& call);

  std::vector<PtrInterface::NotifieeConst*> notifiees_;  // null where one left during a delivery
  unsigned delivering_ = 0;                              // nested deliveries under way
};

}  // namespace Kiv
