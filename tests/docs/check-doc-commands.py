#!/usr/bin/env python3
"""Keeps the docs true: every `brimble ...` line in the shell blocks of README.md and docs/*.md
runs here, in a throwaway home with small stand-ins for the files the docs name (demo.brim,
frames/, clip.gif, ...), or, where it needs the user's desktop or runs until stopped, at least
parses (`brimble --parse-only ...`); and every ```brim block passes `brimble validate`. A renamed
command, a dropped option, a value an option no longer takes or a script command or setting gone
fails with the doc's file and line.

    check-doc-commands.py BRIMBLE SOURCE_DIR            check the docs
    check-doc-commands.py BRIMBLE SOURCE_DIR --broken F  every command line in F must fail
    check-doc-commands.py BRIMBLE SOURCE_DIR --render S  script S renders, brimble on its PATH
"""

import argparse
import os
import re
import shlex
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib
from pathlib import Path

# Commands that only have to parse, each with the reason it is not run here.
PARSE_ONLY = {
    "record": "records the desktop until its duration or Ctrl-C",
    "still": "captures the desktop",
    "windows": "lists the desktop's windows",
    "window": "opens, moves and closes windows on the desktop",
    "input": "types and clicks on the desktop",
    "inspect": "starts Chromium or reads a running application",
    "display": "keeps a display up until it is stopped, or runs a program in it",
    "mcp-server": "serves MCP until its input closes",
    "update-check": "reads the release feed over the network",
    "report": "asks before it saves the archive",
}

# Exit statuses that mean the command ran as documented, where 0 is not the only one.
ACCEPTED_STATUS = {
    "doctor": {0, 1},  # 1 says something recording needs is missing, which a test machine may lack
}

SHELL_BLOCK = re.compile(r"^```(sh|bash|shell|console)\s*$")
SCRIPT_BLOCK = "```brim"
SUBSTITUTION = re.compile(r"\$\((brimble\s[^)]*)\)")
SEPARATORS = {"|", "||", "&&", ";", "&", ">", ">>", "<", "2>", "2>&1", ")"}
TIMEOUT_SECONDS = 30
RENDER_TIMEOUT_SECONDS = 120

DEMO_SCRIPT = 'set output "output.gif"\nrecord region 0 0 240 160 duration 0.4\n'
DEMO_TAPE = 'Output demo.gif\nSet Width 480\nSet Height 240\nType "echo hi"\nEnter\nSleep 200ms\n'


class Line:
    def __init__(self, doc, number, text):
        self.doc = doc
        self.number = number
        self.text = text
        self.script = False

    def where(self):
        return f"{self.doc}:{self.number}"


def doc_lines(path, shown_as):
    """The command lines of a Markdown file's shell blocks, continuations joined, and its script
    blocks, each as one Line whose text is the script (marked by `script`)."""
    lines = []
    block = None
    pending = None
    for number, raw in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
        if raw.startswith("```"):
            if block is None and raw.strip() == SCRIPT_BLOCK:
                block = Line(shown_as, number + 1, "")
                block.script = True
            elif block is None and SHELL_BLOCK.match(raw):
                block = "shell"
            elif block is None:
                block = "other"
            else:
                if isinstance(block, Line):
                    lines.append(block)
                block = None
            pending = None
            continue
        if isinstance(block, Line):
            block.text += raw + "\n"
            continue
        if block != "shell":
            continue
        if pending is not None:
            pending.text += " " + raw.rstrip()
        else:
            pending = Line(shown_as, number, raw.rstrip())
        if pending.text.endswith("\\"):
            pending.text = pending.text[:-1]
            continue
        lines.append(pending)
        pending = None
    return lines


def tokens_of(text):
    lexer = shlex.shlex(text, posix=True, punctuation_chars=";&|<>()")
    lexer.whitespace_split = True
    return list(lexer)


def commands_in(line):
    """The arguments of each brimble command a line holds."""
    try:
        tokens = tokens_of(line.text)
    except ValueError as error:
        raise ValueError(f"cannot be read as a shell line ({error})")
    found = []
    for token in tokens:
        for inner in SUBSTITUTION.findall(token):
            found.append(tokens_of(inner)[1:])
    words = []
    for token in tokens + [";"]:
        if token in SEPARATORS:
            while words and re.fullmatch(r"[A-Z_]+=.*", words[0]):
                words.pop(0)
            if words and Path(words[0]).name == "brimble":
                found.append(words[1:])
            words = []
        else:
            words.append(token)
    return found


def command_name(arguments):
    return next((word for word in arguments if not word.startswith("-")), "")


def write_png(path, width, height, shade):
    rows = b"".join(b"\x00" + bytes([shade, 255 - shade, (shade * 3) % 256]) * width
                    for _ in range(height))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(
            ">I", zlib.crc32(kind + data) & 0xFFFFFFFF)

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) +
                     chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


class Sandbox:
    """A home, state and config folder of its own, and the files the docs' examples name."""

    def __init__(self, root, brimble):
        self.brimble = brimble
        self.work = root / "work"
        self.clip = None
        home = root / "home"
        scripts = root / "scripts"
        # An AI tool found on this computer (Cursor's folder), for the MCP commands to register with.
        for folder in (self.work / "frames", home / ".cursor", scripts):
            folder.mkdir(parents=True)
        self.env = {key: value for key, value in os.environ.items()
                    if key not in ("DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS",
                                   "XDG_SESSION_TYPE", "PULSE_SERVER")}
        self.env.update(HOME=str(home), XDG_STATE_HOME=str(home / ".local/state"),
                        XDG_CONFIG_HOME=str(home / ".config"),
                        XDG_DATA_HOME=str(home / ".local/share"),
                        BRIMBLE_SCRIPT_DIR=str(scripts),
                        BRIMBLE_HISTORY_FILE=str(home / "history.json"),
                        BRIMBLE_UPDATE_FEED="http://127.0.0.1:9/feed.json")
        for index in range(8):
            write_png(self.work / "frames" / f"frame-{index:03d}.png", 640, 400, index * 30)
        for name in ("demo.brim", "hello.brim", "setup.brim"):
            (self.work / name).write_text(DEMO_SCRIPT)
        (scripts / "demo.brim").write_text(DEMO_SCRIPT)
        (self.work / "demo.tape").write_text(DEMO_TAPE)
        (self.work / "page.html").write_text("<button>Save</button>\n")
        # A GIF of four seconds; each command gets it afresh, whatever the one before wrote.
        made = self.run(["encode", "frames/", "--fps", "2", "-o", str(root / "clip.gif")])
        if made.returncode != 0:
            raise RuntimeError("could not make clip.gif for the examples: " + made.stdout)
        self.clip = root / "clip.gif"

    def run(self, arguments, stdin=DEMO_SCRIPT, timeout=TIMEOUT_SECONDS):
        if self.clip is not None:
            for name in ("clip.gif", "long.gif"):
                shutil.copy(self.clip, self.work / name)
        return subprocess.run([self.brimble] + arguments, cwd=self.work, env=self.env,
                              input=stdin, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, errors="replace", timeout=timeout)


def outside_the_sandbox(arguments):
    """Whether a command names a path a run here could write beyond its folder."""
    return any(word.startswith(("/", "~")) or ".." in Path(word).parts for word in arguments)


def check_brimble(sandbox, arguments, stdin=DEMO_SCRIPT):
    """None when the command line holds, else why not."""
    name = command_name(arguments)
    # A path of the user's own is only parsed: the check must write nothing outside its folder.
    parse_only = name in PARSE_ONLY or outside_the_sandbox(arguments)
    try:
        result = sandbox.run(["--parse-only"] + arguments if parse_only else arguments, stdin)
    except subprocess.TimeoutExpired:
        return f"still running after {TIMEOUT_SECONDS} s"
    accepted = {0} if parse_only else ACCEPTED_STATUS.get(name, {0})
    if result.returncode in accepted:
        return None
    output = [text for text in result.stdout.splitlines() if text.strip()]
    said = next((text for text in output if re.match(r"(Line \d|brimble|.*error)", text, re.I)),
                output[-1] if output else "(nothing)")
    mode = "parsing" if parse_only else "running"
    return f"exit {result.returncode} {mode} it: {said}"


def check(lines, brimble):
    results = []
    with tempfile.TemporaryDirectory(prefix="brimble-docs-") as root:
        sandbox = Sandbox(Path(root), brimble)
        for line in lines:
            if line.script:
                problem = check_brimble(sandbox, ["validate", "-"], line.text)
                wrong = re.search(r"Line (\d+)", problem or "")
                if wrong:  # the doc's own line of the script's line that is wrong
                    line = Line(line.doc, line.number + int(wrong.group(1)) - 1, line.text)
                    line.script = True
                results.append((line, ["validate", "-"], problem))
                continue
            try:
                commands = commands_in(line)
            except ValueError as error:
                results.append((line, None, str(error)))
                continue
            for arguments in commands:
                problem = check_brimble(sandbox, arguments or ["--help"])
                results.append((line, arguments, problem))
    return results


def render(script, brimble):
    """Runs a script that shows brimble at work (the README's GIF), as `make readme-gif` does."""
    with tempfile.TemporaryDirectory(prefix="brimble-docs-") as root:
        sandbox = Sandbox(Path(root), brimble)
        sandbox.env["PATH"] = str(Path(brimble).parent) + os.pathsep + sandbox.env.get("PATH", "")
        output = Path(root) / "rendered.gif"
        try:
            result = sandbox.run(["run", "--headless", "-q", str(script.resolve()), "-o",
                                  str(output)], timeout=RENDER_TIMEOUT_SECONDS)
        except subprocess.TimeoutExpired:
            print(f"{script}: still running after {RENDER_TIMEOUT_SECONDS} s")
            return 1
        if result.returncode != 0 or not output.is_file():
            print(f"{script}: exit {result.returncode}, no animation:\n{result.stdout}")
            return 1
        if not output.read_bytes().startswith(b"GIF89a"):
            print(f"{script}: {output.name} is not a GIF")
            return 1
        print(result.stdout.strip())
        return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("brimble", type=Path)
    parser.add_argument("source_dir", type=Path)
    parser.add_argument("--broken", type=Path,
                        help="a file of command lines that must each fail (the check's own test)")
    parser.add_argument("--render", type=Path, help="a script to render with brimble on PATH")
    options = parser.parse_args()
    if options.render:
        return render(options.render, str(options.brimble.resolve()))

    if options.broken:
        docs = [(options.broken, options.broken.name)]
    else:
        docs = [(options.source_dir / "README.md", "README.md")] + [
            (path, f"docs/{path.name}") for path in sorted((options.source_dir / "docs").glob("*.md"))]
    lines = [line for path, shown_as in docs for line in doc_lines(path, shown_as)]
    results = check(lines, str(options.brimble.resolve()))
    commands = [result for result in results if result[1] is not None]
    problems = [result for result in results if result[2] is not None]

    if options.broken:
        held = [line for line, _, problem in results if problem is None]
        for line in held:
            print(f"{line.where()}: should have failed, but holds: {line.text.strip()}")
        for line, _, problem in problems:
            print(f"{line.where()}: caught: {problem}")
        if not commands or held:
            return 1
        print(f"All {len(commands)} broken command lines were caught.")
        return 0

    for line, _, problem in problems:
        shown = "the script block" if line.script else line.text.strip()
        print(f"{line.where()}: {shown}\n    {problem}")
    parsed = sum(1 for _, arguments, _ in commands
                 if command_name(arguments) in PARSE_ONLY or outside_the_sandbox(arguments))
    scripts = sum(1 for line, _, _ in commands if line.script)
    print(f"{len(commands)} brimble commands and scripts in {len(docs)} files: "
          f"{len(commands) - parsed - scripts} run, {parsed} parsed only, {scripts} scripts "
          f"validated; {len(problems)} wrong.")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
