#!/usr/bin/env python3
"""Test code as a share of all code: non-blank, non-comment C++ lines (.cpp, .h,
.mm) under tests/ over those under src/ and tests/ together. The house keeps it
at or under 30 %; exits 1 above that."""
import pathlib
import re
import sys

LIMIT = 30.0
root = pathlib.Path(__file__).resolve().parent.parent


def code_lines(path):
    text = path.read_text(encoding="utf-8", errors="replace")
    # Strings first, so that "//" or "/*" inside one is not taken for a comment.
    token = re.compile(r'R"(\w*)\((?:.|\n)*?\)\1"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|//[^\n]*|/\*(?:.|\n)*?\*/')

    def blank_comments(match):
        found = match.group(0)
        if found.startswith("//") or found.startswith("/*"):
            return "\n" * found.count("\n")
        return found

    return sum(1 for line in token.sub(blank_comments, text).splitlines() if line.strip())


def count(folder):
    return sum(code_lines(p) for p in (root / folder).rglob("*")
               if p.suffix in {".cpp", ".h", ".mm"} and p.is_file())


tests, source = count("tests"), count("src")
share = 100.0 * tests / (tests + source)
print(f"test code {tests} of {tests + source} lines: {share:.1f} %")
sys.exit(0 if share <= LIMIT else 1)
