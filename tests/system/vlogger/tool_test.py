#!/usr/bin/env python3
"""The commands dump, send and stat."""

from bench import LIMIT_S, VLOGGER, Bench, main


class ToolTest(Bench):
    def test_dump_shows_what_is_sent(self):
        self.serve()
        dump = self.start(VLOGGER, "dump", "-x", "-n", "5", "can0", "any,7E0:7F0")
        while not self.stages("monitor"):
            pass
        self.run_tool("send", "can0", "123#DEADBEEF", "1F334455#11.22", "123##1AB")
        self.run_tool("send", "can9", "123#00", "7E8#00")
        out, _ = dump.communicate(timeout=LIMIT_S)
        self.assertEqual(out, "  can0  RX  123   [4]  DE AD BE EF\n"
                              "  can0  RX  1F334455   [2]  11 22\n"
                              "  can0  RX  123  [01]  AB\n"
                              "  can8  RX  7E8   [1]  00\n"
                              "  can9  RX  7E8   [1]  00\n")
        self.assertEqual(dump.returncode, 0)

    def test_stat_counts_every_stage(self):
        self.serve()
        self.run_tool("send", "can0", "123#00")
        self.assertEqual(self.stages("bus"), [{"stage": "bus", "name": "can0 can1", "in": 1, "out": 2, "waiting": 0,
                                               "dropped": 0}])
        watched = self.run_tool("stat", "--watch", "--every", "0.05", "-n", "2").stdout
        self.assertEqual(watched.count("stage         name"), 2)
        self.assertNotIn("\033", watched)

    def test_wrong_usage_is_told_from_failure(self):
        self.serve()
        self.run_tool("send", "can0", "123", code=2)
        self.run_tool("send", "canx", "123#", code=2)
        self.run_tool("dump", "can0,x", code=2)
        self.run_tool("nonsense", code=2)
        self.run_tool("--socket", self.path("none"), "stat", code=1)
        self.run_tool("--help")
        self.assertEqual(self.run_tool("--version").stdout.split()[0], "vlogger")


if __name__ == "__main__":
    main()
