"""A tree that was copied, with its build directory, builds its own sources."""

import shutil
import subprocess
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).parents[2]
FIRST_HEADER = "wire/big_endian.h"  # almost every source includes it


def break_sources(tree, mark):
    (tree / FIRST_HEADER).write_text(f'#error "{mark}"\n')


@pytest.fixture
def original(tmp_path):
    """The project's files, without what was built, in a tree that does not compile."""
    tree = tmp_path / "original"
    shutil.copytree(REPOSITORY, tree, symlinks=True,
                    ignore=lambda folder, _: {"build", ".git"} if folder == str(REPOSITORY) else set())
    break_sources(tree, "the original tree")
    return tree


@pytest.mark.parametrize(("command", "preset"), [("run", "release"), ("test", "mips")])
def test_copy_builds_its_own_sources(original, tmp_path, command, preset):
    subprocess.run(["cmake", "--preset", preset], cwd=original, stdout=subprocess.DEVNULL, check=True)
    copy = tmp_path / "copy"
    shutil.copytree(original, copy, symlinks=True)
    break_sources(copy, "the copied tree")

    done = subprocess.run([copy / command, *([preset] if command == "test" else [])], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=200, check=False)

    assert done.returncode != 0
    assert "the copied tree" in done.stdout
    assert "the original tree" not in done.stdout
