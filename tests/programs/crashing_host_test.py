"""What the crash handler sees of the ends that a runtime gives its process, as docs/crashes.md tables
them. The ways of real exceptions are the crash handler's own tests.

    crashing_host_test.py WINE tavu_crashing_host.exe
"""
import os
import sys
import tempfile
import unittest

import crashing_host

WINE, HOST = sys.argv[1:3]
SECONDS = 240  # for one crash on a busy machine

# Exit status under Wine: 1 is the host's own word for "survived"; that of a thread which Wine aborts
# varies.
UNSEEN = {'throw': 3, 'abort': 3, 'purecall': 3, 'fastfail': 9, 'invalid-parameter': 1, 'heap': 1,
          'stack': None}
SEEN_WITH_HANDLERS = ('throw', 'abort', 'purecall')


class Run:
    """A host on its way, with folders of its own."""

    def __init__(self, way, *options):
        self.folder = tempfile.TemporaryDirectory(prefix='host')
        self.process = crashing_host.start(WINE, HOST, way, self.folder.name, *options)

    def wait(self):
        """(exit status, endings of the files that were left)"""
        status = self.process.wait(SECONDS)
        left = sorted(name.rsplit('_', 1)[1] for name in os.listdir(self.folder.name)
                      if name.startswith('tavu_crashing_host_'))
        self.folder.cleanup()
        return status, left


class RuntimeEnds(unittest.TestCase):
    def test_what_no_handler_sees(self):
        for way, status in UNSEEN.items():
            with self.subTest(way):
                seen_status, left = Run(way).wait()
                self.assertEqual(left, [])
                if status is not None:
                    self.assertEqual(seen_status, status)

    def test_what_handlers_turn_into_exceptions(self):
        runs = {way: Run(way, '--handlers') for way in SEEN_WITH_HANDLERS}
        for way, run in runs.items():
            with self.subTest(way):
                self.assertEqual(run.wait(), (0xE0000002 & 0xFF, ['Crash.dmp', 'CrashInfo.xml']))


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
