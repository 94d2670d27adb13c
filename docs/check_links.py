"""Follows the links of a site within itself; fails and names those that lead nowhere.

usage: check_links.py FOLDER
"""
import html.parser
import pathlib
import sys
import urllib.parse


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.targets, self.anchors = set(), set()
        self.feed(path.read_text(encoding='utf-8', errors='replace'))

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ('id', 'name') and value:
                self.anchors.add(value)
            elif name in ('href', 'src') and value:
                self.targets.add(value)


def faults(folder):
    pages = {path: Page(path) for path in sorted(folder.rglob('*.html'))}
    checked = 0
    for path, page in pages.items():
        for target in sorted(page.targets):
            parts = urllib.parse.urlsplit(target)
            if parts.scheme or parts.netloc:
                continue
            checked += 1
            file = (path.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else path
            if not file.exists():
                yield f'{path.name}: {target}: no such file'
            elif parts.fragment and file in pages and urllib.parse.unquote(parts.fragment) not in pages[file].anchors:
                yield f'{path.name}: {target}: no such place'
    if not pages or not checked:
        yield f'{folder}: no page, or no link'
    print(f'{len(pages)} pages, {checked} links')


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip())
    found = list(faults(pathlib.Path(sys.argv[1]).resolve()))
    for fault in found:
        print(fault)
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main())
