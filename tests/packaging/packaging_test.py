"""What is said about the programs is what they say: manuals, completion, settings, versions.

usage: packaging_test.py SOURCE_FOLDER BUILD_FOLDER
"""

import pathlib
import re
import subprocess
import sys
import unittest

SOURCE, BUILD = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
PROGRAMS = {"zelvo": 1, "zelvo-open": 1, "zelvo-relay": 8, "zelvo-service": 8}
WORDS = r"--[a-z][a-z-]*[a-z](?: [A-Z][A-Z/:@.,]+)?"


def said(program, word):
    return subprocess.run([BUILD / program, word], capture_output=True, text=True, check=True).stdout


def manual(page):
    """A page as it is configured, without what roff needs in it."""
    return (BUILD / "packaging" / page).read_text().replace("\\-", "-")


def completed(program, *words):
    script = (f"source /usr/share/bash-completion/bash_completion; source {SOURCE}/packaging/completion\n"
              f'COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"; COMP_POINT=${{#COMP_LINE}}\n'
              f'_zelvo "$1" "${{@: -1}}" "${{@: -2:1}}"; printf "%s\\n" "${{COMPREPLY[@]}}"')
    answer = subprocess.run(["bash", "-c", script, "bash", BUILD / program, *words], cwd=SOURCE,
                            capture_output=True, text=True, check=True)
    return set(answer.stdout.split())


class Packaging(unittest.TestCase):
    def test_manuals_and_completion_know_the_options_of_the_programs(self):
        for program, section in PROGRAMS.items():
            help, page = said(program, "--help"), manual(f"{program}.{section}")
            words = set(re.findall(WORDS, help))
            options = page.split(".SH OPTIONS")[1].split(".SH ")[0]
            heads = re.sub(' ?" ?', " ", "\n".join(re.findall(r"^\.TP\n(.*)", options, re.M)))
            self.assertEqual(words, set(re.findall(WORDS, heads)), program)
            self.assertEqual({word.split()[0] for word in words}, completed(program, "--"), program)
            commands = re.findall(rf"^(?:usage:| *) +{program} ([a-z]+)(?: |$)", help, re.I | re.M)
            self.assertEqual(set(commands), completed(program, "") - completed(program, "--"), program)
            for command in commands:
                self.assertRegex(page, rf"(?m)^\.B {program} {command}\b", program)

    def test_completion_of_values(self):
        self.assertIn("LICENSE", completed("zelvo-service", "--certificate", "LIC") & completed("zelvo-service", "--database", "LIC"))
        self.assertEqual(set(), completed("zelvo-open", "--name", "--"))

    def test_the_manual_of_the_defaults_has_their_keys(self):
        keys = set()
        for folder in ("link", "opener", "platform/linux"):
            for file in (SOURCE / folder).rglob("*.cpp"):
                keys |= set(re.findall(r'Key = "(\w+)";', file.read_text()))
        self.assertEqual(keys, set(re.findall(r"^\.TP\n\.B (\w+)", manual("zelvo-defaults.5"), re.M)))

    def test_the_pictures_in_shops_are_there(self):
        data = (SOURCE / "packaging/app.zelvo.Zelvo.metainfo.xml.in").read_text()
        for picture in re.findall(r"<image.*@/(.*)</image>", data):
            self.assertTrue((SOURCE / "docs" / picture).is_file(), picture)

    def test_what_shows_a_promise_is_there(self):
        text = (SOURCE / "SECURITY.md").read_text()
        tests = "".join(file.read_text() for file in (SOURCE / "tests").rglob("*.cpp"))
        for suite, test in set(re.findall(r"`([A-Z]\w+)\.([A-Z]\w+)`", text)) - {("Suite", "Test")}:
            self.assertRegex(tests, rf"\({suite}, *{test}\)")

    def test_one_version_everywhere(self):
        version = re.search(r"project\(zelvo VERSION (\S+)", (SOURCE / "CMakeLists.txt").read_text())[1]
        for program in PROGRAMS:
            self.assertEqual(f"{program} {version}\n", said(program, "--version"))
        for file, pattern in (("debian/changelog", r"\Azelvo \((.*)-\d+\)"), ("CHANGELOG.md", r"^## ([^,]+),"),
                              ("packaging/app.zelvo.Zelvo.metainfo.xml.in", r'<release version="(.*?)"')):
            self.assertEqual(version, re.search(pattern, (SOURCE / file).read_text(), re.M)[1], file)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
