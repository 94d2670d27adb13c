#!/usr/bin/env python3
"""Fails when a kernel that is meant to be vectorised does not use the registers of its instruction set.

usage: check_vector_registers.py OBJECT...    those of src/kernels/avx*.cpp among them are looked into
"""
import re
import subprocess
import sys

# Written with registers of the whole width; loops that the compiler vectorises may use half of it.
BY_HAND = ['unpackPairs', 'mergeUniform', 'mergePlanes', 'findFirst', 'mergeByLine', 'mergePackedUniform', 'mergePackedPlanes']
INNER = {'mergeUniform': 'merge', 'mergePlanes': 'merge', 'mergePackedUniform': 'mergeRegisters',
         'mergePackedPlanes': 'mergeRegisters'}  # where the compiler may put the loop
BY_COMPILER = ['swapBytes', 'swapBytesMirrored', 'subtractBias', 'findExtremes', 'addToSums8', 'addToSums16',
               'startSums8', 'startSums16', 'emptySums', 'meansOfRecentSums']
# Not vectorised, on purpose: countPixels and mergeMapped (memory is addressed by pixel values), meansOfSums (a
# division of 64 bits has no vector form).
SETS = {'avx2.cpp.o': ('%ymm', '%ymm'), 'avx512.cpp.o': ('%zmm', '%[yz]mm')}


def functions(path):
    """Name of each function, without namespaces and arguments, and its code; clones count as their function."""
    text = subprocess.run(['objdump', '-dC', '--no-show-raw-insn', path], check=True, capture_output=True, text=True).stdout
    bodies = {}
    for name, body in re.findall(r'^[0-9a-f]+ <(.*)>:\n((?:.+\n?)*)', text, re.M):
        short = re.sub(r'\(.*', '', re.sub(r'<.*', '', name)).split('::')[-1]
        if '::loops::' in name and short in BY_HAND:
            continue  # the plain loop for the ends of a run
        bodies[short] = bodies.get(short, '') + body
    return bodies


def main():
    faults, checked = [], 0
    for path in sys.argv[1:]:
        for suffix, (whole, half) in SETS.items():
            if not path.endswith('kernels/' + suffix):
                continue
            checked += 1
            bodies = functions(path)
            for names, register in ((BY_HAND, whole), (BY_COMPILER, half)):
                for name in names:
                    body = bodies.get(name, '') + bodies.get(INNER.get(name), '')
                    if not re.search(register, body):
                        faults.append(f'{suffix}: {name} uses no {register}' if name in bodies else f'{suffix}: no {name}')
            if not any('vmovnt' in body for body in bodies.values()):
                faults.append(f'{suffix}: nothing is streamed')
    if checked != len(SETS):
        faults.append(f'{checked} objects looked into instead of {len(SETS)}')
    print('\n'.join(faults) or f'{checked} objects are as they should be')
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
