"""Prints the results of the benchmarks as a Markdown table: the best of all rounds, and its ratio to the first row of
the group.

    table.py RESULTS.json [PAGE.md]

With a page, the table takes the place of the one there, between the lines <!-- benchmarks --> and <!-- end -->.
"""

import json
import sys


def best_times(results):
    """Of each row "group/row", in the order in which they were defined."""
    best = {}
    for run in sorted(results["benchmarks"], key=lambda run: run["family_index"]):
        if run["run_type"] == "iteration":
            name = run["run_name"].split("/iterations:")[0]
            best[name] = min(best.get(name, float("inf")), run["real_time"])
    return best


def table(best):
    lines = ["| case | row | microseconds | ratio |", "|---|---|---:|---:|"]
    first = {}
    for name, time in best.items():
        group, row = name.split("/", 1)
        first.setdefault(group, time)
        lines.append(f"| {group} | {row} | {time:.0f} | {first[group] / time:.2f} × |")
    return "\n".join(lines)


def put(page, text):
    with open(page, encoding="utf-8") as file:
        before, rest = file.read().split("<!-- benchmarks -->\n", 1)
    after = rest.split("<!-- end -->\n", 1)[1]
    with open(page, "w", encoding="utf-8") as file:
        file.write(f"{before}<!-- benchmarks -->\n{text}\n<!-- end -->\n{after}")


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        text = table(best_times(json.load(file)))
    print(text)
    if len(sys.argv) > 2:
        put(sys.argv[2], text)


if __name__ == "__main__":
    main()
