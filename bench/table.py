#!/usr/bin/env python3
"""Prints the benchmark table from Google Benchmark's JSON results.

Each row sets the library against its peer from one side-by-side benchmark
(bench/contest.h): the medians over the repetitions of each one's CPU time
per call and of the ratio of the two (coefficients of variation in
brackets), the goal, PASS or MISS.

    table.py TIMED.json MEMORY.json
"""
import csv
import json
import os
import sys

# bench/goals.csv holds the rows: label, benchmark, ours, peer, kind, goal.
# Ours and peer name contestants of one side-by-side benchmark
# (bench/contest.h); an empty peer shows our cost alone. The kinds:
#   faster:  peer time / our time >= goal
#   within:  our time / peer time <= goal
#   info:    no goal, the cost is shown for what it is
# (The recording fake's deployment service walks every package per lookup:
# its exclusion list row is the fake's cost, shown as info.)
GOALS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "goals.csv")


def timed_rows():
    with open(GOALS, newline="") as f:
        for row in csv.DictReader(f):
            goal = float(row["goal"]) if row["goal"] else None
            yield row["label"], row["benchmark"], row["ours"], row["peer"] or None, row["kind"], goal



def load(path):
    with open(path) as f:
        return json.load(f)


def aggregates(results):
    """run_name -> {aggregate name -> entry}; single runs count as a median."""
    by_name = {}
    for entry in results["benchmarks"]:
        name = entry.get("run_name", entry["name"])
        kind = entry.get("aggregate_name", "median") if entry.get("run_type") == "aggregate" else None
        if kind is None:
            by_name.setdefault(name, {}).setdefault("runs", []).append(entry)
            continue
        by_name.setdefault(name, {})[kind] = entry
    for name, found in by_name.items():
        if "median" not in found and found.get("runs"):
            found["median"] = found["runs"][0]
    return by_name


def show_time(ns):
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= scale:
            return f"{ns / scale:.3g} {unit}"
    return f"{ns:.3g} ns"


def show_cv(found, counter):
    cv = found.get("cv", {}).get(counter)
    # Google Benchmark reports the coefficient of variation as a fraction.
    return f" (±{cv * 100:.0f}%)" if cv is not None else ""


def verdict(kind, value, goal):
    if kind == "faster":
        return "PASS" if value >= goal else "MISS"
    if kind == "within":
        return "PASS" if value <= goal else "MISS"
    return "info"


def main():
    timed = load(sys.argv[1])
    memory = load(sys.argv[2]) if len(sys.argv) > 2 else None
    runs = aggregates(timed)
    context = timed["context"]

    rows = []
    for label, benchmark, ours, peer, kind, goal in timed_rows():
        found = runs.get(benchmark)
        if found is None or "median" not in found:
            rows.append((label, "not run", "", "", "", ""))
            continue
        median = found["median"]
        ours_text = show_time(median[ours + "_ns"]) + show_cv(found, ours + "_ns")
        if peer is None:
            rows.append((label, ours_text, "", "", "", "info"))
            continue
        peer_text = show_time(median[peer + "_ns"]) + show_cv(found, peer + "_ns")
        ours_over_peer = median["ratio_" + peer]  # median of the per-repetition ratios
        spread = show_cv(found, "ratio_" + peer)
        if kind == "info":
            rows.append((label, ours_text, peer_text, f"ours/peer = {ours_over_peer:.2f}{spread}", "", "info"))
            continue
        if kind == "faster":
            value = 1.0 / ours_over_peer
            ratio = f"peer/ours = {value:.2f}{spread}"
            goal_text = f">= {goal:.2f}"
        else:
            value = ours_over_peer
            ratio = f"ours/peer = {value:.2f}{spread}"
            goal_text = f"<= {goal:.2f}"
        rows.append((label, ours_text, peer_text, ratio, goal_text, verdict(kind, value, goal)))

    if memory is not None:
        entry = next((b for b in memory["benchmarks"] if b["name"].startswith("BM_Memory_CatalogueHeap")), None)
        if entry is not None:
            heap = entry["heap_bytes"]
            strings = entry["string_bytes"]
            value = heap / strings
            rows.append(("6. Catalogue heap after load vs UTF-16 bytes of its strings",
                         f"{heap / 1e6:.2f} MB in {entry['heap_blocks']:.0f} blocks",
                         f"{strings / 1e6:.2f} MB", f"ours/peer = {value:.2f}", "<= 1.50",
                         verdict("within", value, 1.5)))
            blocks = entry["heap_blocks"]
            apps = entry["app_records"]
            per_record = blocks / apps
            rows.append(("6. Catalogue heap blocks per application record",
                         f"{blocks:.0f} blocks", f"{apps:.0f} records", f"blocks/record = {per_record:.2f}",
                         "<= 1.50", verdict("within", per_record, 1.5)))

    model = ""
    try:
        with open("/proc/cpuinfo") as f:
            model = next((l.split(":", 1)[1].strip() for l in f if l.startswith("model name")), "")
    except OSError:
        pass
    repetitions = max((found["median"].get("repetitions", 1) for found in runs.values()), default=1)
    load_average = ", ".join(f"{x:.2f}" for x in context.get("load_avg", []))
    print(f"{context.get('date', '')}, {context.get('num_cpus', '?')} CPUs ({model or 'unknown model'}) at "
          f"{context.get('mhz_per_cpu', '?')} MHz, load average {load_average} at start; "
          f"medians over {repetitions} interleaved repetitions, each timing ours and the peer side by side")
    header = ("Measurement", "Kelbrook", "Peer", "Ratio", "Goal", "Result")
    widths = [max(len(str(row[i])) for row in rows + [header]) for i in range(len(header))]

    def line(cells):
        return "| " + " | ".join(str(c).ljust(w) for c, w in zip(cells, widths)) + " |"

    print(line(header))
    print("|" + "|".join("-" * (w + 2) for w in widths) + "|")
    for row in rows:
        print(line(row))
    return 0  # the table is the result: a miss does not fail the script


if __name__ == "__main__":
    sys.exit(main())
