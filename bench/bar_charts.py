"""Horizontal bars below each other, as one SVG."""

import dataclasses
from xml.sax.saxutils import escape

import report

WIDTH = 760
MARGIN = 8
BAR, GAP = 14, 3


@dataclasses.dataclass
class Chart:
    title: str
    unit: str
    groups: list  # (name, [(label, value), ...]), all on one axis


def draw(chart, own, left, right, top):
    """The parts of one chart from `top` on, and where it ends. `left` and `right`: how much is beside the bars."""
    plot = WIDTH - left - right
    largest = max(value for _, bars in chart.groups for _, value in bars)
    ticks = [(tick, left + tick / largest * plot) for tick in range(0, int(largest) + 1, report.tick_step(largest))]
    parts = [f'<text class="group" x="{left}" y="{top}">{escape(chart.title)}</text>',
             f'<text x="{left}" y="{top + 18}">{escape(chart.unit)}; shorter is better</text>']
    y = top + 32
    for name, bars in chart.groups:
        parts.append(f'<text class="group" x="{left}" y="{y + 14}">{escape(name)}</text>')
        y += 24
        bottom = y + len(bars) * (BAR + GAP)
        parts += [f'<line x1="{x:.1f}" y1="{y - GAP}" x2="{x:.1f}" y2="{bottom}"/>' for _, x in ticks]
        for label, value in bars:
            length = max(1.0, value / largest * plot)
            style = "bar own" if label == own else "bar"
            parts.append(f'<text class="right" x="{left - MARGIN}" y="{y + 12}">{escape(label)}</text>')
            parts.append(f'<rect class="{style}" x="{left}" y="{y}" width="{length:.1f}" height="{BAR}"/>')
            parts.append(f'<text x="{left + length + 6:.1f}" y="{y + 12}">{report.number(value)}</text>')
            y += BAR + GAP
        y += 10
    parts += [f'<text class="middle" x="{x:.1f}" y="{y + 8}">{tick:,}</text>' for tick, x in ticks]
    parts.append(f'<text class="middle" x="{left + plot / 2:.1f}" y="{y + 28}">{escape(chart.unit)}</text>')
    return parts, y + 28


def bar_charts(title, charts, own):
    """`own`: the label of the blue bars."""
    bars = [bar for chart in charts for _, bars in chart.groups for bar in bars]
    left = 2 * MARGIN + max(report.text_width(label) for label, _ in bars)
    right = 2 * MARGIN + max(report.text_width(report.number(value)) for _, value in bars)
    parts = [f'<text class="title" x="{left}" y="26">{escape(title)}</text>']
    y = 26
    for chart in charts:
        drawn, y = draw(chart, own, left, right, y + 40)
        parts += drawn
    return report.svg(title, WIDTH, y + 14, parts)
