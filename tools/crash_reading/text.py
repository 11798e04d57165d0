"""What may go to a terminal."""


def printable(text: str) -> str:
    """The text as one line without effects: control characters, those that change the direction of
    text, and bytes that were no UTF-8 become escapes."""
    if text.isprintable():
        return text
    return ''.join(c if c.isprintable() else c.encode('unicode_escape').decode() for c in text)
