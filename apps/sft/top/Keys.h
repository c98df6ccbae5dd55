// Keys, and what they ask for.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace Sft::Top {

// A character, or one of those that have none.
enum class Key : std::uint32_t {
  enter = '\n',
  escape = 27,
  backspace = 127,
  redraw = 12,
  tab = '\t',
  others = 0x110000,  // behind the last character
  backTab,
  left,
  right,
  up,
  down,
  pageUp,
  pageDown,
  home,
  end,
  none,
};
constexpr Key key(char character) {
  return static_cast<Key>(character);
}

enum class Command : std::uint8_t {
  none,
  quit,
  help,
  pause,
  orderNext,
  orderRate,  // and behind it the others, as in Order
  orderBits,
  orderPackets,
  orderBytes,
  orderAge,
  orderName,
  orderState,
  reverse,
  filter,
  stateNext,
  clear,
  ipv4,
  ipv6,
  panelNext,
  panelBefore,
  up,
  down,
  pageUp,
  pageDown,
  home,
  end,
  redraw,
};

// What a key asks for while no filter is typed.
Command commandOf(Key pressed);

// A line of the help page.
struct KeyHelp {
  std::string_view keys;
  std::string_view what;
};
inline constexpr std::array<KeyHelp, 14> kKeyHelp{{
    {"Tab, Left, Right", "next panel, or the one before"},
    {"Up, Down, PgUp, PgDn", "other rows; Home, End: first, last"},
    {"s", "next order; r: reverse it"},
    {"R  I", "by packets a second, by bits a second"},
    {"P  B", "by packets, by bytes counted"},
    {"A  N  T", "by age, by name, by state"},
    {"/", "filter: part of a flow, interface, state"},
    {"f", "in hardware, overflow, waiting, unwanted"},
    {"c", "clear both filters"},
    {"4  6", "IPv4 or IPv6 off and on"},
    {"Space", "pause"},
    {"Ctrl-L", "draw the screen anew"},
    {"?  h", "this page, and back"},
    {"q", "quit"},
}};

}  // namespace Sft::Top
