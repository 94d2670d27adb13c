"""Fails when a document shows an example otherwise than it stands in its file.

usage: check_documents.py TREE

In README.md and the pages of docs, a code block behind a line `<!-- examples/NAME -->` shows lines of that file, in
one piece. Every example of the face is shown whole from its first #include on, and README's first sample is one. Every
page is reached from docs/start.md.
"""
import pathlib
import re
import sys

SHOWN = re.compile(r'<!-- examples/(\S+) -->\n+```\w+\n(.*?)```', re.S)
MACHINERY = {'merge_in_memory.cpp', 'convert_file.cpp', 'stack_frames.cpp'}


def from_first_include(text):
    return text[text.index('#include'):]


def unreached(docs):
    """The pages that no chain of links leads to from the first."""
    reached, ahead = set(), [docs / 'start.md']
    while ahead:
        page = ahead.pop()
        if page not in reached:
            reached.add(page)
            links = re.findall(r'\]\(([^)#\s]+\.md)', page.read_text())
            ahead += [target for link in links if (target := (page.parent / link).resolve()).is_file()]
    return sorted(set(docs.glob('*.md')) - reached)


def main():
    root = pathlib.Path(sys.argv[1])
    faults, whole = [], set()
    for document in ['README.md'] + sorted(str(path.relative_to(root)) for path in (root / 'docs').glob('*.md')):
        text = (root / document).read_text()
        for name, block in SHOWN.findall(text):
            source = (root / 'examples' / name).read_text()
            if block not in source:
                faults.append(f'{document}: examples/{name} is shown otherwise than it stands')
            elif block == from_first_include(source):
                whole.add(name)
    first = re.search(r'```cpp\n(.*?)```', (root / 'README.md').read_text(), re.S)
    if not first or not any(first.group(1) == block for _, block in SHOWN.findall((root / 'README.md').read_text())):
        faults.append('README.md: the first sample is no example')
    examples = {path.name for path in (root / 'examples').iterdir() if path.suffix in ('.c', '.cpp')} - MACHINERY
    for name in sorted(examples - whole):
        faults.append(f'examples/{name} is shown whole in no document')
    faults += [f'{page.relative_to(root.resolve())} is not reached from docs/start.md'
               for page in unreached((root / 'docs').resolve())]
    for fault in faults:
        print(fault)
    print(f'{len(examples)} examples, {len(faults)} faults')
    return 1 if faults or not examples else 0


if __name__ == '__main__':
    sys.exit(main())
