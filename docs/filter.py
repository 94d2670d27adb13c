"""What Doxygen reads instead of a file of the tree, on standard output.

In headers, one comment may stand above several declarations in a row; Doxygen gets them as a group. In Markdown, links
to headers and to the Python package become links to their references, and other links to what is no page plain words.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
COMMENT = re.compile(r'\s*(///(?!<)|/\*\*(?!<)|\*[ /]|\*$)')
# What ends a run of declarations that share a comment.
BREAK = re.compile(r'\s*(public|protected|private):|\s*#|\s*//|\s*\};|\s*(class|struct|enum|union|namespace|extern)\b[^;]*$')


def balance(text):
    """How many braces and brackets a line leaves open."""
    text = re.sub(r'"[^"]*"|///?.*$|/\*.*?\*/', '', text)
    return sum(text.count(c) for c in '({') - sum(text.count(c) for c in ')}')


def declaration(lines, at):
    """The line behind the declaration that begins at a line; None where none ends before the blank line."""
    depth = 0
    for i in range(at, len(lines)):
        if not lines[i].strip():
            return None
        depth += balance(lines[i])
        code = re.sub(r'\s*(//.*|/\*.*?\*/\s*)$', '', lines[i]).rstrip()
        if depth <= 0 and code.endswith((';', '}')):
            return i + 1
    return None


def header(lines):
    out, i = [], 0
    while i < len(lines):
        if not COMMENT.match(lines[i]):
            out.append(lines[i])
            i += 1
            continue
        start = i
        while i < len(lines) and COMMENT.match(lines[i]):
            i += 1
        members, end = 0, i
        while end < len(lines) and not BREAK.match(lines[end]) and not COMMENT.match(lines[end]):
            behind = declaration(lines, end)
            if behind is None:
                break
            members, end = members + 1, behind
        if members > 1:
            # On the comment's own lines: the numbers of lines in warnings stay right.
            out += ['/** @{ */ ' + lines[start], *lines[start + 1:end - 1], lines[end - 1] + ' /** @} */']
            i = end
        else:
            out += lines[start:i]
    return out


def page(path, text):
    def link(match):
        words, target = match.groups()
        place, _, anchor = target.partition('#')
        if not place or '://' in target or target.endswith(('.svg', '.png')):
            return match.group(0)
        file = (path.parent / place).resolve()
        if file.suffix == '.md' and file.exists():
            return f'[{words}]({file.relative_to(ROOT)}{"#" + anchor if anchor else ""})'
        if file.suffix in ('.h', '.hpp') and file.is_relative_to(ROOT / 'include'):
            return f'\\link {file.relative_to(ROOT / "include")} {words}\\endlink'
        if file == ROOT / 'python' / 'orvacam':
            return f'\\ref python_reference "{words}"'
        if not file.exists():
            sys.exit(f'{path}: there is no {target}')
        return words
    return re.sub(r'\[([^\]]*)\]\(([^)\s]+)\)', link, text)


def main():
    path = pathlib.Path(sys.argv[1]).resolve()
    text = path.read_text()
    if path.suffix == '.md':
        sys.stdout.write(page(path, text))
    else:
        print('\n'.join(header(text.split('\n'))), end='')


if __name__ == '__main__':
    main()
