"""The report: frames as one page of HTML that needs nothing else."""

from __future__ import annotations

import base64
import hashlib
import importlib
import importlib.util
import json
import os
import platform
import tempfile
from dataclasses import dataclass
from datetime import datetime, timezone
from importlib import resources
from typing import Any, Dict, List, Optional, Sequence, Tuple, Union

from .. import _core
from .._errors import Error
from .._header import Path
from .text import path_text, visible

#: What a page may take, in bytes.
LIMIT = 3_000_000
#: Python modules that a page needs, and the packages that bring them.
NEEDED = {'matplotlib': 'python3-matplotlib', 'jinja2': 'python3-jinja2', 'PIL': 'python3-pil'}


@dataclass(frozen=True)
class Failed:
    """A file that the page has no numbers of, and why."""

    path: str
    reason: str


class Missing(ImportError):
    """A package that the page needs is not installed."""


def report(
    paths: Union[Path, Sequence[Path]],
    output: Path,
    measure: Sequence[Path] = (),
    compare: Optional[Tuple[Path, Path]] = None,
) -> List[Failed]:
    """Writes frames as one page of HTML that needs nothing else: picture, levels, gains, header; of several frames a
    table of the night as well. A page that exists is replaced.

    paths: a frame, or several; may be () where something else is shown.
    measure: JSON files that `orvacam measure --json` or `calibrate --json` wrote, to be drawn.
    compare: two frames: their difference, and the read noise of the pair.

    Gives the files that could not be read or decoded; the page says so, too. Raises ImportError, with what to
    install, where matplotlib or jinja2 is missing; Mismatch for two frames that cannot be compared; ValueError for
    JSON that is something else; OSError.
    """
    several = [paths] if isinstance(paths, (str, bytes, os.PathLike)) else list(paths)
    failed, page = make_page(several, measure, compare)
    write_page(page, output)
    return failed


def require() -> None:
    """Raises Missing, with what to install."""
    missing = [package for module, package in NEEDED.items() if importlib.util.find_spec(module) is None]
    if missing:
        raise Missing(f"a report needs {', '.join(missing)}: apt install {' '.join(missing)}")


def make_page(
    paths: Sequence[Path],
    measure: Sequence[Path] = (),
    compare: Optional[Tuple[Path, Path]] = None,
    arguments: Sequence[str] = (),
) -> Tuple[List[Failed], str]:
    """The files that could not be read or decoded, and the page, which takes LIMIT bytes at most."""
    require()
    for share in (1.0, 0.6, 0.35, 0.2, 0.1, 0.0):
        failed: List[Failed] = []
        page = _page(paths, measure, compare, arguments, share, failed)
        if len(page.encode()) <= LIMIT:
            return failed, page
    raise ValueError(f'{len(paths)} frames do not fit into a page of {LIMIT} bytes')


def write_page(page: str, output: Path) -> None:
    """Under a hidden name first, so that a page is there as a whole or as it was."""
    target = os.fsencode(output)
    folder, name = os.path.split(target)
    handle, temporary = tempfile.mkstemp(prefix=b'.' + name[:100], dir=folder or b'.')
    try:
        with os.fdopen(handle, 'wb') as file:
            file.write(page.encode())
            file.flush()
            os.fsync(file.fileno())
        mask = os.umask(0)
        os.umask(mask)
        os.chmod(temporary, 0o666 & ~mask)
        os.replace(temporary, target)
    except BaseException:
        os.unlink(temporary)
        raise


def _page(
    paths: Sequence[Path],
    measure: Sequence[Path],
    compare: Optional[Tuple[Path, Path]],
    arguments: Sequence[str],
    share: float,
    failed: List[Failed],
) -> str:
    context: Dict[str, Any] = {'several': len(paths) > 1, 'frames': [], 'night': None, 'pair': None, 'measures': []}
    _add_frames(context, paths, share, failed)
    if compare is not None:
        _add_pair(context, compare, share)
    for i, path in enumerate(measure):
        from .measured import measured_of

        name = path_text(os.path.basename(os.fsdecode(path)))
        context['measures'].append(measured_of(_json_of(path, name), f'measure{i + 1}', name))
    context['title'], context['subtitle'] = _titles(paths, compare, measure, context)
    context['sections'] = _sections(context)
    context['made_by'] = _made_by(arguments)
    return _render(context)


def _json_of(path: Path, name: str) -> Any:
    """What the file holds. ValueError for what is no JSON."""
    try:
        with open(path, encoding='utf-8') as file:
            return json.load(file)
    except (ValueError, RecursionError) as error:
        raise ValueError(f'{name}: is no JSON: {error}') from None


def _budget(count: int, share: float) -> Any:
    """Bytes for the pictures of each of so many frames. Up to four are shown in full."""
    from .frame import Budget

    if count <= 4:
        crop = (256, 192, 128, 128)[max(count - 1, 0)]
        return Budget(
            int(1_400_000 * share / max(count, 1) ** 1.3),
            int(90_000 * share / max(count, 1)),
            crop if share > 0.3 else 0,
        )
    return Budget(int(min(40_000, 1_500_000 / count) * share), 0, 0, full=False)


def _add_frames(context: Dict[str, Any], paths: Sequence[Path], share: float, failed: List[Failed]) -> None:
    from .frame import load, view_of
    from .night import failed_row, night_of, row_of

    budget = _budget(len(paths), share)
    rows = []
    for i, path in enumerate(paths):
        name = path_text(os.path.basename(os.fsdecode(path)))
        try:
            subject = load(path)
        except (Error, OSError) as error:
            if len(paths) == 1:
                raise  # there would be nothing on the page
            reason = error.text if isinstance(error, Error) else error.strerror or str(error)
            failed.append(Failed(os.fsdecode(path), reason))
            rows.append(failed_row(name, reason))
            continue
        if subject.decoded is None:
            failed.append(Failed(subject.path, next(f.text for f in subject.frame.check() if f.severity == 'error')))
        row = row_of(subject, name)
        if budget.full or budget.main >= 2500:
            row.link = f'frame{i + 1}'
            context['frames'].append(view_of(subject, row.link, name, budget))
        rows.append(row)
    if len(paths) > 1:
        context['night'] = night_of(rows)


def _add_pair(context: Dict[str, Any], compare: Tuple[Path, Path], share: float) -> None:
    from .frame import load
    from .pair import pair_of

    context['pair'] = pair_of(load(compare[0]), load(compare[1]), int(250_000 * share) + 20_000)


def _titles(
    paths: Sequence[Path], compare: Optional[Tuple[Path, Path]], measure: Sequence[Path], context: Dict[str, Any]
) -> Tuple[str, str]:
    def name(path: Path) -> str:
        return path_text(os.path.basename(os.fsdecode(path)))

    if len(paths) > 1:
        folders = sorted({os.path.dirname(os.path.abspath(os.fsdecode(path))) for path in paths})
        return f'{len(paths)} frames', path_text(folders[0]) if len(folders) == 1 else f'from {len(folders)} folders'
    if paths:
        tiles = {tile.name: tile for view in context['frames'] for tile in view.strip}
        shown = [tiles[key].value for key in ('Sensor', 'Time') if key in tiles]
        return name(paths[0]), ' · '.join(shown) + (' UTC' if shown else '')
    if compare is not None:
        return f'{name(compare[0])} and {name(compare[1])}', 'two frames compared'
    return ', '.join(map(name, measure)), 'measured'


def _sections(context: Dict[str, Any]) -> List[Tuple[str, str]]:
    found = [('night', 'The night')] if context['night'] else []
    found += [('pair', 'Two frames')] if context['pair'] else []
    found += [(m['id'], m['title']) for m in context['measures']]
    if len(context['frames']) == 1:
        view = context['frames'][0]
        parts = (
            ('verdict', 'Verdict', True),
            ('picture', 'Picture', view.main),
            ('levels', 'Levels', view.levels),
            ('gains', 'Gains', view.gains),
            ('rows', 'Rows and columns', view.rows),
            ('header', 'Header', view.keys),
            ('file', 'File', view.provenance),
        )
        found += [(f'{view.id}-{part}', title) for part, title, there in parts if there]
    return found


def _made_by(arguments: Sequence[str]) -> List[Tuple[str, str]]:
    versions = [f'orvacam {_core.version()}', f'Python {platform.python_version()}']
    versions += [f'{name} {importlib.import_module(name).__version__}' for name in ('numpy', 'matplotlib', 'jinja2')]
    facts = [('made by', ', '.join(versions)), ('on', datetime.now(timezone.utc).strftime('%Y-%m-%d %H:%M:%S UTC'))]
    if arguments:
        facts.append(('arguments', path_text(' '.join(arguments))))
    return facts


def _render(context: Dict[str, Any]) -> str:
    """With escaping on: texts of headers and names of files are whatever someone wrote there."""
    import jinja2
    from markupsafe import Markup

    folder = resources.files(__name__)
    script = folder.joinpath('page.js').read_text('utf-8')
    style = folder.joinpath('page.css').read_text('utf-8')
    _mark_figures(context, Markup)
    digest = base64.b64encode(hashlib.sha256(script.encode()).digest()).decode()

    def finalize(value: Any) -> Any:
        return visible(value) if type(value) is str else value

    environment = jinja2.Environment(autoescape=True, undefined=jinja2.StrictUndefined, trim_blocks=True,
                                     finalize=finalize)
    template = environment.from_string(folder.joinpath('page.html').read_text('utf-8'))
    page: str = template.render(
        script=Markup(script), style=Markup(style), script_hash=f'sha256-{digest}', version=_core.version(), **context
    )
    return page


def _mark_figures(value: Any, markup: Any) -> None:
    """Figures are our own SVG, in which matplotlib has escaped what text there is."""
    from .frame import Plot

    if isinstance(value, Plot):
        value.svg = markup(value.svg)
    elif isinstance(value, dict):
        for each in value.values():
            _mark_figures(each, markup)
    elif isinstance(value, (list, tuple)):
        for each in value:
            _mark_figures(each, markup)
    elif hasattr(value, '__dataclass_fields__'):
        for name in value.__dataclass_fields__:
            _mark_figures(getattr(value, name), markup)
