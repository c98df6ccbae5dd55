#include "top/TopCommand.h"

#include <algorithm>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/signal_set.hpp>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

#include <sys/ioctl.h>
#include <unistd.h>

#include "top/Screen.h"
#include "top/TopRows.h"
#include "top/TopSession.h"
#include "top/TopView.h"

namespace Sft {
namespace {

using namespace Top;

constexpr double kLeastInterval = 0.1;
constexpr double kMostInterval = 3600;
constexpr unsigned kLooks = 2;  // of a single frame: rates need two

struct Options {
  TopSettings settings;
  std::string order = "rate";
  std::string panel = "flows";
  bool once = false;
  bool onlyIpv4 = false, onlyIpv6 = false;
};

// Given by name; CLI11 has checked that it is one of them.
template <class Enum, class Names>
Enum named(const Names& names, const std::string& name) {
  return static_cast<Enum>(std::find(names.begin(), names.end(), name) - names.begin());
}

// --- The whole screen

// The terminal's side of a session: keys and signals in, frames out.
class FullScreen {
 public:
  FullScreen(const Context& context, const TopSettings& settings)
      : signals_(io_, SIGINT, SIGTERM, SIGHUP),
        sizes_(io_, SIGWINCH),  // before curses, which leaves signals alone that somebody has
        input_(io_, ::dup(STDIN_FILENO)),
        session_(io_, context, settings, [this] { changed_ = true; }) {
    signals_.async_wait([this](const auto& error, int) {
      if (!error) io_.stop();
    });
    waitForSize();
    waitForInput();
  }

  void run() {
    while (!session_.model().ended() && io_.run_one() > 0) {
      if (!std::exchange(changed_, false)) continue;
      screen_.draw(frame(session_.model(), screen_.size(), screen_.bars()));
    }
  }

 private:
  void waitForSize() {
    sizes_.async_wait([this](const auto& error, int) {
      if (error) return;
      screen_.resized();
      changed_ = true;
      waitForSize();
    });
  }
  void waitForInput() {
    input_.async_wait(asio::posix::stream_descriptor::wait_read, [this](const auto& error) {
      if (error || screen_.gone()) return io_.stop();
      takeKeys();
      waitForInput();
    });
  }
  void takeKeys() {
    while (const auto pressed = screen_.key()) {
      if (*pressed == Key::redraw) screen_.redraw();
      session_.keyIs(*pressed, pageOf(session_.model(), screen_.size()));
    }
  }

  asio::io_context io_;
  asio::signal_set signals_;
  asio::signal_set sizes_;
  Screen screen_;
  asio::posix::stream_descriptor input_;
  bool changed_ = true;
  TopSession session_;
};

// --- One frame

std::size_t fromEnvironment(const char* name, std::size_t otherwise) {
  const char* text = std::getenv(name);
  const std::string_view given = text == nullptr ? "" : text;
  unsigned short number = 0;
  const auto [end, error] = std::from_chars(given.data(), given.data() + given.size(), number);
  return error == std::errc() && end == given.data() + given.size() && number > 0 ? number : otherwise;
}

Size frameSize() {
  Size size;
  winsize terminal{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &terminal) == 0 && terminal.ws_row > 0 && terminal.ws_col > 0) {
    size = {terminal.ws_row, terminal.ws_col};
  }
  return {fromEnvironment("LINES", size.rows), fromEnvironment("COLUMNS", size.columns)};
}

void printOnce(const Context& context, const TopSettings& settings) {
  requireRunDir(context);
  asio::io_context io;
  TopSession session(io, context, settings, [] {});
  while (session.looks() < kLooks || session.answers() < kLooks) io.run_one();
  Output output(context.json);
  if (context.json) {
    for (const Kiv::Value& row : rowsOf(session.model())) output.row(row);
  } else {
    const Grid grid = frame(session.model(), frameSize(), BarKind::hashes);
    for (std::size_t row = 0; row < grid.size().rows; ++row) print(grid.line(row) + '\n');
  }
  output.finish();
}

void top(const Context& context, Options options) {
  TopSettings& settings = options.settings;
  settings.selection.order = named<Order>(kOrderNames, options.order);
  settings.selection.ipv4 = !options.onlyIpv6;
  settings.selection.ipv6 = !options.onlyIpv4;
  std::replace(settings.selection.state.begin(), settings.selection.state.end(), '-', ' ');
  settings.panel = named<Panel>(kPanelNames, options.panel);
  if (options.once || context.json) return printOnce(context, settings);
  FullScreen(context, settings).run();
}

template <class Names>
CLI::IsMember oneOf(const Names& names) {
  return CLI::IsMember(std::vector<std::string>(names.begin(), names.end()));
}

}  // namespace

void addTopCommand(CLI::App& app, CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Selection& selection = options->settings.selection;
  CLI::App* sub =
      command(app, "top", "flows by rate, budget, sampling, reasons and ports, live; ? shows the keys");
  sub->add_option("--interval", options->settings.interval, "seconds between two looks")
      ->check(CLI::Range(kLeastInterval, kMostInterval))
      ->capture_default_str();
  sub->add_option("--sort", options->order, "the order of flows")
      ->check(oneOf(kOrderNames))
      ->capture_default_str();
  sub->add_flag("--reverse", selection.reversed, "the other way round");
  sub->add_option("--filter", selection.text, "flows with this in their name, interface, direction or state");
  sub->add_option("--state", selection.state, "flows in it only")
      ->check(oneOf(std::array{"in-hardware", "overflow", "waiting", "unwanted", "pending"}));
  CLI::Option* four = sub->add_flag("--ipv4", options->onlyIpv4, "IPv4 only");
  sub->add_flag("--ipv6", options->onlyIpv6, "IPv6 only")->excludes(four);
  sub->add_option("--panel", options->panel, "the one to begin with")
      ->check(oneOf(kPanelNames))
      ->capture_default_str();
  sub->add_flag("--once", options->once,
                "print one frame, after two looks, and end; so does --json, as rows");
  onRun(sub, line, [&line, options] { top(line.context, *options); });
}

}  // namespace Sft
