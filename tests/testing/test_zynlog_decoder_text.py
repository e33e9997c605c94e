"""Tests of what the decoder makes of packets, and of its command line."""

from __future__ import annotations

import os
import struct
import subprocess
import sys
import tempfile
import unittest

import zynlog_decoder
from zynlog_decoder import export_files, fit_column, message_text
from zynlog_vectors import (
    BARE, COLUMNS, HEADER, NO_MORE_FILES, TOO_SMALL, Case, block, clock,
    control, record, text,
)


class Numbers(Case):
    def numbers(self, packets: str) -> bytes:
        line = self.lines_of(bytes.fromhex(packets))
        return line[len("01/01/1970 00:00:00.000"):-1]

    def test_process_and_thread(self) -> None:
        self.assertEqual(
            self.numbers("24 0400 07000000 24 0300 d2040000"),
            b"    7      1234",
        )

    def test_largest_numbers_are_written_whole(self) -> None:
        self.assertEqual(
            self.numbers("24 0400 ffffffff 24 0300 ffffffff"),
            b"42949672954294967295",
        )

    def test_the_last_wins(self) -> None:
        self.assertEqual(
            self.numbers("24 0400 07000000 24 0400 08000000"),
            b"    8         0",
        )

    def test_value_flag_drops_the_value(self) -> None:
        self.assertEqual(
            self.numbers("34 0400 07000000 34 0300 07000000"),
            b"    0         0",
        )

    def test_unused_bits_do_not_matter(self) -> None:
        self.assertEqual(
            self.numbers("e4 0400 07000000 a4 0300 07000000"),
            b"    7         7",
        )

    def test_other_ids_and_types_are_dropped(self) -> None:
        self.assertEqual(
            self.numbers(
                "04 07000000 24 0200 07000000 24 0403 07000000"
                "21 0400 07 22 0400 07 23 0400 0700 25 0400 0700000000000000"
                "20 0400 26 0300 27 0300"
                "2a 0400 04000000 07000000 28 0400 04000000 07000000"
                "2b 0300 04000000 07000000 2f 0300 00000000"
            ),
            b"    0         0",
        )


class Times(Case):
    def time(self, *payloads: bytes, tz: str = "UTC") -> bytes:
        data = b"".join(map(clock, payloads))
        lines, error = self.export(block(record(1, data)), tz=tz)
        self.assertIsNone(error)
        self.assertEqual(lines[-16:], b"    0         0\n")
        return lines[:-16]

    def test_seconds_are_unsigned(self) -> None:
        self.assertEqual(
            self.time(bytes.fromhex("00000080 00000000 00000000")),
            b"01/19/2038 03:14:08.000",
        )
        self.assertEqual(
            self.time(bytes.fromhex("ffffffff e7030000 00000000")),
            b"02/07/2106 06:28:15.999",
        )

    def test_milliseconds_are_16_bits_written_whole(self) -> None:
        self.assertEqual(
            self.time(bytes.fromhex("00000000 e8030100 00000000")),
            b"01/01/1970 00:00:00.1000",
        )
        self.assertEqual(
            self.time(bytes.fromhex("00000000 ffffffff ffffffff")),
            b"01/01/1970 00:00:00.65535",
        )

    def test_missing_bytes_are_0_and_extra_bytes_ignored(self) -> None:
        full = bytes.fromhex("3d020302 050604ff ffffffff ff")
        # 0x3d = 61, 0x023d = 573, 0x03023d = 197181, 0x0203023d = 33751613.
        for size, shown in (
            (0, b"01/01/1970 00:00:00.000"),
            (1, b"01/01/1970 00:01:01.000"),
            (2, b"01/01/1970 00:09:33.000"),
            (3, b"01/03/1970 06:46:21.000"),
            (4, b"01/26/1971 15:26:53.000"),
            (5, b"01/26/1971 15:26:53.005"),
            (6, b"01/26/1971 15:26:53.1541"),
            (8, b"01/26/1971 15:26:53.1541"),
            (13, b"01/26/1971 15:26:53.1541"),
        ):
            self.assertEqual(self.time(full[:size]), shown)

    def test_a_short_time_replaces_an_earlier_one_whole(self) -> None:
        self.assertEqual(
            self.time(struct.pack("<III", 61, 5, 0), b"\x02"),
            b"01/01/1970 00:00:02.000",
        )

    def test_local_zone(self) -> None:
        berlin = "CET-1CEST,M3.5.0,M10.5.0/3"
        for seconds, shown in (
            (1711846799, b"03/31/2024 01:59:59.000"),
            (1711846800, b"03/31/2024 03:00:00.000"),
            (1729990800, b"10/27/2024 02:00:00.000"),
            (4294967295, b"02/07/2106 07:28:15.000"),
        ):
            payload = struct.pack("<III", seconds, 0, 0)
            self.assertEqual(self.time(payload, tz=berlin), shown)
        self.assertEqual(
            self.time(bytes(12), tz="NST3:30"), b"12/31/1969 20:30:00.000"
        )

    def test_zone_of_the_process_is_put_back(self) -> None:
        before = os.environ.get("TZ")
        self.time(bytes(12), tz="NST3:30")
        self.assertEqual(os.environ.get("TZ"), before)

    def test_other_ids_are_no_time(self) -> None:
        packet = bytes.fromhex("2a 0300 04000000 ffffffff")
        self.assertEqual(self.lines_of(packet), BARE + b"\n")


class Control(Case):
    def test_texts(self) -> None:
        for code, shown in (
            (1, b"Client attached"),
            (2, b"Client detached"),
            (3, b"Pauseed tracing"),
            (4, b"Resumeed tracing"),
            (5, b"Reloaded configuration"),
            (6, b"Turned on preservation"),
            (7, b"Turned off preservation"),
            (0, b"Unknown control message:0"),
            (8, b"Unknown control message:8"),
            (9, b"Unknown control message:9"),
            (0xFFFFFFFF, b"Unknown control message:4294967295"),
        ):
            self.assertEqual(
                self.message_of(control(struct.pack("<II", code, 42))),
                b"[Control message from process 42]:" + shown + b" ",
            )

    def test_missing_bytes_are_0_and_extra_bytes_ignored(self) -> None:
        full = bytes.fromhex("01000000 03010203 ff")
        for size, shown in (
            (0, b"[Control message from process 0]:"
                b"Unknown control message:0 "),
            (1, b"[Control message from process 0]:Client attached "),
            (5, b"[Control message from process 3]:Client attached "),
            (6, b"[Control message from process 259]:Client attached "),
            (9, b"[Control message from process 50462979]:Client attached "),
        ):
            self.assertEqual(self.message_of(control(full[:size])), shown)

    def test_messages_append(self) -> None:
        order = control(bytes.fromhex("03000000 01000000"))
        self.assertEqual(
            self.message_of(text(b"a"), order, text(b"b"), order),
            b"a[Control message from process 1]:Pauseed tracing "
            b"b[Control message from process 1]:Pauseed tracing ",
        )

    def test_cut_at_the_limit_of_the_message(self) -> None:
        order = control(bytes.fromhex("03000000 01000000"))
        log = HEADER + block(record(1, text(b"x" * 2000) + order))
        line = export_files([log], tz="UTC")[0][128:]
        self.assertEqual(line, BARE + b"x" * 2000 + b"[Control m")


class Strings(Case):
    def test_ids(self) -> None:
        self.assertEqual(
            self.lines_of(
                text(b"other", 1), text(b"L", 34), text(b"C", 33),
                text(b"M", 32), text(b"other", 35), text(b"other", 0x2000),
                separator=b"|",
            ),
            b"01/01/1970 00:00:00.000|    0|         0|M|C|L|\n",
        )

    def test_string_without_id_is_a_message(self) -> None:
        self.assertEqual(
            self.message_of(bytes.fromhex("09 02000000 6869")), b"hi"
        )

    def test_value_flag_and_unused_bits_do_not_matter(self) -> None:
        self.assertEqual(
            self.message_of(bytes.fromhex("d9 02000000 6869")), b"hi"
        )

    def test_names_keep_50_characters_and_the_last_wins(self) -> None:
        for size in (49, 50, 51, 60):
            name = bytes(range(65, 65 + size))
            self.assertEqual(
                self.message_of(text(b"first", 32), text(name, 32)), name[:50]
            )
        self.assertEqual(self.message_of(text(b"M", 32), text(b"", 32)), b"")

    def test_any_byte_is_kept(self) -> None:
        value = bytes(set(range(256)) - {10})
        self.assertEqual(self.message_of(text(value)), value)
        self.assertEqual(
            self.message_of(text(b"a\0\n", 32), text(b"\n\0", 33)),
            b"a\0\n\n\0",
        )

    def test_line_feeds(self) -> None:
        prefix = b"\n" + b" " * 79
        for value, shown in (
            (b"", b""),
            (b"a", b"a"),
            (b"\n", b""),
            (b"a\n", b"a"),
            (b"a\nb", b"a"),
            (b"\nb", b""),
            (b"a\nb\n", b"a" + prefix + b"b"),
            (b"a\nb\nc", b"a" + prefix + b"b"),
            (b"\n\n", prefix),
            (b"a\n\nb\n", b"a" + prefix + prefix + b"b"),
            (b"a\r\nb\r\n", b"a\r" + prefix + b"b\r"),
        ):
            self.assertEqual(message_text(value), shown)
            self.assertEqual(self.message_of(text(value)), shown)

    def test_each_message_has_its_own_line_feeds(self) -> None:
        self.assertEqual(
            self.message_of(text(b"a\nlost"), text(b"b"), text(b"c\n")),
            b"abc",
        )

    def test_line_feeds_are_treated_before_the_text_is_cut(self) -> None:
        # The last line feed lies beyond the limit, yet it saves the text.
        value = b"a\n" + b"b" * 3000 + b"\n"
        shown = (b"a\n" + b" " * 79 + b"b" * 3000)[:2048]
        log = HEADER + block(record(1, text(value)))
        self.assertEqual(
            export_files([log], tz="UTC")[0][128:], (BARE + shown)[:2048]
        )

    def test_a_million_line_feeds(self) -> None:
        log = HEADER + block(record(1, text(b"\n" * 1000000)))
        line = export_files([log], tz="UTC")[0][128:]
        self.assertEqual(
            line, (BARE + (b"\n" + b" " * 79) * 26)[:2048]
        )

    def test_message_keeps_2048_characters(self) -> None:
        decoded = zynlog_decoder.decode_record(
            text(b"x" * 2040) + text(b"y" * 9) + text(b"z")
        )
        self.assertEqual(decoded.message, b"x" * 2040 + b"y" * 8)


class Lines(Case):
    def test_line_feed_only_while_the_buffer_is_not_full(self) -> None:
        for size, end in ((2008, b"x\n"), (2009, b"x\n"), (2010, b"xx"),
                          (2011, b"xx"), (2048, b"xx"), (5000, b"xx")):
            line = self.lines_of(text(b"x" * size))
            self.assertEqual(len(line), min(38 + size + 1, 2048))
            self.assertEqual(line[-2:], end)

    def test_line_after_a_full_one_follows_directly(self) -> None:
        lines, _ = self.export(
            block(record(1, text(b"x" * 2010)) + record(2, text(b"y")))
        )
        self.assertEqual(lines, BARE + b"x" * 2010 + BARE + b"y\n")

    def test_separator_keeps_50_characters(self) -> None:
        separator = b"<" + b"=" * 59
        kept = separator[:50]
        self.assertEqual(
            self.lines_of(text(b"t"), separator=separator),
            kept.join([BARE[:23], b"    0", b"         0", b"", b"", b"",
                       b"t\n"]),
        )

    def test_separator_that_begins_with_a_blank_means_columns(self) -> None:
        self.assertEqual(
            self.lines_of(text(b"M", 32), separator=b" | "),
            b"01/01/1970 00:00:00.000 |     0 |          0 | "
            b"M            |            |              | \n",
        )

    def test_other_separators_do_not_mean_columns(self) -> None:
        self.assertEqual(
            self.lines_of(text(b"M", 32), separator=b"\t "),
            b"01/01/1970 00:00:00.000\t     0\t          0\t M\t \t \t \n",
        )

    def test_long_names_are_dotted_out_in_columns(self) -> None:
        name = b"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123"
        self.assertEqual(
            self.lines_of(
                text(name, 32), text(name, 33), text(b"0123456789ab", 34),
                text(b"t"), separator=b" ",
            ),
            b"01/01/1970 00:00:00.000     0          0 "
            b"ABCDEFGH..wx ABCDEF..wx 0123456789ab t\n",
        )

    def test_fitting(self) -> None:
        for value, width, shown in (
            (b"", 10, b"          "),
            (b"a", 10, b"a         "),
            (b"abcdefg", 10, b"abcdefg   "),
            (b"abcdefghij", 10, b"abcdefghij"),
            (b"abcdefghijk", 10, b"abcdef..jk"),
            (b"abcdefghijklmnopqrst", 10, b"abcdef..st"),
            (b"abcdefghijklm", 12, b"abcdefgh..lm"),
            (b"abcdef", 5, b"a..ef"),
            (b"abc", 2, b"ac"),
            (b"ab", 1, b"b"),
            (b" ", 36, b" " * 36),
        ):
            self.assertEqual(fit_column(value, width), shown)


class Shell(Case):
    def run_decoder(
        self, *arguments: str | bytes
    ) -> subprocess.CompletedProcess[bytes]:
        return subprocess.run(
            [sys.executable, zynlog_decoder.__file__, *arguments],
            capture_output=True,
            check=False,
            env={**os.environ, "TZ": "UTC"},
        )

    def setUp(self) -> None:
        home = tempfile.TemporaryDirectory()
        self.addCleanup(home.cleanup)
        self.path = os.path.join(home.name, "input")

    def write(self, content: bytes) -> None:
        with open(self.path, "wb") as file:
            file.write(content)

    def test_text_and_default_time(self) -> None:
        self.write(HEADER + block(record(1, text(b"x", 32))))
        run = self.run_decoder("-l", "|", "--default-time", "86400.5",
                               self.path)
        self.assertEqual(run.returncode, 2)
        run = self.run_decoder("-l", "|", "--default-time", "86400.500",
                               self.path)
        self.assertEqual(run.stderr, b"")
        self.assertEqual(run.returncode, 0)
        self.assertEqual(
            run.stdout,
            COLUMNS + b"01/02/1970 00:00:00.500|    0|         0|x|||\n",
        )

    def test_empty_separator_is_a_blank_and_bytes_pass(self) -> None:
        self.write(HEADER + block(record(1, clock(b""))))
        self.assertEqual(
            self.run_decoder("-l", "", self.path).stdout,
            COLUMNS + b"01/01/1970 00:00:00.000     0          0 "
            + b" " * 37 + b"\n",
        )
        self.assertIn(
            b".000\xff    0\xff",
            self.run_decoder("-l", b"\xff", self.path).stdout,
        )

    def test_failure(self) -> None:
        self.write(HEADER + block(record(1, clock(b"")))[:-1])
        run = self.run_decoder(self.path)
        self.assertEqual(run.stdout, COLUMNS)
        self.assertEqual(run.stderr, NO_MORE_FILES.encode() + b"\n")
        self.assertEqual(run.returncode, 1)

    def test_batch(self) -> None:
        sound = HEADER + block(record(1, b""))
        cases: list[list[bytes]]
        cases = [[sound[:280], sound[:256] + sound[280:]], [], [b"x"],
                 [sound[:-1]]]
        content = struct.pack("<I", len(cases))
        for files in cases:
            content += struct.pack("<I", len(files))
            for file in files:
                content += struct.pack("<I", len(file)) + file
        expected = b""
        for shown, error in (
            (COLUMNS + BARE + b"\n", "-"),
            (COLUMNS, "-"),
            (b"", TOO_SMALL),
            (COLUMNS, NO_MORE_FILES),
        ):
            expected += f"{shown.hex()} {error}\n".encode()
        self.write(content)
        run = self.run_decoder("--default-time", "0", "--batch", self.path)
        self.assertEqual(run.stdout, expected)
        self.assertEqual(run.returncode, 0)
        for broken in (content[:-1], content + b"\0"):
            self.write(broken)
            run = self.run_decoder("--batch", self.path)
            self.assertEqual(run.returncode, 2)
            self.assertNotIn(b"Traceback", run.stderr)


if __name__ == "__main__":
    unittest.main()
