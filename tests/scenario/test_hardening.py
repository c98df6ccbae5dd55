"""What is installed of a hardened build is hardened, and what looks for that would see it if it were not."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

from harness import BUILD, PATIENCE, ROOT


def check(folder):
    return subprocess.run([sys.executable, ROOT / "scripts/check-hardening", folder], capture_output=True, text=True, check=False,
                          timeout=PATIENCE)


class HardeningTest(unittest.TestCase):
    def test_all_that_is_installed_is_hardened(self):
        with tempfile.TemporaryDirectory() as prefix:
            subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True, capture_output=True, timeout=PATIENCE)
            done = check(prefix)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual(done.stdout.count(": hardened\n"), 6)

    def test_what_is_not_is_told(self):
        with tempfile.TemporaryDirectory() as folder:
            built = pathlib.Path(folder) / "bin/sft"
            built.parent.mkdir()
            built.with_suffix(".c").write_text("#include <string.h>\nint main(int n, char** a) { char b[9]; strcpy(b, a[n - 1]); return b[0]; }\n")
            subprocess.run(["cc", "-fno-stack-protector", "-fcf-protection=none", "-no-pie", "-z", "norelro", "-z", "lazy", "-z",
                            "execstack", "-o", built, built.with_suffix(".c")], check=True, capture_output=True, timeout=PATIENCE)
            done = check(folder)
        self.assertEqual(done.returncode, 1)
        for each in ("not position independent", "no RELRO", "not bound at the start", "a stack that may hold code",
                     "no stack protector", "without a mark for indirect branches"):
            self.assertIn(each, done.stdout)


if __name__ == "__main__":
    unittest.main()
