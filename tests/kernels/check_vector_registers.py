#!/usr/bin/env python3
"""Fails when a kernel that is meant to be vectorised does not use the registers of its instruction set.

usage: check_vector_registers.py OBJDUMP SET[,SET...] OBJECT...    those of src/kernels/SET.cpp are looked into
"""
import re
import subprocess
import sys

# Written with registers of the whole width; loops that the compiler vectorises may use half of it.
BY_HAND = ['unpackPairs', 'swapBytesStreaming', 'swapBytesMirroredStreaming', 'mergeUniform', 'mergePlanes',
           'findExtremes', 'findFirst', 'findEach', 'placePairs', 'mergeByLine', 'mergePackedUniform', 'mergePackedPlanes']
INNER = {'mergeUniform': 'merge', 'mergePlanes': 'merge', 'mergePackedUniform': 'mergeCached',
         'mergePackedPlanes': 'mergeCached'}  # where the compiler may put the loop
BY_COMPILER = ['swapBytes', 'swapBytesMirrored', 'subtractBias', 'addToSums8', 'addToSums16',
               'startSums8', 'startSums16', 'emptySums', 'meansOfRecentSums']
# Not vectorised, on purpose: countValues and mergeMapped (memory is addressed by pixel values), meansOfSums (a
# division of 64 bits has no vector form).
NEON = r'\bv\d+\.(8h|16b|4s|2d)\b'
# For each set: registers of the whole width, those that serve, too, and what streams, where anything does.
SETS = {'avx2': ('%ymm', '%ymm', 'vmovnt'), 'avx512': ('%zmm', '%[yz]mm', 'vmovnt'), 'neon': (NEON, NEON, None)}


def functions(objdump, path):
    """Name of each function, without namespaces and arguments, and its code; clones count as their function."""
    text = subprocess.run([objdump, '-dC', '--no-show-raw-insn', path], check=True, capture_output=True, text=True).stdout
    bodies = {}
    for name, body in re.findall(r'^[0-9a-f]+ <(.*)>:\n((?:.+\n?)*)', text, re.M):
        short = re.sub(r'\(.*', '', re.sub(r'<.*', '', name)).split('::')[-1]
        if '::loops::' in name and short in BY_HAND:
            continue  # the plain loop for the ends of a run
        bodies[short] = bodies.get(short, '') + body
    return bodies


def faults_of(name, bodies):
    whole, half, streams = SETS[name]
    for entries, register in ((BY_HAND, whole), (BY_COMPILER, half)):
        for entry in entries:
            if entry not in bodies:
                yield f'{name}: no {entry}'
            elif not re.search(register, bodies[entry] + bodies.get(INNER.get(entry), '')):
                yield f'{name}: {entry} uses no {register}'
    if streams and not any(streams in body for body in bodies.values()):
        yield f'{name}: nothing is streamed'


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
