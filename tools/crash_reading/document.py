"""The crash document."""
import html
import re
from typing import Optional

from crash_reading.modules import MAX_MODULES, Module

MAX_BYTES = 16 << 20    # the library's documents have some 100 kB
MAX_FUNCTIONS = 20      # the library writes no more of a call stack
MAX_NUMBER = 1 << 64

_ELEMENT = re.compile(r'\t*<(\w+)((?: \w+="[^"]*")+)>')
_ATTRIBUTE = re.compile(r' (\w+)="([^"]*)"')


def number(text: Optional[str]) -> int:
    """An attribute's number; 0 for one that is missing, malformed or above 64 bits."""
    try:
        value = int(text or '', 0)
    except ValueError:
        return 0
    return value if 0 <= value < MAX_NUMBER else 0


class Document:
    """What a crash document says. Not an XML parser's work: the host's own text and a few more
    values stand in it unescaped, so that the document may be malformed; but each element is a line
    of its own."""

    def __init__(self, text: str) -> None:
        self.custom: Optional[str] = None       # the host's own text
        self.exception: dict[str, str] = {}     # attributes
        self.windows: dict[str, str] = {}       # attributes
        self.modules: list[Module] = []
        self.stack: list[int] = []              # addresses, innermost first
        start, end = text.find('<custom_info>'), text.rfind('</custom_info>')
        if 0 <= start < end:
            self.custom = text[start + len('<custom_info>'):end]
            text = text[:start] + text[end:]
        for line in text.split('\n'):
            if match := _ELEMENT.match(line):
                self._add(match[1], match[2])

    @classmethod
    def read(cls, path: str) -> 'Document':
        """The document in a file. ValueError for one that is far too large."""
        with open(path, 'rb') as file:
            data = file.read(MAX_BYTES + 1)
        if len(data) > MAX_BYTES:
            raise ValueError(f'a document above {MAX_BYTES >> 20} MiB')
        return cls(data.decode('utf-8', 'replace'))

    def _add(self, element: str, attributes: str) -> None:
        if element not in ('exception', 'windows', 'module', 'function'):
            return
        values = {key: html.unescape(value) for key, value in _ATTRIBUTE.findall(attributes)}
        if element == 'exception':
            self.exception = self.exception or values
        elif element == 'windows':
            self.windows = self.windows or values
        elif element == 'module' and 'name' in values and len(self.modules) < MAX_MODULES:
            self.modules.append(Module.at(values['name'], number(values.get('base_addr')),
                                          number(values.get('base_size')),
                                          version=values.get('file_ver', '')))
        elif element == 'function' and 'addr' in values and len(self.stack) < MAX_FUNCTIONS:
            self.stack.append(number(values['addr']))
