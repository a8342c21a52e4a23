"""Exact hidden-line drawings of triangle meshes, as SVG pages in millimetres.

    import contour
    drawing = contour.draw("part.stl", view="front", hidden=True)
    drawing.save("part.svg")
    drawing.lines("silhouette")        # (k, 2, 2) page millimetres, y down

    model = contour.Model("part.stl")  # read and prepared once, for many cameras
    model.draw(azimuth=30).save("part-30.svg")

The options are those of the ``contour`` tool, spelt as Python keywords
(``--keep-common`` is ``keep_common``), with the same defaults and checks.

Errors: bad arrays or options raise ValueError; a model file that cannot be
read raises OSError with the importer's one-line reason; a drawing that
fails otherwise raises RuntimeError. Ctrl-C stops a drawing within a fraction
of a second and raises KeyboardInterrupt.
"""
from __future__ import annotations

import json
import math
import os
import time
from typing import Any, Callable, Dict, List, Optional, Sequence, Tuple

import numpy as np

from . import _contour

__all__ = ["Drawing", "Model", "draw", "sheet", "batch", "KINDS"]

#: The kinds of line, named as the layers of the SVG file.
KINDS = ("crease", "silhouette", "intersection", "hidden")

_VIEWS = {"front": (0, 0), "right": (90, 0), "back": (180, 0), "left": (270, 0),
          "top": (0, 90), "bottom": (0, -90), "iso": (45, 35.2644)}
_SIDES = {"+x": (1.0, 0.0, 0.0), "-x": (-1.0, 0.0, 0.0), "+y": (0.0, 1.0, 0.0), "-y": (0.0, -1.0, 0.0),
          "+z": (0.0, 0.0, 1.0), "-z": (0.0, 0.0, -1.0)}
_PAGES = {"a0": ("A0", 841.0, 1189.0), "a1": ("A1", 594.0, 841.0), "a2": ("A2", 420.0, 594.0),
          "a3": ("A3", 297.0, 420.0), "a4": ("A4", 210.0, 297.0), "a5": ("A5", 148.0, 210.0),
          "letter": ("letter", 215.9, 279.4), "legal": ("legal", 215.9, 355.6)}
_COLORS = {"black": "#000000", "gray": "#808080", "grey": "#808080", "red": "#ff0000",
           "green": "#008000", "blue": "#0000ff"}


class Drawing:
    """A finished drawing: its SVG text, its lines as arrays and its record."""

    def __init__(self, result: Dict[str, Any], sheet: bool) -> None:
        self._svg: str = result["svg"]
        self._lines: Dict[str, tuple] = result["lines"]
        self._sheet = sheet
        #: The record that the tool's ``--stats FILE`` writes, as a dict.
        self.stats: Dict[str, Any] = json.loads(result["stats"])

    def svg(self) -> str:
        """The SVG file's text."""
        return self._svg

    def save(self, path: "os.PathLike[str] | str") -> None:
        """Writes the SVG file; a file already at path is replaced only once the new one is complete."""
        _contour.save(os.fspath(path), self._svg)

    def _kind(self, kind: str) -> tuple:
        if kind not in KINDS:
            raise ValueError(f"kind: {kind!r} is not one of {', '.join(KINDS)}")
        if self._sheet:
            raise ValueError("a sheet holds several views; lines are given for a single view")
        return self._lines.get(kind) or (np.zeros((0, 2, 3)), np.zeros((0, 2, 2)), [], [])

    def lines(self, kind: str, space: str = "page") -> np.ndarray:
        """The drawn segments of a kind: (k, 2, 2) page millimetres (x right, y down, as in the SVG
        file) or, with space="world", (k, 2, 3) model coordinates. Hidden lines exist only when the
        drawing was made with hidden=True."""
        return self._kind(kind)[_space(space)]

    def polylines(self, kind: str, space: str = "page") -> List[np.ndarray]:
        """The segments of a kind chained into polylines as the single-view file writes its paths:
        a list of (p, 2) page (or (p, 3) world) arrays."""
        return self._kind(kind)[2 + _space(space)]

    def _repr_svg_(self) -> str:
        return self._svg

    def __repr__(self) -> str:
        return f"<contour.Drawing {self.stats['page']['size']}, {self.stats['paths']} paths>"


def _space(space: str) -> int:
    if space not in ("world", "page"):
        raise ValueError(f"space: {space!r} is not 'page' or 'world'")
    return 0 if space == "world" else 1


def _is_path(item: Any) -> bool:
    return isinstance(item, (str, bytes, os.PathLike))


def _inputs(items: Any, what: str) -> List[tuple]:
    """Each input as the module takes it: ("path", file) or ("mesh", label, vertices, faces, normals)."""
    if items is None:
        return []
    if _is_path(items) or isinstance(items, tuple) or hasattr(items, "faces"):
        items = [items]
    result = []
    for index, item in enumerate(items):
        label = f"({what} {index})"
        if _is_path(item):
            result.append(("path", os.fsdecode(item)))
        elif isinstance(item, tuple) and len(item) in (2, 3):
            result.append(("mesh", label, item[0], item[1], item[2] if len(item) == 3 else None))
        elif hasattr(item, "vertices") and hasattr(item, "faces"):
            normals = getattr(item, "normals", None)
            result.append(("mesh", label, item.vertices, item.faces, normals))
        else:
            raise ValueError(f"{what} {index} is not a file, a (vertices, faces) pair or a mesh object")
    return result


def _number(name: str, value: Any, low: float, high: float, open_low: bool = False,
            open_high: bool = False, unit: str = "") -> float:
    try:
        number = float(value)
    except (TypeError, ValueError):
        raise ValueError(f"{name}: {value!r} is not a number") from None
    if not math.isfinite(number) or (number <= low if open_low else number < low) or \
            (number >= high if open_high else number > high):
        raise ValueError(f"{name}: {value!r} is outside {'(' if open_low else '['}{low:g}, "
                         f"{high:g}{')' if open_high else ']'}{unit}")
    return number


def _point(name: str, value: Any) -> Tuple[float, float, float]:
    try:
        xyz = tuple(float(v) for v in value)
    except (TypeError, ValueError):
        xyz = ()
    if len(xyz) != 3 or not all(math.isfinite(v) for v in xyz):
        raise ValueError(f"{name}: {value!r} is not three finite numbers (x, y, z)")
    return xyz  # type: ignore[return-value]


def _page(page: Any, landscape: bool) -> Tuple[float, float, str]:
    if isinstance(page, str) and page.lower() in _PAGES:
        label, width, height = _PAGES[page.lower()]
        custom = False
    else:
        custom = True
        try:
            pieces = page.lower().split("x") if isinstance(page, str) else list(page)
            width, height = (float(p) for p in pieces)
        except (TypeError, ValueError, AttributeError):
            raise ValueError(f"page: {page!r} is not A0-A5, letter, legal, 'WIDTHxHEIGHT' or "
                             "(width, height) in millimetres") from None
        if not (0 < width <= 1e5 and 0 < height <= 1e5):
            raise ValueError(f"page: both sides of {page!r} must lie in (0, 100000] mm")
    if landscape and width < height:
        width, height = height, width
    if custom:
        return width, height, f"{width:g} x {height:g} mm"
    return width, height, label + (" landscape" if landscape else " portrait")


_UNITS = ("mm", "cm", "m", "in", "ft", "um")


def _color(color: str) -> Tuple[int, int, int]:
    text = _COLORS.get(str(color).lower(), str(color).lower())
    if len(text) == 4 and text[0] == "#":
        text = "#" + "".join(c * 2 for c in text[1:])
    if len(text) != 7 or text[0] != "#" or any(c not in "0123456789abcdef" for c in text[1:]):
        raise ValueError(f"color: {color!r} is not #RRGGBB, #RGB or black, gray, red, green, blue")
    return int(text[1:3], 16), int(text[3:5], 16), int(text[5:7], 16)


def _run(inputs: Any, occluders: Any, progress: Optional[Callable[[str, float], Any]], *, sheet: bool,
         view: Optional[str], azimuth: Optional[float], elevation: Optional[float],
         eye: Optional[Sequence[float]], target: Optional[Sequence[float]], up: Optional[Sequence[float]],
         perspective: bool, fov: Optional[float], projection: Optional[str], page: Any, landscape: bool,
         margin: float, title: Optional[str], description: Optional[str], bits: Tuple[int, int],
         smoothing_angle: float, crease_width: Optional[float], silhouette_width: Optional[float],
         color: Optional[str], keep_common: bool, hidden: bool, layers: bool, arcs: bool,
         threads: Optional[int], units: Optional[str] = None, tolerance: Optional[float] = None,
         **sheet_only: Any) -> Drawing:
    models, hiding, options = _prepare(
        inputs, occluders, sheet=sheet, view=view, azimuth=azimuth, elevation=elevation, eye=eye, target=target,
        up=up, perspective=perspective, fov=fov, projection=projection, page=page, landscape=landscape,
        margin=margin, title=title, description=description, bits=bits, smoothing_angle=smoothing_angle,
        crease_width=crease_width, silhouette_width=silhouette_width, color=color, keep_common=keep_common,
        hidden=hidden, layers=layers, arcs=arcs, threads=threads, units=units, tolerance=tolerance, **sheet_only)
    return Drawing(_contour.draw(models, hiding, options, progress), sheet)


def _prepare(inputs: Any, occluders: Any, *, sheet: bool, view: Optional[str], azimuth: Optional[float],
             elevation: Optional[float], eye: Optional[Sequence[float]], target: Optional[Sequence[float]],
             up: Optional[Sequence[float]], perspective: bool, fov: Optional[float], projection: Optional[str],
             page: Any, landscape: bool, margin: float, title: Optional[str], description: Optional[str],
             bits: Tuple[int, int], smoothing_angle: float, crease_width: Optional[float],
             silhouette_width: Optional[float], color: Optional[str], keep_common: bool, hidden: bool,
             layers: bool, arcs: bool, threads: Optional[int], units: Optional[str] = None,
             tolerance: Optional[float] = None, scale: Optional[str] = None, front: Optional[str] = None,
             part_number: Optional[str] = None,
             drawn_by: Optional[str] = None,
             iso_hidden: bool = False) -> Tuple[List[tuple], List[tuple], Dict[str, Any]]:
    """The inputs and the checked options, completed with the tool's defaults, as the module takes them."""
    models = _inputs(inputs, "model")
    hiding = _inputs(occluders, "occluder")
    if sheet:
        for given, name in ((perspective, "perspective"), (view is not None, "view"), (eye is not None, "eye"),
                            (azimuth is not None, "azimuth"), (elevation is not None, "elevation")):
            if given:
                raise ValueError(f"a sheet draws fixed orthographic views; {name} does not apply to it")
        projection = (projection or "third").lower()
        if projection not in ("third", "first"):
            raise ValueError(f"projection: {projection!r} is not 'third' or 'first'")
        if page is None:
            page, landscape = "A3", True
        if front is not None and str(front).lower() not in _SIDES:
            raise ValueError(f"front: {front!r} is not +x, -x, +y, -y, +z or -z")
        if iso_hidden and not hidden:
            raise ValueError("iso_hidden: the iso view shows hidden lines only where hidden=True draws them")
    elif projection is not None:
        raise ValueError("projection: only a sheet has an arrangement of views")
    if view is not None and view.lower() not in _VIEWS:
        raise ValueError(f"view: {view!r} is not front, back, left, right, top, bottom or iso")
    angles = None
    if azimuth is not None or elevation is not None:
        if view is not None:
            raise ValueError("give either view or azimuth/elevation")
        if eye is not None:
            raise ValueError("give either eye or azimuth/elevation")
        angles = (0.0 if azimuth is None else _number("azimuth", azimuth, -36000, 36000, unit=" degrees"),
                  0.0 if elevation is None else _number("elevation", elevation, -90, 90, unit=" degrees"))
    up_vector = _point("up", up) if up is not None else (0.0, 1.0, 0.0)
    if not any(up_vector):
        raise ValueError("up: the direction must not be zero")
    if fov is not None and not perspective:
        raise ValueError("fov: only a perspective view has a lens angle (add perspective=True)")
    width, height, label = _page("A4" if page is None else page, landscape)
    margin = _number("margin", margin, 0, 1e5, unit=" mm")
    if not 2 * margin < min(width, height):
        raise ValueError(f"margin: {margin:g} mm leaves no room on the page")
    try:
        bit_pair = tuple(int(b) for b in bits)
    except (TypeError, ValueError):
        bit_pair = ()
    if len(bit_pair) != 2:
        raise ValueError(f"bits: {bits!r} is not a pair (xy, z)")
    if threads is not None and (not isinstance(threads, int) or not 1 <= threads <= 1024):
        raise ValueError(f"threads: {threads!r} is not a whole number from 1 to 1024")
    if units is not None and units not in _UNITS:
        raise ValueError(f"units: {units!r} is not mm, cm, m, in, ft or um")

    names = ", ".join(os.path.basename(m[1]) for m in models if m[0] == "path") or "contour drawing"
    view_name = (view or "iso").lower()
    if eye is not None:
        seen = "view from the given eye"
    elif angles is not None:
        seen = f"view from azimuth {angles[0]:g}, elevation {angles[1]:g} degrees"
    else:
        seen = f"{view_name} view"
    default_description = (f"front, top, side and iso views, {projection}-angle projection, orthographic" if sheet
                           else f"{seen}, {'perspective' if perspective else 'orthographic'}")
    options = {
        "view": view_name, "azimuth_elevation": angles,
        "eye": None if eye is None else _point("eye", eye),
        "target": None if target is None else _point("target", target), "up": up_vector,
        "up_given": up is not None,
        "perspective": bool(perspective),
        "fov": _number("fov", 30.0 if fov is None else fov, 0, 180, True, True, " degrees"),
        "margin": margin, "page_width": width, "page_height": height, "page_label": label,
        "bits": bit_pair, "threads": threads or 0, "hidden": bool(hidden), "layers": bool(layers),
        "arcs": bool(arcs), "keep_common": bool(keep_common),
        "title": names if title is None else title,
        "description": default_description if description is None else description,
        "sheet_title": names if title is None else title,
        "crease_width": None if crease_width is None else
        _number("crease_width", crease_width, 0, 100, True, unit=" mm"),
        "silhouette_width": None if silhouette_width is None else
        _number("silhouette_width", silhouette_width, 0, 100, True, unit=" mm"),
        "color": None if color is None else _color(color),
        "smoothing_angle": _number("smoothing_angle", smoothing_angle, 0, 180, unit=" degrees"),
        "tolerance": None if tolerance is None else _number("tolerance", tolerance, 0, 1e12, True),
        "sheet": bool(sheet), "projection": projection or "third", "units": units,
        "scale": "" if scale is None else str(scale),
        "front": None if front is None else _SIDES[str(front).lower()],
        "part_number": "" if part_number is None else str(part_number),
        "drawn_by": "" if drawn_by is None else str(drawn_by), "iso_hidden": bool(iso_hidden),
    }
    return models, hiding, options


def draw(inputs: Any, *, occluders: Any = None, view: Optional[str] = None, azimuth: Optional[float] = None,
         elevation: Optional[float] = None, eye: Optional[Sequence[float]] = None,
         target: Optional[Sequence[float]] = None, up: Optional[Sequence[float]] = None,
         perspective: bool = False, fov: Optional[float] = None, page: Any = None, landscape: bool = False,
         margin: float = 10.0, title: Optional[str] = None, description: Optional[str] = None,
         bits: Tuple[int, int] = (20, 20), smoothing_angle: float = 30.0, crease_width: Optional[float] = None,
         silhouette_width: Optional[float] = None, color: Optional[str] = None, keep_common: bool = False,
         hidden: bool = False, layers: bool = False, arcs: bool = False, threads: Optional[int] = None,
         units: Optional[str] = None, tolerance: Optional[float] = None,
         progress: Optional[Callable[[str, float], Any]] = None) -> Drawing:
    """Draws the visible lines of meshes as one view on a page, as the ``contour`` tool does.

    inputs: a model file (read by the tool's importer), a ``(vertices, faces)`` or
        ``(vertices, faces, normals)`` tuple of arrays -- vertices (n, 3) float32 or float64,
        faces (m, 3) integers, normals (n, 3) per vertex or (m, 3, 3) per corner -- any object with
        ``.vertices`` and ``.faces`` (and optionally ``.normals``), or a list of these. Meshes
        without normals get them per smooth fan (``smoothing_angle``), as files without do.
    occluders: the same kinds of input; they hide lines and are not drawn.
    view: front, back, left, right, top, bottom or iso (the default); ``azimuth``/``elevation``
        in degrees instead (0, 0 is the front view); ``eye`` (and ``target``) instead of both.
    up: the world direction shown upwards, (0, 1, 0) by default.
    perspective, fov: a perspective view with a lens angle in degrees (30 by default).
    page: A0-A5, letter, legal, "WIDTHxHEIGHT" or (width, height) in millimetres, A4 by default;
        portrait unless ``landscape``; ``margin`` the blank border in mm (10).
    bits: the (xy, z) grid bits of the visibility computation, (20, 20) by default.
    hidden: draw the hidden lines too, dashed, in a layer of their own; ``layers`` puts each kind
        of line in a layer; ``arcs`` writes circles as SVG arcs.
    crease_width, silhouette_width, color, keep_common, title, description: as the tool's options.
    threads: threads to compute with (one per core by default); the drawing is the same.
    units: mm, cm, m, in, ft or um, the unit of every model's coordinates, as ``--units``; by
        default the unit the first file states (glTF: metres, 3MF: its own), else millimetres,
        other files scaled into it.
    tolerance: for STEP, IGES and BREP files, the largest gap between a surface and its
        triangles, in the part's units (millimetres for STEP and IGES), as ``--tolerance``;
        a thousandth of the part's diagonal by default.
    progress: called as ``progress(phase, fraction)`` from the calling thread while the drawing is
        computed; an exception it raises stops the drawing and propagates.

    The interpreter's lock is released while the drawing is computed.
    """
    return _run(inputs, occluders, progress, sheet=False, view=view, azimuth=azimuth, elevation=elevation,
                eye=eye, target=target, up=up, perspective=perspective, fov=fov, projection=None, page=page,
                landscape=landscape, margin=margin, title=title, description=description, bits=bits,
                smoothing_angle=smoothing_angle, crease_width=crease_width, silhouette_width=silhouette_width,
                color=color, keep_common=keep_common, hidden=hidden, layers=layers, arcs=arcs, threads=threads,
                units=units, tolerance=tolerance)


def sheet(inputs: Any, *, occluders: Any = None, up: Optional[Sequence[float]] = None,
          projection: str = "third", scale: Optional[str] = None, front: Optional[str] = None,
          part_number: Optional[str] = None, drawn_by: Optional[str] = None, iso_hidden: bool = False,
          page: Any = None, landscape: bool = False, margin: float = 10.0,
          title: Optional[str] = None, description: Optional[str] = None, bits: Tuple[int, int] = (20, 20),
          smoothing_angle: float = 30.0, crease_width: Optional[float] = None,
          silhouette_width: Optional[float] = None, color: Optional[str] = None, keep_common: bool = False,
          hidden: bool = False, arcs: bool = False, threads: Optional[int] = None, units: Optional[str] = None,
          tolerance: Optional[float] = None, progress: Optional[Callable[[str, float], Any]] = None) -> Drawing:
    """Draws an engineering sheet of one part, as ``contour --sheet`` does: front, top and side views
    and an iso view at one standard scale (true to the models' unit, see ``units``), with frame and
    title block, on A3 landscape unless ``page`` is given. ``projection`` is "third" (angle, the
    default) or "first". ``scale`` ("1:2") forces a scale, refused when the views do not fit at it.
    ``up`` defaults to the first file's format convention (z for STL, 3MF and PLY, y otherwise);
    ``front`` ("+x", "-y", ...) names the side the front view shows, chosen as the most informative
    otherwise. ``part_number`` and ``drawn_by`` fill the title block; ``iso_hidden`` draws hidden
    lines in the iso view too (with ``hidden``). SOURCE_DATE_EPOCH, when set, gives the date in the
    title block. Inputs and the other options are those of draw(); the sheet's lines() are not
    available (several views).
    """
    return _run(inputs, occluders, progress, sheet=True, view=None, azimuth=None, elevation=None, eye=None,
                target=None, up=up, perspective=False, fov=None, projection=projection, page=page,
                landscape=landscape, margin=margin, title=title, description=description, bits=bits,
                smoothing_angle=smoothing_angle, crease_width=crease_width, silhouette_width=silhouette_width,
                color=color, keep_common=keep_common, hidden=hidden, layers=False, arcs=arcs, threads=threads,
                units=units, tolerance=tolerance, scale=scale, front=front, part_number=part_number,
                drawn_by=drawn_by, iso_hidden=iso_hidden)


# The keywords of draw() and sheet() that a batch passes on, with their defaults.
_DRAW_DEFAULTS: Dict[str, Any] = dict(
    view=None, azimuth=None, elevation=None, eye=None, target=None, up=None, perspective=False, fov=None,
    projection=None, page=None, landscape=False, margin=10.0, title=None, description=None, bits=(20, 20),
    smoothing_angle=30.0, crease_width=None, silhouette_width=None, color=None, keep_common=False, hidden=False,
    layers=False, arcs=False, threads=None, units=None, tolerance=None, scale=None, front=None, part_number=None,
    drawn_by=None,
    iso_hidden=False)
_SHEET_ONLY = {"projection", "scale", "front", "part_number", "drawn_by", "iso_hidden"}
_VIEW_ONLY = {"view", "azimuth", "elevation", "eye", "target", "perspective", "fov", "layers"}


# What a Model holds for all its drawings, and so no drawing of it takes.
_MODEL_ONLY = ("inputs", "occluders", "units", "smoothing_angle", "tolerance")


class Model:
    """A model read once and prepared once, to be drawn from many cameras (an orbit, the views of a
    documentation set): the files are not read again, nor the edges that do not depend on the
    camera found again, for each drawing.

        model = contour.Model("part.stl")
        for azimuth in range(0, 360, 30):
            model.draw(azimuth=azimuth, elevation=20).save(f"part-{azimuth:03}.svg")

    inputs, occluders, units, smoothing_angle, tolerance: as for draw(); they shape the model
    itself, so they are given here and not per drawing.
    threads: threads to prepare with (one per core by default), and the drawings' default.

    Each drawing is the one that draw() or sheet() makes of the same inputs with the same options,
    byte for byte (the record differs in its times only). Several Python threads may draw from one
    model at once. The interpreter's lock is released while the model is read and prepared, as
    while it is drawn; Ctrl-C stops the reading between files.
    """

    def __init__(self, inputs: Any, *, occluders: Any = None, units: Optional[str] = None,
                 smoothing_angle: float = 30.0, tolerance: Optional[float] = None,
                 threads: Optional[int] = None) -> None:
        self._model_options = dict(units=units, smoothing_angle=smoothing_angle, tolerance=tolerance)
        self._threads = threads
        models, hiding, options = _prepare(inputs, occluders, **self._settings("Model", False, {}))
        # The files name the drawings, as they do draw()'s.
        self._paths = [m[1] for m in models if m[0] == "path"]
        self._native = _contour.Model(models, hiding, options)

    def _settings(self, what: str, sheet: bool, given: Dict[str, Any]) -> Dict[str, Any]:
        """The keywords of _prepare for a drawing of this model with the options given."""
        for key in given:
            if key in _MODEL_ONLY:
                raise TypeError(f"{what}() got {key!r}, which belongs to the model: give it to contour.Model()")
        allowed = set(_DRAW_DEFAULTS) - (_VIEW_ONLY if sheet else _SHEET_ONLY)
        unknown = sorted(set(given) - allowed)
        if unknown:
            raise TypeError(f"{what}() got an unexpected keyword {unknown[0]!r}")
        settings = dict(_DRAW_DEFAULTS, threads=self._threads)
        settings.update(given, sheet=sheet, **self._model_options)
        if sheet and settings["projection"] is None:
            settings["projection"] = "third"
        return settings

    def _drawn(self, what: str, sheet: bool, progress: Optional[Callable[[str, float], Any]],
               given: Dict[str, Any]) -> Drawing:
        _, _, options = _prepare(self._paths, None, **self._settings(what, sheet, given))
        return Drawing(self._native.draw(options, progress), sheet)

    def draw(self, *, progress: Optional[Callable[[str, float], Any]] = None, **options: Any) -> Drawing:
        """One view of the model, as ``contour.draw(inputs, **options)`` draws it: the view options of
        draw() (view, azimuth, elevation, eye, target, up, perspective, fov, page, landscape, margin,
        bits, hidden, layers, arcs, crease_width, silhouette_width, color, keep_common, title,
        description, threads) and its progress callback."""
        return self._drawn("Model.draw", False, progress, options)

    def sheet(self, *, progress: Optional[Callable[[str, float], Any]] = None, **options: Any) -> Drawing:
        """An engineering sheet of the model, as ``contour.sheet(inputs, **options)`` draws it, with
        the options of sheet() but the model's own."""
        return self._drawn("Model.sheet", True, progress, options)

    def __repr__(self) -> str:
        return f"<contour.Model {', '.join(map(os.path.basename, self._paths)) or 'of arrays'}>"


def _draw_part(part: tuple, out_dir: str, options: Dict[str, Any], occluders: List[str], force: bool,
               title_from_model: bool) -> Dict[str, Any]:
    """One part drawn by the drawing layer's batch in this process: the task a Dask worker runs."""
    results, _ = _contour.run_batch([part], out_dir, options, occluders, 1, force, title_from_model, None)
    return results[0]


def _on_client(client: Any, parts: List[tuple], out_dir: str, options: Dict[str, Any], occluders: List[str],
               force: bool, title_from_model: bool,
               progress: Optional[Callable[[int, int], Any]]) -> Tuple[List[Dict[str, Any]], bool]:
    """Each part as a task of its own on a Dask client; the results in the order of the parts."""
    from distributed import as_completed

    # Workers may run in another folder: they get absolute paths, and the
    # results name the paths as given, as a local run names them.
    absolute = [(os.path.abspath(p[0]),) + tuple(p[1:]) for p in parts]
    if options["threads"] == 0:
        options = dict(options, threads=1)  # one part per worker thread
    futures = client.map(_draw_part, absolute, out_dir=os.path.abspath(out_dir), options=options,
                         occluders=[os.path.abspath(o) for o in occluders], force=force,
                         title_from_model=title_from_model, pure=False)
    index = {future.key: i for i, future in enumerate(futures)}
    results: List[Optional[Dict[str, Any]]] = [None] * len(parts)
    interrupted = False
    try:
        for done, future in enumerate(as_completed(futures), 1):
            i = index[future.key]
            if future.status == "finished":
                result = future.result()
                result["reason"] = result["reason"].replace(absolute[i][0], parts[i][0])
            else:  # the task itself failed (a lost worker, say): the part failed
                error = future.exception()
                result = {"status": "failed", "reason": f"{type(error).__name__}: {error}".splitlines()[0],
                          "seconds": 0.0}
            results[i] = result
            if progress is not None and progress(done, len(parts)):
                break
    except KeyboardInterrupt:
        interrupted = True
    client.cancel([f for f in futures if not f.done()])
    ended = []
    for i, part in enumerate(parts):
        result = results[i] or {"status": "cancelled", "reason": "", "seconds": 0.0}
        result["path"] = part[0]
        result["output"] = os.path.join(out_dir, part[1]) + ".svg"
        ended.append({key: result[key] for key in ("path", "output", "status", "reason", "seconds")})
    return ended, interrupted


def batch(parts: Any, out_dir: "os.PathLike[str] | str", *, jobs: Optional[int] = None, client: Any = None,
          report: "os.PathLike[str] | str | None" = None, force: bool = False, sheet: bool = False,
          occluders: Any = None, progress: Optional[Callable[[int, int], Any]] = None,
          **options: Any) -> List[Dict[str, Any]]:
    """Draws many parts, one drawing each, as ``contour batch PART... --out-dir DIR`` does.

    parts: model files and folders (a path or a list of them); a folder gives the model files below
        it, as the tool finds them, each drawn to its path below the folder in out_dir
        (``out_dir/sub/x.svg``) with its ``--stats`` record beside it (``x.stats.json``).
    jobs: parts drawn at once in this process (one per core by default), the interpreter's lock
        released meanwhile. With ``client``, a ``dask.distributed`` Client, each part is a task of
        its own instead, drawn in a worker process (one thread per part unless ``threads`` says);
        the workers must see the same files and out_dir.
    report: the JSON report (out_dir/report.json by default), as the tool writes it.
    force: draw even the parts whose drawing is current (newer than its model and occluders, its
        record holding the same options hash); otherwise those are skipped.
    sheet: a sheet per part, as sheet() draws it; the other keywords are those of draw() (or of
        sheet()), occluders files only. Without ``title`` each drawing is titled by its file name.
    progress: called as ``progress(done, total)`` as each part ends; a true return stops the batch.

    Returns one dict per part in order: path, output, status ("drawn", "failed", "skipped" or
    "cancelled"), reason (one line, empty when drawn) and seconds. A part that fails is reported, not
    raised, and the others still draw; the drawings are those of the tool, byte for byte. Ctrl-C
    stops the batch, writes the report and raises KeyboardInterrupt.
    """
    given = dict(options)
    allowed = set(_DRAW_DEFAULTS) - (_VIEW_ONLY if sheet else _SHEET_ONLY)
    unknown = sorted(set(given) - allowed)
    if unknown:
        raise TypeError(f"batch() got an unexpected keyword {unknown[0]!r}" + (" with sheet=True" if sheet else ""))
    settings = dict(_DRAW_DEFAULTS, **given)
    if sheet and settings["projection"] is None:
        settings["projection"] = "third"
    hiding = _inputs(occluders, "occluder")
    if any(h[0] != "path" for h in hiding):
        raise ValueError("occluders of a batch must be files")
    _, _, checked = _prepare([], None, sheet=sheet, **settings)
    if jobs is not None and (not isinstance(jobs, int) or not 1 <= jobs <= 1024):
        raise ValueError(f"jobs: {jobs!r} is not a whole number from 1 to 1024")
    if client is not None and jobs is not None:
        raise ValueError("jobs: a Dask client runs as many parts at once as it has worker threads")
    paths = [os.fsdecode(p) for p in ([parts] if _is_path(parts) else parts)]
    found = _contour.collect_parts(paths)
    if not found:
        raise ValueError("no model file in the parts given")
    out = os.fsdecode(out_dir)
    os.makedirs(out, exist_ok=True)
    report_path = os.path.join(out, "report.json") if report is None else os.fsdecode(report)
    occluder_files = [h[1] for h in hiding]
    title_from_model = settings["title"] is None

    start = time.monotonic()
    raised: List[BaseException] = []

    def on_part(done: int, total: int) -> bool:
        try:
            return bool(progress(done, total)) if progress is not None else False
        except BaseException as error:  # the report is written first, then it is raised
            raised.append(error)
            return True

    if client is None:
        results, interrupted = _contour.run_batch(found, out, checked, occluder_files, jobs or 0, bool(force),
                                                  title_from_model, on_part)
    else:
        results, interrupted = _on_client(client, found, out, checked, occluder_files, bool(force),
                                          title_from_model, on_part)
    _contour.write_report(report_path, results, time.monotonic() - start)
    if raised:
        raise raised[0]
    if interrupted:
        raise KeyboardInterrupt
    return results
