#include "capture/TraceFilters.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <utility>

#include "capture/CaptureError.h"

namespace Capture {
namespace {

struct CloseHandle {
  void operator()(pcap_t* handle) const { ::pcap_close(handle); }
};

constexpr int kFilteredBytes = 256 * 1024;

}  // namespace

struct TraceFilter::Program {
  bpf_program code{};
  Program() = default;
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() { ::pcap_freecode(&code); }
};

TraceFilter::TraceFilter(std::string name, std::string expression)
    : name_(std::move(name)), expression_(std::move(expression)), program_(std::make_unique<Program>()) {
  const std::unique_ptr<pcap_t, CloseHandle> handle(::pcap_open_dead(DLT_EN10MB, kFilteredBytes));
  constexpr int kOptimise = 1;
  if (handle == nullptr || ::pcap_compile(handle.get(), &program_->code, expression_.c_str(), kOptimise,
                                          PCAP_NETMASK_UNKNOWN) != 0) {
    throw CaptureError(fmt::format("trace filter {}: bad capture-filter expression \"{}\": {}", name_,
                                   expression_,
                                   handle != nullptr ? ::pcap_geterr(handle.get()) : "out of memory"));
  }
}

TraceFilter::~TraceFilter() = default;

bool TraceFilter::matches(const Pavo::Pkt& pkt) const {
  return ::bpf_filter(program_->code.bf_insns, pkt.front(), pkt.wireLength(), pkt.capturedLength()) != 0;
}

void TraceFilters::filterIs(const std::string& name, const std::string& expression) {
  auto filter = expression.empty() ? nullptr : std::make_unique<TraceFilter>(name, expression);
  const auto same =
      std::find_if(filters_.begin(), filters_.end(), [&](const auto& each) { return each->name() == name; });
  if (same == filters_.end()) {
    if (filter) filters_.push_back(std::move(filter));
  } else if (filter) {
    *same = std::move(filter);
  } else {
    filters_.erase(same);
  }
}

std::string_view TraceFilters::match(const Pavo::Pkt& pkt) const {
  for (const auto& filter : filters_) {
    if (filter->matches(pkt)) return filter->name();
  }
  return {};
}

}  // namespace Capture
