#!/usr/bin/env python3
"""Reads the bundle's Info.plist and the LaunchAgent with a real plist parser and
checks what macOS relies on: an accessory app whose versions are the project's,
that claims no older macOS than its Qt supports, and a login item that starts the
installed executable and is listed under the application's name.

Usage: check-plists.py INFO_PLIST LAUNCH_AGENT PROJECT_VERSION QT_MACOS_MINIMUM"""
import plistlib
import sys

INSTALLED = "/Library/Application Support/Varnel/VarnelStatus.app/Contents/MacOS/VarnelStatus"


def version(text):
    return tuple(int(part) for part in text.split("."))


def main(info_path, agent_path, project_version, qt_minimum):
    problems = []

    def expect(ok, what):
        if not ok:
            problems.append(what)

    with open(info_path, "rb") as f:
        info = plistlib.load(f)
    expect(info.get("CFBundleIdentifier") == "com.varnel.tray", "bundle identifier")
    expect(info.get("CFBundleExecutable") == "VarnelStatus", "bundle executable")
    expect(info.get("LSUIElement") is True, "LSUIElement keeps it an accessory app")
    for key in ("CFBundleShortVersionString", "CFBundleVersion"):
        expect(info.get(key) == project_version, f"{key} is the project version")
    minimum = info.get("LSMinimumSystemVersion", "")
    expect(version(minimum) >= version(qt_minimum),
           f"LSMinimumSystemVersion {minimum} is below Qt's {qt_minimum}")
    expect("${" not in repr(info) and "@" not in repr(info), "no unexpanded variable")

    with open(agent_path, "rb") as f:
        agent = plistlib.load(f)
    expect(agent.get("Label") == "com.varnel.tray", "agent label")
    expect(agent.get("ProgramArguments") == [INSTALLED], "agent starts the installed executable")
    expect("com.varnel.tray" in agent.get("AssociatedBundleIdentifiers", []),
           "login item associated with the bundle")
    expect(agent.get("LimitLoadToSessionType") == "Aqua", "agent runs in the user's GUI session")

    for problem in problems:
        print(f"check-plists: {problem}", file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
