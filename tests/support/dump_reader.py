"""An independent reader of memory dumps: lldb."""
import re
import subprocess


def failing_thread(dump, seconds):
    """The identifier of a dump's failing thread, the exception's code, and its address; lldb's whole
    answer when that is not to be found in it."""
    text = subprocess.run(
        ['lldb', '--no-lldbinit', '--batch', '--core', dump, '--one-line', 'thread list'],
        stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False,
        timeout=seconds).stdout
    found = re.search(r'^\* thread .*: tid = (\w+), .*'
                      r'stop reason = Exception (\w+) encountered at address (\w+)', text, re.M)
    return [int(word, 16) for word in found.groups()] if found else text
