"""Figures as inline SVG. Colours are the page's own variables, so that one figure serves light and dark."""

from __future__ import annotations

import io
import re
from dataclasses import dataclass
from typing import Any, Callable, Dict, List, Mapping, Optional, Sequence, Tuple

import numpy as np
from numpy.typing import NDArray

from .evaluate import Density, F64, RatioFit, Residuals, thinned

#: What matplotlib draws with, and what stands for it in the page.
_INK, _SOFT, _GRID, _PAPER = '#010101', '#020202', '#030303', '#040404'
COLOURS = {'low': '#050505', 'high': '#060606', 'merged': '#070707', 'image': '#080808', 'mark': '#090909'}
_VARIABLES = {
    _INK: 'var(--ink)',
    _SOFT: 'var(--soft)',
    _GRID: 'var(--grid)',
    _PAPER: 'var(--paper)',
    **{colour: f'var(--{name})' for name, colour in COLOURS.items()},
}
_STYLE: Dict[str, Any] = {
    'svg.fonttype': 'none',
    'font.family': 'sans-serif',
    'font.size': 10.5,
    'axes.edgecolor': _SOFT,
    'axes.labelcolor': _INK,
    'axes.facecolor': 'none',
    'axes.grid': True,
    'axes.axisbelow': True,
    'axes.linewidth': 0.8,
    'axes.spines.top': False,
    'axes.spines.right': False,
    'axes.titlesize': 10.5,
    'axes.titleweight': 'bold',
    'axes.titlelocation': 'left',
    'axes.titlecolor': _INK,
    'grid.color': _GRID,
    'grid.linewidth': 0.7,
    'text.color': _INK,
    'text.parse_math': False,
    'xtick.color': _SOFT,
    'ytick.color': _SOFT,
    'xtick.labelcolor': _INK,
    'ytick.labelcolor': _INK,
    'figure.facecolor': 'none',
    'savefig.facecolor': 'none',
    'legend.frameon': False,
    'legend.fontsize': 9.5,
    'lines.linewidth': 1.4,
    'path.simplify_threshold': 0.4,
}
_TAIL = re.compile(r'(\d+\.\d)\d+')  #: a tenth of a point is finer than a screen
WIDE, TALL = 5.2, 3.4  # inches: a phone's width shows the text at its own size


def draw(name: str, label: str, plot: Callable[[Any, Any], None], size: Tuple[float, float] = (WIDE, TALL)) -> str:
    """The SVG of ``plot(figure, axes)``; ``label`` is what a reader who cannot see it is told."""
    import matplotlib
    from matplotlib.backends.backend_svg import FigureCanvasSVG
    from matplotlib.figure import Figure

    with matplotlib.rc_context({**_STYLE, 'svg.hashsalt': name}):
        figure = Figure(figsize=size)
        FigureCanvasSVG(figure)
        axes = figure.add_subplot()
        plot(figure, axes)
        figure.tight_layout(pad=0.6)
        stream = io.StringIO()
        figure.savefig(stream, format='svg', metadata={'Date': None, 'Creator': None})
    return _inline(stream.getvalue(), label)


def _inline(svg: str, label: str) -> str:
    from html import escape

    svg = svg[svg.index('<svg') :]
    svg = re.sub(r'<metadata>.*?</metadata>', '', svg, flags=re.S)
    svg = re.sub(r'<!--.*?-->\s*', '', svg, flags=re.S)
    svg = re.sub(r'(?<= d=")[^"]*|translate\([^)]*\)', lambda path: _TAIL.sub(r'\1', path.group()), svg)
    svg = re.sub(r"font: ([\d.]+px) '[^;\"]*", r'font-size: \1', svg)
    svg = re.sub(r"font: (\w+) ([\d.]+px) '[^;\"]*", r'font-weight: \1; font-size: \2', svg)
    svg = re.sub(r'(<svg[^>]*?) width="[^"]*"', r'\1', svg, count=1)
    svg = re.sub(r'(<svg[^>]*?) height="[^"]*"', r'\1', svg, count=1)
    for colour, variable in _VARIABLES.items():
        svg = svg.replace(colour, variable)
    return svg.replace('<svg', f'<svg role="img" aria-label="{escape(label, quote=True)}"', 1)


# ---- A frame


def histogram(
    counts: Mapping[str, NDArray[Any]],
    scales: Mapping[str, float],
    clips: Mapping[str, Tuple[int, int]],
    marks: Sequence[Tuple[str, float]],
    unit: str,
    name: str,
) -> str:
    """Histograms of planes on logarithmic axes; each plane's values are divided by its scale."""

    def plot(_figure: Any, axes: Any) -> None:
        left, right, least = np.inf, 1.0, 1.0
        for plane, values in counts.items():
            edges, heights = _log_binned(np.asarray(values, np.float64))
            x, heights = edges / scales[plane], heights * scales[plane]
            filled = np.flatnonzero(heights)
            left, right = min(left, x[filled[0]]), max(right, x[filled[-1] + 1])
            least = min(least, float(heights[filled].min()))
            below = {'lw': 3.6, 'alpha': 0.45} if plane == 'merged' else {}
            axes.stairs(np.maximum(heights, 1e-9), x, color=COLOURS[plane], label=plane, baseline=1e-9, **below)
            clip = np.maximum(np.array(clips[plane], float), 0.5) / scales[plane]
            axes.plot(
                clip,
                [0.03, 0.03],
                ls='',
                marker='^',
                ms=6,
                color=COLOURS[plane],
                clip_on=False,
                transform=axes.get_xaxis_transform(),
            )
        for text, value in marks:
            axes.axvline(value, color=COLOURS['mark'], lw=1, ls=(0, (4, 3)))
            axes.annotate(
                text,
                (value, 0.99),
                xycoords=axes.get_xaxis_transform(),
                rotation=90,
                va='top',
                ha='right',
                fontsize=8.5,
                color=COLOURS['mark'],
            )
        axes.set(xscale='log', yscale='log', xlabel=unit, ylabel='pixels per count')
        top = max(float(np.max(values)) for values in counts.values())
        axes.set(xlim=(left / 1.5, right * 1.5), ylim=(least / 2, max(10.0, top * 12)))
        _legend_above(axes, len(counts))
        _plain_ticks(axes.xaxis, axes.yaxis)

    return draw(name, f"Histograms of {', '.join(counts)} in {unit}", plot)


def _legend_above(axes: Any, columns: int) -> None:
    axes.legend(loc='lower right', bbox_to_anchor=(1, 1), ncols=columns, borderaxespad=0.1, handlelength=1.4)


def _log_binned(counts: F64, bins: int = 220) -> Tuple[F64, F64]:
    """Edges between counts, and pixels per count of bins that widen with the value. 0 lies at a half."""
    edges = np.unique(np.rint(np.geomspace(1, 65536, bins)).astype(int))
    edges = np.concatenate(([0], edges))
    heights = np.add.reduceat(counts, edges[:-1]) / np.diff(edges)
    return np.maximum(edges - 0.5, 0.4), heights


def _tick(value: float, _position: object = None) -> str:
    """1, 10, 100, 1 000, 10 000, 10⁵, 10⁻²"""
    if value <= 0:
        return f'{value:g}'
    power = round(float(np.log10(value)))
    if 0.1 <= value < 99_999 or not np.isclose(value, 10.0**power):
        return f'{value:,.0f}'.replace(',', '\u2009') if value >= 1 else f'{value:g}'
    return '10' + str(power).translate(str.maketrans('0123456789-', '⁰¹²³⁴⁵⁶⁷⁸⁹⁻'))


def _plain_ticks(*axes: Any) -> None:
    from matplotlib.ticker import FuncFormatter, NullFormatter

    for axis in axes:
        axis.set_major_formatter(FuncFormatter(_tick))
        axis.set_minor_formatter(NullFormatter())


def gain_density(data: Density, used: float, fit: Optional[RatioFit], limit: int) -> str:
    """High against low as a density, with the line of the ratio in use and the fitted one."""

    def plot(figure: Any, axes: Any) -> None:
        from matplotlib.colors import LogNorm

        x, y = np.maximum(data.low_edges, 0.5), np.maximum(data.high_edges, 0.5)
        shown = np.where(data.counts > 0, data.counts, np.nan)
        mesh = axes.pcolormesh(
            x,
            y,
            shown,
            norm=LogNorm(1, max(2.0, float(data.counts.max()))),
            cmap='cividis',
            rasterized=True,
            linewidth=0,
            antialiased=False,
        )
        line = np.geomspace(x[0], x[-1], 60)
        axes.plot(line, used * line, color=COLOURS['high'], lw=1.1, label=f'ratio in use {used:.3f}')
        if fit is not None:
            axes.plot(
                line, fit.offset + fit.ratio * line, color=_INK, lw=0.8, ls=(0, (4, 3)), label=f'fitted {fit.ratio:.3f}'
            )
        axes.axhline(limit, color=COLOURS['mark'], lw=1, ls=(0, (4, 3)))
        axes.annotate(
            f'high threshold {limit}',
            (0.02, limit),
            xycoords=axes.get_yaxis_transform(),
            va='bottom',
            fontsize=8.5,
            color=COLOURS['mark'],
        )
        axes.set(
            xscale='log',
            yscale='log',
            xlabel='low gain, ADU',
            ylabel='high gain, ADU',
            xlim=(x[0], x[-1]),
            ylim=(y[0], y[-1] * 1.25),
        )
        axes.legend(loc='lower right')
        bar = figure.colorbar(mesh, ax=axes, pad=0.02, aspect=30)
        bar.outline.set_visible(False)
        bar.set_label('pixels')
        _plain_ticks(axes.xaxis, axes.yaxis, bar.ax.yaxis)

    return draw('density', 'Density of pixels by low-gain and high-gain value', plot, (WIDE, 4.1))


def gain_residuals(data: Residuals, ratio: float, limit: int) -> str:
    """What remains of the high plane against the line: flat up to the knee where the merge is right."""

    def plot(_figure: Any, axes: Any) -> None:
        x = np.maximum(data.low, 0.5)
        usable = data.low * ratio < limit
        axes.fill_between(
            x, data.lower, data.upper, color=COLOURS['high'], alpha=0.25, lw=0, label='68 % of the pixels'
        )
        axes.plot(x, data.middle, color=COLOURS['high'], marker='o', ms=2.5, label='median')
        axes.axhline(0, color=_INK, lw=0.9)
        if usable.any():
            reach = float(np.max(np.abs([data.lower[usable], data.upper[usable]])))
            axes.set_ylim(-2.2 * reach - 2, 2.2 * reach + 2)
        axes.axvline(limit / ratio, color=COLOURS['mark'], lw=1, ls=(0, (4, 3)))
        axes.annotate(
            'high threshold',
            (limit / ratio, 0.98),
            xycoords=axes.get_xaxis_transform(),
            rotation=90,
            va='top',
            ha='right',
            fontsize=8.5,
            color=COLOURS['mark'],
        )
        axes.set(xscale='log', xlabel='low gain, ADU', ylabel='high − line, ADU')
        axes.legend(loc='lower left')
        _plain_ticks(axes.xaxis)

    return draw('residuals', 'High-gain values less the line, against low-gain values', plot, (WIDE, 4.1))


def along(
    title: str,
    label: str,
    lines: Mapping[str, F64],
    spread: Mapping[str, F64],
    xlabel: str,
    ylabel: str = 'ADU less mean',
) -> str:
    """Means along a region, each plane less its own mean, with the range of one deviation."""

    def plot(_figure: Any, axes: Any) -> None:
        for plane, values in lines.items():
            x, y = thinned(values - values.mean(), 256)
            if plane in spread:
                _, band = thinned(spread[plane], 256)
                axes.fill_between(x, y - band, y + band, color=COLOURS[plane], alpha=0.16, lw=0)
            axes.plot(x, y, color=COLOURS[plane], lw=1, label=plane)
        axes.set(xlabel=xlabel, ylabel=ylabel, title=title)
        axes.margins(x=0)
        _legend_above(axes, len(lines))

    return draw(title, label, plot, (WIDE, 2.7))


# ---- Many frames


def series(
    title: str, unit: str, values: Mapping[str, Sequence[Optional[float]]], times: Sequence[float], xlabel: str
) -> str:
    """Values of a night's frames against time."""

    def plot(_figure: Any, axes: Any) -> None:
        for plane, numbers in values.items():
            y = np.array([np.nan if number is None else number for number in numbers], float)
            axes.plot(times, y, color=COLOURS.get(plane, _INK), marker='o', ms=3, lw=1, label=plane)
        axes.set(title=title, xlabel=xlabel, ylabel=unit)
        axes.xaxis.get_major_locator().set_params(integer=xlabel == 'frame')
        if len(values) > 1:
            axes.legend(loc='best', ncols=len(values))

    return draw(title, f'{title} in {unit} over {xlabel}', plot, (WIDE, 2.6))


# ---- A camera


@dataclass(frozen=True)
class CurvePoint:
    """A pair of flats in a plane; NaN where it is not known."""

    signal: float  #: ADU above the darks
    variance: float  #: ADU² above that of the darks
    error: float
    deviation: float  #: from the straight line against exposure, percent
    fitted: bool


def transfer(curves: Mapping[str, Sequence[CurvePoint]], gains: Mapping[str, float]) -> str:
    """The photon transfer curve: variance of light against signal, with the line whose slope is 1 / gain."""

    def plot(_figure: Any, axes: Any) -> None:
        for plane, points in curves.items():
            for fitted, style in ((True, {'mfc': COLOURS[plane]}), (False, {'mfc': 'none'})):
                chosen = [p for p in points if p.fitted == fitted and p.signal > 0 and p.variance > 0]
                if not chosen:
                    continue
                axes.errorbar(
                    [p.signal for p in chosen],
                    [p.variance for p in chosen],
                    [min(p.error, 0.9 * p.variance) if p.error == p.error else 0 for p in chosen],
                    ls='',
                    marker='o',
                    ms=4,
                    elinewidth=0.8,
                    color=COLOURS[plane],
                    label=plane if fitted else None,
                    **style,
                )
            known = [p.signal for p in points if p.signal > 0]
            if known and gains.get(plane, 0) > 0:
                line = np.geomspace(min(known), max(known), 40)
                axes.plot(line, line / gains[plane], color=COLOURS[plane], lw=1)
        axes.set(xscale='log', yscale='log', xlabel='signal, ADU', ylabel='variance of the light, ADU²')
        _plain_ticks(axes.xaxis, axes.yaxis)
        _legend_above(axes, len(curves))

    return draw('transfer', 'Photon transfer curve: variance against signal', plot, (WIDE, 3.8))


def linearity(curves: Mapping[str, Sequence[CurvePoint]]) -> str:
    """What the signal deviates from the straight line."""

    def plot(_figure: Any, axes: Any) -> None:
        for plane, points in curves.items():
            known = [p for p in points if p.deviation == p.deviation and p.signal > 0]
            axes.plot(
                [p.signal for p in known],
                [p.deviation for p in known],
                color=COLOURS[plane],
                marker='o',
                ms=4,
                lw=1,
                label=plane,
            )
        axes.axhline(0, color=_INK, lw=0.9)
        axes.set(xscale='log', xlabel='signal, ADU', ylabel='deviation, %')
        _plain_ticks(axes.xaxis)
        _legend_above(axes, len(curves))

    return draw('linearity', 'Deviation of the signal from a straight line', plot, (WIDE, 3.8))


def parts(title: str, unit: str, values: Mapping[str, Sequence[float]], errors: Mapping[str, Sequence[float]]) -> str:
    """Noise of rows, of columns and of pixels, side by side for each plane."""
    names = ('rows', 'columns', 'pixels')

    def plot(_figure: Any, axes: Any) -> None:
        width = 0.8 / max(1, len(values))
        for i, (plane, numbers) in enumerate(values.items()):
            places = np.arange(len(names)) + (i - (len(values) - 1) / 2) * width
            axes.bar(places, np.nan_to_num(numbers), width * 0.86, color=COLOURS[plane], label=plane)
            axes.errorbar(
                places, np.nan_to_num(numbers), np.nan_to_num(errors[plane]), ls='', color=_INK, elinewidth=0.9
            )
        axes.set_xticks(np.arange(len(names)), names)
        axes.set(ylabel=unit, title=title)
        axes.grid(axis='x', visible=False)
        axes.set_ylim(bottom=0)
        _legend_above(axes, len(values))

    return draw(title, f'{title} of rows, columns and pixels in {unit}', plot, (WIDE, 2.7))
