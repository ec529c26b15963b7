#!/usr/bin/env python3
"""The check of the log's lines finds what it is for: each change below makes it fail, with the place.

Usage: loglines_test.py ROOT
"""
import pathlib
import sys
import unittest

import loglines
from cppsource import Source

ROOT = pathlib.Path(sys.argv.pop(1))
SOURCES = loglines.sources_of(ROOT)
DOCUMENT = (ROOT / loglines.DOCUMENT).read_text()
POLL = "control/supervise/statuspoll.cpp"
LOGLINE = "control/task/logline.cpp"


def faults(name="", old="", new="", document=DOCUMENT):
    """What is found when `old` becomes `new` in a file."""
    sources = SOURCES
    if name:
        text = (ROOT / name).read_text()
        assert old in text, old
        changed = Source(name, text.replace(old, new, 1))
        sources = [changed if source.name == name else source for source in SOURCES]
    return loglines.check(sources, document)[0]


def line_of(name, text):
    return (ROOT / name).read_text().split(text)[0].count("\n") + 1


class Check(unittest.TestCase):
    def expect(self, found, *pieces):
        self.assertEqual(len(found), 1, found)
        for piece in pieces:
            self.assertIn(piece, found[0])

    def in_poll(self, statement):
        """A statement more at the beginning of a function."""
        return faults(POLL, "int StatusPoll::svc() {", "int StatusPoll::svc() {" + statement)

    def test_the_tree_is_without_fault(self):
        self.assertEqual(faults(), [])

    def test_a_line_that_is_taken_out_of_the_document(self):
        for pattern in ("cap:\u2026", "EAGAIN ", "Decoder_MJPEG_MPP getq timeout", "mpi_dec start",
                        "display: cannot set the mode: \u2026, \u2026", "     htotal:\u2026 vtotal:\u2026"):
            rows = [row for row in DOCUMENT.splitlines() if not row.startswith(f"| `{pattern}` |")]
            self.assertEqual(len(rows), len(DOCUMENT.splitlines()) - 1, pattern)
            self.expect(faults(document="\n".join(rows)), f"'{pattern}' is not in", "control/")

    def test_a_row_without_its_kind(self):
        self.expect(faults(document=DOCUMENT.replace("| `cap:\u2026` | figures |", "| `cap:\u2026` | fig |")),
                    loglines.DOCUMENT + ":", "unknown kind 'fig'")

    def test_a_line_that_nobody_prints(self):
        row = "| `cap:\u2026` |"
        number = DOCUMENT.split(row)[0].count("\n") + 1
        for stale in ("gap:\u2026", "Decoder_MPEG4 getq timeout", "\u2026 conn_id = \u2026 ---------- lost"):
            self.expect(faults(document=DOCUMENT.replace(row, f"| `{stale}` | state | a | b |\n{row}")),
                        f"{loglines.DOCUMENT}:{number}: '{stale}' is printed nowhere")

    def test_a_new_line(self):
        place = f"{POLL}:{line_of(POLL, 'int StatusPoll::svc() {')}: "
        self.expect(self.in_poll('logOut("round ", 7, " done");'), place, "'round \u2026 done' is not in")
        self.expect(self.in_poll('writeErr("half");'), place, "'half\u2026' is not in")
        self.expect(self.in_poll('mppLog("%p is %-5.2f%%\\n", this, 1.0);'), place,
                    "'\u2026 is \u2026%' is not in")
        self.expect(self.in_poll('logErr(ready ? "yes " "it is" : "cap:", 5);'), place, "'yes it is")

    def test_a_new_text_for_a_function_that_prints(self):
        self.expect(faults("control/display/displaydrmsetup.cpp", '"set the mode"', '"choose the mode"')[:1],
                    "control/display/drmcard.cpp:", "'display: cannot choose the mode: \u2026, \u2026'")

    def test_a_new_piece_of_a_composed_line(self):
        found = faults("control/display/displaydrmsetup.cpp", '" crtc_id = "', '" crtc_no = "')
        self.assertIn("control/display/displaydrmsetup.cpp:", found[0])
        self.assertIn("' crtc_no = \u2026' is in no line of", found[0])

    def test_texts_that_cannot_be_seen(self):
        self.expect(self.in_poll("logOut(statue);"), POLL, "no text to be seen")
        self.expect(self.in_poll("const auto say = [](const auto& text) { logOut(text); };"), POLL,
                    "no text to be seen")
        self.expect(faults(POLL, "namespace {", "#define SAY(text) logOut(text)\nnamespace {"), POLL,
                    "no text to be seen")

    def test_other_ways_to_print(self):
        for statement, word in (('std::cout << "a";', "cout"), ('printf("a");', "printf"),
                                ('perror("a");', "perror"), ('std::cerr << 1;', "cerr"),
                                ('write(2, "a", 1);', "write"), ('auto* f = puts; f("a");', "puts"),
                                ('std::ofstream("/dev/null");', "ofstream"),
                                ('fopen("/dev/stderr", "w");', "/dev/stderr"),
                                ('::system("date");', "system"), ('syslog(1, "a");', "syslog"),
                                ('composeLine("a");', "composeLine")):
            self.expect(self.in_poll(statement), POLL, f"'{word}' stands here 1 times, 0 are known")
        self.expect(faults(LOGLINE, "fflush(stream);", "fflush(stream); fwrite(text.data(), 1, 1, stream);"),
                    LOGLINE, "'fwrite' stands here 2 times, 1 are known")

    def test_a_new_helper(self):
        self.expect(faults(LOGLINE, "void writeOut(", "void writeBoth(std::string_view text) {\n}\n"
                           "void writeOut("), LOGLINE, "'writeBoth' is a new helper")

    def test_a_way_to_print_that_is_gone(self):
        self.expect(faults("control/capture/capturemedia.cpp", "assert(buf.index < n_buffers);", ""),
                    "'assert' is not used in control/capture/capturemedia.cpp any more")

    def test_shell_commands(self):
        self.expect(self.in_poll('runShell("uptime");'), POLL, "the command 'uptime' is not in")
        self.assertTrue(any("'fan:' is no command's line" in fault
                            for fault in self.in_poll('runShell("echo fan: ");')))
        self.expect(faults(document=DOCUMENT.replace("| `sync` |", "| `sync` | a |\n| `date` |")),
                    "the command 'date' is run nowhere")


if __name__ == "__main__":
    unittest.main()
