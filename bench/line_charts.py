"""Small line charts beside each other, as one SVG."""

import dataclasses
import math
from xml.sax.saxutils import escape

import report

STYLE = """    .curve { fill: none; stroke: #8c959f; stroke-width: 2; }
    .curve.own { fill: none; stroke: #3b82c4; }
"""
WIDTH, COLUMNS = 760, 2
PANEL_HEIGHT, PLOT_HEIGHT = 244, 130
LEFT, RIGHT, TOP, HEAD = 56, 42, 46, 52  # TOP: of the picture, HEAD: of each chart
PLOT_WIDTH = WIDTH // COLUMNS - LEFT - RIGHT


@dataclasses.dataclass
class Chart:
    title: str
    unit: str
    across: str  # what the points are
    points: list
    logarithmic: bool
    lines: list  # (label, [value of each point]); the first one is blue


def places(chart):
    """Where each point lies from left to right, from 0 to 1. A linear axis begins at nothing."""
    scale = math.log if chart.logarithmic else float
    first = scale(chart.points[0]) if chart.logarithmic else 0.0
    return [(scale(point) - first) / (scale(chart.points[-1]) - first) for point in chart.points]


def draw(chart, left, top):
    """The parts of one chart, whose plot has its upper left corner there."""
    bottom = top + PLOT_HEIGHT
    largest = max(value for _, values in chart.lines for value in values)
    step = report.tick_step(largest, 4)
    highest = math.ceil(largest / step) * step

    def height(value):
        return bottom - value / highest * PLOT_HEIGHT

    parts = [f'<text class="group" x="{left}" y="{top - 34}">{escape(chart.title)}</text>',
             f'<text x="{left}" y="{top - 14}">{escape(chart.unit)}</text>']
    for tick in range(0, highest + 1, step):
        parts.append(f'<line x1="{left}" y1="{height(tick):.1f}" x2="{left + PLOT_WIDTH}" y2="{height(tick):.1f}"/>')
        parts.append(f'<text class="right" x="{left - 8}" y="{height(tick) + 4.5:.1f}">{tick:,}</text>')
    across = [left + place * PLOT_WIDTH for place in places(chart)]
    for x, point in zip(across, chart.points):
        parts.append(f'<line x1="{x:.1f}" y1="{bottom}" x2="{x:.1f}" y2="{bottom + 4}"/>')
        parts.append(f'<text class="middle" x="{x:.1f}" y="{bottom + 18}">{point:,}</text>')
    parts.append(f'<text class="middle" x="{left + PLOT_WIDTH / 2:.1f}" y="{bottom + 38}">{escape(chart.across)}</text>')

    keys = [(label, report.text_width(label) + 34) for label, _ in chart.lines]
    key = left + PLOT_WIDTH - sum(width for _, width in keys)
    for number, (label, values) in enumerate(chart.lines):
        own = " own" if number == 0 else ""
        if len(chart.lines) > 1:
            parts.append(f'<path class="curve{own}" d="M{key} {top - 18}h16"/>')
            parts.append(f'<text x="{key + 22}" y="{top - 14}">{escape(label)}</text>')
            key += keys[number][1]
        places_of_line = [(x, height(value)) for x, value in zip(across, values)]
        parts.append(f'<polyline class="curve{own}" points="'
                     + " ".join(f"{x:.1f},{y:.1f}" for x, y in places_of_line) + '"/>')
        parts += [f'<circle class="bar{own}" cx="{x:.1f}" cy="{y:.1f}" r="3"/>' for x, y in places_of_line]
    return parts


def line_charts(title, charts):
    parts = [f'<text class="title" x="{LEFT}" y="26">{escape(title)}</text>']
    for number, chart in enumerate(charts):
        row, column = divmod(number, COLUMNS)
        parts += draw(chart, LEFT + column * (WIDTH // COLUMNS), TOP + HEAD + row * PANEL_HEIGHT)
    rows = math.ceil(len(charts) / COLUMNS)
    return report.svg(title, WIDTH, TOP + rows * PANEL_HEIGHT, parts, STYLE)
