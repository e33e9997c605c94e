"""The worker that exports the files of a log one by one, alone and under engines for many hosts and
many files, with 500 pretend hosts."""

import json
import os
import signal
import subprocess
import time
import unittest

from fleet_log import (BIN, ENVIRONMENT, FLEET, LogCase, generate, joined_texts, leftovers, outcomes,
                       run, whole_export)

WORKER = FLEET / "zyn-export-files"
HOSTS = 500


class ExportFiles(LogCase):
    def test_texts_are_the_export_of_the_whole(self):
        generate(self.log, files=12, records=3000)
        run(WORKER, self.log, self.text)
        self.assertEqual(joined_texts(self.text), whole_export(self.log, self.place))
        self.assertEqual(set(outcomes(self.text).values()), {"ok"})
        self.assertEqual(leftovers(self.text), [])

    def test_name_that_begins_another_is_exported_by_itself(self):
        generate(self.log, files=2, records=200)
        (self.log / "zynlog-0001.txt").rename(self.log / "zynlog-1.txt")
        (self.log / "zynlog-0002.txt").rename(self.log / "zynlog-1.txt.txt")
        run(WORKER, self.log, self.text)
        lines = [len((self.text / name).read_bytes().splitlines())
                 for name in ("zynlog-1.txt", "zynlog-1.txt.txt")]
        whole = whole_export(self.log, self.place)
        self.assertEqual(sum(lines) - 2, len(whole.splitlines()))

    def test_what_is_done_is_not_done_again_unless_the_log_changed(self):
        generate(self.log, files=3, records=300)
        run(WORKER, self.log, self.text)
        before = {path.name: path.stat().st_ino for path in self.text.glob("*.txt")}
        os.utime(self.log / "zynlog-0002.txt", (1, 1))
        run(WORKER, self.log, self.text)
        after = {path.name: path.stat().st_ino for path in self.text.glob("*.txt")}
        self.assertEqual([name for name in before if before[name] != after[name]],
                         ["zynlog-0002.txt"])

    def test_unfinished_newest_file_is_left_for_the_next_time(self):
        generate(self.log, files=3, records=300)
        newest = self.log / "zynlog-0003.txt"
        content = newest.read_bytes()
        newest.write_bytes(content[:-100])
        run(WORKER, self.log, self.text)
        self.assertEqual(outcomes(self.text), {"zynlog-0001.txt": "ok", "zynlog-0002.txt": "ok",
                                               "zynlog-0003.txt": "later"})
        self.assertFalse((self.text / "zynlog-0003.txt").exists())
        newest.write_bytes(content)
        run(WORKER, self.log, self.text)
        self.assertEqual(joined_texts(self.text), whole_export(self.log, self.place))

    def test_cut_file_that_is_not_the_newest_is_damaged(self):
        generate(self.log, files=3, records=300)
        hurt = self.log / "zynlog-0002.txt"
        hurt.write_bytes(hurt.read_bytes()[:-100])
        run(WORKER, self.log, self.text, status=1)
        self.assertEqual(outcomes(self.text)["zynlog-0002.txt"], "damaged")
        record = (self.text / "zynlog-0002.txt.status").read_text()
        self.assertIn("No more files available for read", record)
        self.assertTrue((self.text / "zynlog-0002.txt").exists())

    def test_file_that_is_no_log_fails_and_the_others_do_not(self):
        generate(self.log, files=2, records=100)
        (self.log / "zynlog-0000.txt").write_bytes(b"short")
        run(WORKER, self.log, self.text, status=1)
        self.assertEqual(outcomes(self.text), {"zynlog-0000.txt": "failed", "zynlog-0001.txt": "ok",
                                               "zynlog-0002.txt": "ok"})
        self.assertIn("File size too small", (self.text / "zynlog-0000.txt.status").read_text())

    def test_file_that_a_rotation_took_away_fails(self):
        generate(self.log, files=1, records=100)
        run(WORKER, self.log, self.text, "zynlog-0001.txt", "zynlog-0002.txt", status=1)
        self.assertEqual(outcomes(self.text),
                         {"zynlog-0001.txt": "ok", "zynlog-0002.txt": "failed"})

    def test_command_line_and_directories(self):
        run(WORKER, status=2)
        run(WORKER, self.place / "none", self.text, status=2)
        generate(self.log, files=1, records=100)
        run(WORKER, self.log, self.place / "none", status=2)
        run("/bin/sh", WORKER, self.log, self.text, status=2,
            environment=dict(os.environ, PATH="/usr/bin:/bin"))

    def test_killed_at_any_moment_it_is_simply_started_again(self):
        generate(self.log, files=6, records=6000)
        whole = whole_export(self.log, self.place)
        for part in range(1, 6):
            worker = subprocess.Popen([WORKER, self.log, self.text], env=ENVIRONMENT,
                                      stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                      start_new_session=True)
            time.sleep(0.02 * part)
            os.killpg(worker.pid, signal.SIGKILL)
            worker.wait()
            # Whatever stands under a file's name is whole.
            for text in self.text.glob("zynlog-*.txt"):
                self.assertIn(text.read_bytes().split(b"\n", 1)[1], whole)
        run(WORKER, self.log, self.text)
        self.assertEqual(joined_texts(self.text), whole)


class ManyHosts(LogCase):
    """Every pretend host has a log of two files; that of host 250 is damaged."""

    def setUp(self):
        super().setUp()
        generate(self.place / "pattern", files=2, records=60)
        for host in range(1, HOSTS + 1):
            log = self.place / f"h{host:03}/log"
            log.mkdir(parents=True)
            (self.place / f"h{host:03}/text").mkdir()
            for file in (self.place / "pattern").iterdir():
                os.link(file, log / file.name)
        hurt = self.place / "h250/log/zynlog-0001.txt"
        content = hurt.read_bytes()
        hurt.unlink()
        hurt.write_bytes(content[:300] + b"\xff" + content[301:])
        self.whole = whole_export(self.place / "pattern", self.place)

    def check(self):
        for host in range(1, HOSTS + 1):
            text = self.place / f"h{host:03}/text"
            if host == 250:
                self.assertIn(outcomes(text)["zynlog-0001.txt"], ("damaged", "failed"))
                self.assertEqual(outcomes(text)["zynlog-0002.txt"], "ok")
            else:
                self.assertEqual(joined_texts(text), self.whole)

    def test_clush_collects_the_statuses_of_all_hosts(self):
        command = f"{WORKER} {self.place}/%h/log {self.place}/%h/text"
        result = subprocess.run(
            ["clush", "-R", "exec", "-f", "8", "-S", "-w", f"h[001-{HOSTS}]", command],
            env=ENVIRONMENT, text=True, check=False, capture_output=True, timeout=900,
            stdin=subprocess.DEVNULL)
        self.assertEqual(result.returncode, 1, result.stderr)
        failed = [line for line in result.stderr.splitlines() if "exited with exit code" in line]
        self.assertEqual(len(failed), 1, result.stderr)
        self.assertIn("h250", failed[0])
        self.check()

    def test_parallel_retries_and_logs_every_file(self):
        work = self.place / "work"
        work.write_text("".join(
            f"{self.place}/h{host:03}\tzynlog-{file:04}.txt\n"
            for host in range(1, HOSTS + 1) for file in (1, 2)))
        jobs = self.place / "jobs"
        command = ["parallel", "--will-cite", "--colsep", "\t", "-j", "4", "--joblog", jobs,
                   "-a", work, WORKER, "{1}/log", "{1}/text", "{2}"]
        run(*command, status=1)
        lines = [line.split("\t") for line in jobs.read_text().splitlines()[1:]]
        self.assertEqual(len(lines), 2 * HOSTS)
        failed = [line for line in lines if line[6] != "0"]
        self.assertEqual(len(failed), 1)
        self.assertIn("h250/log", failed[0][8])
        self.check()
        # Only what failed is done again.
        hurt = self.place / "h250/log/zynlog-0001.txt"
        hurt.write_bytes((self.place / "pattern/zynlog-0001.txt").read_bytes())
        run(*command[:1], "--resume-failed", *command[1:])
        self.assertEqual(len(jobs.read_text().splitlines()), 1 + 2 * HOSTS + 1)
        self.assertEqual(joined_texts(self.place / "h250/text"), self.whole)

    def test_counts_of_all_hosts(self):
        text = run(BIN / "zynlog-cat", "--quiet", "-o", "count-json",
                   *(str(self.place / f"h{host:03}/log") for host in range(1, 11)))
        self.assertEqual(json.loads(text)["records"], 10 * 60)


if __name__ == "__main__":
    unittest.main()
