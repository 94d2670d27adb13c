"""Does what pages tell their readers to do: runs the blocks of shell and Python of the start pages, and those of Python
in README.md, in order, in a folder with the frames of a night. Fails when one fails, or when a page has none.

usage: run_pages.py TREE PROGRAM [PYTHONPATH]
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

# Page: what is there afterwards.
PAGES = {
    'docs/start-frames.md': ['pictures/m31_1.png', 'fits/m31_3_MERGED.fits', 'mean.fits'],
    'docs/start-pipeline.md': ['fits/m31_3_LOW.fits', 'checks.jsonl'],
    'README.md': [],
}
BLOCK = re.compile(r'^ *```(sh|py)\n(.*?)^ *```', re.S | re.M)


def blocks(path):
    return [(language, '\n'.join(line.strip() if language == 'sh' else line for line in text.split('\n')))
            for language, text in BLOCK.findall(path.read_text())]


def run(command, text, environment):
    return subprocess.run(command + [text], env=environment, stdout=subprocess.DEVNULL).returncode


def main():
    tree, program = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    environment = dict(os.environ, PATH=f'{program.parent}:{os.environ["PATH"]}')
    commands = {'sh': ['bash', '-euo', 'pipefail', '-c']}
    if len(sys.argv) > 3:
        environment['PYTHONPATH'] = sys.argv[3]
        commands['py'] = ['/usr/bin/python3', '-c']
    needs_python = re.compile(r'^orvacam report ')
    night = blocks(tree / 'docs' / 'start-frames.md')[0]
    for page, files in PAGES.items():
        found = [(language, text) for language, text in blocks(tree / page) if language == 'py' or page != 'README.md']
        if not found:
            sys.exit(f'{page} has nothing to run')
        with tempfile.TemporaryDirectory() as folder:
            os.chdir(folder)
            for language, text in ([] if night in found else [night]) + found:
                if 'py' not in commands and needs_python.match(text):
                    continue
                if language in commands and run(commands[language], text, environment) != 0:
                    sys.exit(f'{page}: this failed:\n{text}')
            for file in files:
                if not pathlib.Path(file).exists():
                    sys.exit(f'{page}: {file} was not made')
            os.chdir('/')
        print(f'{page}: {len(found)} blocks')


if __name__ == '__main__':
    main()
