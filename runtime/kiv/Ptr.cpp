#include "KivPtr.h"

#include <cassert>

namespace Kiv {

bool detail::threadSafePtrMode = false;

NotifieeList* PtrInterface::notifieeList() const {
  return nullptr;
}

void PtrInterface::hasNotificationActiveIs(bool active) {
  notificationActiveStore(active);
}

void PtrInterface::zeroReferencesIs(bool zero) {
  if (zero) delete this;
}

PtrInterface::~PtrInterface() {
  assert(references_ == 0 && "destroyed while referred to (P1)");
}

}  // namespace Kiv
