#include "top/Keys.h"

#include <algorithm>
#include <utility>

namespace Sft::Top {
namespace {

constexpr auto kBindings = std::to_array<std::pair<Key, Command>>({
    {key('q'), Command::quit},          {key('?'), Command::help},
    {key('h'), Command::help},          {Key::escape, Command::clear},
    {key(' '), Command::pause},         {key('s'), Command::orderNext},
    {key('R'), Command::orderRate},     {key('I'), Command::orderBits},
    {key('P'), Command::orderPackets},  {key('B'), Command::orderBytes},
    {key('A'), Command::orderAge},      {key('N'), Command::orderName},
    {key('T'), Command::orderState},    {key('r'), Command::reverse},
    {key('/'), Command::filter},        {key('f'), Command::stateNext},
    {key('c'), Command::clear},         {key('4'), Command::ipv4},
    {key('6'), Command::ipv6},          {Key::tab, Command::panelNext},
    {Key::right, Command::panelNext},   {Key::backTab, Command::panelBefore},
    {Key::left, Command::panelBefore},  {Key::up, Command::up},
    {Key::down, Command::down},         {Key::pageUp, Command::pageUp},
    {Key::pageDown, Command::pageDown}, {Key::home, Command::home},
    {Key::end, Command::end},           {Key::redraw, Command::redraw},
});

}  // namespace

Command commandOf(Key pressed) {
  const auto* found = std::find_if(kBindings.begin(), kBindings.end(),
                                   [&](const auto& binding) { return binding.first == pressed; });
  return found == kBindings.end() ? Command::none : found->second;
}

}  // namespace Sft::Top
