"""mutate_find.py: what may be changed in a source, and what is left alone. Skipped without libclang for Python."""
import pathlib
import tempfile
import unittest

try:
    import mutate_find
except ImportError:
    mutate_find = None

SOURCE = """
#include <array>
#define TWICE(x) ((x) * 2)
constexpr int kMost = 3;
struct Box {
  int first = 1;
  std::array<int, 4> held{};
  void clear();
};
template <int N> int times(int x) { return x; }
int f(Box& box, bool ready, int* at) {
  if constexpr (kMost > 2) ready = !ready;
  if (ready && box.first < kMost) box.clear();
  switch (box.first) {
    case 7: ++box.first; break;
    default: break;
  }
  int rest[5] = {};
  return times<6>(rest[0]) + TWICE(8) + *(at + 1);
}
"""


@unittest.skipIf(mutate_find is None, "no libclang for Python")
class Finding(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "source.h")
            path.write_text(SOURCE)
            cls.sites = mutate_find.find([path], ["-std=c++20"], pathlib.Path(folder))[path]
        cls.changes = [change for site in cls.sites for _, _, change in site.changes]

    def test_operators_conditions_and_statements(self):
        for change in ("ready && box.first < kMost  =>  ready || box.first < kMost", "ready && box.first < kMost  =>  true",
                       "ready && box.first < kMost  =>  false", "box.first < kMost  =>  box.first <= kMost", "box.clear();  =>  nothing",
                       "ready = !ready;  =>  nothing", "!ready  =>  ready", "++box.first;  =>  nothing", "at + 1  =>  at - 1"):
            self.assertEqual(self.changes.count(change), 1, change)

    def test_what_the_compiler_evaluates_or_a_macro_writes_is_left_alone(self):
        changed = {change.partition("  =>  ")[0] for change in self.changes}
        self.assertEqual(changed & {"2", "3", "4", "5", "6", "7", "8", "kMost > 2"}, set())

    def test_places_name_their_function(self):
        self.assertEqual({site.function for site in self.sites}, {"f", ""})   # "" for a member's first value


if __name__ == "__main__":
    unittest.main()
