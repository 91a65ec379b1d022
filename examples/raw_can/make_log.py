#!/usr/bin/env python3
"""Writes a candump log of the shape that a vehicle has: several buses, periodic messages with jitter, standard,
extended and CAN FD frames, now and then a remote or an error frame. The same arguments give the same log.
"""
import argparse
import heapq
import random
import sys

FD_LENGTHS = (12, 16, 20, 24, 32, 48, 64)
START_US = 1_700_000_000_000_000


class Message:
    """One periodic message: identifier, length and what its bytes do."""

    def __init__(self, dice, interface, extended, fd, taken):
        self.interface = interface
        self.fd = fd
        bits = 29 if extended else 11
        identifier = dice.randrange(0x10, 1 << bits)
        while (identifier, extended) in taken:
            identifier = dice.randrange(0x10, 1 << bits)
        taken.add((identifier, extended))
        self.name = f"{identifier:08X}" if extended else f"{identifier:03X}"
        self.length = dice.choice(FD_LENGTHS) if fd else dice.choice((2, 4, 6, 7, 8, 8, 8))
        self.period_us = 1000 * dice.choice((5, 10, 10, 20, 20, 50, 100, 200, 1000))
        self.signal = dice.randrange(0x10000)
        self.counter = 0

    def next_payload(self, dice):
        """A slow signal, a rolling counter, a checksum: what control units send."""
        self.signal = (self.signal + dice.randrange(-40, 41)) % 0x10000
        self.counter = (self.counter + 1) % 16
        payload = bytearray(self.length)
        payload[:2] = self.signal.to_bytes(2, "big")
        if self.length > 2:
            payload[2] = self.counter
        payload[-1] = sum(payload[:-1]) & 0xFF if self.length > 3 else payload[-1]
        return payload.hex().upper()

    def next_field(self, dice):
        mark = f"##{dice.choice((0, 1))}" if self.fd else "#"
        return f"{self.name}{mark}{self.next_payload(dice)}"


def buses(dice, interfaces):
    """The messages of every bus: the first carries standard, the second standard and extended frames, the third
    adds CAN FD; further ones repeat that."""
    messages = []
    for number in range(interfaces):
        taken = set()
        for index in range(dice.randrange(18, 30)):
            extended = number % 3 > 0 and index % 3 == 1
            fd = number % 3 == 2 and index % 2 == 0
            messages.append(Message(dice, f"can{number}", extended, fd, taken))
    return messages


def write_log(out, frames, interfaces, seed):
    dice = random.Random(seed)
    messages = buses(dice, interfaces)
    due = [(dice.randrange(message.period_us), index) for index, message in enumerate(messages)]
    heapq.heapify(due)
    for number in range(frames):
        time_us, index = heapq.heappop(due)
        message = messages[index]
        field = message.next_field(dice)
        if number % 4999 == 2500:
            field = f"{message.name}#R"
        elif number % 4999 == 4000:
            field = "20000004#0008000000000000"
        stamp = START_US + time_us
        out.write(f"({stamp // 1_000_000}.{stamp % 1_000_000:06d}) {message.interface} {field}\n")
        jitter = dice.randrange(-message.period_us // 50, message.period_us // 50 + 1)
        heapq.heappush(due, (time_us + message.period_us + jitter, index))


def count(least):
    def convert(text):
        value = int(text)
        if value < least:
            raise argparse.ArgumentTypeError(f"has to be at least {least}")
        return value

    return convert


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--frames", type=count(0), default=20000, help="lines of the log (default %(default)s)")
    parser.add_argument("--interfaces", type=count(1), default=4, help="interfaces can0, can1, … (default %(default)s)")
    parser.add_argument("--seed", type=int, default=1, help="another number, another log (default %(default)s)")
    arguments = parser.parse_args()
    write_log(sys.stdout, arguments.frames, arguments.interfaces, arguments.seed)


if __name__ == "__main__":
    main()
