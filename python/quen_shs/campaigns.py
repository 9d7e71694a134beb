"""Campaigns: loops or scores with many options, many times over, by any ``map``."""

from __future__ import annotations

import collections.abc
import dataclasses
import json
import os
import tempfile
import threading
from builtins import map as builtin_map
from typing import Any

import numpy as np
from numpy.typing import NDArray

from . import _core
from ._records import path, truth

_MOST_TASKS = 1000
_Plan = tuple[str, str, str]  # name, text, folder


@dataclasses.dataclass(frozen=True, eq=False)
class CampaignTables:
    """What the runs of a campaign have given: the tables that ``quen-shs campaign merge`` writes.

    Attributes
    ----------
    runs : ndarray
        A row per run, with named fields: its number, its point, the axes, the seed, the results, whether it failed, and
        the sentence of its failure.
    points : ndarray
        A row per point: the axes, how many runs there are and have failed and, over those that have not, the mean of
        each result, the scatter of a run (the standard deviation, with n - 1), the standard error of the mean.
    units : dict of str
        Of fields that have one, of either table.

    Examples
    --------
    >>> plan = {"verb": "score", "calibration": "sensor", "frames": 1, "engine": "weighted", "axes": {"noise": [0, 10]}}
    >>> tables = campaign(plan)
    >>> tables.runs["noise"].tolist(), tables.points["failures"].tolist()
    ([0.0, 10.0], [0, 0])
    """

    runs: NDArray[np.void]
    points: NDArray[np.void]
    units: dict[str, str]


def campaign(
    plan: str | os.PathLike[str] | collections.abc.Mapping[str, Any],
    map: collections.abc.Callable[..., collections.abc.Iterable[Any]] = builtin_map,
    *,
    folder: str | os.PathLike[str] | None = None,
    retry_failed: bool = False,
) -> CampaignTables:
    """Run a campaign, as ``quen-shs campaign`` does, with whatever hands out work.

    Parameters
    ----------
    plan : path-like or dict
        A campaign's file, in TOML or JSON, or the same as a dictionary: ``verb``, ``calibration``, ``repeats``,
        ``seed``, ``axes`` and options of the verb. Files and folders are looked for from the folder of the file on, or
        from the current one.
    map : callable
        ``map(function, list)`` gives what the function makes of each element, in any order, or a future of each. The
        builtin ``map``, ``imap_unordered`` of a `multiprocessing.Pool`, ``map`` of a `dask.distributed.Client` or of an
        executor of `concurrent.futures`. Function and elements can be pickled. All processes must find the calibration
        under the same name.
    folder : path-like, optional
        Folder of the campaign, made if missing. What is finished is kept there, and is not run again by another call,
        or by ``quen-shs campaign run``. Without one, results are kept until the end of the call.
    retry_failed : bool
        Make the runs again that have failed.

    Returns
    -------
    CampaignTables
        The same to the last bit, whatever the map is. A run depends on its number alone.

    Raises
    ------
    FileNotFoundError
        There is no such file, or the calibration is missing.
    OSError
        A file that the campaign names cannot be read, or does not fit it; the folder cannot be written to, or holds
        another campaign.
    ValueError
        Something in the plan is wrong: where, what was expected, what was found. The map gave other things than the
        results; a process of its finds other files than this one.
    KeyboardInterrupt
        Ctrl-C. What is finished stays in the folder.

    Examples
    --------
    >>> plan = {"verb": "score", "calibration": "sensor", "frames": 1, "repeats": 2, "axes": {"noise": [0, 10]},
    ...         "engine": "weighted"}
    >>> tables = campaign(plan)
    >>> tables.points["noise"].tolist(), bool((tables.points["rms_mean"] < 0.01).all())
    ([0.0, 10.0], True)
    >>> len(tables.runs), tables.units["rms"]
    (4, 'pixel')
    """
    parts = _core.read_plan(_existing(plan)) if not isinstance(plan, collections.abc.Mapping) else _written(plan)
    retry = truth("retry_failed", retry_failed)
    if folder is not None:
        return _run(parts, path("folder", folder), retry, map)
    with tempfile.TemporaryDirectory(prefix="quen-campaign-") as temporary:
        return _run(parts, temporary, retry, map)


def _existing(plan: str | os.PathLike[str]) -> str:
    file = path("plan", plan)
    os.stat(file)  # a file that is missing is told as everywhere in Python
    return file


def _written(plan: collections.abc.Mapping[str, Any]) -> _Plan:
    def plain(value: Any) -> Any:
        if isinstance(value, (np.generic, np.ndarray)):
            return value.tolist()
        raise TypeError(f"plan: expected numbers, texts, lists and dictionaries, found {value!r}")

    return "plan", json.dumps(dict(plan), default=plain), os.getcwd()


def _run(plan: _Plan, folder: str, retry_failed: bool, map: collections.abc.Callable[..., collections.abc.Iterable[Any]]) -> CampaignTables:
    results = _core.CampaignResults(plan, folder, retry_failed)
    try:
        for part in map(_Runs(plan, results.identity), _parts(results.to_do())):
            results.take(part.result() if hasattr(part, "result") else part)
    finally:
        _mine.__dict__.clear()
    runs, points = results.tables()
    units = {name: unit for name, unit, _, _ in [*runs, *points] if unit}
    return CampaignTables(_structured(runs), _structured(points), units)


def _parts(stretches: list[tuple[int, int]]) -> list[tuple[int, int]]:
    """First run and number of runs of each task: enough of them for any number of processes, few to hand out."""
    most = -(-sum(count for _, count in stretches) // _MOST_TASKS)
    return [
        (start, min(most, first + count - start))
        for first, count in stretches
        for start in range(first, first + count, most)
    ]


_mine = threading.local()  # what runs a campaign in this thread, kept from one task to the next


class _Runs:
    """Makes runs of a campaign, in any process."""

    def __init__(self, plan: _Plan, identity: str) -> None:
        self.plan = plan
        self.identity = identity

    def __call__(self, part: tuple[int, int]) -> list[tuple[int, list[float], str]]:
        if getattr(_mine, "identity", None) != self.identity:
            runner = _core.CampaignRunner(self.plan)
            if runner.identity != self.identity:
                raise ValueError("map: expected processes that find the files of this one, found one with others")
            _mine.runner = runner
            _mine.identity = self.identity
        runs: list[tuple[int, list[float], str]] = _mine.runner.run(*part)
        return runs


def _structured(columns: list[tuple[str, str, Any, int]]) -> NDArray[np.void]:
    kinds = [(name, f"U{width}" if width else values.dtype) for name, _, values, width in columns]
    table = np.empty(len(columns[0][2]), dtype=kinds)
    for name, _, values, _ in columns:
        table[name] = values
    return table
