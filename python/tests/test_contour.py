# The Python package against the real tool: arrays drawn as the tool draws
# the same file, lines that agree with the file's paths, refusals, Ctrl-C.
import json
import os
import re
import signal
import subprocess
import sys
import textwrap
import threading
import time
from pathlib import Path

import numpy as np
import pytest

import contour

ROOT = Path(__file__).resolve().parents[2]
TOOL = os.environ.get("CONTOUR_TOOL", str(ROOT / "build" / "tools" / "contour" / "contour"))
ENV = dict(os.environ, SOURCE_DATE_EPOCH="1717113600")


def sphere_and_box(rows=10, columns=20, noise=0.0, seed=1):
    """A UV sphere (smooth, silhouettes) pierced by a box (creases, intersections), float32."""
    theta, phi = np.meshgrid(np.linspace(0.1, np.pi - 0.1, rows), np.linspace(0, 2 * np.pi, columns, endpoint=False),
                             indexing="ij")
    radius = 1 + noise * np.random.default_rng(seed).random(theta.shape)
    sphere = np.stack([radius * np.sin(theta) * np.cos(phi), radius * np.cos(theta),
                       radius * np.sin(theta) * np.sin(phi)], -1).reshape(-1, 3)
    grid = np.arange(rows * columns).reshape(rows, columns)
    a, b = grid[:-1], np.roll(grid, -1, axis=1)[:-1]
    c, d = grid[1:], np.roll(grid, -1, axis=1)[1:]
    faces = np.concatenate([np.stack([a, c, b], -1).reshape(-1, 3), np.stack([b, c, d], -1).reshape(-1, 3)])
    corners = np.array([[x, y, z] for x in (-0.4, 1.5) for y in (-0.3, 0.3) for z in (-0.3, 0.3)])
    box = np.array([[0, 1, 3], [0, 3, 2], [4, 6, 7], [4, 7, 5], [0, 4, 5], [0, 5, 1],
                    [2, 3, 7], [2, 7, 6], [0, 2, 6], [0, 6, 4], [1, 5, 7], [1, 7, 3]]) + len(sphere)
    return np.concatenate([sphere, corners]).astype(np.float32), np.concatenate([faces, box])


def write_obj(path, vertices, faces, normals=None):
    lines = ["v %.9g %.9g %.9g" % tuple(v) for v in vertices]
    if normals is None:
        lines += ["f %d %d %d" % tuple(f + 1) for f in faces]
    elif normals.ndim == 2:
        lines += ["vn %.9g %.9g %.9g" % tuple(n) for n in normals]
        lines += ["f " + " ".join("%d//%d" % (i + 1, i + 1) for i in f) for f in faces]
    else:
        lines += ["vn %.9g %.9g %.9g" % tuple(n) for n in normals.reshape(-1, 3)]
        lines += ["f " + " ".join("%d//%d" % (i + 1, 3 * t + k + 1) for k, i in enumerate(f))
                  for t, f in enumerate(faces)]
    Path(path).write_text("\n".join(lines) + "\n")


def tool(*args, cwd):
    subprocess.run([TOOL, "-q", *map(str, args)], cwd=cwd, env=ENV, check=True)


def face_normals(vertices, faces):
    """Each face's normal at its three corners: every edge a crease."""
    n = np.cross(vertices[faces[:, 1]] - vertices[faces[:, 0]], vertices[faces[:, 2]] - vertices[faces[:, 0]])
    return np.repeat(n / np.linalg.norm(n, axis=1, keepdims=True), 3, 0).reshape(-1, 3, 3).astype(np.float32)


@pytest.mark.parametrize("normals, extra, options", [
    ("none", "", {}), ("vertex", "", {"hidden": True, "view": "front", "threads": 1}),
    ("corner", "", {"azimuth": 30, "elevation": 20, "up": (0, 0, 1), "page": "A3", "landscape": True}),
    ("none", "occluder", {"perspective": True, "eye": (3, 2, 4), "target": (0, 0.2, 0), "fov": 40, "margin": 5,
                          "color": "#203060", "crease_width": 0.25, "keep_common": True, "page": "200x150"}),
    ("none", "two", {"arcs": True, "bits": (18, 16), "smoothing_angle": 10}),
    ("none", "", {"sheet": True, "hidden": True, "iso_hidden": True, "front": "-x", "part_number": "P-1",
                  "drawn_by": "A. Drafter"})])
def test_arrays_draw_as_the_tool_draws_the_file(tmp_path, monkeypatch, normals, extra, options):
    monkeypatch.setenv("SOURCE_DATE_EPOCH", ENV["SOURCE_DATE_EPOCH"])
    vertices, faces = sphere_and_box()
    n = {"none": None, "vertex": vertices / np.linalg.norm(vertices, axis=1, keepdims=True),
         "corner": face_normals(vertices, faces)}[normals]
    n = None if n is None else n.astype(np.float32)
    write_obj(tmp_path / "part.obj", vertices, faces, n)
    other = (vertices * np.float32(0.5) + np.float32(0.6), faces)
    write_obj(tmp_path / "other.obj", *other)
    arguments = {"": [], "occluder": ["--occluder", "other.obj"], "two": ["other.obj"]}[extra]
    for key, value in options.items():
        flag = "--" + key.replace("_", "-")
        arguments += [flag] if value is True else [flag, ",".join(map(str, value)) if isinstance(value, tuple)
                                                   else str(value).replace(", ", "x")]
    tool("part.obj", *arguments, "--stats", "part.json", "-o", "tool.svg", cwd=tmp_path)
    mesh = (vertices, faces) if n is None else (vertices, faces, n)
    sheet = options.pop("sheet", False)
    run = contour.sheet if sheet else contour.draw
    inputs = {"": mesh, "occluder": mesh, "two": [mesh, other]}[extra]
    drawing = run(inputs, occluders=other if extra == "occluder" else None,
                  title="part.obj, other.obj" if extra == "two" else "part.obj", **options)
    assert drawing.svg() == (tmp_path / "tool.svg").read_text()
    record = json.loads((tmp_path / "part.json").read_text())
    assert drawing.stats["segments"] == record["segments"] and drawing.stats["camera"] == record["camera"]
    assert drawing.stats["page"] == record["page"]
    # The files themselves, through the importer, draw the same too.
    files = {"": tmp_path / "part.obj", "occluder": tmp_path / "part.obj",
             "two": [tmp_path / "part.obj", str(tmp_path / "other.obj")]}[extra]
    from_file = run(files, occluders=tmp_path / "other.obj" if extra == "occluder" else None, **options)
    assert from_file.svg() == drawing.svg() and from_file.stats["inputs"][0]["file"].endswith("part.obj")
    drawing.save(tmp_path / "tool.svg")
    assert (tmp_path / "tool.svg").read_text() == drawing.svg()


def test_units_as_the_tool_takes_them(tmp_path, monkeypatch):
    monkeypatch.setenv("SOURCE_DATE_EPOCH", ENV["SOURCE_DATE_EPOCH"])
    block = ROOT / "tests/models/units/block_metres.gltf"
    tool(block, "--sheet", "--units", "mm", "-o", "tool.svg", cwd=tmp_path)
    speck = contour.sheet(block, units="mm")
    assert speck.svg() == (tmp_path / "tool.svg").read_text()
    assert speck.stats["units"] == "mm" and speck.stats["unitWarning"].endswith("add --units m")
    stated = contour.sheet(block)
    assert stated.stats["units"] == "m" and stated.stats["unitWarning"] is None


def test_step_part_with_a_tolerance(tmp_path, monkeypatch):
    monkeypatch.setenv("SOURCE_DATE_EPOCH", ENV["SOURCE_DATE_EPOCH"])
    plate = ROOT / "tests/models/cad-step/plate.step"
    tool(plate, "--sheet", "--tolerance", "0.005", "-o", "tool.svg", cwd=tmp_path)
    drawn = contour.sheet(plate, tolerance=0.005)
    assert drawn.svg() == (tmp_path / "tool.svg").read_text()
    assert drawn.stats["inputs"][0]["cad"]["surfaces"]["cylinder"] == 6
    assert drawn.stats["inputs"][0]["triangles"] > contour.sheet(plate).stats["inputs"][0]["triangles"]
    with pytest.raises(ValueError, match="tolerance"):
        contour.sheet(plate, tolerance=0)


def svg_paths(svg):
    return [np.array(re.findall(r"(-?[\d.]+)[ ,](-?[\d.]+)", d), float) for d in re.findall(r' d="([^"]*)"', svg)]


def test_lines_agree_with_the_svg():
    drawing = contour.draw([sphere_and_box(), (sphere_and_box()[0] + 2.5, sphere_and_box()[1])],
                           azimuth=20, elevation=50)
    polylines = [p for kind in ("crease", "silhouette", "intersection") for p in drawing.polylines(kind)]
    paths = svg_paths(drawing.svg())
    assert len(paths) == len(polylines) == drawing.stats["paths"] > 10
    for path, line in zip(paths, polylines):
        np.testing.assert_allclose(path, line, atol=2e-3)
    for kind in ("crease", "silhouette", "intersection"):
        segments = drawing.lines(kind)
        chained = np.concatenate([np.stack([p[:-1], p[1:]], 1) for p in drawing.polylines(kind)] + [segments[:0]])
        key = lambda s: sorted(map(tuple, np.round(np.sort(s, axis=1), 4).reshape(-1, 4)))
        assert key(segments) == key(chained)
        assert drawing.lines(kind, "world").shape == (len(segments), 2, 3)
    assert drawing.lines("hidden").shape == (0, 2, 2)
    # The world ends through the record's camera and fit land on the page ends.
    world, page = drawing.lines("silhouette", "world"), drawing.lines("silhouette")
    clip = np.c_[world.reshape(-1, 3), np.ones(len(world) * 2)] @ np.array(drawing.stats["camera"]["worldToClip"])
    fit, offset = np.array(drawing.stats["page"]["fit"]), np.array(drawing.stats["page"]["offsetMM"])
    xy = clip[:, :2] / clip[:, 3:] @ fit.T + offset
    np.testing.assert_allclose(np.c_[xy[:, 0], drawing.stats["page"]["heightMM"] - xy[:, 1]], page.reshape(-1, 2),
                               atol=1e-3)
    hidden = contour.draw(sphere_and_box(), hidden=True)
    assert len(hidden.lines("hidden")) == hidden.stats["segments"]["hidden"]["pieces"] > 0
    assert hidden._repr_svg_() == hidden.svg()


class Mesh:
    def __init__(self, vertices, faces):
        self.vertices, self.faces = vertices, faces


V, F = sphere_and_box()


@pytest.mark.parametrize("inputs, error, reason", [
    ((V[:, :2], F), ValueError, r"vertices must have shape \(n, 3\)"),
    ((V.astype(np.int32), F), ValueError, "vertices must be float32 or float64"),
    ((V, F.astype(np.float64)), ValueError, "faces must be integers"),
    ((V, F[:, :2]), ValueError, r"faces must have shape \(m, 3\)"),
    ((np.where(np.arange(len(V))[:, None] == 5, np.nan, V), F), ValueError, "vertex 5 has a coordinate"),
    ((np.where(np.arange(len(V))[:, None] == 7, 1e300, V.astype(np.float64)), F), ValueError, "vertex 7 has"),
    ((V, F + 1), ValueError, "names vertex %d, but there are %d" % (len(V), len(V))),
    ((V, F - 1), ValueError, "names vertex -1"),
    ((V, F.astype(np.uint64) + np.uint64(2**63)), ValueError, "names vertex"),
    ((V[:0], F[:0]), ValueError, "no vertices"),
    (Mesh(V, F[:0]), ValueError, "no faces"),
    ((V, F, V[:3]), ValueError, r"normals must have shape"),
    ((V, F, np.full((len(F), 3, 3), np.inf, np.float32)), ValueError, "normal 0 has"),
    ([object()], ValueError, "is not a file"),
    ("no-such-file.obj", OSError, "cannot open 'no-such-file.obj'"),
    (ROOT / "tests/models/malformed/out_of_range_indices.obj", OSError, "cannot read"),
])
@pytest.mark.filterwarnings("ignore:overflow")
def test_bad_inputs_raise_one_line_errors(inputs, error, reason):
    with pytest.raises(error, match=reason) as raised:
        contour.draw(inputs)
    assert "\n" not in str(raised.value)


@pytest.mark.parametrize("options, reason", [
    ({"view": "sideways"}, "view"), ({"page": "A9"}, "page"), ({"bits": (40, 40)}, "bits"),
    ({"margin": 200}, "margin"), ({"fov": 40}, "perspective"), ({"view": "top", "azimuth": 3}, "either"),
    ({"color": "mauve"}, "color"), ({"threads": 0}, "threads"), ({"up": (0, 0, 0)}, "up"),
    ({"units": "furlong"}, "units")])
def test_bad_options_raise(options, reason):
    with pytest.raises(ValueError, match=reason):
        contour.draw((V, F), **options)


@pytest.mark.parametrize("options, reason", [
    ({"scale": "1000000:1"}, "largest standard scale at which they fit is"), ({"scale": "1:2.5"}, "scale"),
    ({"front": "up"}, "front"), ({"iso_hidden": True}, "iso_hidden")])
def test_bad_sheet_options_raise(options, reason):
    with pytest.raises(ValueError, match=reason):
        contour.sheet((V, F), **options)


def test_progress_reports_and_can_stop():
    seen = []
    contour.draw((V, F), progress=lambda phase, fraction: seen.append((phase, fraction)))
    assert seen[-1] == ("done", 1.0) and {"import", "occlusion"} <= {p for p, _ in seen}
    # Another thread runs while a drawing is computed: with the lock held
    # throughout, it would not tick once in between.
    ticks, running = [], threading.Event()

    def tick():
        running.wait()
        while running.is_set():
            ticks.append(time.monotonic())
            time.sleep(0.002)
    ticker = threading.Thread(target=tick)
    ticker.start()
    running.set()
    begin = time.monotonic()
    contour.draw(sphere_and_box(100, 200), threads=1)
    end = time.monotonic()
    running.clear()
    ticker.join()
    assert len([t for t in ticks if begin + 0.005 < t < end - 0.005]) >= 2

    def stop(phase, fraction):
        raise RuntimeError("enough")
    with pytest.raises(RuntimeError, match="enough"):
        contour.draw((V, F), progress=stop)


def test_ctrl_c_stops_a_large_drawing_quickly(tmp_path):
    # The child times the stop from the moment its handler saw the signal,
    # which the waiting interpreter runs within a slice.
    script = textwrap.dedent(f"""
        import signal, sys, time
        sys.path[:0] = {sys.path!r}
        import contour
        from test_contour import sphere_and_box
        mesh = sphere_and_box(200, 400, noise=0.02)
        seen = []
        def started(phase, fraction):
            if phase == "occlusion" and not seen: print("computing", flush=True); seen.append(0)
        def interrupt(*_):
            seen[0] = time.monotonic()
            raise KeyboardInterrupt
        signal.signal(signal.SIGINT, interrupt)
        try:
            contour.draw(mesh, progress=started, hidden=True).save({str(tmp_path / "out.svg")!r})
        except KeyboardInterrupt:
            print(time.monotonic() - seen[0], flush=True)
            raise
    """)
    child = subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                             cwd=Path(__file__).parent, text=True)
    assert child.stdout.readline() == "computing\n"
    time.sleep(0.3)
    child.send_signal(signal.SIGINT)
    sent = time.monotonic()
    stdout, stderr = child.communicate(timeout=10)
    # Bounds loose enough for a loaded machine; a drawing that ran on would
    # take seconds more.
    assert time.monotonic() - sent < 3.0 and float(stdout) < 1.0, f"the drawing went on {stdout} s after Ctrl-C"
    assert "KeyboardInterrupt" in stderr and child.returncode != 0
    assert not (tmp_path / "out.svg").exists()
