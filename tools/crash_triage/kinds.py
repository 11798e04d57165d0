"""The kind of an exception, in words that stay the same whichever file told of it."""
from __future__ import annotations

from collections.abc import Mapping

from crash_reading.minidump import Minidump

ACCESS_VIOLATION = 0xC0000005

# The code, what the document calls it, and what the page calls it.
KINDS = (
    (ACCESS_VIOLATION, 'EXCEPTION_ACCESS_VIOLATION', 'Access violation'),
    (0x80000001, 'EXCEPTION_GUARD_PAGE', 'Guard page'),
    (0x80000002, 'EXCEPTION_DATATYPE_MISALIGNMENT', 'Misaligned data'),
    (0x80000003, 'EXCEPTION_BREAKPOINT', 'Breakpoint'),
    (0x80000004, 'EXCEPTION_SINGLE_STEP', 'Single step'),
    (0xC0000006, 'EXCEPTION_IN_PAGE_ERROR', 'In-page error'),
    (0xC0000008, 'EXCEPTION_INVALID_HANDLE', 'Invalid handle'),
    (0xC000001D, 'EXCEPTION_ILLEGAL_INSTRUCTION', 'Illegal instruction'),
    (0xC0000025, 'EXCEPTION_NONCONTINUABLE_EXCEPTION', 'Noncontinuable exception'),
    (0xC0000026, 'EXCEPTION_INVALID_DISPOSITION', 'Invalid disposition'),
    (0xC000008C, 'EXCEPTION_ARRAY_BOUNDS_EXCEEDED', 'Array bounds exceeded'),
    (0xC000008D, 'EXCEPTION_FLT_DENORMAL_OPERAND', 'Denormal floating-point operand'),
    (0xC000008E, 'EXCEPTION_FLT_DIVIDE_BY_ZERO', 'Floating-point division by zero'),
    (0xC000008F, 'EXCEPTION_FLT_INEXACT_RESULT', 'Inexact floating-point result'),
    (0xC0000090, 'EXCEPTION_FLT_INVALID_OPERATION', 'Invalid floating-point operation'),
    (0xC0000091, 'EXCEPTION_FLT_OVERFLOW', 'Floating-point overflow'),
    (0xC0000092, 'EXCEPTION_FLT_STACK_CHECK', 'Floating-point stack check'),
    (0xC0000093, 'EXCEPTION_FLT_UNDERFLOW', 'Floating-point underflow'),
    (0xC0000094, 'EXCEPTION_INT_DIVIDE_BY_ZERO', 'Integer division by zero'),
    (0xC0000095, 'EXCEPTION_INT_OVERFLOW', 'Integer overflow'),
    (0xC0000096, 'EXCEPTION_PRIV_INSTRUCTION', 'Privileged instruction'),
    (0xC00000FD, 'EXCEPTION_STACK_OVERFLOW', 'Stack overflow'),
    (0xC0000374, '', 'Heap corruption'),
    (0xC0000409, '', 'Fast fail'),
    (0xE06D7363, 'Microsoft C++ Exception', 'C++ exception'),
    (0x20474343, '', 'C++ exception'),
)
BY_CODE = {code: words for code, _, words in KINDS}
BY_NAME = {name: code for code, name, _ in KINDS if name}
# An access violation's first parameter.
DEEDS = {0: 'reading', 1: 'writing', 8: 'running'}


def crash_kind(exception: Mapping[str, str], dump: Minidump | None) -> str:
    """The dump has the code; the document alone, without one, has the exception's name, and counts
    an attempt to run what is no code as writing."""
    code = dump.code if dump and dump.code is not None else BY_NAME.get(exception.get('type', ''))
    if code is None:
        return 'Unknown exception'
    if code != ACCESS_VIOLATION:
        return BY_CODE.get(code, f'Exception 0x{code:08X}')
    if dump and dump.parameters:
        deed = DEEDS.get(dump.parameters[0], 'writing')
    else:
        deed = 'reading' if 'read_addr' in exception else 'writing'
    return f'{BY_CODE[code]} {deed}'
