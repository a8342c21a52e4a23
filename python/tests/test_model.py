# A model prepared once against draw() and sheet() of the same inputs: the
# same files at every camera, model options refused per drawing, drawings
# from two threads at once.
import threading
from pathlib import Path

import pytest

import contour
from test_contour import sphere_and_box

ROOT = Path(__file__).resolve().parents[2]
PART = ROOT / "tests/models/cad-brep/box_holes.obj"
CAMERAS = [{}, {"view": "front"}, {"azimuth": 30, "elevation": 20}, {"perspective": True, "fov": 40},
           {"hidden": True, "layers": True, "arcs": True}, {"sheet": True, "hidden": True, "front": "+x"}]


def timeless(stats):
    return {key: sorted(value) if key == "phasesMs" else value for key, value in stats.items()
            if key not in ("totalMs", "peakMemoryMiB")}


def drawn(source, inputs, options):
    options = dict(options)
    sheet = options.pop("sheet", False)
    if isinstance(source, contour.Model):
        return (source.sheet if sheet else source.draw)(**options)
    return (contour.sheet if sheet else contour.draw)(inputs, **options)


@pytest.mark.parametrize("inputs, model_options, cameras", [
    (PART, {}, CAMERAS),
    # Arrays with an occluder, their own smoothing and a forced unit, which
    # sets the sheet's scale.
    (sphere_and_box(), {"occluders": (sphere_and_box()[0] * 0.5 + 0.6, sphere_and_box()[1]),
                        "smoothing_angle": 10, "units": "cm"}, [{"view": "top"}, {"sheet": True}])])
def test_model_draws_as_draw_and_sheet(monkeypatch, inputs, model_options, cameras):
    monkeypatch.setenv("SOURCE_DATE_EPOCH", "1717113600")
    model = contour.Model(inputs, **model_options)
    for options in cameras:
        once = drawn(model, None, options)
        fresh = drawn(contour, inputs, dict(options, **model_options))
        assert once.svg() == fresh.svg(), options
        assert timeless(once.stats) == timeless(fresh.stats), options
        if not options.get("sheet"):
            for kind in contour.KINDS:
                assert (once.lines(kind, "world") == fresh.lines(kind, "world")).all()


@pytest.mark.parametrize("method, options, reason", [
    ("draw", {"units": "mm"}, "belongs to the model"), ("draw", {"smoothing_angle": 10}, "belongs to the model"),
    ("sheet", {"tolerance": 0.1}, "belongs to the model"), ("draw", {"occluders": PART}, "belongs to the model"),
    ("sheet", {"view": "top"}, "unexpected keyword 'view'"), ("draw", {"scale": "1:2"}, "unexpected keyword")])
def test_model_options_are_refused_per_drawing(method, options, reason):
    model = contour.Model(sphere_and_box())
    with pytest.raises(TypeError, match=reason):
        getattr(model, method)(**options)


def test_two_threads_draw_from_one_model():
    model = contour.Model(PART, threads=1)
    azimuths = range(0, 360, 45)
    alone = [model.draw(azimuth=a, hidden=True).svg() for a in azimuths]
    start = threading.Barrier(2)
    results = [[], []]

    def orbit(out, order):
        start.wait()
        out.extend((a, model.draw(azimuth=a, hidden=True).svg()) for a in order)
    threads = [threading.Thread(target=orbit, args=(results[0], azimuths)),
               threading.Thread(target=orbit, args=(results[1], azimuths[::-1]))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for result in results:
        assert dict(result) == dict(zip(azimuths, alone))
