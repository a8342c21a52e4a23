# contour.batch: a folder of carried models and one broken file, drawn by the
# local pool as the tool's batch draws them, and by a Dask cluster as locally.
import json
import os
import shutil
import subprocess
from pathlib import Path

import pytest

import contour

ROOT = Path(__file__).resolve().parents[2]
MODELS = ROOT / "tests" / "models"
TOOL = os.environ.get("CONTOUR_TOOL", str(ROOT / "build" / "tools" / "contour" / "contour"))
ENV = dict(os.environ, SOURCE_DATE_EPOCH="1717113600")


@pytest.fixture(scope="module")
def parts(tmp_path_factory):
    folder = tmp_path_factory.mktemp("parts")
    for name in ("anchor.stl", "joint.obj", "couplingdown.ply"):
        shutil.copy(MODELS / "cad" / name, folder / name)
    (folder / "sub").mkdir()
    shutil.copy(MODELS / "cad" / "cube_split_normals.obj", folder / "sub" / "cube.obj")
    shutil.copy(MODELS / "malformed" / "nan_coordinates.obj", folder / "broken.obj")
    (folder / "notes.txt").write_text("not a model\n")
    return folder


def drawings(folder):
    return {p.relative_to(folder).as_posix(): p.read_bytes() for p in sorted(folder.rglob("*.svg"))}


def outcome(results):
    return [(Path(r["path"]).name, r["status"], r["reason"]) for r in results]


def test_local_batch_draws_as_the_tool_and_reruns_skip(parts, tmp_path, monkeypatch):
    monkeypatch.setenv("SOURCE_DATE_EPOCH", ENV["SOURCE_DATE_EPOCH"])
    ends = []
    results = contour.batch(str(parts), tmp_path / "py", sheet=True, hidden=True, jobs=2,
                            progress=lambda done, total: ends.append((done, total)))
    assert [(name, status) for name, status, _ in outcome(results)] == [
        ("anchor.stl", "drawn"), ("broken.obj", "failed"), ("couplingdown.ply", "drawn"),
        ("joint.obj", "drawn"), ("cube.obj", "drawn")]
    assert "not a finite number" in results[1]["reason"] and "\n" not in results[1]["reason"]
    assert results[4]["output"] == str(tmp_path / "py" / "sub" / "cube.svg")
    assert sorted(ends) == [(i, 5) for i in range(1, 6)]
    assert json.loads((tmp_path / "py" / "report.json").read_text())["results"] == results

    run = subprocess.run([TOOL, "batch", str(parts), "--out-dir", str(tmp_path / "tool"), "--sheet", "--hidden",
                          "-q"], env=ENV, capture_output=True, text=True)
    assert run.returncode == 1, run.stderr
    tool_results = json.loads((tmp_path / "tool" / "report.json").read_text())["results"]
    assert outcome(tool_results) == outcome(results)
    assert drawings(tmp_path / "tool") == drawings(tmp_path / "py") and len(drawings(tmp_path / "py")) == 4

    again = contour.batch([parts], tmp_path / "py", sheet=True, hidden=True, report=tmp_path / "again.json")
    assert [r["status"] for r in again] == ["skipped", "failed", "skipped", "skipped", "skipped"]
    assert json.loads((tmp_path / "again.json").read_text())["skipped"] == 4
    with pytest.raises(TypeError, match="view"):
        contour.batch(parts, tmp_path / "x", sheet=True, view="front")


def test_dask_batch_equals_the_local_one(parts, tmp_path, monkeypatch):
    distributed = pytest.importorskip("distributed")
    monkeypatch.chdir(parts.parent)  # paths as given, relative, in the results of both
    local = contour.batch(parts.name, tmp_path / "local", view="front", hidden=True)
    with distributed.LocalCluster(n_workers=2, processes=True, threads_per_worker=1,
                                  dashboard_address=None) as cluster, distributed.Client(cluster) as client:
        remote = contour.batch(parts.name, tmp_path / "dask", client=client, view="front", hidden=True)
    assert outcome(remote) == outcome(local)
    assert [Path(r["output"]).relative_to(tmp_path / "dask") for r in remote] == \
        [Path(r["output"]).relative_to(tmp_path / "local") for r in local]
    assert drawings(tmp_path / "dask") == drawings(tmp_path / "local")
    report = json.loads((tmp_path / "dask" / "report.json").read_text())
    assert (report["drawn"], report["failed"], report["results"]) == (4, 1, remote)
