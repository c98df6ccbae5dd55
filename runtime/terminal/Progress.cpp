#include "terminal/Progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace Terminal {
namespace {

constexpr std::string_view kEraseLine = "\r\x1b[K";
constexpr std::size_t kUsualColumns = 80;

bool shown = false;  // a line of ours stands on the terminal

void write(std::string_view text) {
  // What a terminal does not take is nobody's loss.
  [[maybe_unused]] const ssize_t ignored = ::write(STDERR_FILENO, text.data(), text.size());
}

std::size_t columns() {
  winsize size{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

}  // namespace

bool watched() {
  const char* kind = std::getenv("TERM");
  return ::isatty(STDERR_FILENO) == 1 && kind != nullptr && std::string_view(kind) != "dumb";
}

void clearProgress() {
  if (std::exchange(shown, false)) write(kEraseLine);
}

std::string progressText(std::string_view what, std::uint64_t done, std::uint64_t total) {
  if (total == 0) return fmt::format("{}: {}", what, done);
  const double part = static_cast<double>(std::min(done, total)) / static_cast<double>(total);
  return fmt::format("{}: {} of {} ({:.0f} %)", what, done, total, std::floor(100 * part));
}

void showProgress(std::string_view line) {
  if (!watched()) return;
  shown = true;
  write(fmt::format("{}{}", kEraseLine, line.substr(0, columns() - 1)));  // a full line would wrap
}

Progress::Progress(std::string what, std::uint64_t total)
    : what_(std::move(what)),
      total_(total),
      watched_(Terminal::watched()),
      clock_(std::chrono::steady_clock::now()) {}

void Progress::show(std::uint64_t done) const {
  showProgress(progressText(what_, done, total_));
}

}  // namespace Terminal
