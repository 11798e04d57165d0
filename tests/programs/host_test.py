"""The example host, whose records go through the DLL and over real sockets to the collector.

usage: host_test.py RUNNER HOST COLLECTOR
RUNNER runs the programs.
"""

import subprocess
import sys
import unittest

import collector_test

HOST: list[str] = []
TEXTS = [
    ("save", None, "the saved game cannot be written"),
    ("disk", '{"free": 0}', "no space left"),
    ("render", None, "the device was removed"),
    ("net", '{"attempt": 3}', "connection lost"),
    ("chat/été", "中文, 😀", "José entered the 城 (100% of them)"),
    ("session", "", "a player has signed in"),
    ("frame", '{"ms": 41}', "slow frame"),
    ("ai", None, "path found in 12 steps"),
]


def run_host(*arguments):
    return subprocess.run([*HOST, *map(str, arguments)], capture_output=True, text=True,
                          timeout=collector_test.PATIENCE)


class HostTest(unittest.TestCase):
    maxDiff = None

    def test_everything_arrives(self):
        logs = [("log", level, *texts) for level, texts in enumerate(TEXTS)]
        expected = {
            "tcp": [*logs, ("log", 6, "exit", None, "goodbye"),
                    ("file", 5, "customfile", None, "settings at the time of the failure"),
                    ("luadump", 0, "LuaDump", None, "attempt to index a nil value")],
            "udp": [*logs, ("log", 6, "exit", "0", "goodbye")]}
        with collector_test.Collector() as collector:
            ended = run_host("127.0.0.1", collector.tcp_port)
            self.assertEqual((ended.returncode, ended.stderr), (0, ""), ended.stdout)
            self.assertNotIn("FAILED", ended.stdout)
            lines = [collector.line() for _ in range(sum(map(len, expected.values())))]
        for transport, records in expected.items():
            self.assertEqual([(line["kind"], line["level"], line["log_type"],
                               line.get("extra_data"), line["message"])
                              for line in lines if line["transport"] == transport], records)
        by_kind = {line["kind"]: line for line in lines}
        dump, file = by_kind.pop("luadump"), by_kind["file"]
        for line in by_kind.values():
            self.assertEqual((line["user_id"], line["software_id"], line["software_version"]),
                             ("Kim Lé / 李", "tavu-host", "1.0.3"))
        self.assertEqual((file["description"], file["content_file"]["size"]), ("settings.ini", 35))
        self.assertEqual([dump[key] for key in ("software_id", "software_version", "dump_number",
                                                "user_id", "extra", "dump")],
                         ["1001", "103", 1, "kim lee", "quest 12",
                          "stack traceback:\n\tquest.lua:7: in function 'höre'\n"])

    def test_failures_are_told(self):
        with collector_test.Collector("--fault", "7:no") as collector:
            ended = run_host("127.0.0.1", collector.tcp_port)
        self.assertEqual(ended.returncode, 1)
        self.assertRegex(ended.stdout, r"log of level 0 over TCP +FAILED, error 106\n")
        self.assertRegex(ended.stdout, r"log of level 0 over UDP +ok\n")
        self.assertRegex(ended.stdout, r"a file +FAILED, error 106\n")
        for arguments in ([], ["127.0.0.1"], ["127.0.0.1", "0"], ["127.0.0.1", "70000"],
                          ["127.0.0.1", "7x"]):
            self.assertEqual(run_host(*arguments).returncode, 2, arguments)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    runner, host, collector_program = sys.argv[1:]
    HOST.extend([runner, host])
    collector_test.COMMAND.extend([runner, collector_program])
    unittest.main(argv=sys.argv[:1])
