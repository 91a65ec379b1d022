#!/usr/bin/env python3
"""Tests of check_layers.py: a tree that holds, and one with each kind of violation."""
import pathlib
import tempfile
import unittest

from check_layers import violations


class CheckLayersTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.tree = pathlib.Path(directory.name)
        for header in ("include/Api.h", "platform/vqio/Board.h", "src/can/Codec.h", "host/wire/Wire.h",
                       "host/capture/Log.h", "tests/support/Fake.h"):
            self.add(header, "")

    def add(self, name, text):
        file = self.tree / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def found(self, name, text):
        self.add(name, text)
        return list(violations(self.tree))

    def test_everything_downwards_holds(self):
        self.add("src/can/A.cpp", '#include "Codec.h"\n#include <can/Codec.h>\n#include <Api.h>\n'
                                  "#include <vqio/Board.h>\n#include <vector>\n#include <sys/select.h>\n")
        self.add("host/wire/A.cpp", "#include <wire/Wire.h>\n#include <vqio/Board.h>\n#include <libmnl/libmnl.h>\n")
        self.add("examples/raw_can/A.cpp", '#include "Own.h"\n#include <Api.h>\n#include <capture/Log.h>\n')
        self.add("examples/raw_can/Own.h", "")
        self.assertEqual(list(violations(self.tree)), [])

    def test_library_includes_host(self):
        self.assertEqual(self.found("src/can/A.cpp", "#include <wire/Wire.h>\n"),
                         ["src/can/A.cpp:1: wire/Wire.h is not below src/"])

    def test_host_includes_library_or_public_header(self):
        self.assertEqual(self.found("host/wire/A.cpp", "#include <can/Codec.h>\n#include <Api.h>\n"),
                         ["host/wire/A.cpp:1: can/Codec.h is not below host/", "host/wire/A.cpp:2: Api.h is not below host/"])

    def test_example_includes_more_than_an_application_may(self):
        self.assertEqual(self.found("examples/ten_lines/A.cpp", "#include <capture/Log.h>\n"),
                         ["examples/ten_lines/A.cpp:1: capture/Log.h is not below examples/"])

    def test_public_header_includes_internal_one(self):
        self.assertEqual(self.found("include/B.h", "#include <can/Codec.h>\n"),
                         ["include/B.h:1: can/Codec.h is not below include/"])

    def test_library_includes_test_helper(self):
        self.assertEqual(self.found("src/can/A.cpp", "#include <support/Fake.h>\n"),
                         ["src/can/A.cpp:1: support/Fake.h is not below src/"])

    def test_library_needs_another_library(self):
        self.assertEqual(self.found("src/can/A.cpp", "#include <libmnl/libmnl.h>\n"),
                         ["src/can/A.cpp:1: libmnl/libmnl.h is neither standard library nor POSIX"])

    def test_path_upwards(self):
        self.assertEqual(self.found("src/can/A.cpp", '#include "../../host/wire/Wire.h"\n'),
                         ["src/can/A.cpp:1: a path upwards: ../../host/wire/Wire.h"])

    def test_condition_about_the_host(self):
        self.assertEqual(self.found("src/can/A.cpp", "#ifdef VQ_HOST\n#endif\n"),
                         ["src/can/A.cpp:1: a condition about the host"])


if __name__ == "__main__":
    unittest.main()
