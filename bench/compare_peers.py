"""Compares the libraries of bench/peers: compare_peers.py BUILD_DIRECTORY ROUNDS RECORDS_PER_THREAD [--write]

Run by script/bench. The programs take turns, in another order each round; every figure is the median of its rounds.
"""

import argparse
import json
import pathlib
import statistics
import sys

import report

PROGRAMS = ["ours", "spdlog", "spdlog_plain", "log4cplus", "poco"]
REFERENCE = "spdlog"
OWN = "ours"

# name, mode, threads, key of the program's result
FIGURES = [
    ("Call, median, 1 thread", "latency", 1, "p50"),
    ("Call, median, 2 threads", "latency", 2, "p50"),
    ("Call, 99.9 %, 1 thread", "latency", 1, "p99.9"),
    ("Call, 99.9 %, 2 threads", "latency", 2, "p99.9"),
    ("End to end, 1 thread", "throughput", 1, "wall"),
    ("End to end, 2 threads", "throughput", 2, "wall"),
    ("Processor time, 1 thread", "throughput", 1, "processor"),
]
# The tails are of another magnitude, and would leave nothing of the other bars.
CHARTED = [figure for figure in FIGURES if figure[3] != "p99.9"]


def measure(directory, rounds, records):
    """All results: {(program, mode, threads): [result of each round]}"""
    results = {}
    for number in range(rounds):
        print(f"round {number + 1} of {rounds}", file=sys.stderr)
        turn = number % len(PROGRAMS)
        for mode in ("latency", "throughput"):
            for threads in (1, 2):
                for program in PROGRAMS[turn:] + PROGRAMS[:turn]:
                    result = report.run_program(directory / program, mode, threads, records)
                    results.setdefault((program, mode, threads), []).append(result)
    return results


class Comparison:
    def __init__(self, results):
        self.results = results
        self.names = {program: results[program, "latency", 1][0]["library"] for program in PROGRAMS}

    def median(self, program, figure):
        _, mode, threads, key = figure
        return statistics.median(result[key] for result in self.results[program, mode, threads])

    def table(self):
        """Header and rows: each figure with its ratio to the reference."""
        def cell(program, figure):
            value = self.median(program, figure)
            return f"{value:,.0f} ({value / self.median(REFERENCE, figure):.2f})"

        header = ["ns per record"] + [self.names[program] for program in PROGRAMS]
        return header, [[figure[0]] + [cell(program, figure) for program in PROGRAMS] for figure in FIGURES]

    def chart(self):
        groups = [(figure[0], [(self.names[program], self.median(program, figure)) for program in PROGRAMS])
                  for figure in CHARTED]
        return report.bar_chart("One record, from the call to the file", "nanoseconds per record; shorter is better",
                                groups, self.names[OWN])

    def conditions(self, rounds, records, other_load):
        first = self.results[OWN, "latency", 1][0]
        versions = ", ".join(f"{self.names[program]} {self.results[program, 'latency', 1][0]['version']}"
                             for program in PROGRAMS)
        clock = statistics.median(result["clock"] for result in self.results[OWN, "latency", 1])
        return report.conditions(
            first,
            f"Medians of {rounds} round{'s' if rounds > 1 else ''} with {records:,} records per thread; "
            f"in brackets the ratio to {self.names[REFERENCE]}. "
            f"The clock's own {clock:.0f} ns are in every call's figure.", other_load, f"; {versions}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("rounds", type=int)
    parser.add_argument("records", type=int)
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()
    directory = options.build / "bench/peers"
    missing = [program for program in PROGRAMS if not (directory / program).exists()]
    if missing:
        sys.exit(f"Not built, since the library is not installed: {', '.join(missing)}")

    load = report.OtherLoad()
    results = measure(directory, options.rounds, options.records)
    comparison = Comparison(results)
    conditions = comparison.conditions(options.rounds, options.records, load.share())
    every_result = [{"mode": mode, **result} for (_, mode, _), of_rounds in results.items() for result in of_rounds]
    (options.build / "peers.json").write_text(json.dumps(every_result, indent=1))
    header, rows = comparison.table()
    print(report.text_table(header, rows), conditions, f"Every round: {options.build}/peers.json", sep="\n\n")
    if options.write:
        pathlib.Path("doc/performance-peers.svg").write_text(comparison.chart())
        report.replace_block("doc/performance.md", "peers",
                             report.markdown_table(header, rows) + "\n\n" + conditions)


if __name__ == "__main__":
    main()
