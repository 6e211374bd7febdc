"""What the benchmarks have in common once their programs are built: runs, tables, charts and the documents' blocks."""

import datetime
import json
import os
import pathlib
import re
import subprocess
import sys
import textwrap
from xml.sax.saxutils import escape


def run_program(*command):
    """Runs a program that prints one JSON object. One that fails ends everything: better no figures than wrong ones."""
    try:
        done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, timeout=600, check=True)
        return json.loads(done.stdout)
    except (OSError, ValueError, subprocess.SubprocessError) as error:
        sys.exit(f"{' '.join(str(word) for word in command)}: {error}")


class OtherLoad:
    """How much of the processors programs other than ours took since this was made."""

    def __init__(self):
        self.start = self._now()

    def share(self):
        everything, idle, own = (now - before for now, before in zip(self._now(), self.start))
        return max(0.0, everything - idle - own) / everything if everything else 0.0

    @staticmethod
    def _now():
        ticks = os.sysconf("SC_CLK_TCK")
        # user nice system idle iowait irq softirq steal; what guests take is in user already
        words = pathlib.Path("/proc/stat").read_text().splitlines()[0].split()[1:9]
        times = [int(word) / ticks for word in words]
        return sum(times), times[3] + times[4], sum(os.times()[:4])


def machine():
    models = re.findall(r"^model name\s*:\s*(.+)$", pathlib.Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    return f"{os.cpu_count()} cores, {models[0].strip() if models else 'unknown processor'}"


def conditions(program, figures, other_load, libraries=""):
    """Below a table: when, where and of what its figures are. `program` is a result that names compiler and Qt."""
    return paragraph(f"{datetime.date.today().isoformat()}; {machine()}; {program['compiler']}, Qt {program['qt']}"
                     f"{libraries}. {figures} Other programs took {other_load:.0%} of the processors meanwhile.")


def number(value):
    """A time as tables and charts write it."""
    return f"{value:,.0f}" if value >= 10 else f"{value:.1f}"


def markdown_table(header, rows):
    """The first column is text, the others are figures."""
    lines = [header, ["---"] + ["---:"] * (len(header) - 1), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def paragraph(text):
    return textwrap.fill(text, 120, break_on_hyphens=False)


def text_table(header, rows):
    widths = [max(len(line[column]) for line in [header, *rows]) for column in range(len(header))]
    return "\n".join(
        "  ".join(cell.ljust(width) if column == 0 else cell.rjust(width)
                  for column, (cell, width) in enumerate(zip(line, widths)))
        for line in [header, *rows])


def replace_block(document, name, text):
    """Puts the text between the lines <!-- name --> and <!-- /name --> of the document."""
    path = pathlib.Path(document)
    block = re.compile(rf"(<!-- {name} -->\n).*?(<!-- /{name} -->)", re.DOTALL)
    changed, count = block.subn(lambda found: f"{found[1]}\n{text}\n\n{found[2]}", path.read_text())
    if count != 1:
        sys.exit(f"{document}: {count} blocks named {name}, where one should be")
    path.write_text(changed)


# Greys and one blue that can be read on white and on black; text follows the reader's colour scheme where it is known.
CHART_STYLE = """
    text { font-family: sans-serif; font-size: 13px; fill: #6b737d; }
    .title { font-size: 15px; font-weight: bold; }
    .group { font-weight: bold; }
    .right { text-anchor: end; }
    .middle { text-anchor: middle; }
    .bar { fill: #8c959f; }
    .own { fill: #3b82c4; }
    line { stroke: #8c959f; stroke-opacity: 0.35; }
    @media (prefers-color-scheme: dark) { text { fill: #c9d1d9; } .bar { fill: #768390; } }
"""


def tick_step(largest, most=8):
    """1, 2 or 5 times a power of ten, for at most that many ticks above 0."""
    steps = (factor * 10**power for power in range(12) for factor in (1, 2, 5))
    return next(step for step in steps if largest / step <= most)


def text_width(text):
    """In a chart, about: fonts differ, and this is enough for a wide one."""
    return 7 * len(text)


def svg(title, width, height, parts, style=""):
    """The picture of these parts. `style`: rules beside the usual ones."""
    body = "\n".join(f"  {part}" for part in parts)
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}"'
            f' role="img" aria-label="{escape(title)}">\n  <style>{CHART_STYLE}{style}  </style>\n{body}\n</svg>\n')
