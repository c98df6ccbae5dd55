// Named trace filters: capture-filter expressions ("host 10.0.0.1 and tcp port 80"), matched against each
// packet as it comes in. A packet's records in the trace carry the name of the filter that it matches.
//
// An expression is one of libpcap's on Ethernet. It sees the packet as it is: for tagged packets it says
// "vlan and …".
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Pavo.h"

namespace Capture {

// One compiled expression.
class TraceFilter {
 public:
  // Throws CaptureError that names the filter and says what is wrong with the expression.
  TraceFilter(std::string name, std::string expression);
  ~TraceFilter();
  TraceFilter(const TraceFilter&) = delete;
  TraceFilter& operator=(const TraceFilter&) = delete;

  const std::string& name() const { return name_; }
  const std::string& expression() const { return expression_; }
  bool matches(const Pavo::Pkt& pkt) const;

 private:
  struct Program;
  std::string name_;
  std::string expression_;
  std::unique_ptr<Program> program_;
};

class TraceFilters {
 public:
  // Adds a filter, in place of one of the same name; an empty expression takes it out. Throws CaptureError,
  // and nothing has changed then.
  void filterIs(const std::string& name, const std::string& expression);
  const std::vector<std::unique_ptr<TraceFilter>>& all() const { return filters_; }
  bool empty() const { return filters_.empty(); }
  // The name of the first filter that the packet matches, or empty; valid until filterIs().
  std::string_view match(const Pavo::Pkt& pkt) const;

 private:
  std::vector<std::unique_ptr<TraceFilter>> filters_;
};

}  // namespace Capture
