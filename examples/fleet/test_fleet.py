"""The fleet script on a two-process dask.distributed cluster, held against a plain loop."""

import os

import pytest
from distributed import LocalCluster

import fleet
import generate

LAYOUT = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "radio",
                      "layout.json")


@pytest.fixture(scope="module")
def images(tmp_path_factory):
    return generate.make_images(str(tmp_path_factory.mktemp("fleet")), 200)


# The distributed release of Debian 12 calls a tornado function that tornado marks deprecated.
@pytest.mark.filterwarnings("ignore:make_current is deprecated:DeprecationWarning")
def test_cluster_table_matches_a_plain_loop(images):
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address=None) as cluster:
        rows = fleet.summarize_all(images, LAYOUT, scheduler=cluster.scheduler_address)
    expected = [fleet.summarize(path, LAYOUT) for path in images]
    assert rows == expected
    # The generator damages images 5, 42, 79, 116, 153, 190 (a flipped byte) and 7, 60, 113, 166
    # (cut short): each shows one fault and the library's reason, and no counts.
    damaged = [i for i, r in enumerate(rows) if r["faults"]]
    assert damaged == [i for i in range(200) if generate.damaged(i)]
    assert damaged == [5, 7, 42, 60, 79, 113, 116, 153, 166, 190]
    assert all(rows[i]["problem"] and rows[i]["channels"] is None for i in damaged)
    assert all(r["faults"] == 0 and not r["problem"] and r["channels"] >= 2 and r["contacts"] >= 1
               for i, r in enumerate(rows) if i not in damaged)


def test_local_scheduler_and_table(images):
    rows = fleet.summarize_all(images[:12], LAYOUT, workers=2)
    assert rows == [fleet.summarize(path, LAYOUT) for path in images[:12]]
    table = fleet.format_table(rows).splitlines()
    assert table[0].split() == ["image", "blocks", "channels", "contacts", "faults", "problem"]
    assert table[6].split()[:6] == ["radio-0005.kov", str(rows[5]["blocks"]), "-", "-", "1",
                                    "block"]
    assert table[-1].split()[-3:] == ["2", "2", "damaged"]
