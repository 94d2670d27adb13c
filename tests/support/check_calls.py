#!/usr/bin/env python3
"""Fails when the library calls something of the system that neither the fault injector takes over nor is known not to
fail: what is new there is to be failed by the tests, or listed here with a reason.

usage: check_calls.py NM ARCHIVE CALL...    the calls that the injector takes over
"""
import re
import subprocess
import sys

HARMLESS = re.compile(r'''^(
    mem\w+ | str\w+ | wcs\w+ | wmem\w+ | isn?\w+              # memory that is there, text that is there
  | sn?printf | vsnprintf | swprintf | vswprintf              # into memory that is there
  | unlink | rmdir                                            # of what is given up
  | newlocale                                                 # of the C locale, which is always there
  | pow | lround | sqrtl | nextafterf? | fmal? | labs         # arithmetic
  | pthread_once                                              # of what is tried again
  | fma | fmod | ldexp | round | sqrt | trunc | floor | ceil  # arithmetic
  | mbrtowc | wcrtomb | localtime_r | usleep
  | rewind                                                    # what it does not do shows when reading
  | fileno | fprintf | stderr                                 # the log's last word, which nobody can hear
  | pthread_mutex_lock | pthread_mutex_unlock                 # of a mutex that is always sound
  | orva_\w+                                                 # the C interface's own
  | _Z\w+ | __\w+ | _Unwind\w+ | _ITM\w+ | _GLOBAL\w+                      # C++ and its runtime; operator new is replaced
)$''', re.VERBOSE)
CHECKED = re.compile(r'^__\w+_chk$')  # the compiler's other name for a call


def main():
    nm, archive, *taken = sys.argv[1:]
    lines = subprocess.run([nm, '--undefined-only', archive], check=True, capture_output=True, text=True).stdout.splitlines()
    called = {line.split()[-1] for line in lines if re.match(r'^\s+[Uw] ', line)}
    unknown = sorted(name for name in called
                     if name not in taken and (CHECKED.match(name) or not HARMLESS.match(name)))
    for name in unknown:
        print(f'{name}: neither taken over by the fault injector nor known not to fail')
    missed = [name for name in ('malloc', 'calloc', 'fread', 'write') if name not in called]
    for name in missed:
        print(f'{name}: not called at all; is this the library?')
    print(f'{len(called)} calls, {len(unknown)} unknown')
    return 1 if unknown or missed else 0


if __name__ == '__main__':
    sys.exit(main())
