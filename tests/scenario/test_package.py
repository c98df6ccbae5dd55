"""The Debian package: what it holds, what it needs, and what it does when it comes and goes."""
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from harness import BUILD, PATIENCE, ROOT


def run(*command):
    return subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False,
                          timeout=PATIENCE * 2)


@unittest.skipUnless(shutil.which("cpack") and shutil.which("dpkg-deb"), "no cpack or dpkg-deb on this machine")
class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = pathlib.Path(tempfile.mkdtemp(prefix="sft-package-"))
        cls.addClassCleanup(shutil.rmtree, cls.dir)
        made = run("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", cls.dir)
        packages = sorted(cls.dir.glob("*.deb"))
        if made.returncode != 0 or len(packages) != 1:
            raise AssertionError(made.stdout + made.stderr)
        cls.package = packages[0]
        if run("dpkg-deb", "-R", cls.package, cls.dir / "root").returncode != 0:
            raise AssertionError(f"{cls.package} cannot be unpacked")
        cls.root = cls.dir / "root"

    def field(self, name):
        return run("dpkg-deb", "-f", self.package, name).stdout.strip()

    def test_it_says_what_it_is(self):
        self.assertEqual((self.field("Package"), self.field("Section")), ("pexa", "net"))
        self.assertIn(f"_{self.field('Version')}_{self.field('Architecture')}.deb", self.package.name)
        self.assertTrue(all(len(line) <= 80 for line in self.field("Description").splitlines()))

    def test_it_needs_the_libraries_that_its_programs_load_and_none_of_its_own(self):
        needed = self.field("Depends")
        for library in ("libc6", "libpcap0.8", "libfixbuf9", "libfmt9", "adduser"):
            self.assertRegex(needed, rf"\b{library}\b")
        self.assertNotIn("pexa", needed)

    def test_settings_are_kept_and_everything_else_is_below_usr(self):
        files = {str(each.relative_to(self.root)) for each in self.root.rglob("*") if not each.is_dir()}
        files = {each for each in files if not each.startswith("DEBIAN/")}
        settings = {each for each in files if each.startswith("etc/")}
        self.assertEqual((self.root / "DEBIAN/conffiles").read_text().split(), [f"/{each}" for each in sorted(settings)])
        self.assertEqual({each for each in files - settings if not each.startswith("usr/")}, set())
        self.assertIn("usr/lib/pexa/libPexaSampledFlowTracker.so", files)

    def test_services_run_what_the_package_installs(self):
        for unit in ("pexa-agent", "flow-tracker"):
            text = (self.root / f"usr/lib/systemd/system/{unit}.service").read_text()
            program, _, configuration = text.partition("ExecStart=")[2].splitlines()[0].partition(" --config ")
            self.assertTrue((self.root / program.lstrip("/")).is_file(), program)
            self.assertTrue((self.root / configuration.lstrip("/")).is_file(), configuration)

    def test_programs_are_stripped_and_what_was_stripped_is_a_package_of_its_own(self):
        for each in [*(self.root / "usr/bin").iterdir(), *(self.root / "usr/lib/pexa").iterdir()]:
            self.assertNotIn(".debug_info", run("readelf", "-S", "-W", each).stdout, each)
        self.assertEqual(len(list(self.dir.glob("pexa-dbgsym_*.ddeb"))), 1)

    def test_its_scripts_are_those_of_the_source_and_nothing_is_started_by_them(self):
        for script in ("postinst", "prerm", "postrm"):
            text = (self.root / "DEBIAN" / script).read_text()
            self.assertEqual(text, (ROOT / "packaging/debian" / script).read_text())
            self.assertNotRegex(text, r"systemctl (re)?start|systemctl enable|invoke (re)?start")


if __name__ == "__main__":
    unittest.main()
