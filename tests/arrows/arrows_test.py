"""The check of includes itself, on trees made for it."""

import subprocess
import sys
import tempfile
import tomllib
import unittest
from pathlib import Path

CHECKER = Path(__file__).with_name("arrows.py")
TABLE = CHECKER.with_name("arrows.toml")
SMALL_TABLE = """
include_directories = [".", "kit/include"]
[arrows]
base = []
"kit/include" = []
house = ["base", "kit/include"]
"house/cellar" = ["base"]
"""


class ArrowsTest(unittest.TestCase):
    def setUp(self) -> None:
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = Path(directory.name)
        self.table = self.root / "table.toml"
        self.table.write_text(SMALL_TABLE)
        for name in ("base/a.h", "kit/include/kit/k.h", "house/h.h", "house/cellar/c.h"):
            self.write(name, "")

    def write(self, name: str, text: str) -> None:
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def check(self, status: int) -> str:
        """What the check prints about the tree; it must end with `status`."""
        done = subprocess.run([sys.executable, "-B", CHECKER, "--root", self.root, "--table", self.table],
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stderr

    def test_allowed_includes_pass(self) -> None:
        self.write("house/x.cpp", '#include "base/a.h"\n#include "kit/k.h"\n#include "h.h"\n#include "house/cellar/c.h"\n'
                                  "#include <vector>\n")
        self.assertEqual(self.check(0), "")

    def test_other_include_is_named_with_its_line_and_arrow(self) -> None:
        self.write("base/x.h", '\n#  include "house/h.h"\n')
        said = self.check(1)
        self.assertIn("base/x.h:2: base -> house: ", said)
        self.assertIn("base may include no other folder. Move", said)

    def test_relative_path_and_brackets_are_no_way_round(self) -> None:
        self.write("base/x.cpp", '#include "../house/h.h"\n#include <house/h.h>\n')
        said = self.check(1)
        self.assertIn("base/x.cpp:1: base -> house", said)
        self.assertIn("base/x.cpp:2: base -> house", said)

    def test_room_may_not_include_what_is_beside_it(self) -> None:
        self.write("house/cellar/x.cpp", '#include "house/h.h"\n#include "base/a.h"\n')
        said = self.check(1)
        self.assertIn("house/cellar/x.cpp:1: house/cellar -> house: ", said)
        self.assertNotIn("x.cpp:2", said)

    def test_header_that_is_nowhere_is_named(self) -> None:
        self.write("base/x.cpp", '#include "base/missing.h"\n')
        self.assertIn("base/x.cpp:1: ", self.check(1))

    def test_folder_without_a_line_is_named(self) -> None:
        self.write("shed/x.cpp", "")
        self.assertIn("shed/x.cpp: its folder is not in the table", self.check(1))

    def test_line_without_a_folder_is_named(self) -> None:
        self.table.write_text(SMALL_TABLE + "garage = []\n")
        self.assertIn("garage: in the table", self.check(1))

    def test_cycle_in_the_table_is_refused(self) -> None:
        self.table.write_text(SMALL_TABLE.replace("base = []", 'base = ["house"]'))
        self.assertIn("a cycle: base -> house -> base", self.check(2))

    def test_projects_table_keeps_the_wire_from_the_controller(self) -> None:
        self.table.write_text(TABLE.read_text())
        for folder in tomllib.loads(TABLE.read_text())["arrows"]:
            self.write(f"{folder}/one.h", "")
        for path in ("base", "kit", "house"):
            for file in (self.root / path).rglob("*.h"):
                file.unlink()
        self.check(0)
        self.write("controller/two.cpp", '#include "wire/one.h"\n')
        self.assertIn("controller/two.cpp:1: controller -> wire: ", self.check(1))


if __name__ == "__main__":
    unittest.main()
