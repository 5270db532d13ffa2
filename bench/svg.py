"""Plots as SVG, in a few lines and without a library."""

import math
from html import escape

FONT = "font-family='Liberation Sans, Arial, sans-serif'"
COLOURS = ["#1f5fa8", "#8a8f98", "#d0802b", "#c9a227", "#4f9a5f", "#9a5fb0", "#b04a4a"]


class Picture:
    def __init__(self, width, height, title):
        self.width, self.height, self.parts = width, height, []
        self.text(12, 24, title, size=15, weight="bold")

    def text(self, x, y, text, size=12, anchor="start", weight="normal", colour="#222"):
        self.parts.append(f"<text x='{x:.1f}' y='{y:.1f}' {FONT} font-size='{size}' font-weight='{weight}' "
                          f"text-anchor='{anchor}' fill='{colour}'>{escape(text)}</text>")

    def box(self, x, y, width, height, colour):
        self.parts.append(f"<rect x='{x:.1f}' y='{y:.1f}' width='{max(width, 0):.1f}' height='{height:.1f}' "
                          f"fill='{colour}'/>")

    def line(self, x1, y1, x2, y2, colour="#ddd", width=1.0):
        self.parts.append(f"<line x1='{x1:.1f}' y1='{y1:.1f}' x2='{x2:.1f}' y2='{y2:.1f}' stroke='{colour}' "
                          f"stroke-width='{width}'/>")

    def path(self, points, colour):
        text = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        self.parts.append(f"<polyline points='{text}' fill='none' stroke='{colour}' stroke-width='2'/>")
        self.parts += [f"<circle cx='{x:.1f}' cy='{y:.1f}' r='3' fill='{colour}'/>" for x, y in points]

    def written(self):
        return (f"<svg xmlns='http://www.w3.org/2000/svg' width='{self.width}' height='{self.height}' "
                f"viewBox='0 0 {self.width} {self.height}'>\n"
                f"<rect width='{self.width}' height='{self.height}' fill='#fff'/>\n" + "\n".join(self.parts) +
                "\n</svg>\n")


def short(number):
    """Three digits and a letter."""
    for limit, letter in ((1e6, "M"), (1e3, "k")):
        if number >= limit:
            return f"{number / limit:.3g}{letter}"
    return f"{number:.3g}"


def _decades(low, high):
    return [10.0 ** n for n in range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)]


def _legend(picture, names, y):
    x = 12.0
    for name, colour in zip(names, COLOURS):
        picture.box(x, y - 10, 12, 12, colour)
        picture.text(x + 17, y, name)
        x += 32 + 6.6 * len(name)


def bars(title, unit, groups, names):
    """Horizontal bars on a logarithmic scale. `groups`: [(label, [(value, low, high) or None, one a name])]."""
    left, right, bar, gap = 120, 60, 13, 12
    height = 78 + len(groups) * (len(names) * bar + gap) + 34
    picture = Picture(900, height, title)
    _legend(picture, names, 48)
    values = [value for _, group in groups for one in group if one for value in one if value > 0]
    ticks = _decades(min(values), max(values))
    scale = (picture.width - left - right) / (math.log10(ticks[-1]) - math.log10(ticks[0]))

    def x_of(value):
        return left + (math.log10(max(value, ticks[0])) - math.log10(ticks[0])) * scale

    for tick in ticks:
        picture.line(x_of(tick), 64, x_of(tick), height - 30)
        picture.text(x_of(tick), height - 14, short(tick), anchor="middle", colour="#555")
    picture.text(12, height - 14, unit, colour="#555")
    y = 72.0
    for label, group in groups:
        picture.text(left - 8, y + len(names) * bar / 2 + 4, label, anchor="end")
        for one, colour in zip(group, COLOURS):
            if one:
                value, low, high = one
                picture.box(left, y + 1, x_of(value) - left, bar - 2, colour)
                picture.line(x_of(low), y + bar / 2, x_of(high), y + bar / 2, "#000")
                picture.text(max(x_of(value), x_of(high)) + 4, y + bar - 3, short(value), size=10)
            y += bar
        y += gap
    return picture.written()


def lines(title, unit, labels, series):
    """Lines over labelled points of the x axis, with a logarithmic y axis. `series`: [(name, [value or None])]."""
    left, top, bottom = 70, 70, 40
    picture = Picture(900, 420, title)
    _legend(picture, [name for name, _ in series], 48)
    values = [value for _, one in series for value in one if value]
    ticks = _decades(min(values), max(values))
    height = picture.height - top - bottom
    scale = height / (math.log10(ticks[-1]) - math.log10(ticks[0]))
    step = (picture.width - left - 60) / max(1, len(labels) - 1)

    def y_of(value):
        return top + height - (math.log10(value) - math.log10(ticks[0])) * scale

    for tick in ticks:
        picture.line(left, y_of(tick), picture.width - 40, y_of(tick))
        picture.text(left - 6, y_of(tick) + 4, short(tick), anchor="end", colour="#555")
    picture.text(12, top - 6, unit, colour="#555")
    for index, label in enumerate(labels):
        picture.text(left + 20 + index * step, picture.height - 14, label, anchor="middle")
    for (_, one), colour in zip(series, COLOURS):
        points = [(left + 20 + index * step, y_of(value)) for index, value in enumerate(one) if value]
        if points:
            picture.path(points, colour)
    return picture.written()


def stacks(title, unit, rows, names):
    """Stacked horizontal bars. `rows`: [(label, [value or None, one a name])]."""
    left, right, bar = 170, 70, 22
    height = 70 + len(rows) * (bar + 6) + 36
    picture = Picture(900, height, title)
    _legend(picture, names, 48)
    largest = max(sum(value or 0 for value in values) for _, values in rows)
    scale = (picture.width - left - right) / largest
    y = 64.0
    for label, values in rows:
        picture.text(left - 8, y + bar - 7, label, anchor="end")
        x = float(left)
        for value, colour in zip(values, COLOURS):
            if value:
                picture.box(x, y, value * scale, bar, colour)
                x += value * scale
        picture.text(x + 5, y + bar - 7, f"{sum(value or 0 for value in values):.1f} {unit}", size=11)
        y += bar + 6
    return picture.written()
