#!/usr/bin/python3
"""Checks every #include of the C and C++ sources against a table of allowed arrows between folders.

Exit status: 0 every include is allowed, 1 some are not, 2 wrong use or a table that cannot be used.
"""

import argparse
import re
import sys
import tomllib
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path, PurePosixPath

TABLE = Path(__file__).with_name("arrows.toml")
REPOSITORY = Path(__file__).resolve().parents[2]
SUFFIXES = {".c", ".cc", ".cpp", ".h", ".hpp"}
INCLUDE = re.compile(r"\s*#\s*include\s*(?P<name>\S+)")


class TableError(Exception):
    pass


@dataclass(frozen=True)
class Table:
    include_directories: list[str]
    arrows: dict[str, list[str]]

    @classmethod
    def read(cls, path: Path) -> "Table":
        try:
            content = tomllib.loads(path.read_text(encoding="utf-8"))
            table = cls(content["include_directories"], content["arrows"])
        except (OSError, KeyError, tomllib.TOMLDecodeError) as error:
            raise TableError(f"{path}: {error}") from error
        for folder, targets in table.arrows.items():
            for target in targets:
                if target not in table.arrows:
                    raise TableError(f"{path}: {folder} -> {target}: {target} has no line of its own")
            table.refuse_cycle(path, [folder])
        return table

    def refuse_cycle(self, path: Path, way: list[str]) -> None:
        for target in self.arrows[way[-1]]:
            if target in way:
                raise TableError(f"{path}: a cycle: {' -> '.join([*way, target])}")
            self.refuse_cycle(path, [*way, target])

    def folder_of(self, file: PurePosixPath) -> str | None:
        """The deepest folder of the table that holds `file`."""
        return next((str(parent) for parent in file.parents if str(parent) in self.arrows), None)

    def allows(self, folder: str, included: PurePosixPath) -> bool:
        return any(included.is_relative_to(target) for target in [folder, *self.arrows[folder]])


class Tree:
    """The sources below `root`; every path is relative to it."""

    def __init__(self, root: Path, table: Table) -> None:
        self.table = table
        self.root = root
        paths = sorted(path.relative_to(root) for path in root.rglob("*") if path.suffix in SUFFIXES)
        self.sources = [PurePosixPath(path) for path in paths if path.parts[0] != "build" and path.parts[0][0] != "."]
        self.known = set(self.sources)

    def find(self, name: str, source: PurePosixPath) -> PurePosixPath | None:
        """The file that #include `name`, with its quotes or brackets, gets in `source`; None when it is not ours."""
        places = [PurePosixPath(place) for place in self.table.include_directories]
        if name.startswith('"'):
            places.insert(0, source.parent)
        for place in places:
            parts: list[str] = []
            for part in (place / name[1:-1]).parts:
                if part == ".." and parts:
                    parts.pop()
                else:
                    parts.append(part)
            if (found := PurePosixPath(*parts)) in self.known:
                return found
        return None

    def violations(self) -> Iterator[str]:
        for folder in self.table.arrows:
            if not any(source.is_relative_to(folder) for source in self.sources):
                yield f"{folder}: in the table, but there is no source in it; remove its line"
        for source in self.sources:
            folder = self.table.folder_of(source)
            if folder is None:
                yield f"{source}: its folder is not in the table; add a line with the folders that it may include"
                continue
            text = (self.root / source).read_text(encoding="utf-8")
            for number, line in enumerate(text.splitlines(), 1):
                if (match := INCLUDE.match(line)) and (fault := self.fault(folder, source, match["name"])):
                    yield f"{source}:{number}: {fault}"

    def fault(self, folder: str, source: PurePosixPath, name: str) -> str | None:
        """What is wrong with `source`, a file of `folder`, including `name`; None when nothing is."""
        included = self.find(name, source)
        if included is None:
            return None if name.startswith("<") else f"#include {name}: no such file in the tree; a system header has <>"
        if self.table.allows(folder, included):
            return None
        target = self.table.folder_of(included) or str(included.parent)
        allowed = ", ".join(self.table.arrows[folder]) or "no other folder"
        return (f"{folder} -> {target}: #include {name}; {folder} may include {allowed}. Move what both need to one of "
                f"these, or hand it in from a folder that may include both")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--root", type=Path, default=REPOSITORY, help="the tree to check (this one)")
    parser.add_argument("--table", type=Path, default=TABLE, help="the allowed arrows (%(default)s)")
    arguments = parser.parse_args()
    try:
        table = Table.read(arguments.table)
    except TableError as error:
        print(f"arrows: {error}", file=sys.stderr)
        return 2
    violations = list(Tree(arguments.root, table).violations())
    for violation in violations:
        print(violation, file=sys.stderr)
    if violations:
        print(f"{len(violations)} violations of {arguments.table}", file=sys.stderr)
    return 1 if violations else 0


if __name__ == "__main__":
    sys.exit(main())
