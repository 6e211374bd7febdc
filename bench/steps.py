"""Times the steps of an entry: steps.py BUILD_DIRECTORY REPETITIONS [--dirty | --write]

Run by script/bench --steps, of the program built from bench/steps. Every figure is the median of its repetitions, which
of all steps take turns in random order.
"""

import argparse
import json
import pathlib
import statistics
import sys

import report

SECONDS = 0.1  # at least, of each repetition
DISABLED = "Disabled entry, 1 thread"
PARTS = ["Disabled entry, of which the clock", "Disabled entry, of which text and arguments"]


def readable(name):
    """Google Benchmark appends an argument as /100, and the threads as /threads:2."""
    name, _, last = name.partition("/")
    if last.startswith("threads:"):
        threads = int(last.removeprefix("threads:"))
        return f"{name}, {threads} thread{'s' if threads > 1 else ''}"
    return f"{name} {int(last):,}" if last else name


def measure(build, repetitions, *arguments):
    """What the program says about itself and the machine, and the nanoseconds of the calling thread for each step."""
    result = report.run_program(build / "bench/steps", f"--benchmark_repetitions={repetitions}",
                                f"--benchmark_min_time={SECONDS}", "--benchmark_enable_random_interleaving=true",
                                "--benchmark_format=json", *arguments)
    (build / "steps.json").write_text(json.dumps(result, indent=1))
    steps = {}
    for run in sorted(result["benchmarks"], key=lambda run: (run["family_index"], run["per_family_instance_index"])):
        if run.get("error_occurred"):
            sys.exit(f"{run['name']}: {run['error_message']}")
        if run["run_type"] == "iteration":
            steps.setdefault(readable(run["run_name"]), []).append(run["cpu_time"])
    return result["context"], {step: statistics.median(times) for step, times in steps.items()}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("repetitions", type=int)
    parser.add_argument("--dirty", action="store_true", help="as bench/steps/main.cpp says")
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()
    if not (options.build / "bench/steps").exists():
        sys.exit("Not built, since Google Benchmark is not installed: steps")

    load = report.OtherLoad()
    context, steps = measure(options.build, options.repetitions, *["--dirty"] * options.dirty)
    rows = [[step, f"{time:,.1f}"] for step, time in steps.items()]
    beyond = steps[DISABLED] - sum(steps[part] for part in PARTS)
    place = [row[0] for row in rows].index(PARTS[-1]) + 1
    rows.insert(place, ["Disabled entry, beyond clock, text and arguments", f"{beyond:,.1f}"])
    figures = (f"Medians of {options.repetitions} repetition{'s' if options.repetitions > 1 else ''} in random order, "
               "processor time of the thread that logs.")
    conditions = report.conditions(context, figures, load.share())
    header = ["Step", "ns"]
    print(report.text_table(header, rows), conditions, f"Every repetition: {options.build}/steps.json", sep="\n\n")
    if options.write:
        report.replace_block("doc/performance.md", "steps", report.markdown_table(header, rows) + "\n\n" + conditions)


if __name__ == "__main__":
    main()
