"""Unwinds the failing thread of a dump, as Windows itself does: by the tables in the images.

Where the image of a frame is not at hand (mostly one of Windows' own), the caller is looked for: the
first word on the stack that a call from a known image to another one leaves.
"""
import bisect
import struct
from typing import Callable, Iterator, NamedTuple, Optional, Sequence

from crash_reading.images import Function, Image
from crash_reading.minidump import REGISTERS, Memory, Minidump
from crash_reading.modules import Module

MAX_FRAMES = 64
MAX_SCANNED = 4096  # words of one stack: a function of Windows may hold a whole context on it
MAX_CHAINED = 32

PUSH, ALLOCATE, ALLOCATE_SMALL, SET_FRAME, SAVE, SAVE_FAR, EPILOG, SPARE, SAVE_XMM, \
    SAVE_XMM_FAR, MACHINE_FRAME = range(11)
SLOTS = {PUSH: 1, ALLOCATE: 2, ALLOCATE_SMALL: 1, SET_FRAME: 1, SAVE: 2, SAVE_FAR: 3, EPILOG: 2,
         SPARE: 3, SAVE_XMM: 2, SAVE_XMM_FAR: 3, MACHINE_FRAME: 1}
CHAINED = 4  # flag: what follows the codes is the function that this one is a part of

Find = Callable[[Module], Optional[Image]]


class UnwindFault(Exception):
    """The tables or the stack do not lead on."""


def unwind(dump: Minidump, find: Find) -> list[int]:
    """The addresses of the call stack, innermost first: the failing instruction, then return
    addresses. Only the first where nothing leads on, none without registers."""
    if not dump.registers:
        return []
    return Unwinder(dump.modules, dump.stack, dict(dump.registers), find).run()


class Code(NamedTuple):
    """One instruction of a prolog: it has run once `after` bytes of the function have."""
    after: int
    operation: int
    info: int
    near: int  # the operand as 16 and as 32 bits
    far: int


def decode(codes: bytes) -> Iterator[Code]:
    """The last instruction first, as they are stored."""
    index = 0
    while index + 1 < len(codes):
        operation, info = codes[index + 1] & 15, codes[index + 1] >> 4
        if operation not in SLOTS:
            raise UnwindFault
        yield Code(codes[index], operation, info,
                   int.from_bytes(codes[index + 2:index + 4], 'little'),
                   int.from_bytes(codes[index + 2:index + 6], 'little'))
        index += 2 * (SLOTS[operation] + (operation == ALLOCATE and info == 1))


class Unwinder:
    """The registers of one function after the other."""

    def __init__(self, modules: Sequence[Module], stack: Memory, registers: dict[str, int],
                 find: Find) -> None:
        self.modules = sorted(modules, key=lambda module: module.base)
        self.bases = [module.base for module in self.modules]
        self.stack, self.registers, self.find = stack, registers, find
        self.scanned = 0
        self.unknown: set[str] = set()  # registers that a skipped function may have changed

    def run(self) -> list[int]:
        """All return addresses that can be found."""
        frames = [self.registers['rip']]
        while len(frames) < MAX_FRAMES:
            before = self.registers['rsp']
            try:
                self.step(is_first=len(frames) == 1)
            except UnwindFault:
                break
            if self.registers['rsp'] <= before or not self.registers['rip']:
                break
            frames.append(self.registers['rip'])
        return frames

    def step(self, is_first: bool) -> None:
        """Moves the registers to the calling function."""
        address = self.registers['rip']
        module, offset = self.locate(address)
        if not module:
            if not is_first:
                raise UnwindFault
            # A call to where no code is: its return address is the last thing on the stack.
            self.pop_return()
            return
        image = self.find(module)
        if not image:
            self.search_caller()
            return
        # A return address may be the first of the next function.
        function = image.function_at(offset if is_first else offset - 1)
        if not function or not self.undo(image, function, offset if is_first else None):
            self.pop_return()

    def locate(self, address: int) -> tuple[Optional[Module], int]:
        """The module there, and the place in it."""
        index = bisect.bisect_right(self.bases, address) - 1
        if index >= 0 and address - self.bases[index] < self.modules[index].size:
            return self.modules[index], address - self.bases[index]
        return None, 0

    def word(self, address: int) -> int:
        """Eight bytes of the stack."""
        value = self.stack.word(address)
        if value is None:
            raise UnwindFault
        return value

    def pop_return(self) -> None:
        """Returns from a function that has nothing left on the stack."""
        self.registers['rip'] = self.word(self.registers['rsp'])
        self.registers['rsp'] += 8

    def undo(self, image: Image, function: Function, offset: Optional[int]) -> bool:
        """Undoes a function's prolog, as far as it has run at `offset`; all of it when no offset is
        given. True when that has restored the instruction pointer as well."""
        for _ in range(MAX_CHAINED):
            start, _, place = function
            head = image.bytes_at(place, 4)
            if len(head) < 4:
                raise UnwindFault
            count = head[2]
            codes = image.bytes_at(place + 4, 2 * count)
            ran = 255 if offset is None else offset - start
            if self.undo_codes(codes, ran, head[3]):
                return True
            if not head[0] >> 3 & CHAINED:
                return False
            chained = image.bytes_at(place + 4 + 2 * (count + count % 2), 12)
            if len(chained) < 12:
                raise UnwindFault
            start, end, place = struct.unpack('<III', chained)
            function, offset = (start, end, place), None
        raise UnwindFault

    def undo_codes(self, codes: bytes, ran: int, frame: int) -> bool:
        """Undoes those instructions of a prolog that lie in its first `ran` bytes."""
        registers = self.registers
        done = [code for code in decode(codes) if code.after <= ran]
        # What was saved is counted from the fixed frame's end, which the stack pointer may have left
        # if the frame has a register of its own. Few functions let it: without the register it is
        # taken to be there.
        base, register = registers['rsp'], REGISTERS[frame & 15]
        if any(code.operation == SET_FRAME for code in done) and register not in self.unknown:
            base = registers[register] - 16 * (frame >> 4)
        for code in done:
            if code.operation == PUSH:
                self.restore(REGISTERS[code.info], registers['rsp'])
                registers['rsp'] += 8
            elif code.operation == ALLOCATE:
                registers['rsp'] += code.far if code.info else 8 * code.near
            elif code.operation == ALLOCATE_SMALL:
                registers['rsp'] += 8 * code.info + 8
            elif code.operation == SET_FRAME:
                registers['rsp'] = base
            elif code.operation in (SAVE, SAVE_FAR):
                place = 8 * code.near if code.operation == SAVE else code.far
                self.restore(REGISTERS[code.info], base + place)
            elif code.operation == MACHINE_FRAME:
                place = registers['rsp'] + 8 * code.info
                registers['rip'], registers['rsp'] = self.word(place), self.word(place + 24)
                return True
        return False

    def restore(self, register: str, place: int) -> None:
        """Takes back what a prolog has saved."""
        self.registers[register] = self.word(place)
        self.unknown.discard(register)

    def search_caller(self) -> None:
        """The caller of a function whose image is not at hand."""
        place = self.registers['rsp']
        while not self.is_return(self.word(place)):
            place += 8
            self.scanned += 1
            if self.scanned > MAX_SCANNED:
                raise UnwindFault
        self.registers['rip'], self.registers['rsp'] = self.word(place), place + 8
        self.unknown = set(REGISTERS)

    def is_return(self, address: Optional[int]) -> bool:
        """Whether a call in a known image to another image leaves this address."""
        module, offset = self.locate(address) if address else (None, 0)
        image = self.find(module) if module else None
        return image is not None and image.follows_far_call(offset)
