#!/usr/bin/env python3
"""Several applications and a tool on one bench, a million frames."""

import os

from bench import LIMIT_S, VLOGGER, Bench, main

FRAMES = int(os.environ.get("BUSINTERFACES_FRAMES", "1000000"))


class MillionTest(Bench):
    def test_three_applications_and_dump_lose_nothing(self):
        self.serve()
        receivers = [self.receiver(1, 0x123, FRAMES) for _ in range(2)]
        dump = self.start(VLOGGER, "dump", "-L", "-n", str(2 * FRAMES))  # as sent on can0, and as received on can1
        while not self.stages("monitor"):
            pass
        sender = self.sender(0, 0x123, FRAMES)
        count = 0
        for line in dump.stdout:
            if not line.endswith(f" can{count % 2} 123#{count // 2 & 0xFFFF:04X}\n"):
                self.fail(f"record {count}: {line}")
            count += 1
        self.assertEqual(count, 2 * FRAMES)
        for child in (sender, *receivers):
            child.communicate(timeout=LIMIT_S)
            self.assertEqual(child.returncode, 0)


if __name__ == "__main__":
    main()
