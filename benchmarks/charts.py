# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""The pictures of a run, as small SVG that can be read on a light page and on a dark one."""

import re
import subprocess

import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot
from matplotlib.ticker import FixedLocator, FuncFormatter, LogLocator, NullFormatter, NullLocator

TEXT = "#797e86"  # 4:1 and more against white and against #0d1117
FONT_POINTS = 9.75  # 13 pixels
SIDES = {  # name, colour, line
    "ours": ("library", "#1f8ac0", "-"),
    "floor": ("floor: the least work that the operation needs", "#8f959d", "--"),
    "sqlcipher": ("SQLCipher", "#d9822b", "-"),
}
TITLES = {
    "SodInsert.flushed": "insert one, flushed",
    "SodDelete.flushed": "delete one, flushed",
    "SodSelect_alias": "find one by alias",
    "SodSelect_accessor": "find by accessor",
    "SodSelect_all": "read all",
    "open_read_all": "open, load, read all",
}
TRANSPORT = 1024 * 1024 - 2 * 4096  # bytes that all calls of a process share


def style():
    matplotlib.rcParams.update({
        "font.size": FONT_POINTS, "axes.titlesize": FONT_POINTS, "svg.fonttype": "none",
        "svg.hashsalt": "zelkeymaster", "text.color": TEXT, "axes.labelcolor": TEXT,
        "axes.edgecolor": TEXT, "xtick.color": TEXT, "ytick.color": TEXT, "grid.color": TEXT,
        "grid.alpha": 0.3, "legend.frameon": False, "axes.grid": True, "axes.spines.top": False,
        "axes.spines.right": False, "lines.linewidth": 1.6, "xtick.major.size": 0,
        "ytick.major.size": 0,
    })


def plain(value, _):
    return f"{value:,.0f}" if value >= 1 else f"{value:g}"


def log_axes(axes, title):
    """To be called with all lines drawn."""
    axes.set(xscale="log", yscale="log", title=title, xlabel="objects")
    low, high = axes.get_ylim()
    axes.xaxis.set_major_locator(FixedLocator([10, 100, 1000, 10000]))
    axes.yaxis.set_major_locator(LogLocator(subs=(1, 2, 5) if high < 30 * low else (1,)))
    for axis in (axes.xaxis, axes.yaxis):
        axis.set_major_formatter(FuncFormatter(plain))
        axis.set_minor_locator(NullLocator())
        axis.set_minor_formatter(NullFormatter())


def save(figure, file, columns):
    handles = {}
    for axes in figure.axes:
        handles.update(dict(zip(*reversed(axes.get_legend_handles_labels()))))
    bottom = 0.27 * -(-len(handles) // columns) / figure.get_figheight()  # for the legend
    figure.get_layout_engine().set(rect=(0, bottom, 1, 1 - bottom))
    figure.legend(handles.values(), handles.keys(), loc="lower center", ncol=columns)
    figure.savefig(file, transparent=True, metadata={"Date": None, "Creator": None, "Type": None,
                                                     "Format": None})
    pyplot.close(figure)
    # One rule for all text. (Scour would make attributes of the fonts, which browsers ignore.)
    svg = re.sub(r"font: [^;\"]*;? ?", "", file.read_text()).replace(
        "</style>", f"text{{font:{FONT_POINTS}px sans-serif}}</style>", 1)
    file.write_text(subprocess.run(
        ["scour", "--quiet", "--enable-id-stripping", "--shorten-ids",
         "--enable-comment-stripping", "--remove-descriptive-elements", "--strip-xml-prolog",
         "--create-groups", "--indent=none", "--set-precision=4"],
        input=svg, stdout=subprocess.PIPE, text=True, check=True).stdout)


def draw_times(figures, file):
    figure, grid = pyplot.subplots(2, 3, figsize=(8, 4.6), layout="constrained")
    for axes, (subject, title) in zip(grid.flat, TITLES.items()):
        for side, (name, colour, line) in SIDES.items():
            sizes = sorted({key[2] for key in figures.times if key[:2] == (subject, side)})
            axes.plot(sizes, [figures.median(subject, side, size) for size in sizes], line,
                      color=colour, label=name)
        log_axes(axes, title + ", µs")
    save(figure, file, 3)


def draw_scale(figures, file):
    """How far the format carries: the time of one change, and bytes."""
    figure, (times, sizes) = pyplot.subplots(1, 2, figsize=(8, 3.2), layout="constrained")
    for flush, label, colour in (("flushed", "flushed to the device", "#1f8ac0"),
                                 ("unflushed", "without a flush", "#3f9a5f")):
        subject = "SodInsert." + flush
        counts = sorted({key[2] for key in figures.times if key[0] == subject})
        times.plot(counts, [figures.median(subject, "ours", count) for count in counts],
                   color=colour, label=label)
    counts = list(figures.memory)
    for part, label, colour in (("insert", "memory at the peak of an insert", "#a05fc0"),
                                ("store", "store file, and the call that carries it", "#d9822b")):
        sizes.plot(counts, [figures.memory[count][part] / 1024 for count in counts], color=colour,
                   label=label)
    sizes.axhline(TRANSPORT / 1024, color="#d0504a", linestyle="--", label="limit of a call")
    log_axes(times, "insert one, µs")
    log_axes(sizes, "KiB")
    save(figure, file, 3)


def draw(figures, folder):
    style()
    folder.mkdir(exist_ok=True)
    draw_times(figures, folder / "times.svg")
    draw_scale(figures, folder / "scale.svg")
