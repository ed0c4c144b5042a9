#!/usr/bin/env python3
"""Times the krboxlibrary Python module over a library: opening it, walk(), reading the name,
tooltip and tags of every box, and a walk of its own over Node.children.

Usage: PYTHONPATH=build/dev/python bench/python_walk.py LIBRARY
(make a large one with: build/dev/bench/krbox-generate /tmp/big --boxes 50000)
"""
import sys
import time

import krboxlibrary


def timed(label, function):
    start = time.perf_counter()
    result = function()
    print(f"{label:<28}{time.perf_counter() - start:8.3f} s")
    return result


def read_boxes(nodes):
    count = 0
    for node in nodes:
        if node.is_box:
            node.name, node.tooltip, node.tags
            count += 1
    return count


def walk_children(root):
    # A stack, not recursion: folders may nest deeper than Python's recursion limit.
    count, pending = 0, [root]
    while pending:
        children = pending.pop().children
        count += len(children)
        pending.extend(reversed(children))
    return count


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: python_walk.py LIBRARY")
    library = timed("open", lambda: krboxlibrary.Library(sys.argv[1], read_only=True))
    nodes = timed("walk()", library.walk)
    boxes = timed("name, tooltip, tags of boxes", lambda: read_boxes(nodes))
    total = timed("walk over children", lambda: walk_children(library.root))
    timed("walk() and read boxes", lambda: read_boxes(library.walk()))
    print(f"{len(nodes)} nodes, {boxes} boxes; the children walk found {total}")


if __name__ == "__main__":
    main()
