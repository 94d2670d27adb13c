"""What `orvacam report` hands over to: python3 -m orvacam._report FILE... -o report.html"""

from __future__ import annotations

import argparse
import os
import sys
from typing import List, Optional

from .._errors import Error
from . import Missing, make_page, write_page


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser('orvacam report', description='Frames as one page of HTML.')
    parser.add_argument('files', nargs='*', metavar='FILE')
    parser.add_argument('--list', metavar='LIST', help='more files, each name ended by a NUL')
    parser.add_argument('-o', '--output', required=True, metavar='FILE.html')
    parser.add_argument('--measure', action='append', default=[], metavar='FILE.json')
    parser.add_argument('--compare', action='append', default=[], metavar='FRAME', help='twice: for A and for B')
    parser.add_argument('--overwrite', action='store_true')
    return parser


def _complain(what: str) -> None:
    printable = ''.join(c if c.isprintable() else repr(c)[1:-1] for c in what)
    print('orvacam: ' + printable.encode('utf-8', 'backslashreplace').decode(), file=sys.stderr)


def main(arguments: Optional[List[str]] = None) -> int:
    """The exit code, as the program has them: 0 done, 1 an input failed, 2 wrong usage, 3 not written."""
    options = _parser().parse_args(arguments)
    if options.list:
        with open(options.list, 'rb') as names:
            names.seek(0)
            options.files += [os.fsdecode(name) for name in names.read().split(b'\0') if name]
    if len(options.compare) not in (0, 2):
        _complain('--compare: takes two frames')
        return 2
    if os.path.lexists(options.output) and not options.overwrite:
        _complain(f'{options.output}: is there already; --overwrite replaces it')
        return 3
    try:
        return _written(options)
    except KeyboardInterrupt:
        return 130


def _shown_arguments(options: argparse.Namespace) -> List[str]:
    """As the user may have given them; of many files the first ones."""
    files = options.files[:3] + ([f'(and {len(options.files) - 3} more)'] if len(options.files) > 3 else [])
    words = ['orvacam', 'report', *files, '-o', options.output]
    words += [word for path in options.measure for word in ('--measure', path)]
    return words + (['--compare', ','.join(options.compare)] if options.compare else [])


def _written(options: argparse.Namespace) -> int:
    """Errors of the page itself are 3, of what it is made from 1."""
    compare = (options.compare[0], options.compare[1]) if options.compare else None
    try:
        failed, page = make_page(options.files, options.measure, compare, _shown_arguments(options))
    except (Error, Missing, ValueError) as error:
        _complain(f'{error}' if isinstance(error, Error) and error.path else f'report: {error}')
        return 1
    except OSError as error:
        _complain(f'{error.filename or "report"}: {error.strerror}')
        return 1
    try:
        write_page(page, options.output)
    except OSError as error:
        _complain(f'{options.output}: {error.strerror}')
        return 3
    for each in failed:
        _complain(f'{each.path}: {each.reason}')
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
