"""Reads what a crash leaves: the library's document, the memory dump, and the symbols to both.

The files come from machines of strangers, by a server that takes bytes from anybody. So every
reader here bounds what a file can make it keep or do, and raises ValueError, with one line of
reason, for a file that is broken or not what it should be. What a file says may hold any character:
print it through text.printable().
"""
