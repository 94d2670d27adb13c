"""Compiles the samples in the comments of the public headers (\\code to \\endcode) and those of the pages that are no
file of examples/, each in a function whose parameters are what the sample takes for granted. Fails when one does not
compile, or is in a file that is not listed here.

usage: check_snippets.py TREE BUILD
"""
import pathlib
import re
import subprocess
import sys
import tempfile

GIVEN = {
    'orvacam_c.h': 'void use(const orva_image*)',
    'orvacam.hpp': '',
    'orvacam.h': 'unsigned char* rawFrame, unsigned long rawFrameLength, void use(const unsigned short*, unsigned long)',
    'CFrameMetaData.h': 'unsigned char* frame, unsigned int length',
    'CStacker.h': 'const std::vector<const unsigned short*>& planes, unsigned int pixels, unsigned short* mean, '
                  'unsigned int count',
    'CLog.h': '',
    'api-guide.md': 'unsigned char* bytes, unsigned int length',
}
SAMPLE = re.compile(r'\\code\n(.*?)\\endcode', re.S)
PAGE_SAMPLE = re.compile(r'^(<!-- examples/\S+ -->\n+)?```(?:cpp|c)\n(.*?)^```', re.S | re.M)


def samples(path):
    if path.suffix == '.md':
        for marked, block in PAGE_SAMPLE.findall(path.read_text()):
            if not marked:
                yield block
        return
    for block in SAMPLE.findall(path.read_text()):
        lines = [re.sub(r'^\s*(///|\*) ?', '', line) for line in block.rstrip().split('\n')]
        yield '\n'.join(line for line in lines if line != '*')


def source(number, text, given):
    includes = [line for line in text.split('\n') if line.lstrip().startswith('#include')]
    body = '\n'.join(line for line in text.split('\n') if not line.lstrip().startswith('#include'))
    return '\n'.join(includes) + f'\nvoid sample_{number}({given or "void"});\nvoid sample_{number}({given or "void"}) {{\n{body}\n}}\n'


def main():
    tree, build = (pathlib.Path(argument) for argument in sys.argv[1:])
    texts = {'c': '#include <orvacam_c.h>\n#include <stdio.h>\n', 'c++': '#include <orvacam.h>\n#include <orvacam.hpp>\n#include <vector>\n'}
    number, found = 0, set()
    for path in sorted((tree / 'include').rglob('*.h*')) + sorted((tree / 'docs').glob('*.md')) + [tree / 'README.md']:
        for text in samples(path):
            if path.name not in GIVEN:
                sys.exit(f'{path}: what does its sample take for granted? See GIVEN')
            number += 1
            found.add(path.name)
            texts['c' if path.name == 'orvacam_c.h' else 'c++'] += source(number, text, GIVEN[path.name])
    if found != set(GIVEN):
        sys.exit(f'no sample in {sorted(set(GIVEN) - found)}')
    with tempfile.TemporaryDirectory() as folder:
        for language, text in texts.items():
            file = pathlib.Path(folder) / f'samples.{language.replace("+", "p")}'
            file.write_text(text)
            compiler, standard = {'c': ('gcc', 'c99'), 'c++': ('g++', 'c++17')}[language]
            subprocess.run([compiler, f'-std={standard}', '-fsyntax-only', '-Wall', '-Wno-unused', '-Werror',
                            f'-I{tree / "include"}', f'-I{build / "include"}', file], check=True)
    print(f'{number} samples')


if __name__ == '__main__':
    main()
