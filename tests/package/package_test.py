"""The package as its users meet it: unpacked into an empty folder, with nothing else of the project
at hand. Hosts are built on it in two ways, each sends a log record through the packaged DLL, and
the packaged collector must print it.

usage: package_test.py RUNNER ZIP
RUNNER runs the programs.
"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path.append(str(HERE.parent / "programs"))
import collector_test  # noqa: E402

RUNNER, ZIP = None, None
GCC = ["x86_64-w64-mingw32-gcc", "-Wall", "-Wextra", "-Werror", "-static"]


def run(*command):
    ended = subprocess.run(list(map(str, command)), capture_output=True, text=True, timeout=300)
    if ended.returncode != 0:
        raise AssertionError(f"{command}: exit code {ended.returncode}\n{ended.stdout}{ended.stderr}")


class PackageTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        with zipfile.ZipFile(ZIP) as package:
            package.extractall(self.folder)
        (self.package,) = self.folder.iterdir()
        collector_test.COMMAND[:] = [RUNNER, str(self.package / "bin" / "tavu_collector.exe")]

    def lines_of(self, host, *arguments, count=1, collector):
        """What the collector prints of a host that finds the DLL beside it."""
        shutil.copy(self.package / "bin" / "TAVU.dll", host.parent)
        run(RUNNER, host, *arguments)
        return [collector.line() for _ in range(count)]

    def test_holds_all_that_it_promises(self):
        for file in ("bin/TAVU.dll", "bin/TAVU.pdb", "bin/TAVU_CrashReporter.exe", "lib/TAVU.lib",
                     "include/tavu/tavu.h", "docs/wire.md", "docs/crashes.md", "CHANGELOG.md"):
            self.assertTrue((self.package / file).is_file(), file)
        run(sys.executable, self.package / "tools" / "explain", "--help")
        run("/usr/bin/python3", self.package / "tools" / "triage", "--help")
        readme = (self.package / "README.md").read_text()
        named = re.findall(r"\]\(([^)#:]+)\)", readme) + re.findall(r"^\| `([^`]+)`", readme, re.M)
        self.assertGreaterEqual(len(named), 10)
        for file in named:
            self.assertTrue((self.package / file).exists(), file)

    def test_cmake_project_of_gcc(self):
        run("cmake", "-S", HERE / "cmake_consumer", "-B", self.folder / "build", "-G", "Ninja",
            "-DCMAKE_SYSTEM_NAME=Windows", "-DCMAKE_CXX_COMPILER=x86_64-w64-mingw32-g++",
            f"-DTAVU_DIR={self.package}/lib/cmake/TAVU")
        run("cmake", "--build", self.folder / "build")
        with collector_test.Collector() as collector:
            lines = self.lines_of(self.folder / "build" / "consumer.exe", "127.0.0.1",
                                  collector.tcp_port, count=20, collector=collector)
        self.assertIn("goodbye", [line["message"] for line in lines])

    def test_host_of_the_readme_in_c11(self):
        code = re.search(r"```c\n(.*?)```", (self.package / "README.md").read_text(), re.S)[1]
        with collector_test.Collector() as collector:
            self.assertIn(" 7000)", code)
            source = self.folder / "host.c"
            source.write_text(code.replace(" 7000)", f" {collector.tcp_port})"))
            run(*GCC, "-std=c11", "-pedantic", source, f"-I{self.package}/include",
                self.package / "lib" / "TAVU.lib", "-o", self.folder / "host.exe")
            lines = self.lines_of(self.folder / "host.exe", count=2, collector=collector)
        self.assertEqual({(line["transport"], line["user_id"], line["message"]) for line in lines},
                         {("tcp", "kim lee", "connection lost, trying again"),
                          ("udp", "kim lee", "slow frame")})


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    RUNNER, ZIP = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
