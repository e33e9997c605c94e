"""What the documents name exists: files, sections, classes, tests, scripts, message texts."""

import os
import re
import unittest
from pathlib import Path

SOURCE = Path(os.environ["ZYN_SOURCE"])
DOCUMENTS = sorted([*SOURCE.glob("*.md"), *SOURCE.glob("doc/*.md")])


def prose(document):
    """A document without its fenced blocks."""
    return re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.MULTILINE | re.DOTALL)


def anchors(document):
    titles = re.findall(r"^#+ (.*)$", prose(document), re.MULTILINE)
    return {re.sub(r"[^\w -]", "", title.lower()).replace(" ", "-") for title in titles}


def sources(*folders, suffixes=(".h", ".cpp")):
    return "\n".join(path.read_text() for folder in folders
                     for path in sorted((SOURCE / folder).rglob("*")) if path.suffix in suffixes)


class ReferencesTest(unittest.TestCase):
    def test_there_are_documents(self):
        self.assertGreater(len(DOCUMENTS), 8)

    def test_links_lead_somewhere(self):
        for document in DOCUMENTS:
            for link in re.findall(r"\]\(([^)]+)\)", prose(document)):
                if re.match(r"\w+:", link):
                    continue
                with self.subTest(document=document.name, link=link):
                    path, _, section = link.partition("#")
                    target = document.parent / path if path else document
                    self.assertTrue(target.exists())
                    if section:
                        self.assertIn(section, anchors(target))

    def test_paths_exist(self):
        first = "|".join(re.escape(path.name) for path in SOURCE.iterdir() if path.is_dir())
        for document in DOCUMENTS:
            for path in re.findall(rf"`((?:{first})/[\w./-]+)[` ]", prose(document)):
                with self.subTest(document=document.name, path=path):
                    self.assertTrue((SOURCE / path).exists() or path.startswith("build/"))

    def test_scripts_of_unrun_blocks_exist(self):
        for document in DOCUMENTS:
            for block in re.findall(r"^```sh\n(.*?)^```$", document.read_text(),
                                    re.MULTILINE | re.DOTALL):
                for script in re.findall(r"^((?:scripts|bench|\.ci|tools)/[\w-]+)", block, re.MULTILINE):
                    with self.subTest(document=document.name, script=script):
                        self.assertTrue(os.access(SOURCE / script, os.X_OK))

    def test_classes_of_the_architecture_exist(self):
        code = sources("src")
        names = set(re.findall(r"`([A-Z][a-z]\w*[A-Z]\w*)", prose(SOURCE / "doc" / "architecture.md")))
        self.assertGreater(len(names), 5)
        for name in names:
            with self.subTest(name=name):
                self.assertRegex(code, rf"\b{name}\b")

    def test_tests_that_prove_promises_exist(self):
        code = sources("tests")
        section = (SOURCE / "doc" / "testing.md").read_text().split("## What is promised")[1]
        suite = ""
        names = re.findall(r"`(\w*)\.(\w+)`", section)
        self.assertGreater(len(names), 10)
        for named, case in names:
            suite = named or suite
            with self.subTest(suite=suite, case=case):
                self.assertTrue(re.search(rf"TEST(_F|_P)?\({suite}, {case}\)", code), "no such test")

    def test_every_fuzz_target_is_in_the_ledger(self):
        targets = re.findall(r"^([a-z_]+) ", (SOURCE / "fuzz" / "targets.txt").read_text(), re.MULTILINE)
        self.assertGreater(len(targets), 5)
        pieces = (SOURCE / "fuzz" / "LEDGER.md").read_text().split("| Target | Piece |")[1].split("\n\n")[0]
        self.assertEqual(sorted(re.findall(r"^\| `(\w+)`", pieces, re.MULTILINE)), sorted(targets))

    def test_every_output_form_is_documented_and_completed(self):
        code = (SOURCE / "src" / "zynlogcat" / "OutputForm.cpp").read_text()
        forms = re.findall(r'\{"([\w-]+)", Make', code)
        self.assertGreater(len(forms), 5)
        manual = (SOURCE / "man" / "zynlog-cat.1").read_text()
        listed = manual.split(".It Fl o ,")[1].split(".It Fl -no-header")[0]
        self.assertEqual(sorted(word for line in re.findall(r"^\.It Cm (.*)$", listed, re.MULTILINE)
                                for word in line.split(" , ")), sorted(forms))
        usage = (SOURCE / "src" / "zynlogcat" / "CatOptions.cpp").read_text().split("--output FORM")[1]
        for form in forms:
            with self.subTest(form=form):
                self.assertRegex(usage.split("--no-header")[0], rf"(?<![\w-]){form}(?![\w-])")
        for completion in ("zynlog-cat.bash", "_zynlog-cat", "zynlog-cat.fish"):
            with self.subTest(completion=completion):
                self.assertIn(" ".join(forms), (SOURCE / "completions" / completion).read_text())

    def test_messages_of_the_manual_are_those_of_the_program(self):
        code = sources("src")
        diagnostics = (SOURCE / "man" / "zyntool.1").read_text().split(".Sh DIAGNOSTICS")[1]
        # The four faults of the command line are shown with a full stop of the report's.
        texts = [text for line in re.findall(r"^\.It (.*)$", diagnostics, re.MULTILINE)
                 for text in re.findall(r'"([^"]+)"', line)]
        self.assertGreater(len(texts), 12)
        for text in texts:
            with self.subTest(text=text):
                self.assertTrue(text in code or text.rstrip(".") in code)


if __name__ == "__main__":
    unittest.main()
