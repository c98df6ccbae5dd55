// The terminal: draws frames, gives keys. A thin layer over ncurses; one at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "top/Bars.h"
#include "top/Grid.h"
#include "top/Keys.h"

namespace Sft::Top {

class Screen {
 public:
  // Takes the terminal over. Throws CommandError, and leaves it alone, when standard input or output is none,
  // or one that cannot move its cursor (TERM).
  Screen();
  // Gives it back as it was.
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  Size size() const;
  // Blocks where the locale's characters are UTF-8.
  BarKind bars() const { return bars_; }
  // To be called when the terminal may have another size.
  void resized();
  // Shows a frame; what stands there already is not sent.
  void draw(const Grid& grid);
  // Sends everything with the next frame.
  void redraw();
  // The next key that was pressed; none when none waits.
  std::optional<Key> key();
  // Whether the terminal is gone.
  bool gone() const;

 private:
  class Terminal;
  std::unique_ptr<Terminal> terminal_;
  BarKind bars_ = BarKind::hashes;
};

}  // namespace Sft::Top
