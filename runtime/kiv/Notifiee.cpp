#include "KivNotifiee.h"

#include <algorithm>
#include <cassert>

#include "KivType.h"
#include "kiv/Kept.h"

namespace Kiv {

PtrInterface::NotifieeConst::~NotifieeConst() {
  zombie_ = true;
  leave();
}

const Type& PtrInterface::NotifieeConst::fwkType() const {
  static const Type type = TypeBuilder<NotifieeConst>("Kiv::PtrInterface::NotifieeConst").build();
  return type;
}

void PtrInterface::NotifieeConst::onZeroReferences() {}
void PtrInterface::NotifieeConst::onAttribute(AttributeId) {}
void PtrInterface::NotifieeConst::onAttributeKey(AttributeId attribute, KeyRef) {
  onAttribute(attribute);
}
void PtrInterface::NotifieeConst::kivDoZombieReactors(bool zombie) {
  zombie_ = zombie;
}

void PtrInterface::NotifieeConst::notifierIs(const Ptr<const PtrInterface>& notifier) {
  if (notifier == notifier_) return;
  leave();
  notifier_ = notifier;
  if (!notifier_) return;
  NotifieeList* list = notifier_->notifieeList();
  assert(list != nullptr && "the notifier cannot be watched");
  list->join(this);
  registered_ = true;
}

void PtrInterface::NotifieeConst::leave() {
  if (registered_) {
    registered_ = false;
    notifier_->notifieeList()->leave(this);
  }
  notifier_.reset();
}

void NotifieeList::join(PtrInterface::NotifieeConst* notifiee) {
  notifiees_.push_back(notifiee);
}

void NotifieeList::leave(PtrInterface::NotifieeConst* notifiee) {
  const auto at = std::find(notifiees_.begin(), notifiees_.end(), notifiee);
  if (at == notifiees_.end()) return;
  if (delivering_ > 0) {
    *at = nullptr;  // the positions of a delivery under way stay as they are
  } else {
    notifiees_.erase(at);
  }
}

template <class Call>
void NotifieeList::deliver(const Call& call) {
  struct Delivery {
    explicit Delivery(NotifieeList& list) : list_(list) { ++list_.delivering_; }
    ~Delivery() {
      if (--list_.delivering_ == 0) std::erase(list_.notifiees_, nullptr);
    }
    NotifieeList& list_;
  } delivery(*this);
  const std::size_t present = notifiees_.size();  // who joins during the delivery is not told
  for (std::size_t i = 0; i < present; ++i) {
    PtrInterface::NotifieeConst* notifiee = notifiees_[i];
    if (notifiee == nullptr || notifiee->zombie() || !notifiee->hasNotificationActive()) continue;
    // A notifiee may drop its owner, and with it itself, while it is told.
    const Ptr<PtrInterface::NotifieeConst> keep = kept(*notifiee);
    call(*notifiee);
  }
}

void NotifieeList::notifyAttribute(AttributeId attribute) {
  if (notifiees_.empty()) return;
  deliver([&](PtrInterface::NotifieeConst& notifiee) { notifiee.onAttribute(attribute); });
}

void NotifieeList::notifyAttributeKey(AttributeId attribute, KeyRef key) {
  if (notifiees_.empty()) return;
  deliver([&](PtrInterface::NotifieeConst& notifiee) { notifiee.onAttributeKey(attribute, key); });
}

void NotifieeList::notifyZeroReferences() {
  if (notifiees_.empty()) return;
  deliver([](PtrInterface::NotifieeConst& notifiee) { notifiee.onZeroReferences(); });
}

std::size_t NotifieeList::size() const {
  return notifiees_.size() -
         static_cast<std::size_t>(std::count(notifiees_.begin(), notifiees_.end(), nullptr));
}

}  // namespace Kiv
