"""Campaigns by any map: the tables are those of the tool."""

import concurrent.futures
import json
import multiprocessing
import multiprocessing.pool
import os
import pathlib
import signal
import types

import numpy as np
import pytest
from astropy.table import Table

import quen_shs

AXES = {"gain": [0.3, 2.0], "delay": [1, 5], "engine": ["weighted", "quad-cell"]}  # some of the loops diverge


@pytest.fixture(scope="module")
def plan(sensor):
    return {"verb": "loop", "calibration": str(sensor), "frames": 20, "repeats": 3, "noise": 5, "axes": AXES}


@pytest.fixture(scope="module")
def merged(plan, tool, tmp_path_factory):
    """The tool's folder, with its tables."""
    folder = tmp_path_factory.mktemp("merged")
    (folder / "plan.json").write_text(json.dumps(plan))
    tool("campaign", "run", folder / "plan.json", "--output", folder)
    tool("campaign", "merge", folder)
    return folder


def assert_same(tables, folder):
    for name, table in (("runs", tables.runs), ("points", tables.points)):
        tools = Table.read(folder / f"{name}.fits")
        assert list(table.dtype.names) == tools.colnames
        for column in tools.colnames:
            mine, theirs = table[column], np.asarray(tools[column])
            if mine.dtype.kind == "U":
                assert mine.tolist() == np.char.rstrip(theirs.astype(str)).tolist(), column
            else:
                assert mine.dtype.kind == theirs.dtype.kind
                assert mine.tobytes() == theirs.astype(mine.dtype).tobytes(), column
        units = {column: str(tools[column].unit) for column in tools.colnames if tools[column].unit is not None}
        assert units == {column: unit for column, unit in tables.units.items() if column in tools.colnames}


def test_by_itself_it_gives_the_tables_of_the_tool(plan, merged):
    tables = quen_shs.campaign(plan)
    assert_same(tables, merged)
    assert tables.runs["failed"].sum() > 0
    assert set(tables.runs["failure"][tables.runs["failed"] == 0]) == {""}
    assert_same(quen_shs.campaign(merged / "plan.json"), merged)


def test_neither_order_nor_processes_change_it(plan, merged):
    assert_same(quen_shs.campaign(plan, map=lambda work, parts: map(work, reversed(parts))), merged)
    with multiprocessing.get_context("spawn").Pool(2) as pool:
        assert_same(quen_shs.campaign(plan, map=pool.imap_unordered), merged)
    with multiprocessing.pool.ThreadPool(3) as pool:
        assert_same(quen_shs.campaign(plan, map=pool.imap_unordered), merged)
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        futures = lambda work, parts: [pool.submit(work, part) for part in parts]
        assert_same(quen_shs.campaign(plan, map=futures), merged)


def test_a_cluster_may_lose_a_worker(plan, merged):
    distributed = pytest.importorskip("distributed")
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None)
    with cluster, distributed.Client(cluster) as client:
        workers = list(client.run(os.getpid).values())
        killed = []

        def losing(work, parts):
            for future in client.map(work, parts):
                future.result()
                if not killed:
                    killed.append(workers[0])
                    os.kill(workers[0], signal.SIGKILL)
                yield future

        assert_same(quen_shs.campaign(plan, map=losing), merged)
        assert killed == workers[:1]
        assert_same(quen_shs.campaign(plan, map=client.map), merged)


def test_a_folder_keeps_what_is_finished(plan, merged, tool, tmp_path):
    def ended(work, parts):
        for k, part in enumerate(parts):
            if k == 5:
                raise KeyboardInterrupt
            yield work(part)

    folder = tmp_path / "out"
    with pytest.raises(KeyboardInterrupt):
        quen_shs.campaign(plan, map=ended, folder=folder)
    assert json.loads(tool("campaign", "status", folder, "--json"))["missing"] == 24 - 5
    tool("campaign", "run", merged / "plan.json", "--output", folder, "--shard", "1/3")
    made = []
    tables = quen_shs.campaign(plan, map=lambda work, parts: map(lambda part: made.append(part) or work(part), parts),
                               folder=folder)
    assert_same(tables, merged)
    assert sum(count for _, count in made) < 24 - 5
    tool("campaign", "merge", folder)
    assert (folder / "runs.fits").read_bytes() == (merged / "runs.fits").read_bytes()
    failed = int(tables.runs["failed"].sum())
    made.clear()
    again = lambda work, parts: map(lambda part: made.append(part) or work(part), parts)
    quen_shs.campaign(plan, map=again, folder=folder, retry_failed=True)
    assert sum(count for _, count in made) == failed


def test_many_runs_are_few_tasks(plan):
    tasks = []

    def counted(work, parts):
        tasks.extend(parts)
        return []

    with pytest.raises(OSError, match="expected 800000 runs, 800000 of them are missing"):
        quen_shs.campaign({**plan, "repeats": 100000}, map=counted)
    assert len(tasks) == 1000
    assert sum(count for _, count in tasks) == 800000


def test_what_is_wrong_is_said(plan, sensor, tmp_path, monkeypatch):
    def refusal(kind, *arguments, **options):
        with pytest.raises(kind) as info:
            quen_shs.campaign(*arguments, **options)
        return str(info.value)

    assert refusal(FileNotFoundError, tmp_path / "nothing.toml")
    assert refusal(FileNotFoundError, {**plan, "calibration": "far"}).startswith("no calibration in ")
    assert refusal(ValueError, {**plan, "gain": 3}) == "plan: gain: expected a number from 0 to 2, found 3"
    assert refusal(TypeError, {**plan, "gain": object}).startswith("plan: expected numbers, texts, lists")
    assert refusal(TypeError, 3) == "plan: expected a path, found 3"
    assert refusal(TypeError, plan, retry_failed=3) == "retry_failed: expected True or False, found 3"
    others = "map: expected results of this campaign, found others"
    assert refusal(ValueError, plan, map=lambda work, parts: [[(24, [1.0] * 5, "")]]) == others
    assert refusal(ValueError, plan, map=lambda work, parts: [[(0, [1.0], "")]]) == others
    quen_shs.campaign({**plan, "axes": {}}, folder=tmp_path / "one")
    assert "holds another campaign; axes.gain: it has none, this campaign" in refusal(
        OSError, plan, folder=tmp_path / "one"
    )
    (tmp_path / "plan.toml").write_text("verb = 'loop'\n")
    assert refusal(ValueError, tmp_path / "plan.toml").endswith("calibration: expected a folder, found none")

    def elsewhere(work, parts):  # a process that finds another calibration under the same name
        quen_shs.calibrate(tmp_path / "here", force=True, pitch=23.5)
        return map(work, parts)

    quen_shs.calibrate(tmp_path / "here")
    monkeypatch.chdir(tmp_path)
    assert refusal(ValueError, {**plan, "calibration": "here"}, map=elsewhere) == (
        "map: expected processes that find the files of this one, found one with others"
    )


def test_plans_may_hold_arrays(plan, merged):
    axes = {"gain": np.array(AXES["gain"]), "delay": tuple(np.int64(k) for k in AXES["delay"]), "engine": AXES["engine"]}
    assert_same(quen_shs.campaign(types.MappingProxyType({**plan, "axes": axes, "frames": np.int32(20)})), merged)
