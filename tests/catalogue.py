#!/usr/bin/env python3
"""Usage: catalogue.py CATALOGUE PROGRAMS SOURCE
Compares what documents, completions, editor files, word lists, the checker and the campaign of
faults repeat from the code with CATALOGUE, the program that prints it from the code. Names each
mention that is missing, and each for which the code has nothing."""

import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
programs, source = pathlib.Path(sys.argv[2]).resolve(), pathlib.Path(sys.argv[3]).resolve()
sys.path.insert(0, str(source / "scripts/lib"))
import fault_cases  # noqa: E402

entries = [line.split("\t") for line in
           subprocess.check_output([sys.argv[1]], text=True).splitlines()]
commands = {name for sort, name, _ in entries if sort == "command"}
arguments = {name: words for sort, name, words in entries if sort == "target"}
targets = set(arguments)
encoders = {name for sort, name, _ in entries if sort == "encoder"}
faults = {name: set(settings.split()) for sort, name, settings in entries if sort == "fault"}
# Other firmware need not have "dump", which secapp sends only for a script.
protocol = targets - {"dump"}
differences = 0


def compare(place, what, expected, found):
    global differences
    if not expected:
        sys.exit(f"the catalogue has no {what}")
    for name in sorted(expected - found):
        print(f"{place}: the {what} '{name}' is missing")
    for name in sorted(found - expected):
        print(f"{place}: '{name}' is not a {what}")
    differences += len(expected ^ found)


def part(path, start="", end="\\Z"):
    """The text of a file from a line on and up to another, given as regular expressions."""
    match = re.search(f"(?:{start})(?s:.*?)(?:{end})", (source / path).read_text(), re.M)
    if not match:
        sys.exit(f"{path}: no part from '{start}' to '{end}'")
    return match[0]


def words(pattern, text):
    """The words in the first group of each match."""
    return {word for found in re.findall(pattern, text, re.M)
            for word in re.split(r"[\s|]+", found) if word}


def first_cells(table):
    return "\n".join(row.split("|")[1] for row in table.splitlines() if row.startswith("|"))


vim = part("editors/vim/syntax/secapp.vim").replace("\n      \\", "")
nano = part("editors/nano/secapp.nanorc")
completion = part("completion/secapp")
command_list = part("docs/secapp.1", r"^\.It Cm program", r"^\.It Ar other")
command_table = part("docs/script-language.md", "^## Commands", "^## F")
for place, found in {
        "docs/secapp.1": words(r"^\.It Cm (\w+)", command_list),
        "docs/script-language.md": words(r"`(\w+)", first_cells(command_table)),
        "completion/secapp": words(r'compgen -W "(program[^"]*)"', completion.replace("\\\n", "")),
        "editors/vim": words(r"^syntax keyword secappTool contained nextgroup=\w+(.*)", vim) |
        words(r"^syntax keyword secappTextWord(.*) contained", vim) |
        words(r"^syntax match secappTool /\\<(\w+)", vim),
        "editors/nano": words(r"^icolor brightblue .*\*\(([\w|]+)\)", nano) |
        words(r"^icolor brightblue .*\*(\w+)\[", nano)}.items():
    compare(place, "command", commands, found)

sent = first_cells(part("docs/wire-protocol.md", r"^\| Line", "^$"))
vim_targets = words(r"^syntax keyword secappTarget contained(.*)", vim)
for place, expected, found in (
        ("editors/vim", targets - commands, vim_targets),
        ("editors/nano", targets - commands, words(r"^icolor cyan .*\*\(([\w|]+)\)", nano)),
        ("packaging/words", targets | commands, set(part("packaging/words").split())),
        ("docs/wire-protocol.md", protocol, words(r"`(\w+)", sent)),
        ("scripts/lib/fault_cases.py", targets, set(fault_cases.FIRMWARE))):
    compare(place, "command of the target", expected, found)
fixed = {name for name in protocol if "..." not in arguments[name]}
examples = [line.split() for line in re.findall("`([^`]+)`", sent.replace("␣", ""))]
compare("docs/wire-protocol.md", "command and number of arguments",
        {f"{name} {len(arguments[name].split())}" for name in fixed},
        {f"{line[0]} {len(line) - 1}" for line in examples if line[0] in fixed})
compare("docs/secapp.1", "encoder", encoders,
        words(r"^(\d) as ", part("docs/secapp.1", r"^\.It Fl a ", r"^\.It Fl A ")))
compare("completion/secapp", "encoder", encoders, words(r'-a\) .*compgen -W "([^"]*)"', completion))

fault_list = part("docs/vqxsim.1", r"^\.It Cm error", r"^\.El")
documented = dict(re.findall(r"^\.It Cm (\w+)(.*)", fault_list, re.M))
compare("docs/vqxsim.1", "fault", set(faults), set(documented))
for fault, settings in faults.items():
    found = words(r"Cm (\w+) Ns = Ns", documented.get(fault, ""))
    if settings or found:
        compare(f"docs/vqxsim.1, {fault}", "setting", settings, found)
compare("scripts/lib/fault_cases.py", "fault", set(faults), set(fault_cases.KINDS))
usage = subprocess.check_output([programs / "vqxsim", "--help"], text=True)
compare("docs/vqxsim.1", "option", words(r"^  (--[a-z-]+)", usage),
        words(r"^\.It Fl Fl ([a-z-]+)", re.sub("Fl Fl ", "Fl Fl --", part("docs/vqxsim.1"))))

# Facts that the checker contains: how many words a command takes, and how a command is spelt
with tempfile.TemporaryDirectory() as directory:
    script = pathlib.Path(directory) / "script"

    def reported(lines, message):
        """The first words of the lines that the checker reports with this message."""
        script.write_text("\n".join(lines) + "\n")
        run = subprocess.run([programs / "secapp-lint", script], stdout=subprocess.PIPE, text=True,
                             check=False)
        numbers = re.findall(rf"^[^:]*:(\d+): .*{message}", run.stdout, re.M)
        return {lines[int(number) - 1].split()[0] for number in numbers}

    any_words = {"echo", "print", "pause", "var", "version"}
    compare("src/checker", "command with a limit of words", commands - any_words,
            reported([f"{name} 1 1 1 1 1" for name in sorted(commands)], "no effect"))
    misspelt = {name[:-2] + name[-1] + name[-2]: name for name in commands | protocol}
    compare("src/checker", "suggested command", commands | protocol,
            {misspelt[word] for word in reported(sorted(misspelt), "did you mean")})
sys.exit(1 if differences else 0)
