#!/usr/bin/python3
"""Counts the lines that a drawing inks twice.

Reads an SVG that contour wrote (single view, layered or sheet) and counts the
pairs of drawn segments that lie on one line of the page and overlap along it
by more than the rounding of the printed coordinates: a plotter would draw
that stretch twice, a CAD program would import two entities for it.

The writers print six significant digits, so on a page whose larger side is
below 1000 mm a coordinate is good to 0.001 mm; the tolerance is one such step
(two printed points each off by half a step). A pair counts when both ends of
the shorter segment lie within the tolerance of the longer one's line and
their stretches along it share more than the tolerance.

Pairs are reported by layer (Inkscape layer label; in a single-view file the
group number and its stroke width), a pair across layers under both names,
and in total. The frame and title block ("Sheet" layer) are left out.

Usage: svg-duplicates.py FILE.svg [--tolerance MM] [--json] [--list]
Standard library only; independent of the tool's own code.
"""

import argparse
import json
import math
import re
import sys
import xml.etree.ElementTree as ET

SVG = "{http://www.w3.org/2000/svg}"
INKSCAPE = "{http://www.inkscape.org/namespaces/inkscape}"
NUMBER = r"[-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?"
TOKEN = re.compile(r"[MmLlZzAaHhVv]|" + NUMBER)


def page_step(root):
    """The coarsest step of six significant digits on this page."""
    box = root.get("viewBox")
    if box:
        size = max(abs(float(v)) for v in box.replace(",", " ").split()[2:4])
    else:
        size = max(float(re.match(NUMBER, root.get(k, "0")).group()) for k in ("width", "height"))
    if size <= 0:
        size = 1.0
    return 10.0 ** (math.floor(math.log10(size)) - 5)


def path_segments(data):
    """The straight segments of path data (absolute M, L, H, V, Z; arcs only
    move the pen)."""
    tokens = TOKEN.findall(data)
    segments = []
    pos = start = None
    command = None
    i = 0

    def number():
        nonlocal i
        value = float(tokens[i])
        i += 1
        return value

    while i < len(tokens):
        if tokens[i].isalpha():
            command = tokens[i]
            i += 1
            if command in "Zz":
                if pos is not None and start is not None and pos != start:
                    segments.append((pos, start))
                pos = start
                continue
        if command in "Mm":
            pos = start = (number(), number())
            command = "L" if command == "M" else "l"
        elif command == "L":
            end = (number(), number())
            segments.append((pos, end))
            pos = end
        elif command == "H":
            end = (number(), pos[1])
            segments.append((pos, end))
            pos = end
        elif command == "V":
            end = (pos[0], number())
            segments.append((pos, end))
            pos = end
        elif command in "Aa":
            for _ in range(5):
                number()
            pos = (number(), number())
        else:
            raise ValueError("path command %r is not read here" % command)
    return segments


def drawn_segments(root):
    """(layer, segment) for every path piece outside the sheet frame."""
    found = []
    top_groups = 0

    def walk(element, layer):
        nonlocal top_groups
        for child in element:
            if child.tag == SVG + "g":
                label = layer
                if child.get(INKSCAPE + "groupmode") == "layer":
                    label = child.get(INKSCAPE + "label", child.get("id", "layer"))
                elif layer is None:
                    top_groups += 1
                    label = "group %d (stroke-width %s)" % (top_groups, child.get("stroke-width", "?"))
                if label != "Sheet":
                    walk(child, label)
            elif child.tag == SVG + "path" and layer is not None:
                for segment in path_segments(child.get("d", "")):
                    found.append((layer, segment))

    walk(root, None)
    return found


def same_line_overlap(a, b, tol):
    """Whether two segments lie on one line within tol and share more than
    tol of it."""
    (p, q), (r, s) = a, b
    la = math.hypot(q[0] - p[0], q[1] - p[1])
    lb = math.hypot(s[0] - r[0], s[1] - r[1])
    if la < lb:
        (p, q), (r, s), la, lb = (r, s), (p, q), lb, la
    if lb <= tol:
        return False
    ux, uy = (q[0] - p[0]) / la, (q[1] - p[1]) / la
    for x, y in (r, s):
        if abs((x - p[0]) * uy - (y - p[1]) * ux) > tol:
            return False
    t0 = (r[0] - p[0]) * ux + (r[1] - p[1]) * uy
    t1 = (s[0] - p[0]) * ux + (s[1] - p[1]) * uy
    return min(la, max(t0, t1)) - max(0.0, min(t0, t1)) > tol


def duplicate_pairs(segments, tol, cell=1.0):
    """Pairs (i, j), i < j, that ink the same stretch. Segments are sampled at
    a quarter cell or closer: two that share a stretch then have samples in
    neighbouring cells."""
    cells = {}
    samples = []
    for index, (_, (p, q)) in enumerate(segments):
        steps = max(1, int(math.ceil(math.hypot(q[0] - p[0], q[1] - p[1]) / (0.25 * cell))))
        mine = set()
        for k in range(steps + 1):
            t = k / steps
            mine.add((math.floor((p[0] + t * (q[0] - p[0])) / cell), math.floor((p[1] + t * (q[1] - p[1])) / cell)))
        samples.append(mine)
        for key in mine:
            cells.setdefault(key, []).append(index)
    pairs = []
    for i, mine in enumerate(samples):
        near = set()
        for cx, cy in mine:
            for dx in (-1, 0, 1):
                for dy in (-1, 0, 1):
                    near.update(j for j in cells.get((cx + dx, cy + dy), ()) if j > i)
        for j in sorted(near):
            if same_line_overlap(segments[i][1], segments[j][1], tol):
                pairs.append((i, j))
    return pairs


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("svg")
    parser.add_argument("--tolerance", type=float, help="in mm (default: one printed step of the page)")
    parser.add_argument("--json", action="store_true", help="the counts as one JSON object")
    parser.add_argument("--list", action="store_true", help="print every pair found")
    args = parser.parse_args()
    root = ET.parse(args.svg).getroot()
    tol = args.tolerance if args.tolerance is not None else page_step(root)
    segments = drawn_segments(root)
    counts = {}
    pairs = duplicate_pairs(segments, tol)
    for i, j in pairs:
        layers = sorted({segments[i][0], segments[j][0]})
        key = " / ".join(layers)
        counts[key] = counts.get(key, 0) + 1
        if args.list:
            print("%s: %s %s" % (key, segments[i][1], segments[j][1]))
    result = {"segments": len(segments), "toleranceMM": tol, "pairs": counts, "total": len(pairs)}
    if args.json:
        print(json.dumps(result))
    else:
        print("%s: %d segments, tolerance %g mm" % (args.svg, len(segments), tol))
        for key in sorted(counts):
            print("  %s: %d" % (key, counts[key]))
        print("  total: %d" % len(pairs))
    return 0


if __name__ == "__main__":
    sys.exit(main())
