#!/usr/bin/env python3
"""Runs the frame, bag, PCF, command-execution, command-server and first-fill
benchmarks and prints each performance target with the figure measured for
it, against its baseline from the same run.

The benchmarks' repetitions are interleaved at random, so that a drift of
the machine's speed during the run falls on a call and on its baseline
alike. Every figure is the CPU time of the fastest repetition: noise, and
other work sharing the machine, only ever add time.

    bench/support/targets.py BUILD_DIR [--repetitions N] [--min-time SECONDS]
"""
import argparse
import collections
import json
import subprocess
import sys


def run(binary, repetitions, min_time, extra=()):
    out = subprocess.run(
        [binary, "--benchmark_format=json", "--benchmark_enable_random_interleaving=true",
         f"--benchmark_repetitions={repetitions}", f"--benchmark_min_time={min_time}", *extra],
        check=True, capture_output=True, text=True).stdout
    runs = collections.defaultdict(list)
    for b in json.loads(out)["benchmarks"]:
        if b.get("run_type") == "iteration":
            runs[b["run_name"]].append(b)
    return runs


def fastest(runs, name, field="cpu_time"):
    return min(r[field] for r in runs[name])


def fastest_per_item(runs, name):
    """The per-item counter, which the JSON output gives in seconds."""
    return fastest(runs, name, "ns_per_item") * 1e9


class Report:
    def __init__(self):
        self.missed = 0

    def line(self, what, value, unit, limit, detail=""):
        met = value <= limit
        self.missed += not met
        print(f"  {what:52} {value:9.2f} {unit:5} (<= {limit:g}) {'met' if met else 'MISSED'}"
              f"{'  ' + detail if detail else ''}")


def frame(report, build, repetitions, min_time):
    runs = run(f"{build}/bin/bench_frame", repetitions, min_time)
    print("Call frame")
    report.line("empty API frame, tracing off", fastest(runs, "BM_EmptyApiFrame"), "ns", 30,
                f"plain call {fastest(runs, 'BM_PlainCall'):.2f} ns")


def bags(report, build, repetitions, min_time):
    runs = run(f"{build}/bin/bench_bags", repetitions, min_time)
    print("Data bags")
    for n in (10, 1000, 100000):
        report.line(f"jxAddInteger, {n} items", fastest_per_item(runs, f"BM_AddInteger/{n}"),
                    "ns", 80,
                    f"std::vector {fastest_per_item(runs, f'BM_AddBaseline/{n}'):.2f} ns")
    small = fastest(runs, "BM_InquireInteger/10/1")
    large = fastest(runs, "BM_InquireInteger/100000/1")
    report.line("jxInquireInteger last selector, 100,000 vs 10", large / small, "x", 2,
                f"{large:.1f} vs {small:.1f} ns")


def execute(report, build, repetitions, min_time):
    names = ("SocketFloor/real_time/threads:1", "ExecuteOneReply/real_time",
             "DirectOneReply/real_time")
    runs = run(f"{build}/bin/qmgr_bench", repetitions, min_time,
               [f"--benchmark_filter=^({'|'.join(names)})$"])
    print("Command execution, wall time")
    floor, ours, direct = (fastest(runs, n, "real_time") for n in names)
    trips = runs[names[1]][0]["round_trips"]
    report.line("jxExecute, one reply, vs the same calls made directly", ours / direct, "x", 1.2,
                f"{ours / 1e3:.0f} vs {direct / 1e3:.0f} us")
    # A floor iteration is two exchanges, a put's and a get's.
    report.line(f"jxExecute per round trip ({trips:.0f}) vs socket ping-pong",
                (ours / trips) / (floor / 2), "x", 1.5,
                f"{ours / trips / 1e3:.1f} vs {floor / 2e3:.1f} us")


def commands(report, build, repetitions, min_time):
    runs = run(f"{build}/bin/cmdserver_bench", repetitions, min_time)
    print("Command server, wall time")
    ours, direct = (fastest(runs, f"InquireOne{n}/real_time", "real_time")
                    for n in ("Execute", "Direct"))
    server = fastest(runs, "InquireOneServer")
    report.line("jxExecute inquire one queue vs the same calls made directly", ours / direct,
                "x", 1.2, f"{ours / 1e3:.0f} vs {direct / 1e3:.0f} us, "
                f"the command server's own part {server / 1e3:.1f} us")
    # Google Benchmark reports these in milliseconds.
    small, large = (fastest(runs, f"InquireAll/{n}/real_time", "real_time") for n in (1000, 10000))
    report.line("inquire queue over 10,000 vs 1,000 queues", large / small, "x", 11,
                f"{large:.0f} vs {small:.1f} ms")
    report.line("inquire queue over 10,000 queues, per queue", large * 1e3 / 10000, "us", 20)
    idle, beside = (fastest(runs, f"PutGet{n}/real_time", "real_time") for n in ("Idle", "Beside"))
    report.line("put+get beside a 10,000-queue inquiry vs idle", beside / idle, "x", 2,
                f"{beside / 1e3:.0f} vs {idle / 1e3:.0f} us")


def first_fill(report, build, repetitions):
    """Each side in fresh processes, taken in turn; the fastest of each."""
    runs = collections.defaultdict(list)
    for _ in range(repetitions):
        for side in ("bag", "array"):
            out = subprocess.run([f"{build}/bin/bench_first_fill", side], check=True,
                                 capture_output=True, text=True).stdout
            runs[side].append(json.loads(out))
    print("First fill, fresh processes")
    bag = min(r["ns"] for r in runs["bag"])
    array = min(r["ns"] for r in runs["array"])
    report.line("first fill of 100,000 items vs realloc array", bag / array, "x", 2,
                f"{bag / 1e6:.2f} vs {array / 1e6:.2f} ms")
    report.line("resident bytes per item after it",
                min(r["resident_bytes_per_item"] for r in runs["bag"]), "B", 96,
                f"array {min(r['resident_bytes_per_item'] for r in runs['array']):.1f} B")


def pcf(report, build, repetitions, min_time):
    runs = run(f"{build}/bin/bench_pcf", repetitions, min_time)
    print("PCF codec")
    for op, direct, limit in (("Write", "DirectEncode", 5), ("Read", "DirectDecode", 10)):
        for shape in ("kIntegers", "kStrings", "kLists"):
            ours = {n: fastest(runs, f"BM_{op}<{shape}>/{n}") for n in (1000, 100000)}
            theirs = {n: fastest(runs, f"BM_{direct}<{shape}>/{n}") for n in (1000, 100000)}
            for n in (1000, 100000):
                report.line(f"{op.lower()} {shape[1:].lower()}, {n} items, vs direct",
                            ours[n] / theirs[n], "x", limit)
            report.line(f"{op.lower()} {shape[1:].lower()}, 100,000 vs 1,000 items",
                        ours[100000] / ours[1000], "x", 110,
                        f"direct {theirs[100000] / theirs[1000]:.0f}x")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build", help="build folder holding bin/bench_*")
    parser.add_argument("--repetitions", type=int, default=7)
    parser.add_argument("--min-time", type=float, default=0.1)
    args = parser.parse_args()
    report = Report()
    for part in (frame, bags, pcf, execute, commands):
        part(report, args.build, args.repetitions, args.min_time)
    first_fill(report, args.build, max(args.repetitions, 9))
    print(f"{report.missed} target(s) missed")
    return 1 if report.missed else 0


if __name__ == "__main__":
    sys.exit(main())
