#!/usr/bin/env python3
"""Applications meet on the process bus of a bench."""

from bench import BUS, LIMIT_S, Bench, main


class ProcessBusTest(Bench):
    def answerer(self):
        self.environment["VQPBUS_NAME"] = "Answerer"
        child = self.start(BUS, "answer")
        self.await_line(child, "connected to the process bus")
        self.environment["VQPBUS_NAME"] = "Asker"
        return child

    def ask(self, text):
        child = self.start(BUS, "ask", "Answerer", text)
        out, err = child.communicate(timeout=LIMIT_S)
        self.assertEqual(child.returncode, 0, err)
        return out

    def test_two_programs_exchange_messages(self):
        self.serve()
        self.answerer()
        self.assertEqual(self.ask("hello"), "Answerer says hello\n")

    def test_program_comes_back_after_the_virtual_logger_was_killed_and_started_again(self):
        logger = self.serve()
        answerer = self.answerer()
        logger.kill()
        logger.wait()
        self.serve()
        self.await_line(answerer, "connected to the process bus again")
        self.assertEqual(self.ask("hello"), "Answerer says hello\n")

    def test_killed_program_leaves_its_name_to_the_next_one(self):
        self.serve()
        self.answerer().kill()
        self.answerer()
        self.assertEqual(self.ask("hello"), "Answerer says hello\n")


if __name__ == "__main__":
    main()
