"""Compares the libraries of bench/peers: compare_peers.py BUILD_DIRECTORY ROUNDS RECORDS_PER_THREAD [--write]

Run by script/bench. The programs take turns, in another order each round; every figure is the median of its rounds.
RECORDS_PER_THREAD are those of a load without a pause; a load at a pace has a twentieth.
"""

import argparse
import json
import pathlib
import statistics
import sys
import typing

import bar_charts
import report

PROGRAMS = ["ours", "spdlog", "spdlog_plain", "log4cplus", "poco"]
REFERENCE = "spdlog"
OWN = "ours"


class Figure(typing.NamedTuple):
    name: str
    measurement: str  # of the program, like the key
    threads: int
    key: str


# Of another magnitude than the rest of a load without a pause, of whose bars they would leave nothing.
TAILS = [
    Figure("Call, 99 %, 1 thread", "latency", 1, "p99"),
    Figure("Call, 99 %, 2 threads", "latency", 2, "p99"),
    Figure("Call, 99.9 %, 1 thread", "latency", 1, "p99.9"),
    Figure("Call, 99.9 %, 2 threads", "latency", 2, "p99.9"),
]
CALLS = [
    Figure("Call, median, 1 thread", "latency", 1, "p50"),
    Figure("Call, median, 2 threads", "latency", 2, "p50"),
]
LOADS = [
    Figure("End to end, 1 thread", "throughput", 1, "wall"),
    Figure("End to end, 2 threads", "throughput", 2, "wall"),
    Figure("Processor time, 1 thread", "throughput", 1, "processor"),
]
PACED = [
    Figure("Call every 20 µs, median", "spin:20", 1, "p50"),
    Figure("Call every 20 µs, 99 %", "spin:20", 1, "p99"),
    Figure("Call every 100 µs, median", "spin:100", 1, "p50"),
    Figure("Call every 100 µs, 99 %", "spin:100", 1, "p99"),
    Figure("Call every 100 µs, asleep between, median", "sleep:100", 1, "p50"),
    Figure("Call every 100 µs, asleep between, 99 %", "sleep:100", 1, "p99"),
]
BELOW_LEVEL = [Figure("Call below the level, beyond clock and arguments", "disabled", 1, "beyond")]
FIGURES = CALLS + TAILS + PACED + BELOW_LEVEL + LOADS
MEASUREMENTS = list(dict.fromkeys((figure.measurement, figure.threads) for figure in FIGURES))


def records_of(measurement, records):
    return records if measurement in ("latency", "throughput") else records // 20


def measure(directory, rounds, records):
    """All results: {(program, measurement, threads): [result of each round]}"""
    results = {}
    for number in range(rounds):
        print(f"round {number + 1} of {rounds}", file=sys.stderr)
        turn = number % len(PROGRAMS)
        for measurement, threads in MEASUREMENTS:
            for program in PROGRAMS[turn:] + PROGRAMS[:turn]:
                result = report.run_program(directory / program, measurement, threads, records_of(measurement, records))
                results.setdefault((program, measurement, threads), []).append(result)
    return results


class Comparison:
    def __init__(self, results):
        self.results = results
        self.names = {program: results[program, "latency", 1][0]["library"] for program in PROGRAMS}

    def median(self, program, figure):
        results = self.results[program, figure.measurement, figure.threads]
        return statistics.median(result[figure.key] for result in results)

    def table(self):
        """Header and rows: each figure with its ratio to the reference."""
        def cell(program, figure):
            value = self.median(program, figure)
            return f"{report.number(value)} ({value / self.median(REFERENCE, figure):.2f})"

        header = ["ns per record"] + [self.names[program] for program in PROGRAMS]
        return header, [[figure.name] + [cell(program, figure) for program in PROGRAMS] for figure in FIGURES]

    def chart(self, title, figures):
        return bar_charts.Chart(title, "nanoseconds per record",
                                [(figure.name, [(self.names[program], self.median(program, figure))
                                                for program in PROGRAMS]) for figure in figures])

    def charts(self):
        return bar_charts.bar_charts("One record, from the call to the file",
                                     [self.chart("Threads that log without a pause", CALLS + LOADS),
                                      self.chart("One thread that logs at a pace", PACED)], self.names[OWN])

    def most_late(self):
        """The share of records that did not come at their pace, in the measurement where most of them did not."""
        return max(statistics.median(result["late"] / result["records"] for result in results)
                   for (_, measurement, _), results in self.results.items() if ":" in measurement)

    def conditions(self, rounds, records, other_load):
        first = self.results[OWN, "latency", 1][0]
        versions = ", ".join(f"{self.names[program]} {self.results[program, 'latency', 1][0]['version']}"
                             for program in PROGRAMS)
        clock = statistics.median(result["clock"] for result in self.results[OWN, "latency", 1])
        return report.conditions(
            first,
            f"Medians of {rounds} round{'s' if rounds > 1 else ''} with {records:,} records per thread, "
            f"{records_of('spin:20', records):,} at a pace; in brackets the ratio to {self.names[REFERENCE]}. "
            f"The clock's own {clock:.0f} ns are in every call's figure but that below the level. At a pace, at most "
            f"{self.most_late():.1%} of a library's records began a period or more after they were due.",
            other_load, f"; {versions}")


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
    every_result = [{"measurement": measurement, **result}
                    for (_, measurement, _), of_rounds in results.items() for result in of_rounds]
    (options.build / "peers.json").write_text(json.dumps(every_result, indent=1))
    header, rows = comparison.table()
    print(report.text_table(header, rows), conditions, f"Every round: {options.build}/peers.json", sep="\n\n")
    if options.write:
        pathlib.Path("doc/performance-peers.svg").write_text(comparison.charts())
        report.replace_block("doc/performance.md", "peers",
                             report.markdown_table(header, rows) + "\n\n" + conditions)


if __name__ == "__main__":
    main()
