# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""The pictures of a run, as SVG that can be read on a light page and on a dark one."""

import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot
from matplotlib.ticker import FuncFormatter, LogLocator, NullFormatter

from report import LARGE, TARGETS

TEXT = "#80858d"
SIDES = {  # name, colour, line
    "ours": ("library", "#1f8ac0", "-"),
    "floor": ("floor", "#8f959d", "--"),
    "sqlcipher": ("SQLCipher", "#d9822b", "-"),
}
HEAPS = {"fresh": ("fresh heap", "#1f8ac0"), "aged": ("aged heap", "#a05fc0")}
TARGET = ("target", "#d0504a")

TITLES = {
    "SodInsert.flushed": "SodInsert, flushed",
    "SodInsert.unflushed": "SodInsert, not flushed",
    "SodDelete.flushed": "SodDelete, flushed",
    "SodDelete.unflushed": "SodDelete, not flushed",
    "SodSelect_alias": "SodSelect by alias",
    "SodSelect_accessor": "SodSelect by accessor",
    "SodSelect_all": "SodSelect, all rows",
    "SodRetreiveAlias": "SodRetreiveAlias",
    "SodRetreiveOther": "SodRetreiveOther",
    "open_read_all": "open, load, read all",
    "engine_load.gcm": "engine: load",
    "engine_select_alias.gcm": "engine: select by alias",
    "engine_select_accessor.gcm": "engine: select by accessor",
    "DBEncrypt.encrypt": "DBEncrypt, encrypting",
    "DBEncrypt.decrypt": "DBEncrypt, decrypting",
}
OVERVIEW = ["SodInsert.flushed", "SodSelect_alias", "open_read_all"]
TRANSPORT = 1024 * 1024 - 2 * 4096  # bytes that all calls of a process share


def style():
    matplotlib.rcParams.update({
        "font.size": 9, "axes.titlesize": 9, "svg.fonttype": "none", "svg.hashsalt": "zelkeymaster",
        "text.color": TEXT, "axes.labelcolor": TEXT, "axes.edgecolor": TEXT, "xtick.color": TEXT,
        "ytick.color": TEXT, "grid.color": TEXT, "grid.alpha": 0.3, "legend.frameon": False,
        "axes.grid": True, "axes.spines.top": False, "axes.spines.right": False,
        "lines.linewidth": 1.6, "lines.markersize": 3.5,
    })


def panels(count, columns):
    rows = -(-count // columns)
    figure, grid = pyplot.subplots(rows, columns, figsize=(3.2 * columns, 2.3 * rows + 0.3),
                                   squeeze=False, layout="constrained")
    axes = list(grid.flat)
    for unused in axes[count:]:
        unused.set_visible(False)
    return figure, axes[:count]


def plain(value, _):
    return f"{value:,.0f}" if value >= 10 else f"{value:.3g}"


def short(value, _):
    return f"{value:g}" if value < 1000 else f"{value / 1000:,.0f}k"


def log_axes(axes, title, ylabel):
    axes.set(xscale="log", yscale="log", title=title, xlabel="objects", ylabel=ylabel)
    axes.xaxis.set_major_formatter(FuncFormatter(short))
    axes.yaxis.set_major_formatter(FuncFormatter(plain))
    axes.yaxis.set_minor_formatter(NullFormatter())
    axes.xaxis.set_major_locator(LogLocator(numticks=9))
    axes.xaxis.set_minor_locator(LogLocator(subs=()))


def save(figure, file):
    handles = {}
    for axes in figure.axes:
        handles.update(dict(zip(*reversed(axes.get_legend_handles_labels()))))
    columns = 4
    bottom = 0.3 * -(-len(handles) // columns) / figure.get_figheight()  # for the legend
    figure.get_layout_engine().set(rect=(0, bottom, 1, 1 - bottom))
    figure.legend(handles.values(), handles.keys(), loc="lower center", ncol=columns)
    figure.savefig(file, transparent=True, metadata={"Date": None, "Creator": None})
    pyplot.close(figure)


def sizes_of(figures, subject):
    return sorted({key[2] for key in figures.times if key[0] == subject})


def plot_side(axes, figures, subject, side):
    name, colour, line = SIDES[side]
    points = [(size, figures.median(subject, side, size)) for size in sizes_of(figures, subject)]
    axes.plot(*zip(*[point for point in points if point[1]]), line, color=colour, marker="o",
              label=name)


def draw_times(figures, subjects, columns, file):
    figure, grid = panels(len(subjects), columns)
    for axes, subject in zip(grid, subjects):
        log_axes(axes, TITLES[subject], "µs")
        for side in SIDES:
            if side in figures.sides(subject):
                plot_side(axes, figures, subject, side)
    save(figure, file)


def draw_ratios(figures, file):
    """Each ratio that has targets, and its targets as a line."""
    shown = [target for target in TARGETS if target[3] in ("floor", "sqlcipher")]
    figure, grid = panels(len(shown), 3)
    for axes, (_, subject, dividend, divisor, limits) in zip(grid, shown):
        log_axes(axes, f"{TITLES[subject]} ÷ {SIDES[divisor][0]}", "ratio")
        for heap, (name, colour) in HEAPS.items():
            points = [(size, figures.ratio(subject, dividend, divisor, size, heap))
                      for size in sizes_of(figures, subject) if size != LARGE]
            axes.plot(*zip(*[point for point in points if point[1]]), color=colour, marker="o",
                      label=name)
        for heap in (0, 1):
            axes.plot(list(limits), [limit[heap] for limit in limits.values()], "--", marker="_",
                      color=TARGET[1], label=TARGET[0], markersize=12)
        axes.yaxis.set_major_locator(LogLocator(subs=(1, 2, 5)))
    save(figure, file)


def draw_scale(figures, file):
    """How far the format carries: the time of one change, and bytes."""
    figure, (times, sizes) = panels(2, 2)
    figure.set_size_inches(8, 3.6)
    log_axes(times, "one change, flushed", "µs")
    for side in SIDES:
        plot_side(times, figures, "SodInsert.flushed", side)
    log_axes(sizes, "bytes", "KiB")
    counts = list(figures.memory)
    for part, label, colour in (("insert", "memory, at the peak of a change", "#a05fc0"),
                                ("store", "store, and the call that carries it", "#3f9a5f")):
        sizes.plot(counts, [figures.memory[count][part] / 1024 for count in counts], "-o",
                   color=colour, label=label)
    sizes.axhline(TRANSPORT / 1024, color=TARGET[1], linestyle="--", label="the transport's limit")
    save(figure, file)


def draw(figures, folder):
    style()
    folder.mkdir(exist_ok=True)
    subjects = [subject for subject in TITLES if not subject.startswith("engine_")]
    draw_times(figures, subjects, 3, folder / "times.svg")
    draw_times(figures, OVERVIEW, 3, folder / "overview.svg")
    draw_ratios(figures, folder / "ratios.svg")
    draw_scale(figures, folder / "scale.svg")
