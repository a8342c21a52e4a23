#!/usr/bin/env python3
"""Seeded-fault measurement of the test suite.

Each fault in the list (scripts/seeded-faults.txt by default) replaces one
exact piece of text in one source file. For every fault the script applies it
to a scratch copy of the tree, builds incrementally, runs ctest and records
whether the suite noticed. The checkout itself is not modified; the scratch
copy is restored after every fault, whatever way the run ends, and is kept
between runs so that later runs build incrementally. With --in-place the
faults go into the checkout itself (saving the first full build of a scratch
copy), and each file is restored in the same way.

  scripts/seeded-faults.py                    all faults
  scripts/seeded-faults.py ID [ID...]         only these faults
  scripts/seeded-faults.py --check            only verify that every fault applies
  scripts/seeded-faults.py --list-ids         print the ids and files
  scripts/seeded-faults.py --in-place build   fault this checkout itself, built in
                                              its folder "build" (the files the
                                              faults touch must be unmodified)
  scripts/seeded-faults.py --results R.tsv    also write one row per fault to R.tsv
  scripts/seeded-faults.py --compare A B      compare two such files per area, and
                                              list the faults A caught and B missed

A run ends with a table per area: caught / compiled / total. The results
file is tab-separated with a header line: id, area, file, compiled (0/1),
caught (0/1), seconds, result, failing tests, description.

Fault list format: blocks separated by blank lines, one "key: value" per line.
  id:      short unique name
  file:    path relative to the repository root
  find:    text that must occur exactly once in the file
  replace: its replacement
  desc:    one-line description
  area:    the part of the code the fault is in (optional; "-" when absent)
In find and replace, "\\n" stands for a line break and "\\\\" for a backslash.
Lines starting with '#' are comments.
"""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
REQUIRED = ("id", "file", "find", "replace", "desc")
KEYS = REQUIRED + ("area",)
NO_AREA = "-"


class FaultListError(Exception):
    pass


def unescape(text):
    return re.sub(r"\\(n|\\)", lambda m: "\n" if m.group(1) == "n" else "\\", text)


def parse_faults(path):
    faults, current = [], {}

    def finish(line_number):
        if not current:
            return
        missing = [k for k in REQUIRED if k not in current]
        if missing:
            raise FaultListError(f"{path}:{line_number}: fault block lacks {', '.join(missing)}")
        current.setdefault("area", NO_AREA)
        faults.append(dict(current))
        current.clear()

    with open(path, encoding="utf-8") as f:
        lines = f.read().split("\n")
    for number, line in enumerate(lines, 1):
        if line.startswith("#"):
            continue
        if not line.strip():
            finish(number)
            continue
        key, sep, value = line.partition(":")
        key = key.strip()
        if not sep or key not in KEYS:
            raise FaultListError(f"{path}:{number}: expected one of {', '.join(KEYS)}: {line!r}")
        if key in current:
            raise FaultListError(f"{path}:{number}: {key} given twice in one block")
        value = value[1:] if value.startswith(" ") else value
        current[key] = unescape(value) if key in ("find", "replace") else value.strip()
    finish(len(lines))
    ids = [f["id"] for f in faults]
    duplicates = sorted({i for i in ids if ids.count(i) > 1})
    if duplicates:
        raise FaultListError(f"{path}: duplicate ids: {', '.join(duplicates)}")
    return faults


def check_fault(tree, fault):
    """Returns the file text; raises when the find text is not there exactly once."""
    path = os.path.join(tree, fault["file"])
    if not os.path.isfile(path):
        raise FaultListError(f"fault {fault['id']}: no file {fault['file']}")
    with open(path, encoding="utf-8") as f:
        text = f.read()
    count = text.count(fault["find"])
    if count != 1:
        raise FaultListError(f"fault {fault['id']}: text occurs {count} times in {fault['file']} (must be once): "
                             f"{fault['find']!r}")
    if fault["find"] == fault["replace"]:
        raise FaultListError(f"fault {fault['id']}: replacement equals the original text")
    return text


def source_files(root):
    """Tracked and untracked-but-not-ignored files of the checkout."""
    out = subprocess.run(["git", "-C", root, "ls-files", "-co", "--exclude-standard", "-z"], check=True,
                         stdout=subprocess.PIPE).stdout.decode()
    return sorted(p for p in out.split("\0") if p and os.path.isfile(os.path.join(root, p)))


def sync_tree(root, tree):
    """Copies the checkout into the scratch tree, rewriting only files whose
    content differs, so that the scratch build stays incremental."""
    wanted = set(source_files(root))
    for rel in wanted:
        src, dst = os.path.join(root, rel), os.path.join(tree, rel)
        with open(src, "rb") as f:
            data = f.read()
        if os.path.isfile(dst):
            with open(dst, "rb") as f:
                if f.read() == data:
                    continue
        os.makedirs(os.path.dirname(dst), exist_ok=True)
        with open(dst, "wb") as f:
            f.write(data)
        shutil.copymode(src, dst)
    for base, _, files in os.walk(tree):
        for name in files:
            rel = os.path.relpath(os.path.join(base, name), tree)
            if rel not in wanted:
                os.remove(os.path.join(base, name))


def run(command, log, timeout=None):
    with open(log, "w", encoding="utf-8") as f:
        f.write("$ " + " ".join(command) + "\n")
        f.flush()
        proc = subprocess.Popen(command, stdout=f, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            return proc.wait(timeout=timeout)
        except BaseException:
            # Take the whole process group down (make, compilers, test runs).
            try:
                os.killpg(proc.pid, signal.SIGTERM)
                proc.wait(timeout=10)
            except (ProcessLookupError, subprocess.TimeoutExpired):
                try:
                    os.killpg(proc.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            raise


def build(build_dir, jobs, log):
    return run(["cmake", "--build", build_dir, "--target", "contour", "ctr_tests", "-j", str(jobs)], log) == 0


def ctest(build_dir, jobs, timeout, log):
    """Returns (passed, list of failed test names)."""
    code = run(["ctest", "--test-dir", build_dir, "-j", str(jobs), "--timeout", str(timeout)], log)
    with open(log, encoding="utf-8", errors="replace") as f:
        text = f.read()
    failed = []
    if "The following tests FAILED:" in text:
        tail = text.split("The following tests FAILED:", 1)[1]
        for line in tail.splitlines():
            m = re.match(r"\s*\d+\s*-\s*(\S+)", line)
            if m:
                failed.append(m.group(1))
    return code == 0 and not failed, failed


RESULT_COLUMNS = ("id", "area", "file", "compiled", "caught", "seconds", "result", "failing tests", "description")


def write_results(path, rows):
    with open(path, "w", encoding="utf-8") as f:
        f.write("\t".join(RESULT_COLUMNS) + "\n")
        for fault, result, failed, seconds in rows:
            values = (fault["id"], fault["area"], fault["file"], str(int(result != "not compiled")),
                      str(int(result == "caught")), f"{seconds:.0f}", result, " ".join(failed), fault["desc"])
            f.write("\t".join(v.replace("\t", " ") for v in values) + "\n")


def read_results(path):
    """Rows of a results file as dicts with id, area, compiled and caught.
    Files of the older layout (id, file, result, ...) are read as well."""
    with open(path, encoding="utf-8") as f:
        lines = [line.rstrip("\n") for line in f if line.strip()]
    if not lines:
        raise FaultListError(f"{path}: empty results file")
    header = lines[0].split("\t")
    if "id" not in header or ("result" not in header and "caught" not in header):
        raise FaultListError(f"{path}: not a results file (header {lines[0]!r})")
    rows = []
    for number, line in enumerate(lines[1:], 2):
        values = line.split("\t")
        record = dict(zip(header, values + [""] * (len(header) - len(values))))
        result = record.get("result", "")
        compiled = record["compiled"] == "1" if "compiled" in record else result != "not compiled"
        caught = record["caught"] == "1" if "caught" in record else result == "caught"
        rows.append({"id": record["id"], "area": record.get("area") or NO_AREA, "compiled": compiled,
                     "caught": caught})
    return rows


def area_counts(rows):
    """{area: [caught, compiled, total]} in the order the areas first appear."""
    counts = {}
    for row in rows:
        c = counts.setdefault(row["area"], [0, 0, 0])
        c[0] += row["caught"]
        c[1] += row["compiled"]
        c[2] += 1
    return counts


def print_area_table(rows):
    counts = area_counts(rows)
    print(f"\n{'area':16} {'caught':>6} {'compiled':>8} {'total':>5}")
    for area, (caught, compiled, total) in counts.items():
        print(f"{area:16} {caught:6} {compiled:8} {total:5}")
    totals = [sum(c[k] for c in counts.values()) for k in range(3)]
    print(f"{'all':16} {totals[0]:6} {totals[1]:8} {totals[2]:5}")


def compare(old_path, new_path, faults_path):
    """Rows without an area (files of the older layout) take the fault's
    area from the other file or else from the fault list."""
    old, new = read_results(old_path), read_results(new_path)
    known = {}
    if os.path.isfile(faults_path):
        known.update((f["id"], f["area"]) for f in parse_faults(faults_path))
    known.update((row["id"], row["area"]) for row in old + new if row["area"] != NO_AREA)
    for row in old + new:
        if row["area"] == NO_AREA:
            row["area"] = known.get(row["id"], NO_AREA)
    old_counts, new_counts = area_counts(old), area_counts(new)
    areas = list(old_counts) + [a for a in new_counts if a not in old_counts]
    shown = lambda c: f"{c[0]}/{c[1]}/{c[2]}" if c else "-"
    print(f"caught/compiled/total per area\n{'area':16} {'old':>12} {'new':>12}")
    for area in areas:
        print(f"{area:16} {shown(old_counts.get(area)):>12} {shown(new_counts.get(area)):>12}")
    total = lambda counts: [sum(c[k] for c in counts.values()) for k in range(3)]
    print(f"{'all':16} {shown(total(old_counts)):>12} {shown(total(new_counts)):>12}")
    new_by_id = {row["id"]: row for row in new}
    lost = [row for row in old if row["caught"] and row["id"] in new_by_id and not new_by_id[row["id"]]["caught"]]
    if lost:
        print("\ncaught in old, not in new:")
        for row in lost:
            state = "not compiled" if not new_by_id[row["id"]]["compiled"] else "missed"
            print(f"  {row['id']:36} {row['area']:16} {state}")
    else:
        print("\nno fault caught in old is missed in new")
    old_ids = {row["id"] for row in old}
    only_old = sorted(old_ids - set(new_by_id))
    only_new = sorted(set(new_by_id) - old_ids)
    if only_old:
        print("only in old: " + " ".join(only_old))
    if only_new:
        print("only in new: " + " ".join(only_new))
    return 0


class Interrupted(Exception):
    pass


def on_signal(signum, _frame):
    raise Interrupted(f"signal {signum}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("ids", nargs="*", help="run only these fault ids")
    parser.add_argument("--faults", default=os.path.join(ROOT, "scripts", "seeded-faults.txt"))
    parser.add_argument("--scratch", default=os.path.join(ROOT, "build-faults"),
                        help="scratch folder holding the copied tree and its build (default: build-faults)")
    parser.add_argument("--models-dir", default=os.path.join(os.path.dirname(ROOT), "shared", "models"),
                        help="large test models (CTR_MODELS_DIR); tests needing them skip when absent")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--timeout", type=int, default=120, help="per-test ctest timeout in seconds")
    parser.add_argument("--check", action="store_true", help="only verify that every fault applies")
    parser.add_argument("--list-ids", action="store_true")
    parser.add_argument("--in-place", metavar="BUILD_DIR",
                        help="apply the faults to this checkout and build in BUILD_DIR (already configured)")
    parser.add_argument("--no-baseline", action="store_true", help="skip the clean build and test run")
    parser.add_argument("--results", metavar="FILE",
                        help="also write one row per fault as tab-separated values to FILE")
    parser.add_argument("--compare", nargs=2, metavar=("OLD", "NEW"),
                        help="print the per-area table of two results files side by side and exit")
    args = parser.parse_args()
    if args.compare:
        return compare(args.compare[0], args.compare[1], args.faults)

    faults = parse_faults(args.faults)
    if args.ids:
        unknown = [i for i in args.ids if i not in {f["id"] for f in faults}]
        if unknown:
            raise FaultListError(f"unknown fault ids: {', '.join(unknown)}")
        faults = [f for f in faults if f["id"] in args.ids]
    for fault in faults:
        check_fault(ROOT, fault)
    if args.list_ids:
        for fault in faults:
            print(f"{fault['id']:36} {fault['area']:14} {fault['file']:48} {fault['desc']}")
        return 0
    if args.check:
        print(f"all {len(faults)} faults apply exactly once")
        per_area = area_counts([{"area": f["area"], "caught": 0, "compiled": 0} for f in faults])
        print("per area: " + ", ".join(f"{area} {c[2]}" for area, c in per_area.items()))
        return 0

    scratch = os.path.abspath(args.scratch)
    tree, build_dir, logs = (os.path.join(scratch, d) for d in ("tree", "build", "logs"))
    os.makedirs(logs, exist_ok=True)
    if args.in_place:
        tree, build_dir = ROOT, os.path.abspath(args.in_place)
        touched = sorted({f["file"] for f in faults})
        if subprocess.run(["git", "-C", ROOT, "diff", "--quiet", "HEAD", "--"] + touched).returncode != 0:
            raise FaultListError("--in-place needs the faulted files unmodified: " + " ".join(touched))
        if not os.path.isfile(os.path.join(build_dir, "CMakeCache.txt")):
            raise FaultListError(f"--in-place: {build_dir} is not a configured build folder")
    else:
        os.makedirs(tree, exist_ok=True)
        sync_tree(ROOT, tree)
    configure = ["cmake", "-S", tree, "-B", build_dir, "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                 "-DCTR_WARNINGS_AS_ERRORS=ON", "-DCTR_BUILD_TESTS=ON", "-DCTR_BUILD_BENCH=OFF"]
    if os.path.isdir(args.models_dir):
        configure.append("-DCTR_MODELS_DIR=" + os.path.abspath(args.models_dir))
    if not args.in_place and run(configure, os.path.join(logs, "configure.log")) != 0:
        print(f"configure failed, see {logs}/configure.log", file=sys.stderr)
        return 2

    signal.signal(signal.SIGTERM, on_signal)
    signal.signal(signal.SIGHUP, on_signal)

    if not args.no_baseline:
        start = time.time()
        if not build(build_dir, args.jobs, os.path.join(logs, "baseline-build.log")):
            print(f"the unmodified tree does not build, see {logs}/baseline-build.log", file=sys.stderr)
            return 2
        passed, failed = ctest(build_dir, args.jobs, args.timeout, os.path.join(logs, "baseline-ctest.log"))
        if not passed:
            print(f"the unmodified tree fails tests: {' '.join(failed) or 'see log'}", file=sys.stderr)
            return 2
        print(f"baseline: builds and passes ({time.time() - start:.0f} s)", flush=True)

    rows = []
    try:
        for fault in faults:
            path = os.path.join(tree, fault["file"])
            original = check_fault(tree, fault)
            start = time.time()
            try:
                with open(path, "w", encoding="utf-8") as f:
                    f.write(original.replace(fault["find"], fault["replace"], 1))
                if not build(build_dir, args.jobs, os.path.join(logs, fault["id"] + "-build.log")):
                    result, failed = "not compiled", []
                else:
                    passed, failed = ctest(build_dir, args.jobs, args.timeout,
                                           os.path.join(logs, fault["id"] + "-ctest.log"))
                    result = "missed" if passed else "caught"
            finally:
                # Rewritten (not just renamed back) so that its time stamp is
                # newer than the faulty object file and the next build redoes it.
                with open(path, "w", encoding="utf-8") as f:
                    f.write(original)
            rows.append((fault, result, failed, time.time() - start))
            shown = ", ".join(failed[:3]) + (f" (+{len(failed) - 3})" if len(failed) > 3 else "")
            print(f"{fault['id']:36} {result:12} {time.time() - start:5.0f} s  {shown}", flush=True)
    except (KeyboardInterrupt, Interrupted) as e:
        print(f"\ninterrupted ({e or 'Ctrl-C'}); the scratch tree is restored", file=sys.stderr)

    print()
    print(f"{'id':36} {'area':14} {'file':48} {'result':12} failing tests")
    for fault, result, failed, _ in rows:
        print(f"{fault['id']:36} {fault['area']:14} {fault['file']:48} {result:12} {len(failed)}")
    caught = sum(r == "caught" for _, r, _, _ in rows)
    missed = [f["id"] for f, r, _, _ in rows if r == "missed"]
    broken = [f["id"] for f, r, _, _ in rows if r == "not compiled"]
    compiled = len(rows) - len(broken)
    print(f"\ncaught {caught} / compiled {compiled} / total {len(rows)}")
    if missed:
        print("missed: " + " ".join(missed))
    if broken:
        print("not compiled: " + " ".join(broken))
    print_area_table([{"area": f["area"], "caught": r == "caught", "compiled": r != "not compiled"}
                      for f, r, _, _ in rows])
    if args.results:
        write_results(args.results, rows)
    return 0 if len(rows) == len(faults) else 130


if __name__ == "__main__":
    try:
        sys.exit(main())
    except FaultListError as e:
        print(f"error: {e}", file=sys.stderr)
        sys.exit(2)
