#!/usr/bin/env python3
"""Fails when a kernel that is meant to be vectorised does not use the registers of its instruction set, or when one
stores past the caches that should not, or does not although it is named "Streaming".

usage: check_vector_registers.py OBJDUMP SET[,SET...] OBJECT...    those of src/kernels/SET.cpp are looked into
"""
import re
import subprocess
import sys

# Written with registers of the whole width; loops that the compiler vectorises may use half of it.
STREAMING = ['unpack12', 'swapBytes', 'swapBytesMirrored', 'mergeUniform', 'mergePlanes', 'mergePackedUniform',
             'mergePackedPlanes']  # beside each there is one that stores past the caches
BY_HAND = ['unpack12', 'swapBytesStreaming', 'swapBytesMirroredStreaming', 'mergeUniform', 'mergePlanes',
           'findExtremes', 'findFirst', 'findEach', 'placePairs', 'sumCounts', 'mergeByLine', 'mergePackedUniform',
           'mergePackedPlanes']
BY_COMPILER = ['swapBytes', 'swapBytesMirrored', 'subtractBias', 'addToSums8', 'addToSums16',
               'startSums8', 'startSums16', 'emptySums', 'meansOfRecentSums', 'addToMoments', 'keepLesser', 'keepGreater',
               'sortColumns16', 'sortColumns64']
# Loops that the compiler leaves scalar: NEON's minimum of doubles treats NaN otherwise than the loop's comparison.
SCALAR = {'neon': ['sortColumns64']}
# Not vectorised, on purpose: countValues and mergeMapped (memory is addressed by pixel values), meansOfSums (a
# division of 64 bits has no vector form).
NEON = r'\bv\d+\.(8h|16b|4s|2d)\b'
# For each set: registers of the whole width, those that serve, too, and what streams, where anything does.
SETS = {'avx2': ('%ymm', '%ymm', 'vmovnt'), 'avx512': ('%zmm', '%[yz]mm', 'vmovnt'), 'neon': (NEON, NEON, None)}


def plain_name(name):
    """A function's name, a clone's its function's. Of templates over Stores, those that stream end in "Streaming"."""
    name = name.split(' [clone')[0].removeprefix('void ')
    return re.sub(r'<\(orvacam::kernels::Stores\)([01])>\(', lambda match: 'Streaming(' if match[1] == '1' else '(', name, count=1)


def functions(objdump, path):
    """Code of each function by its name."""
    text = subprocess.run([objdump, '-dC', '--no-show-raw-insn', path], check=True, capture_output=True, text=True).stdout
    bodies = {}
    for name, body in re.findall(r'^[0-9a-f]+ <(.*)>:\n((?:.+\n?)*)', text, re.M):
        name = plain_name(name)
        bodies[name] = bodies.get(name, '') + body
    return bodies


def code_of(entry, scope, bodies):
    """The code of a table's entry and of all that it calls, but for the plain loops, which do the ends of runs."""
    plain = 'orvacam::kernels::loops::'
    found, waiting = set(), [name for name in bodies if name.startswith(f'{scope}{entry}(')]
    while waiting:
        name = waiting.pop()
        found.add(name)
        called = {plain_name(re.sub(r'\+0x[0-9a-f]+$', '', target))
                  for target in re.findall(r'<(.*)>$', bodies[name], re.M)}
        waiting += [target for target in called - found if target in bodies and not target.startswith(plain)]
    return ''.join(bodies[name] for name in sorted(found))


def faults_of(name, bodies):
    own = 'orvacam::kernels::'
    whole, half, streams = SETS[name]
    for entries, scope, register in ((BY_HAND, own, whole), (BY_COMPILER, own + 'loops::', half)):
        for entry in entries:
            if entry in SCALAR.get(name, []):
                continue
            code = code_of(entry, scope, bodies)
            if not code:
                yield f'{name}: no {entry}'
            elif not re.search(register, code):
                yield f'{name}: {entry} uses no {register}'
    for entry in STREAMING if streams else []:
        if streams not in code_of(entry + 'Streaming', own, bodies):
            yield f'{name}: {entry}Streaming does not stream'
        if streams in code_of(entry, own, bodies) + code_of(entry, own + 'loops::', bodies):
            yield f'{name}: {entry} streams'


def main():
    objdump, names, paths = sys.argv[1], sys.argv[2].split(','), sys.argv[3:]
    faults = []
    for name in names:
        found = [path for path in paths if path.endswith(f'kernels/{name}.cpp.o')]
        if len(found) != 1:
            faults.append(f'{name}: {len(found)} objects instead of one')
        for path in found:
            faults += faults_of(name, functions(objdump, path))
    print('\n'.join(faults) or f'{len(names)} objects are as they should be')
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
