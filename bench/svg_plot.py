"""Draws lines over two axes as an SVG, with the standard library alone.

Text and lines are of middle brightness and the ground is transparent, so that a figure can be read
on a light page and on a dark one. The same values give the same bytes.
"""

import itertools
import math
from typing import NamedTuple, Sequence
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 760, 390
LEFT, RIGHT, TOP, BOTTOM = 80, 740, 80, 340  # the edges of the plot
INK = "#777777"
# A line has a pattern too, so that it can be told without its colour.
STYLES = [("#2f7fd0", ""), ("#d9730d", "7 3"), ("#2d9a4b", "2 3"), ("#d04a4a", "10 3 2 3"),
          ("#9461d6", "4 4"), (INK, "1 3")]
MOST_MARKED_POINTS = 30  # a line of more points has no dots on them


class Axis(NamedTuple):
    label: str  # with its unit
    low: float
    high: float
    ticks: Sequence[tuple[float, str]]  # values and their texts
    log: bool = False

    def place(self, value, first, last):
        """Where the value is between two edges of the plot, or at the nearer edge."""
        value = min(max(value, self.low), self.high)
        if self.log:
            share = math.log(value / self.low) / math.log(self.high / self.low)
        else:
            share = (value - self.low) / (self.high - self.low)
        return round(first + (last - first) * share, 1)


class Line(NamedTuple):
    name: str
    points: Sequence[tuple[float, float]]  # in the order of x


def decades(low, high):
    """The ticks of a logarithmic axis between two powers of ten."""
    powers = range(round(math.log10(low)), round(math.log10(high)) + 1)
    return [(10.0 ** power, f"{10 ** power:,}".replace(",", " ") if power >= 0
             else f"{10.0 ** power:.{-power}f}") for power in powers]


def steps(low, high, step, form="{:g}"):
    """The ticks of a linear axis, `step` apart."""
    count = round((high - low) / step)
    return [(low + step * index, form.format(low + step * index)) for index in range(count + 1)]


def outline(points):
    """Of each column of pixels the first, lowest, highest and last point, and of a level part of
    the line its two ends.
    """
    columns = {}
    for point in points:
        columns.setdefault(round(point[0]), []).append(point)
    kept = []
    for column in columns.values():
        ends = (end(column, key=lambda point: point[1]) for end in (min, max))
        for point in sorted({column[0], *ends, column[-1]}):
            if len(kept) > 1 and kept[-2][1] == kept[-1][1] == point[1]:
                kept.pop()
            kept.append(point)
    return kept


def parts_above_0(points):
    """A logarithmic axis has no 0: the line ends at the axis where it begins to be 0."""
    near = [any(y > 0 for _, y in points[max(index - 1, 0):index + 2])
            for index in range(len(points))]
    for shown, part in itertools.groupby(zip(points, near), lambda pair: pair[1]):
        if shown:
            yield [point for point, _ in part]


def text(x, y, words, more=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" {more}>{escape(words)}</text>'


def frame(x_axis, y_axis):
    for value, label in y_axis.ticks:
        y = y_axis.place(value, BOTTOM, TOP)
        yield f'<path class="grid" d="M{LEFT} {y:.1f}H{RIGHT}"/>'
        yield text(LEFT - 8, y + 4, label, 'text-anchor="end"')
    for value, label in x_axis.ticks:
        x = x_axis.place(value, LEFT, RIGHT)
        yield f'<path class="grid" d="M{x:.1f} {TOP}V{BOTTOM}"/>'
        yield text(x, BOTTOM + 18, label, 'text-anchor="middle"')
    yield f'<path class="edge" d="M{LEFT} {TOP}V{BOTTOM}H{RIGHT}"/>'
    yield text((LEFT + RIGHT) / 2, BOTTOM + 40, x_axis.label, 'text-anchor="middle"')
    middle = (TOP + BOTTOM) / 2
    yield text(18, middle, y_axis.label,
               f'text-anchor="middle" transform="rotate(-90 18 {middle:.1f})"')


def legend(lines):
    x, y = LEFT, 46
    for line, (color, dashes) in zip(lines, STYLES):
        width = 58 + round(6.6 * len(line.name))
        if x + width > RIGHT + 20:
            x, y = LEFT, y + 18
        yield (f'<path d="M{x} {y - 4}h28" stroke="{color}" stroke-width="2.2" '
               f'stroke-dasharray="{dashes}"/>')
        yield text(x + 34, y, line.name)
        x += width


def curves(x_axis, y_axis, lines):
    for line, (color, dashes) in zip(lines, STYLES):
        points = [(x, y) for x, y in line.points if x_axis.low <= x <= x_axis.high]
        drawn = [[(x_axis.place(x, LEFT, RIGHT), y_axis.place(y, BOTTOM, TOP)) for x, y in part]
                 for part in (parts_above_0(points) if y_axis.log else [points])]
        path = "".join("M" + "L".join(f"{x} {y}" for x, y in outline(part)) for part in drawn)
        yield (f'<path d="{path}" fill="none" stroke="{color}" stroke-width="1.8" '
               f'stroke-linejoin="round" stroke-dasharray="{dashes}"/>')
        if len(points) <= MOST_MARKED_POINTS:
            yield from (f'<circle cx="{x}" cy="{y}" r="3" fill="{color}"/>'
                        for part in drawn for x, y in part)


def draw(path, title, x_axis, y_axis, lines):
    if len(lines) > len(STYLES):
        raise ValueError(f"{path}: {len(lines)} lines, and {len(STYLES)} styles")
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
             f'width="{WIDTH}" height="{HEIGHT}" role="img" font-family="sans-serif" '
             f'font-size="12" fill="{INK}">',
             f"<title>{escape(title)}</title>",
             "<style>.grid{stroke:#888;stroke-opacity:.3;stroke-width:1}"
             f".edge{{fill:none;stroke:{INK};stroke-width:1}}</style>",
             text(LEFT, 24, title, 'font-size="14" font-weight="bold"'),
             *frame(x_axis, y_axis), *legend(lines), *curves(x_axis, y_axis, lines), "</svg>"]
    with open(path, "w", encoding="utf-8") as stream:
        stream.write("\n".join(parts) + "\n")
