"""Prints the results of the benchmarks as a Markdown table: the best of all rounds, and its ratio to the first row of
the group.

    table.py RESULTS.json
"""

import json
import sys

results = json.load(open(sys.argv[1], encoding="utf-8"))
best = {}
for run in sorted(results["benchmarks"], key=lambda run: run["family_index"]):
    if run["run_type"] == "iteration":
        name = run["run_name"].split("/iterations:")[0]
        best[name] = min(best.get(name, float("inf")), run["real_time"])

print("| case | row | microseconds | ratio |")
print("|---|---|---:|---:|")
first = {}
for name, time in best.items():
    group, row = name.split("/", 1)
    first.setdefault(group, time)
    print(f"| {group} | {row} | {time:.0f} | {first[group] / time:.2f} × |")
