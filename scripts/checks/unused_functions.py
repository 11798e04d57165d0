#!/usr/bin/env python3
"""Checks that the library and the programs call each function of src/, with cppcheck, which goes by
names: scripts/checks/unused_functions.py

A function that only tests call is unused too. Prints one line for each offence and ends with 1, or
prints nothing and ends with 0.
"""
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

# Called from outside the project's own code.
CALLED_FROM_OUTSIDE = re.compile(r'TAVU_\w+|DllMain|__verbose_terminate_handler')

# What a user of the data layer may expect of it, beside what the library itself happens to call.
DATA_LAYER = {
    'BorrowList': 'a value of each container type can be borrowed; the library borrows maps only',
    'BorrowTable': 'as BorrowList',
    'cell': 'reading one cell of a table; the library only writes and reads whole ones',
    'Compare': 'the order of values; the library itself only asks whether keys are equal',
    'ConvertInPlace': 'conversion between value types, which the hosts of other services need',
    'GetThreadError': 'reads back what SetThreadError left; hosts read it with a function of Windows',
}

FINDING = re.compile(r"^(src/[^:]+:\d+):\d+: .*The function '(\w+)' is never used")


def main() -> int:
    cppcheck = subprocess.run(
        ['cppcheck', '--quiet', '--enable=unusedFunction', '--std=c++20', '--language=c++', '-Isrc',
         '-Iinclude', 'src', 'programs'], cwd=ROOT, check=True, capture_output=True, text=True)
    findings = [FINDING.match(line) for line in cppcheck.stderr.splitlines()]
    unused = {found[2]: found[1] for found in findings if found}
    if 'DllMain' not in unused:
        # It always is among the findings: without it cppcheck has not seen what it should.
        print(f'unused_functions: cppcheck found nothing to judge:\n{cppcheck.stderr}')
        return 1
    failed = False
    for name, place in unused.items():
        if name not in DATA_LAYER and not CALLED_FROM_OUTSIDE.fullmatch(name):
            print(f'{place}: nothing calls {name}')
            failed = True
    for name in DATA_LAYER.keys() - unused.keys():
        print(f'unused_functions: {name} is exempt but called, or gone: take it off the list')
        failed = True
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
