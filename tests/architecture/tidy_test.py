"""scripts/tidy: what it looks at again, and that no fault is missed."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / 'scripts/tidy'
UNITS = 20  # and the source for 64-bit Arm

# Says what it is called with, finds "FAULT", and is killed by "DEADLY".
CHECKER = '''#!/bin/sh
if [ "$*" = --version ]; then echo "version $VERSION"; exit; fi
for word; do case $word in *.cpp) first=${first:-$word};; esac; done
echo "${first##*/}" >> "$CALLS"
if grep -q DEADLY "$first"; then kill -KILL $$; fi
if grep -q FAULT "$first"; then echo "$first: a fault"; exit 1; fi
'''
COMPILER = '''#!/bin/sh
for word; do shift; case $word in --target=*) ;; *) set -- "$@" "$word";; esac; done
exec c++ "$@"
'''


class Tidy(unittest.TestCase):
    """In a made-up tree, with a checker of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()
        for name, text in (('clang-tidy', CHECKER), ('clang++', COMPILER)):
            tool = self.folder / 'bin' / name
            tool.parent.mkdir(exist_ok=True)
            tool.write_text(text)
            tool.chmod(0o755)
        self.calls = self.folder / 'calls'
        self.tree = self.makeTree('tree')

    def makeTree(self, name, units=UNITS):
        tree = self.folder / name
        for folder in ('scripts', 'build/tidy', 'src/kernels', 'src/part'):
            (tree / folder).mkdir(parents=True)
        shutil.copy(SCRIPT, tree / 'scripts')
        (tree / '.clang-tidy').write_text('Checks: all\n')
        (tree / 'src/kernels/neon.cpp').write_text('int neon;\n')
        (tree / 'src/part/Shared.h').write_text('extern int part;\n')
        commands = []
        for i in range(units):
            source = tree / f'src/part/{i}.cpp'
            source.write_text('#include "part/Shared.h"\n' if i < 2 else f'int unit{i};\n')
            commands.append(f'{{"directory": "{tree}/build/tidy", "file": "{source}", '
                            f'"command": "c++ -I{tree}/src -o {i}.o -c {source}"}}')
        (tree / 'build/tidy/compile_commands.json').write_text('[' + ',\n'.join(commands) + ']')
        return tree

    def run_(self, *arguments, tree=None, version='1'):
        """Exit code, what it says, and the units that were looked at."""
        self.calls.write_text('')
        environment = {**os.environ, 'PATH': f'{self.folder}/bin:{os.environ["PATH"]}', 'VERSION': version,
                       'CALLS': str(self.calls), 'XDG_CACHE_HOME': str(self.folder / 'cache')}
        done = subprocess.run([sys.executable, str((tree or self.tree) / 'scripts/tidy'), *arguments],
                              env=environment, capture_output=True, text=True)
        return done.returncode, done.stdout + done.stderr, sorted(self.calls.read_text().split())

    def test_looks_once_at_what_passes(self):
        code, said, units = self.run_()
        self.assertEqual((code, said), (0, ''))
        self.assertEqual(len(units), UNITS + 1)
        self.assertEqual(self.run_(), (0, '', []))

    def test_looks_again_at_what_changed_or_includes_it(self):
        self.run_()
        (self.tree / 'src/part/7.cpp').write_text('int unit7;  // and a comment\n')
        self.assertEqual(self.run_()[2], ['7.cpp'])
        (self.tree / 'src/part/Shared.h').write_text('#define SHARED 1\n')
        self.assertEqual(self.run_()[2], ['0.cpp', '1.cpp'])
        (self.tree / 'src/kernels/neon.cpp').write_text('int other;\n')
        self.assertEqual(self.run_()[2], ['neon.cpp'])

    def test_looks_again_at_all_with_other_rules(self):
        self.run_()
        self.assertEqual(len(self.run_('--deep')[2]), UNITS + 1)
        self.assertEqual(len(self.run_(version='2')[2]), UNITS + 1)
        (self.tree / '.clang-tidy').write_text('Checks: few\n')
        self.assertEqual(len(self.run_()[2]), UNITS + 1)
        self.assertEqual(self.run_()[2], [])

    def test_reports_a_fault_every_time(self):
        (self.tree / 'src/part/3.cpp').write_text('int fault;  // FAULT\n')
        code, said, units = self.run_()
        self.assertEqual(code, 1)
        self.assertIn('3.cpp: a fault', said)
        self.assertEqual(len(units), UNITS + 1)
        code, said, units = self.run_()
        self.assertEqual((code, units), (1, ['3.cpp']))
        self.assertIn('3.cpp: a fault', said)

    def test_reports_a_checker_that_dies_without_a_word(self):
        (self.tree / 'src/part/4.cpp').write_text('int deadly;  // DEADLY\n')
        code, said, _ = self.run_()
        self.assertEqual(code, 1)
        self.assertIn('4.cpp', said)

    def test_looks_every_time_at_what_does_not_compile(self):
        (self.tree / 'src/part/5.cpp').write_text('#include "part/Missing.h"\n')
        self.run_()
        self.assertEqual(self.run_()[2], ['5.cpp'])

    def test_knows_a_tree_at_another_place(self):
        self.run_()
        self.assertEqual(self.run_(tree=self.makeTree('copy')), (0, '', []))

    def test_refuses_to_check_next_to_nothing(self):
        code, said, units = self.run_(tree=self.makeTree('small', units=UNITS - 1))
        self.assertEqual((code, units), (1, []))
        self.assertIn(f'only {UNITS - 1} units', said)

    def test_refuses_what_it_does_not_know(self):
        code, said, units = self.run_('--deeper')
        self.assertEqual((code, units), (1, []))
        self.assertIn('usage', said)


if __name__ == '__main__':
    unittest.main()
