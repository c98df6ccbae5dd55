#include "top/Screen.h"

#define NCURSES_WIDECHAR 1
#define NCURSES_NOMACROS 1
#include <curses.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "Command.h"
#include "top/TerminalCheck.h"

namespace Sft::Top {
namespace {

constexpr int kEscapeDelay = 25;  // milliseconds in which the rest of a key's sequence must follow
constexpr short kGreen = 1, kYellow = 2, kRed = 3, kCyan = 4;

bool coloursWanted() {
  const char* refused = std::getenv("NO_COLOR");
  return refused == nullptr || *refused == '\0';
}

constexpr auto kKeys = std::to_array<std::pair<wint_t, Key>>({{KEY_UP, Key::up},
                                                              {KEY_DOWN, Key::down},
                                                              {KEY_LEFT, Key::left},
                                                              {KEY_RIGHT, Key::right},
                                                              {KEY_PPAGE, Key::pageUp},
                                                              {KEY_NPAGE, Key::pageDown},
                                                              {KEY_HOME, Key::home},
                                                              {KEY_END, Key::end},
                                                              {KEY_BTAB, Key::backTab},
                                                              {KEY_BACKSPACE, Key::backspace},
                                                              {KEY_ENTER, Key::enter}});

Key functionKey(wint_t code) {
  const auto* found =
      std::find_if(kKeys.begin(), kKeys.end(), [&](const auto& each) { return each.first == code; });
  return found == kKeys.end() ? Key::none : found->second;
}

Key characterKey(wint_t code) {
  if (code == L'\r') return Key::enter;
  if (code == L'\b') return Key::backspace;
  return static_cast<Key>(code);
}

}  // namespace

// The terminal in curses' hands.
class Screen::Terminal {
 public:
  Terminal() : screen_(::newterm(nullptr, stdout, stdin)) {
    if (screen_ == nullptr) throw CommandError("top: curses cannot take the terminal over");
    ::set_term(screen_);
    ::cbreak();
    ::noecho();
    ::nonl();
    ::nodelay(stdscr, TRUE);
    ::keypad(stdscr, TRUE);
    ::set_escdelay(kEscapeDelay);
    ::curs_set(0);
    colours_ = coloursWanted() && ::has_colors() && ::start_color() == OK;
    if (!colours_) return;
    const short background = ::use_default_colors() == OK ? -1 : COLOR_BLACK;
    ::init_pair(kGreen, COLOR_GREEN, background);
    ::init_pair(kYellow, COLOR_YELLOW, background);
    ::init_pair(kRed, COLOR_RED, background);
    ::init_pair(kCyan, COLOR_CYAN, background);
  }
  ~Terminal() {
    ::endwin();
    ::delscreen(screen_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // What a style is without colours can be told apart without them, too.
  void put(const Cell& cell) const {
    attr_t attributes = A_NORMAL;
    short colour = 0;
    switch (cell.style) {
      case Style::plain:
        break;
      case Style::dim:
        attributes = A_DIM;
        break;
      case Style::bold:
        attributes = A_BOLD;
        break;
      case Style::heading:
        attributes = A_REVERSE;
        break;
      case Style::good:
        colour = kGreen;
        break;
      case Style::warning:
        attributes = colours_ ? A_NORMAL : A_BOLD;
        colour = kYellow;
        break;
      case Style::bad:
        attributes = colours_ ? A_BOLD : A_BOLD | A_UNDERLINE;
        colour = kRed;
        break;
      case Style::bar:
        colour = kCyan;
        break;
    }
    const std::array<wchar_t, 2> text{static_cast<wchar_t>(cell.character), L'\0'};
    cchar_t shown;
    ::setcchar(&shown, text.data(), attributes, colours_ ? colour : short{0}, nullptr);
    ::add_wch(&shown);
  }

 private:
  SCREEN* screen_;
  bool colours_ = false;
};

Screen::Screen() {
  requireTerminal();
  std::setlocale(LC_CTYPE, "");
  if (std::string_view(::nl_langinfo(CODESET)) == "UTF-8") bars_ = BarKind::blocks;
  terminal_ = std::make_unique<Terminal>();
  resized();
}

Screen::~Screen() = default;

Size Screen::size() const {
  return {static_cast<std::size_t>(::getmaxy(stdscr)), static_cast<std::size_t>(::getmaxx(stdscr))};
}

void Screen::resized() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) return;
  if (::is_term_resized(size.ws_row, size.ws_col)) ::resizeterm(size.ws_row, size.ws_col);
}

void Screen::draw(const Grid& grid) {
  ::erase();
  for (std::size_t row = 0; row < grid.size().rows; ++row) {
    ::move(static_cast<int>(row), 0);
    for (std::size_t column = 0; column < grid.size().columns; ++column) terminal_->put(grid.at(row, column));
  }
  ::refresh();
}

void Screen::redraw() {
  ::clearok(stdscr, TRUE);
}

std::optional<Key> Screen::key() {
  wint_t code = 0;
  const int kind = ::get_wch(&code);
  if (kind == ERR) return std::nullopt;
  return kind == KEY_CODE_YES ? functionKey(code) : characterKey(code);
}

bool Screen::gone() const {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, 0) > 0 && (input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

}  // namespace Sft::Top
