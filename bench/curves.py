"""Measures the cost curves of the library: curves.py BUILD_DIRECTORY ROUNDS [--quick] [--write]

Run by script/bench --curves. Each point is a process of its own, of the program built from bench/curves.cpp; the points
of a round are in random order, and a figure is the median of its rounds, that of the most memory their maximum.
"""

import argparse
import dataclasses
import json
import pathlib
import random
import statistics
import sys
import typing

import line_charts
import report

LONG = 10**7  # a point that takes seconds, and has more than enough records for one round
LONG_ROUNDS = 2


@dataclasses.dataclass(frozen=True)
class Figure:
    label: str
    curve: str  # of the program, like the key
    key: str
    divisor: int = 1
    of_rounds: typing.Callable = statistics.median


@dataclasses.dataclass(frozen=True)
class Panel:
    """One chart, and the columns of a table."""
    title: str
    unit: str
    figures: list
    digits: int = 0


@dataclasses.dataclass(frozen=True)
class Family:
    """One table: the panels over the same points."""
    across: str
    points: list
    logarithmic: bool
    panels: list

    def figures(self):
        return [(panel, figure) for panel in self.panels for figure in panel.figures]


FAMILIES = [
    Family("Records by one thread", [10**4, 10**5, 10**6, LONG], True, [
        Panel("A load of records: time", "ns per record",
              [Figure("wall", "records", "wall"), Figure("processor", "records", "processor")]),
        Panel("A load of records: memory", "MiB more at most", [Figure("memory", "records", "peak", 1024, max)], 1)]),
    Family("Threads, 200,000 records each", [1, 2, 4, 8], False, [
        Panel("Threads that log at once", "ns per record",
              [Figure("wall", "threads", "wall"), Figure("processor", "threads", "processor")])]),
    Family("Arguments", list(range(9)), False, [
        Panel("Arguments of an entry", "ns per call", [Figure("call", "arguments", "call")])]),
    Family("Records remembered", [1, 10, 100, 1000], True, [
        Panel("Repeat suppression", "ns per call",
              [Figure("new record", "remembered", "new"), Figure("repeat", "remembered", "repeat")])]),
    Family("Class loggers", [1, 10, 20, 50, 100], False, [
        Panel("To make a class logger", "ms each",
              [Figure("first start", "new-class-loggers", "make"), Figure("later", "class-loggers", "make")], 2),
        Panel("Memory of a class logger", "KiB each", [Figure("memory", "class-loggers", "memory")])]),
]


def points_to_measure(quick):
    """(curve, point), each once."""
    found = {(figure.curve, point): None for family in FAMILIES for _, figure in family.figures()
             for point in family.points if not (quick and point == LONG)}
    return list(found)


def measure(program, rounds, points):
    """All results: {(curve, point): [result of each round]}"""
    results = {point: [] for point in points}
    for number in range(rounds):
        print(f"round {number + 1} of {rounds}", file=sys.stderr)
        for curve, point in random.sample(points, len(points)):
            if point != LONG or number < LONG_ROUNDS:
                results[curve, point].append(report.run_program(program, curve, point))
    return results


class Curves:
    def __init__(self, results):
        self.results = results

    def points(self, family):
        """Those that were measured."""
        return [point for point in family.points if (family.panels[0].figures[0].curve, point) in self.results]

    def value(self, figure, point):
        return figure.of_rounds(result[figure.key] for result in self.results[figure.curve, point]) / figure.divisor

    def table(self, family):
        header = [family.across]
        header += [f"{figure.label}, {panel.unit}" for panel, figure in family.figures()]
        rows = [[f"{point:,}"] + [f"{self.value(figure, point):,.{panel.digits}f}"
                                  for panel, figure in family.figures()] for point in self.points(family)]
        return header, rows

    def tables(self, write):
        return "\n\n".join(write(*self.table(family)) for family in FAMILIES)

    def charts(self):
        charts = []
        for family in FAMILIES:
            points = self.points(family)
            charts += [line_charts.Chart(panel.title, panel.unit, family.across, points, family.logarithmic,
                                         [(figure.label, [self.value(figure, point) for point in points])
                                          for figure in panel.figures]) for panel in family.panels]
        return line_charts.line_charts("How the costs grow", charts)

    def conditions(self, rounds, other_load):
        first = next(iter(self.results.values()))[0]
        fewer = f", of {min(rounds, LONG_ROUNDS)} for {LONG:,} records" if ("records", LONG) in self.results else ""
        return report.conditions(
            first, f"Medians of {rounds} round{'s' if rounds > 1 else ''} in random order{fewer}.", other_load)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("rounds", type=int)
    parser.add_argument("--quick", action="store_true", help=f"without the point of {LONG:,} records")
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()

    load = report.OtherLoad()
    results = measure(options.build / "bench/curves", options.rounds, points_to_measure(options.quick))
    curves = Curves(results)
    conditions = curves.conditions(options.rounds, load.share())
    every_result = [{"curve": curve, "point": point, **result}
                    for (curve, point), of_rounds in results.items() for result in of_rounds]
    (options.build / "curves.json").write_text(json.dumps(every_result, indent=1))
    print(curves.tables(report.text_table), conditions, f"Every round: {options.build}/curves.json", sep="\n\n")
    if options.write:
        pathlib.Path("doc/performance-curves.svg").write_text(curves.charts())
        report.replace_block("doc/performance.md", "curves",
                             curves.tables(report.markdown_table) + "\n\n" + conditions)


if __name__ == "__main__":
    main()
