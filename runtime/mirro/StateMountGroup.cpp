#include "mirro/StateMountGroup.h"

#include <fmt/format.h>

#include <cassert>

namespace Mirro {

const Kiv::Type& StateMountGroup::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<StateMountGroup>("Mirro::StateMountGroup").build();
  return type;
}

void StateMountGroup::doMount(const Mount& mount) {
  assert(!closed_ && "a mount is added to a closed group");
  const Kiv::String& flags = mount.flags();
  if (flags != "r" && flags != "w" && flags != "rc" && flags != "wc") {
    throw Kiv::TypeError(fmt::format(
        "mount of \"{}\": flags \"{}\" are none of \"r\", \"w\", \"rc\" and \"wc\"", mount.path(), flags));
  }
  mounts_.push_back(mount);
}

void StateMountGroup::doClose(bool, const Kiv::String&, double) {
  closed_ = true;
}

namespace {
const Kiv::Module kGroupModule("Mirro::StateMountGroup", {&StateMountGroup::kivType()});
}

}  // namespace Mirro
