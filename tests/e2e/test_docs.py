"""The documentation: its site, and what its pages say about their commands."""

import re
import shutil
import subprocess
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).parents[2]
# tests/vm/test_stock_linux.py runs every command of stock-linux.md.
PAGES = [REPOSITORY / "README.md", REPOSITORY / "CONTRIBUTING.md",
         *(page for page in sorted((REPOSITORY / "docs").glob("*.md")) if page.name != "stock-linux.md")]
BLOCK = re.compile(r"^([^\n]*)\n```sh\n(.*?)^```$", re.M | re.S)
MARK = re.compile(r"<!-- (?:not run by a test|run by (.+)) -->")


def programs_of(block):
    """The programs that the lines of a block start, without their directories."""
    lines = re.sub(r"\\\n", " ", block).splitlines()
    commands = [re.sub(r"#.*", "", command).split() for line in lines for command in line.split("&&")]
    return {Path(words[0] if words[0] != "sudo" else words[1]).name for words in commands if words}


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_commands_are_run_by_a_test_or_marked(page):
    for before, block in BLOCK.findall(page.read_text()):
        mark = MARK.fullmatch(before)
        assert mark, f"no mark before: {block}"
        tests = mark[1].split(", ") if mark[1] else []
        text = "".join((REPOSITORY / each).read_text() for each in tests)
        assert not tests or [each for each in programs_of(block) if each not in text] == []


@pytest.mark.skipif(not shutil.which("mkdocs") or not shutil.which("mandoc"), reason="mkdocs or mandoc is not here")
def test_site_has_no_broken_link(tmp_path):
    done = subprocess.run([REPOSITORY / "scripts/docs-site", "--output", tmp_path], capture_output=True, text=True,
                          timeout=120, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    assert (tmp_path / "site/man/ap.toml.5.html").is_file()
