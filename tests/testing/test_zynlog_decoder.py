"""Tests of how the decoder takes a log apart: files, blocks, records, order.

Run with

    PYTHONPATH=testing/oracle python3 -m unittest discover -s tests/testing
"""

from __future__ import annotations

import struct
import unittest

import zynlog_decoder
from zynlog_decoder import export_files, export_log
from zynlog_vectors import (
    BARE, COLUMNS, HEADER, INSUFFICIENT, NO_MORE_FILES, TOO_SMALL,
    WRONG_LENGTH, Case, block, clock, notes, record, text,
)


class WorkedExample(Case):
    FILE = HEADER + bytes.fromhex(
        # Block header packet: binary, length 40.
        "0a 28000000"
        "686f7374 00000000 00000000 00000000"
        "00000000 00000000 00000000 00000000"
        "d2040000"  # process 1234
        "5b000000"  # 91 bytes of records
        # Record header packet: binary, length 8; number 7, 78 bytes.
        "0a 08000000 07000000 4e000000"
        # Time: 1000000000 s, 42 ms.
        "2a 0200 0c000000 00ca9a3b 2a000000 3c000000"
        # Process 4321, thread 99.
        "24 0400 e1100000"
        "24 0300 63000000"
        # Module "net", client "cli", label "INFO", message "hello".
        "29 2000 03000000 6e6574"
        "29 2100 03000000 636c69"
        "29 2200 04000000 494e464f"
        "09 05000000 68656c6c6f"
        # One byte, and a pair of packets without payload.
        "01 ff 00 06"
    )

    def test_the_sizes_in_the_example_are_right(self) -> None:
        self.assertEqual(len(self.FILE), 256 + 45 + 91)

    def test_without_separator_fields_are_joined(self) -> None:
        self.assertEqual(
            export_files([self.FILE], tz="UTC"),
            (
                COLUMNS + b"09/09/2001 01:46:40.042 4321        99"
                b"netcliINFOhello\n",
                None,
            ),
        )

    def test_delimited(self) -> None:
        self.assertEqual(
            export_files([self.FILE], b"|", tz="UTC")[0],
            COLUMNS + b"09/09/2001 01:46:40.042| 4321|        99|"
            b"net|cli|INFO|hello\n",
        )

    def test_fixed_width(self) -> None:
        self.assertEqual(
            export_files([self.FILE], b" ", tz="UTC")[0],
            COLUMNS + b"09/09/2001 01:46:40.042  4321         99 "
            b"net          cli        INFO         hello\n",
        )


class Headers(Case):
    def test_file_header_is_256_bytes(self) -> None:
        self.assertEqual(len(HEADER), 256)
        self.assertEqual(zynlog_decoder.FILE_HEADER, HEADER)

    def test_column_header_is_128_bytes(self) -> None:
        self.assertEqual(len(COLUMNS), 128)
        self.assertEqual(zynlog_decoder.COLUMN_HEADER, COLUMNS)

    def test_no_files_give_the_column_header(self) -> None:
        self.assertEqual(self.export(), (b"", None))

    def test_file_of_a_header_alone_adds_nothing(self) -> None:
        log = block(notes(1))
        self.assertEqual(self.messages(b"", log, b""), [b"1"])

    def test_file_without_header_is_left_out(self) -> None:
        log = HEADER + block(notes(1))
        strange = b"x" + HEADER
        almost = HEADER[:255] + b"\r" + block(notes(2))
        self.assertEqual(
            export_files([strange, log, almost], tz="UTC"),
            (COLUMNS + BARE + b"1\n", None),
        )

    def test_file_below_256_bytes_fails_before_anything_is_written(
        self,
    ) -> None:
        log = HEADER + block(notes(1))
        for small in (b"", b"x" * 100, HEADER[:255]):
            export = export_log([log, small])
            self.assertEqual(export.text, b"")
            self.assertEqual(export.error, TOO_SMALL)
            self.assertFalse(export.listed)

    def test_reading_order_is_byte_wise(self) -> None:
        self.assertEqual(
            zynlog_decoder.reading_order(
                ["zynlog-2.txt", "zynlog-10.txt", "zynlog-\u00fc.txt",
                 "zynlog-a.dat", "zynlog.txt", "zynlog-\U0001f600txt"]
            ),
            ["zynlog-10.txt", "zynlog-2.txt", "zynlog-\u00fc.txt",
             "zynlog-\U0001f600txt"],
        )


class Blocks(Case):
    def test_empty_block_is_passed_over(self) -> None:
        log = block(b"") + block(notes(1)) + block(b"")
        self.assertEqual(self.messages(log), [b"1"])

    def test_header_packet_may_have_any_type_with_a_length(self) -> None:
        for head in ("08 28000000", "0f 28000000", "fa ffff 28000000"):
            self.assertEqual(self.messages(block(notes(1), head=head)),
                             [b"1"])

    def test_header_length_other_than_40_stops_the_export(self) -> None:
        for head in ("0a 27000000", "0a 29000000", "0a 00000000",
                     "2a 0000 28000001", "02", "05", "00"):
            log = block(notes(1)) + block(notes(2), head=head)
            self.assertEqual(self.export(log), (BARE + b"1\n", WRONG_LENGTH))

    def test_log_cut_at_any_place_of_the_second_block(self) -> None:
        first, second = block(notes(1)), block(notes(2))
        for size in range(1, len(second)):
            self.assertEqual(
                self.export(first + second[:size]),
                (BARE + b"1\n", NO_MORE_FILES),
            )

    def test_size_beyond_the_log(self) -> None:
        for size in (19, 0x7FFFFFFF, 0xFFFFFFFF):
            self.assertEqual(
                self.export(block(b"\0" * 18, size)), (b"", NO_MORE_FILES)
            )

    def test_tail_whose_length_is_wrong(self) -> None:
        log = block(notes(1)) + b"\0"
        self.assertEqual(self.export(log), (BARE + b"1\n", WRONG_LENGTH))

    def test_tail_that_ends_inside_the_packet_header(self) -> None:
        for tail in ("08", "20", "20 00", "0a 280000", "2a 0000 280000"):
            log = block(notes(1)) + bytes.fromhex(tail)
            self.assertEqual(self.export(log), (BARE + b"1\n", NO_MORE_FILES))

    def test_blocks_run_on_over_files(self) -> None:
        log = block(notes(2, 1)) + block(notes(3))
        for cut in range(len(log) + 1):
            self.assertEqual(
                self.messages(log[:cut], b"", log[cut:]), [b"1", b"2", b"3"]
            )

    def test_block_above_64_kib(self) -> None:
        many = notes(*range(4000))
        self.assertGreater(len(many), 65536)
        self.assertEqual(
            self.messages(block(many)), [b"%d" % n for n in range(4000)]
        )


class Records(Case):
    def test_record_without_packets_shows_the_default_time(self) -> None:
        log = HEADER + block(record(1, b"") + record(2, clock(b"")))
        export = export_log([log], default_time=(61, 7), tz="UTC")
        self.assertEqual(
            export.text,
            COLUMNS + b"01/01/1970 00:01:01.007    0         0\n" + BARE
            + b"\n",
        )
        self.assertEqual(export.default_times, [128])

    def test_header_packet_may_have_any_type_of_length_8(self) -> None:
        heads = ("05", "15", "25 0300", "c5", "08 08000000", "0f 08000000",
                 "fa 0600 08000000")
        for head in heads:
            log = block(record(1, text(b"x"), head=head))
            self.assertEqual(self.messages(log), [b"x"])

    def test_header_length_other_than_8_ends_the_block_quietly(self) -> None:
        for head in ("0a 07000000", "0a 09000000", "0a ffffffff", "04", "00"):
            log = block(notes(2, 1) + record(3, text(b"x"), head=head))
            self.assertEqual(
                self.messages(log, block(notes(0))), [b"1", b"2", b"0"]
            )

    def test_record_past_its_block_ends_it_quietly(self) -> None:
        for size in (9, 100, 0x7FFFFFFF, 0xFFFFFFF8, 0xFFFFFFFF):
            bad = record(3, text(b"x"), size)
            log = block(notes(2, 1) + bad) + block(notes(0))
            self.assertEqual(self.messages(log), [b"1", b"2", b"0"])

    def test_block_cut_at_any_place_of_its_last_record(self) -> None:
        last = notes(3)
        for size in range(len(last)):
            log = block(notes(2, 1) + last[:size]) + block(notes(0))
            self.assertEqual(self.messages(log), [b"1", b"2", b"0"])

    def test_fields_are_cleared_between_records(self) -> None:
        full = (
            clock(struct.pack("<III", 5, 6, 0))
            + bytes.fromhex("24 0400 01000000 24 0300 02000000")
            + text(b"M", 32) + text(b"C", 33) + text(b"L", 34) + text(b"t")
        )
        lines, _ = self.export(block(record(1, full) + record(2, b"")))
        self.assertEqual(
            lines,
            b"01/01/1970 00:00:05.006    1         2MCLt\n" + BARE + b"\n",
        )


class Order(Case):
    def test_records_leave_by_sequence_number(self) -> None:
        self.assertEqual(
            self.messages(block(notes(5, 3, 4))), [b"3", b"4", b"5"]
        )

    def test_numbers_do_not_wrap(self) -> None:
        log = block(notes(0xFFFFFFFE, 0xFFFFFFFF, 0, 1))
        self.assertEqual(
            self.messages(log), [b"0", b"1", b"4294967294", b"4294967295"]
        )

    def test_equal_numbers_leave_in_order_of_arrival(self) -> None:
        data = b"".join(
            record(n, text(t))
            for n, t in ((2, b"c"), (1, b"b"), (2, b"a"), (1, b"d"))
        )
        self.assertEqual(self.messages(block(data)), [b"b", b"d", b"c", b"a"])

    def test_blocks_are_never_interleaved(self) -> None:
        log = block(notes(2, 9)) + block(notes(1, 3))
        self.assertEqual(self.messages(log), [b"2", b"9", b"1", b"3"])

    def test_1000_falling_records_are_sorted(self) -> None:
        log = block(notes(*range(1000, 0, -1)))
        self.assertEqual(
            self.messages(log), [b"%d" % n for n in range(1, 1001)]
        )

    def test_1001_falling_records_are_not_fully_sorted(self) -> None:
        log = block(notes(*range(1001, 0, -1)))
        self.assertEqual(
            self.messages(log), [b"%d" % n for n in (2, 1, *range(3, 1002))]
        )


class FailingRecords(Case):
    BAD = (
        "09 02000000 78",         # string past the record
        "09 ffffffff 78",
        "0a 09000000 0000000000000000",
        "2a 0200 0d000000 000000000000000000000000",
        "0b 01000000",            # skipped packet past the record
        "08 ffffffff",
        "01", "02", "03 00", "04 000000", "05 00000000000000",
        "14 000000",
        "20", "20 00", "08", "09 000000", "2f 0000 000000",
        "09 01000000 78 09",      # a second packet cut short
    )

    def test_packet_past_its_record_stops_the_export(self) -> None:
        for packets in map(bytes.fromhex, self.BAD):
            # The bytes that are missing are there, in the record behind.
            data = notes(3, 1) + record(2, packets) + notes(4)
            self.assertEqual(
                self.export(block(data), block(notes(9))),
                (BARE + b"1\n", INSUFFICIENT),
            )

    def test_failing_record_in_a_block_cut_short_is_never_met(self) -> None:
        bad = record(1, b"\x09")
        log = block(notes(2)) + block(bad, 40)
        self.assertEqual(self.export(log), (BARE + b"2\n", NO_MORE_FILES))

    def test_emission_that_fails_while_records_are_read(self) -> None:
        # The 1001st record makes the first leave, the 1002nd the second,
        # which fails; the drain begins with the same record.
        data = notes(1) + record(2, b"\x09") + notes(*range(3, 1500))
        self.assertEqual(
            self.export(block(data)), (BARE + b"1\n", INSUFFICIENT)
        )

    def test_failing_record_behind_which_others_overtake(self) -> None:
        # 1000 records are held when number 0 arrives; 1 leaves before it.
        data = notes(*range(1, 1000)) + record(1000, b"\x09") + notes(0)
        lines, error = self.export(block(data))
        self.assertEqual(error, INSUFFICIENT)
        self.assertEqual(
            [line[38:] for line in lines.splitlines()],
            [b"%d" % n for n in (1, 0, *range(2, 1000))],
        )

    def test_front_that_fails_while_read_keeps_the_next_record_out(
        self,
    ) -> None:
        data = record(1, b"\x09") + notes(*range(2, 1001)) + notes(0)
        self.assertEqual(self.export(block(data)), (b"", INSUFFICIENT))

    def test_splitting_fails_before_the_emission_it_would_cause(self) -> None:
        data = notes(*range(1, 1001)) + record(0, b"", 1)
        self.assertEqual(
            self.messages(block(data)), [b"%d" % n for n in range(1, 1001)]
        )


if __name__ == "__main__":
    unittest.main()
