#!/usr/bin/env python3
"""Several applications and a tool on one bench, a million frames."""

import os

from bench import LIMIT_S, VLOGGER, Bench, main

FRAMES = int(os.environ.get("BUSINTERFACES_FRAMES", "1000000"))


class MillionTest(Bench):
    def test_three_applications_and_dump_lose_nothing(self):
        self.serve()
        receivers = [self.receiver(1, 0x123, FRAMES) for _ in range(2)]
        dump = self.start(VLOGGER, "dump", "-L", "-n", str(FRAMES), "can1,123:7FF")
        while not self.stages("monitor"):
            pass
        sender = self.sender(0, 0x123, FRAMES)
        count = 0
        for line in dump.stdout:
            if not line.endswith(f"#{count & 0xFFFF:04X}\n"):
                self.fail(f"frame {count}: {line}")
            count += 1
        self.assertEqual(count, FRAMES)
        for child in (sender, *receivers):
            child.communicate(timeout=LIMIT_S)
            self.assertEqual(child.returncode, 0)


if __name__ == "__main__":
    main()
