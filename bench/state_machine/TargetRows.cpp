#include "TargetRows.h"

#include <fmt/format.h>

#include <array>

namespace SftBench {
namespace {

enum class As { perSecond, milliseconds, bytes, count };  // from ns an item, us, bytes, a number

struct TargetRow {
  const char* name;
  const char* line;  // of the report
  As as;
};

constexpr std::array kRows{
    TargetRow{"first_scan_events_per_second", "first scan and admission", As::perSecond},
    TargetRow{"poll_records_per_second", "poll, every counter changed again", As::perSecond},
    TargetRow{"unchanged_poll_records_per_second", "poll, no counter changed", As::perSecond},
    TargetRow{"stale_deletions_per_second", "stale table entry deleted, on average", As::perSecond},
    TargetRow{"restart_events_per_second", "restart, nothing stale", As::perSecond},
    TargetRow{"change_to_status_median_ms", "change to status: median", As::milliseconds},
    TargetRow{"change_to_status_p999_ms", "change to status: 99.9% at most", As::milliseconds},
    TargetRow{"burst_wait_p999_ms", "packets: 99.9% wait at most, in the worst phase", As::milliseconds},
    TargetRow{"burst_wait_first_scan_longest_ms", "packets, first scan: longest wait", As::milliseconds},
    TargetRow{"burst_wait_restart_longest_ms", "packets, restart: longest wait", As::milliseconds},
    TargetRow{"burst_wait_all_stale_longest_ms", "packets, all stale: longest wait", As::milliseconds},
    TargetRow{"burst_rate_per_second", "packets at a rate: a second", As::count},
    TargetRow{"burst_drops", "packets at a rate: dropped", As::count},
    TargetRow{"wanted_bytes_per_flow", "memory: wanted offload", As::bytes},
    TargetRow{"status_bytes_per_flow", "memory: status", As::bytes},
    TargetRow{"counter_bytes_per_flow", "memory: counter", As::bytes},
    TargetRow{"local_counter_bytes_per_flow", "memory: local counter", As::bytes},
};

std::string text(const TargetRow& row, double value) {
  switch (row.as) {
    case As::perSecond:
      return fmt::format("{}\t{:.0f}\t1/s\n", row.name, value == 0 ? 0 : 1e9 / value);
    case As::milliseconds:
      return fmt::format("{}\t{:.4f}\tms\n", row.name, value / 1e3);
    case As::bytes:
      return fmt::format("{}\t{:.1f}\tbytes\n", row.name, value);
    case As::count:
      return fmt::format("{}\t{:.0f}\t\n", row.name, value);
  }
  return {};
}

}  // namespace

std::string targetRows(const Report& report) {
  std::string rows;
  for (const TargetRow& row : kRows) {
    if (report.has(row.line)) rows += text(row, report.value(row.line));
  }
  return rows;
}

}  // namespace SftBench
