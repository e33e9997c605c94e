"""What the documents name exists: files, sections, classes, tests, options, scripts, message texts."""

import os
import re
import unittest
from pathlib import Path

SOURCE = Path(os.environ["ZYN_SOURCE"])
DOCUMENTS = sorted([*SOURCE.glob("*.md"), *SOURCE.glob("doc/*.md"), *SOURCE.glob("fuzz/*.md")])
# Where the project's own files are: not what was built.
FOLDERS = sorted(path.name for path in SOURCE.iterdir() if path.is_dir() and path.name not in ("build", ".git"))
CODE = ("src", "testing", "tests", "fuzz", "bench", "samples")
PROGRAMS = {"zynlog-verify": "zynverify/VerifyOptions.cpp", "zyn-doctor": "zyndoctor/DoctorOptions.cpp",
            "zynlog-cat": "zynlogcat/CatOptions.cpp"}


def prose(document):
    """A document without its fenced blocks."""
    return re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.MULTILINE | re.DOTALL)


def quoted(document):
    """What stands in backticks."""
    return re.findall(r"`([^`\n]+)`", prose(document))


def usage(program):
    return (SOURCE / "src" / PROGRAMS[program]).read_text()


def usage_options(program):
    return set(re.findall(r'"  +(?:-\w, )?(--[\w-]+|-\w)', usage(program)))


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
        first = "|".join(re.escape(folder) for folder in FOLDERS)
        for document in DOCUMENTS:
            for text in quoted(document):
                for path in re.findall(rf"(?<![\w./-])((?:{first})/[\w./-]*\w)", text):
                    with self.subTest(document=document.name, path=path):
                        self.assertTrue((SOURCE / path).exists() or (document.parent / path).exists())

    def test_sources_named_without_their_folder_exist(self):
        names = {path.name for folder in FOLDERS for path in (SOURCE / folder).rglob("*")}
        for document in DOCUMENTS:
            for text in quoted(document):
                for name in re.findall(r"(?<![\w/.>-])(\w+\.(?:h|cpp|py|mjs|cmake|c))\b", text):
                    with self.subTest(document=document.name, name=name):
                        self.assertTrue(name in names, "no such file")

    def test_scripts_of_unrun_blocks_exist(self):
        for document in DOCUMENTS:
            for block in re.findall(r"^```sh\n(.*?)^```$", document.read_text(),
                                    re.MULTILINE | re.DOTALL):
                for script in re.findall(r"^((?:scripts|bench|\.ci|tools)/[\w-]+)", block, re.MULTILINE):
                    with self.subTest(document=document.name, script=script):
                        self.assertTrue(os.access(SOURCE / script, os.X_OK))

    def test_options_of_scripts_exist(self):
        for document in DOCUMENTS:
            for script, words in re.findall(r"^(?:\$ )?((?:scripts|bench|\.ci)/[\w-]+)([^#\n]*)", document.read_text(),
                                            re.MULTILINE):
                for option in re.findall(r" (--[\w-]+)", words.split(" -- ")[0]):
                    with self.subTest(document=document.name, script=script, option=option):
                        self.assertTrue(option in (SOURCE / script).read_text(), "no such option")

    def test_options_of_the_programs_exist(self):
        for document in DOCUMENTS:
            for program, words in re.findall(r"\b(zynlog-verify|zynlog-cat|zyn-doctor)((?: [^`|;&\n]*)?)",
                                             document.read_text()):
                for option in re.findall(r" (--[a-z][\w-]+)", words):
                    with self.subTest(document=document.name, program=program, option=option):
                        self.assertIn(option, usage_options(program))

    def test_manual_pages_have_the_options_of_the_usage(self):
        for program in PROGRAMS:
            manual = (SOURCE / "man" / f"{program}.1").read_text()
            items = re.findall(r"^\.It Fl (?:\w , )?(-?[\w-]+)", manual, re.MULTILINE)
            with self.subTest(program=program):
                self.assertEqual(sorted("-" + item for item in items), sorted(usage_options(program)))

    def test_classes_exist(self):
        code = sources(*CODE)
        names = {(document.name, name) for document in DOCUMENTS for text in quoted(document)
                 if re.fullmatch(r"([A-Z][a-z]+[A-Z][A-Za-z]*)(::\w+)?(\(\))?", text)
                 for name in re.findall(r"\w+", text) if not name.endswith("Test")}
        self.assertGreater(len(names), 50)
        for document, name in names:
            with self.subTest(document=document, name=name):
                self.assertTrue(re.search(rf"\b{name}\b", code), "no such class")

    def test_targets_exist(self):
        lists = "\n".join(path.read_text() for path in SOURCE.rglob("CMakeLists.txt"))
        for document in DOCUMENTS:
            for text in quoted(document):
                for name in re.findall(r"(?<![\w.-])(zyn_\w+)", text):
                    with self.subTest(document=document.name, name=name):
                        self.assertTrue(re.search(rf"\b{name}\b", lists), "no such target")

    def test_tests_exist(self):
        code = sources("tests")
        cases = dict.fromkeys(re.findall(r"TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", code))
        files = {path.stem for path in (SOURCE / "tests").rglob("*Test.cpp")}
        suites = files | {suite for suite, _ in cases}
        found = 0
        for document in DOCUMENTS:
            suite = ""
            for text in quoted(document):
                if re.fullmatch(r"\w+Test", text):
                    with self.subTest(document=document.name, suite=text):
                        self.assertTrue(text in suites, "neither a suite nor a file of tests")
                # A suite stays in force until another one is named.
                if match := re.fullmatch(r"(\w*)\.([A-Z]\w{7,})", text):
                    suite = match[1] or suite
                    found += 1
                    with self.subTest(document=document.name, suite=suite, case=match[2]):
                        self.assertTrue((suite, match[2]) in cases, "no such test")
            for pattern in re.findall(r"ctest [^`\n]*-R ([A-Z]\w+)", document.read_text()):
                with self.subTest(document=document.name, pattern=pattern):
                    self.assertTrue(any(pattern in f"{suite}.{case}" for suite, case in cases))
        self.assertGreater(found, 10)

    def test_tests_of_ctest_exist(self):
        files = {path.name for path in (SOURCE / "tests").rglob("*")}
        registered = "\n".join(path.read_text() for path in (SOURCE / "tests").rglob("CMakeLists.txt"))
        for document in DOCUMENTS:
            for text in quoted(document):
                if match := re.fullmatch(r"(?:scripts|faults)\.(\w+(?:\.py)?)", text):
                    with self.subTest(document=document.name, name=text):
                        self.assertTrue(match[1] in files or f"NAME {text}\n" in registered)

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
