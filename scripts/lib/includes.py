#!/usr/bin/env python3
"""The modules of src/ and sim/, their layers and the includes between them. A module is a source
file with its header. Run as a program, checks that no module includes a higher layer, that src/
and sim/ do not include each other, and that no modules include each other in a circle."""

import graphlib
import pathlib
import re
import sys
from collections.abc import Iterator
from typing import NamedTuple

ROOT = pathlib.Path(__file__).resolve().parents[2]
# From the lowest layer to the highest: the names of directories and of modules without one. All
# other modules without a directory belong to the highest layer.
LAYERS = {
    "src": [["support"], ["link"], ["transfer"], ["commands"], ["frontend"], ["checker"],
            ["programs"]],
    "sim": [["text", "file", "descriptor"], ["flash"], ["firmware"], ["faults"], ["port"],
            ["program"]],
}


class Include(NamedTuple):
    place: str  # FILE:LINE
    start: str  # the including module, such as src/link/wire
    end: str    # the included one


def includes(root: pathlib.Path = ROOT) -> Iterator[Include]:
    """Every include of one module by another. Includes of a module's own header are left out."""
    for tree in LAYERS:
        for file in sorted((root / tree).rglob("*.[ch]*")):
            for number, line in enumerate(file.read_text().splitlines(), 1):
                found = re.match(r'\s*#\s*include\s*[<"](.+?)[>"]', line)
                end = found and included_module(root, file, tree, found[1])
                start = str(file.relative_to(root).with_suffix(""))
                if end and end != start:
                    yield Include(f"{file.relative_to(root)}:{number}", start, end)


def included_module(root: pathlib.Path, file: pathlib.Path, tree: str, header: str) -> str | None:
    """The module of an included header, None for one that belongs to neither tree."""
    other, = set(LAYERS) - {tree}
    for directory in (file.parent, root / tree, root / other, root):
        found = (directory / header).resolve()
        if found.is_file() and found.is_relative_to(root):
            name = str(found.relative_to(root).with_suffix(""))
            return name if name.split("/")[0] in LAYERS else None
    return None


def layer(module: str) -> tuple[int, str]:
    """A module's layer: its number, from 0 upwards, and its name."""
    tree, name = module.split("/")[:2]
    layers = LAYERS[tree]
    for number, names in enumerate(layers):
        if name in names:
            return number, name
    if module.count("/") > 1:
        sys.exit(f"{tree}/{name} is a directory of no layer: add it to scripts/lib/includes.py")
    return len(layers) - 1, layers[-1][0]


def broken_rules(arrows: list[Include]) -> Iterator[str]:
    graph: dict[str, set[str]] = {}
    for place, start, end in arrows:
        graph.setdefault(start, set()).add(end)
        (low, low_name), (high, high_name) = layer(start), layer(end)
        if start.split("/")[0] != end.split("/")[0]:
            yield f"{place}: includes {end}.h: src/ and sim/ must not include each other"
        elif low < high:
            yield (f"{place}: includes {end}.h: {low_name} must not include {high_name}, "
                   "a higher layer")
    try:
        graphlib.TopologicalSorter(graph).prepare()
    except graphlib.CycleError as error:
        circle = " -> ".join(reversed(error.args[1]))
        yield f"{circle}: modules must not include each other in a circle"


def main() -> None:
    arrows = list(includes())
    broken = list(broken_rules(arrows))
    print("\n".join([*broken, f"{len(arrows)} includes, {len(broken)} rules broken"]))
    sys.exit(bool(broken) or not arrows)


if __name__ == "__main__":
    main()
