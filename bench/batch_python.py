"""The Python ways of bench/batch.sh: contour.batch on its local pool and on a
2-worker Dask LocalCluster, over the parts folder that the script filled.

    PYTHONPATH=BUILD/python python3 bench/batch_python.py SCRATCH JOBS

Draws SCRATCH/parts into SCRATCH/pylocal and SCRATCH/pydask (iso view) and
prints the wall times of the two batch calls as JSON. The cluster is started,
and its workers have imported the package, before the clock starts: what is
timed is the batch, as the tool's batch is timed without its process start.
"""
import json
import sys
import time

import contour


def main() -> None:
    scratch, jobs = sys.argv[1], int(sys.argv[2])
    walls = {}
    start = time.monotonic()
    contour.batch(f"{scratch}/parts", f"{scratch}/pylocal", jobs=jobs, view="iso")
    walls["pylocal"] = time.monotonic() - start

    import distributed
    with distributed.LocalCluster(n_workers=jobs, processes=True, threads_per_worker=1,
                                  dashboard_address=None) as cluster, distributed.Client(cluster) as client:
        client.run(lambda: __import__("contour"))
        start = time.monotonic()
        contour.batch(f"{scratch}/parts", f"{scratch}/pydask", client=client, view="iso")
        walls["pydask"] = time.monotonic() - start
    print(json.dumps(walls))


if __name__ == "__main__":
    main()
