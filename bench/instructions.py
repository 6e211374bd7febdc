"""Counts the instructions that an entry costs the thread that logs it: instructions.py BUILD [--check | --write]

Run by script/instructions. Unlike a time, the count is the same on a busy machine, and on another processor: valgrind
shows every program the same processor, as far as the real one is not older, and what the C library and Qt would choose
by its features is fixed below. It does depend on compiler and libraries, which bench/instructions.txt names.

Prints the counts. --write puts them into bench/instructions.txt. --check compares them with that, and fails where one
has become more than five per cent greater. The profile of each path stays in BUILD/instructions:
callgrind_annotate --threshold=100 BUILD/instructions/<path>
"""

import argparse
import os
import pathlib
import platform
import re
import subprocess
import sys

import report

COMMITTED = pathlib.Path(__file__).with_name("instructions.txt")
TOLERANCE = 0.05
ENTRIES = 5000
# The least counts: sometimes the threads get in each other's way, or a second or a piece of the queue begins.
ROUNDS = 3
# Every choice that the x86-64 baseline does not have.
C_LIBRARY = ("AVX AVX2 AVX512F AVX512VL AVX512BW AVX_Fast_Unaligned_Load BMI1 BMI2 ERMS FSRM Fast_Unaligned_Copy LZCNT "
             "MOVBE POPCNT RTM SSE4_1 SSE4_2 SSSE3 XSAVE XSAVEC")
QT = "sse3 ssse3 sse4.1 sse4.2 movbe popcnt aesni avx f16c bmi avx2 bmi2 rdrnd rdseed lzcnt"
ENVIRONMENT = {
    "PATH": os.defpath,
    "LC_ALL": "C",
    "TZ": "UTC0",
    "QT_HASH_SEED": "0",
    "QT_NO_CPU_FEATURE": QT,
    "GLIBC_TUNABLES": "glibc.cpu.hwcaps=" + ",".join(f"-{feature}" for feature in C_LIBRARY.split()),
}


def run(program, directory):
    """Versions and counts of one run. Leaves callgrind's files in the directory, each named like its path."""
    directory.mkdir(exist_ok=True)
    for old in directory.iterdir():
        old.unlink()
    command = ["valgrind", "--tool=callgrind", "--quiet", "--collect-atstart=no",
               f"--callgrind-out-file={directory.absolute()}/part", program.absolute(), str(ENTRIES)]
    try:
        done = subprocess.run(command, env=ENVIRONMENT, stdout=subprocess.PIPE, text=True, timeout=300, check=True)
    except (OSError, subprocess.SubprocessError) as error:
        sys.exit(f"{' '.join(str(word) for word in command)}: {error}")
    counts = {}
    for part in sorted(directory.glob("part.*"), key=lambda path: int(path.suffix[1:])):
        text = part.read_text()
        path = re.search(r"^desc: Trigger: Client Request: (.+)$", text, re.MULTILINE)[1]
        counts[path] = int(re.search(r"^totals: (\d+)$", text, re.MULTILINE)[1]) / ENTRIES
        part.rename(directory / path)
    (directory / "part").unlink()  # of everything else, where nothing was counted
    return done.stdout.strip(), counts


def count(build):
    rounds = [run(build / "bench/instructions", build / "instructions") for _ in range(ROUNDS)]
    versions, first = rounds[0]
    valgrind = subprocess.run(["valgrind", "--version"], stdout=subprocess.PIPE, text=True, check=True).stdout
    return (f"{versions}, {valgrind.strip().replace('-', ' ')}",
            {path: min(counts[path] for _, counts in rounds) for path in first})


def write(versions, counts):
    width = max(map(len, counts))
    lines = [f"# {line}" for line in ("Instructions of the thread that logs, per entry: script/instructions --write",
                                      versions)]
    lines += [f"{path:{width}} {value:8.1f}" for path, value in counts.items()]
    COMMITTED.write_text("\n".join(lines) + "\n")


def read():
    """Versions and counts, as they were written."""
    lines = COMMITTED.read_text().splitlines()
    counts = {path: float(value) for path, value in (line.split() for line in lines if not line.startswith("#"))}
    return lines[1].removeprefix("# "), counts


def check(versions, counts):
    """What the script exits with."""
    committed_versions, committed = read()
    if versions != committed_versions:
        print(f"Counted with {versions}; committed with {committed_versions}.")
    if counts.keys() != committed.keys():
        print(f"Not in both this and {COMMITTED.name}: {', '.join(sorted(counts.keys() ^ committed.keys()))}")
        return 1
    changes = {path: value / committed[path] - 1 for path, value in counts.items()}
    header = ["path", "committed", "now", "change"]
    print(report.text_table(header, [[path, f"{committed[path]:.1f}", f"{value:.1f}", f"{changes[path]:+.1%}"]
                                     for path, value in counts.items()]))
    more = [path for path, change in changes.items() if change > TOLERANCE]
    if more:
        print(f"More than {TOLERANCE:.0%} more instructions than committed: {', '.join(more)}. Where that is the price "
              "of something: script/instructions --write, and commit the counts with the change.")
        return 1
    if any(change < -TOLERANCE for change in changes.values()):
        print("Fewer than before: script/instructions --write, and commit the counts, so that they stay few.")
    return 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()
    if options.check and platform.machine() != "x86_64":
        print("The committed counts are those of x86-64: nothing to compare with here.")
        return 0
    versions, counts = count(options.build)
    if options.check:
        return check(versions, counts)
    print(versions, report.text_table(["path", "instructions per entry"],
                                      [[path, f"{value:.1f}"] for path, value in counts.items()]), sep="\n")
    if options.write:
        write(versions, counts)
    return 0


if __name__ == "__main__":
    sys.exit(main())
