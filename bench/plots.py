"""The page's plots, as SVG. The same figures make the same file: no date, fixed identifiers, no settings of the user's."""

import io

import matplotlib
from matplotlib.figure import Figure
from matplotlib.patches import Patch
from matplotlib.ticker import FuncFormatter, NullFormatter

COLOURS = ["#1f5fa8", "#8a8f98", "#d0802b", "#c9a227", "#4f9a5f", "#9a5fb0", "#b04a4a"]
INCH = 100  # units of the drawing

matplotlib.rcdefaults()
matplotlib.rcParams.update({
    "svg.hashsalt": "orvexsnmp", "svg.fonttype": "none", "font.size": 9, "axes.axisbelow": True, "grid.color": "#ddd",
    "axes.prop_cycle": matplotlib.cycler(color=COLOURS), "axes.spines.top": False, "axes.spines.right": False,
    "axes.autolimit_mode": "round_numbers", "axes.xmargin": 0, "axes.ymargin": 0,
})


def short(number, _=None):
    """Three digits and a letter."""
    for limit, letter in ((1e6, "M"), (1e3, "k")):
        if number >= limit:
            return f"{number / limit:.3g}{letter}"
    return f"{number:.3g}"


def _axes(title, height, left):
    """Axes in a drawing 900 wide, with room for a title and a legend above."""
    figure = Figure(figsize=(900 / INCH, height / INCH))
    figure.text(12 / 900, 1 - 24 / height, title, size=12, weight="bold")
    return figure.add_axes([left / 900, 40 / height, (900 - left - 60) / 900, (height - 110) / height])


def _logarithmic(axes, which):
    axes.grid(axis=which)
    axes.set(**{f"{which}scale": "log"})
    axis = getattr(axes, f"{which}axis")
    axis.set_major_formatter(FuncFormatter(short))
    axis.set_minor_formatter(NullFormatter())


def _rows_from_above(axes, places, labels):
    axes.set_yticks(places, labels)
    axes.tick_params(axis="y", length=0)
    axes.invert_yaxis()
    axes.set_ymargin(0.01)


def _written(axes, names):
    figure = axes.figure
    figure.legend([Patch(color=colour) for colour, _ in zip(COLOURS, names)], names, loc="upper left", ncol=len(names),
                  bbox_to_anchor=(0, 1 - 30 / INCH / figure.get_figheight()), columnspacing=1, handlelength=1, frameon=False)
    svg = io.StringIO()
    figure.savefig(svg, format="svg", metadata={"Date": None, "Creator": None})
    return svg.getvalue()


def bars(title, unit, groups, names):
    """Horizontal bars on a logarithmic scale. `groups`: [(label, [(value, low, high) or None, one a name])]."""
    step = len(names) + 1  # a bar's height between two groups
    axes = _axes(title, 110 + len(groups) * step * 13, left=120)
    _logarithmic(axes, "x")
    for index in range(len(names)):
        ones = [(group * step + index, one[index]) for group, (_, one) in enumerate(groups) if one[index]]
        values = [value for _, (value, _, _) in ones]
        spread = [[value - low for _, (value, low, _) in ones], [high - value for _, (value, _, high) in ones]]
        drawn = axes.barh([place for place, _ in ones], values, 0.85, xerr=spread, error_kw={"elinewidth": 1})
        axes.bar_label(drawn, [short(value) for value in values], padding=3, size=7)
    _rows_from_above(axes, [group * step + (len(names) - 1) / 2 for group in range(len(groups))],
                     [label for label, _ in groups])
    axes.set_xlabel(unit)
    return _written(axes, names)


def lines(title, unit, labels, series):
    """Lines over labelled places, logarithmic in height. `series`: [(name, [value or None])]."""
    axes = _axes(title, 420, left=70)
    _logarithmic(axes, "y")
    for _, values in series:
        axes.plot(labels, [value or float("nan") for value in values], marker="o", markersize=4)
    axes.set_xmargin(0.05)
    axes.set_ylabel(unit)
    return _written(axes, [name for name, _ in series])


def stacks(title, unit, rows, names):
    """Stacked horizontal bars. `rows`: [(label, [value or None, one a name])]."""
    axes = _axes(title, 110 + len(rows) * 28, left=170)
    ends = [0.0] * len(rows)
    for index in range(len(names)):
        values = [row[index] or 0 for _, row in rows]
        drawn = axes.barh(range(len(rows)), values, 0.8, left=ends)
        ends = [end + value for end, value in zip(ends, values)]
    axes.bar_label(drawn, [f"{end:.1f} {unit}" for end in ends], padding=5)
    _rows_from_above(axes, range(len(rows)), [label for label, _ in rows])
    return _written(axes, names)
