// Builds the text of a trace that goes to both channels, the ring buffer and the leveled text trace, once.
#pragma once

#include <sstream>
#include <string>
#include <string_view>

#include "KivTrace.h"
#include "Skein.h"

namespace Duvo {

// Collects a text with <<. Used behind a test that one of the channels is on, so its cost is never paid idle.
class SkeinConverter {
 public:
  template <class T>
  SkeinConverter& operator<<(const T& value) {
    out_ << value;
    return *this;
  }
  std::string text() const { return out_.str(); }
  // The ring-buffer record, led by the category and a blank.
  void toSkein(Skein::TraceHandle& handle, const Skein::CallSite& site, std::string_view filter = {}) const {
    handle.write(site, std::string(site.category()) + ' ' + text(), filter);
  }
  // The text trace, without the category.
  void toText(Kiv::TraceHelper helper) const { helper.write(text()); }

 private:
  std::ostringstream out_;
};

}  // namespace Duvo
