#!/usr/bin/env python3
"""Checks the examples in docs/fleet.md with their real readers: every XML block
is a plist that plistlib reads and that runs the metrics job every minute, every
sh block passes `sh -n` and shellcheck, every YAML block passes `promtool check
rules`. A reader missing here skips its check unless VARNEL_CONSUMERS_REQUIRED is 1.

Usage: check-fleet-doc.py DOC PROMTOOL"""
import os
import plistlib
import re
import shutil
import subprocess
import sys
import tempfile


def main(doc, promtool):
    required = os.environ.get("VARNEL_CONSUMERS_REQUIRED") == "1"
    blocks = re.findall(r"^```(\w+)\n(.*?)^```$", open(doc, encoding="utf-8").read(), re.M | re.S)
    problems = []
    kinds = [kind for kind, _ in blocks]
    for kind in ("xml", "sh", "yaml"):
        if kind not in kinds:
            problems.append(f"no {kind} example")

    def run(argv, text, suffix):
        if shutil.which(argv[0]) is None and not os.path.exists(argv[0]):
            if required:
                problems.append(f"{argv[0]} missing")
            return
        with tempfile.NamedTemporaryFile("w", suffix=suffix, delete=False) as f:
            f.write(text)
        result = subprocess.run(argv + [f.name], capture_output=True, text=True)
        os.unlink(f.name)
        if result.returncode != 0:
            problems.append(f"{' '.join(argv)}: {result.stdout}{result.stderr}")

    for kind, text in blocks:
        if kind == "xml":
            job = plistlib.loads(text.encode())
            args = job["ProgramArguments"]
            if args[1:4] != ["status", "--format", "prometheus"] or args[4] != "--output" \
                    or job.get("StartInterval") != 60 or not job.get("Label"):
                problems.append(f"the metrics job does not run every minute: {job}")
        elif kind == "sh":
            run(["sh", "-n"], text, ".sh")
            run(["shellcheck", "--shell=sh"], text, ".sh")
        elif kind == "yaml":
            run([promtool, "check", "rules"], text, ".yml")
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
