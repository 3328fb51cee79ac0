#!/usr/bin/env python3
"""Many simulated boards at once, of this machine and of others, some of which fail, hang or are pulled: every one has its
row, and a second run of these alone makes all good. Usage: secapp_boards.py PROGRAMS SECAPP_BOARDS"""

import atexit
import csv
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time

programs, secapp_boards = (pathlib.Path(word).resolve() for word in sys.argv[1:])
SCRIPT = "echo serial [serial]; program [image] MORVI; verify [image] MORVI\n"
IMAGE = os.urandom(100000)
# Waits longer than any time-out below, under a name that no machine has installed.
SECAPP = "tested_secapp -g 60000"
started = []


def expect(what, wanted, got):
    if not (wanted in got if isinstance(got, str) else wanted == got):
        sys.exit(f"{what}:\n{got!r} instead of\n{wanted!r}")


def wait_until(condition):
    end = time.monotonic() + 60
    while not condition():
        if time.monotonic() > end:
            sys.exit("waited too long")
        time.sleep(0.02)


def start(*command, **keywords):
    started.append(subprocess.Popen([str(word) for word in command], **keywords))
    return started[-1]


def board(name, *options):
    os.makedirs(f"memory-{name}", exist_ok=True)
    simulator = start("vqxsim", "--link", name, "--memory", f"memory-{name}", *options, stdout=subprocess.DEVNULL)
    wait_until(lambda: os.path.exists(name))
    return simulator


def run(status, *words):
    ended = subprocess.run([secapp_boards, *words], text=True, capture_output=True, timeout=120, check=False)
    if ended.returncode != status:
        sys.exit(f"{words}: status {ended.returncode} instead of {status}\n{ended.stdout}{ended.stderr}")
    return ended


def rows(output):
    return {row["board"]: (row["result"], row["bytes"], row["error"]) for row in map(json.loads, output.splitlines())}


def many_boards():
    names = [f"good {number}" for number in range(29)] + ["failing", "hanging", "pulled"]
    with open("boards.csv", "w", newline="", encoding="utf-8-sig") as file:
        csv.writer(file).writerows([("device", "serial"), *((name, f'"{name}", made @ home') for name in names)])
    faults = {"failing": 'error,text=a "worn" cell,command=programPage,count=1', "hanging": "hang,s=100,command=burst",
              "pulled": "unplug,byte=50000,replug=0.5"}
    simulators = {name: board(name, *(["--fault", faults[name]] if name in faults else [])) for name in names}
    got = rows(run(1, "script", "--boards", "boards.csv", "--image", "image", "--timeout", "6", "--logs", "many", "--json",
                   "--secapp", SECAPP).stdout)
    expect("the rows", {**{name: ("good", 100000, "") for name in names}, "failing": ("failed", 0, 'a "worn" cell'),
                        "hanging": ("timeout", 0, "no end within the time-out"), "pulled": ("failed", 0, got["pulled"][2])}, got)
    expect("the log of the pulled one", "Device pulled is gone", pathlib.Path("many/32-pulled.log").read_text())
    expect("a serial number", 'serial "good 3", made @ home\n', pathlib.Path("many/4-good 3.log").read_text())

    simulators["hanging"].terminate()
    simulators["hanging"].wait()
    board("hanging")
    wait_until(lambda: os.path.exists("pulled"))
    table = csv.DictReader(run(0, "--retry-failed", "--logs", "many", "--csv").stdout.splitlines())
    expect("the table", [[name, "good", "100000", ""] for name in names],
           [[row[column] for column in ("board", "result", "bytes", "error")] for row in table])
    for name in names:
        expect(f"the memory of {name}", IMAGE, pathlib.Path(f"memory-{name}/MORVI.bin").read_bytes()[:len(IMAGE)])


def refusals():
    os.symlink("good 1", "other")
    for name, text in {"no_device": "board\nx\n", "no_value": "device,serial\nx\n"}.items():
        pathlib.Path(name).write_text(text)
    for status, text, *words in [
            (2, "either devices or --all or --boards", "script"),
            (2, "only the form of the table can be chosen", "--retry-failed", "--logs", "many", "--jobs", "1"),
            (2, "takes NAME=VALUE", "script", "good 1", "-v", "serial"),
            (1, "good 1 is named twice", "script", "good 1", "good 2", "good 1"),
            (1, "other is named twice, the other time as good 1", "script", "good 1", "other"),
            (1, "cannot read no_image", "script", "good 1", "--image", "no_image"),
            (1, "holds the logs of an earlier run", "script", "good 1", "--logs", "many"),
            (1, "the first of them is device", "script", "--boards", "no_device"),
            (1, "the board x in no_value has no serial", "script", "--boards", "no_value"),
            (1, "with several machines, a board is DEVICE@HOST", "script", "x", "--host", "a", "--host", "b"),
            (1, "no --host is c", "script", "x@c", "--host", "a", "--host", "b")]:
        expect(f"the refusal of {words}", text, run(status, *words).stderr)


def reports():
    # A report in the middle of the board's output.
    row = rows(run(1, "script", "x", "--json", "--secapp", r"printf 'half a lineError: script:3: no end\n'; exit 255; :").stdout)
    expect("the row", {"x": ("failed", 0, "no end")}, row)
    pathlib.Path("bin/secapp-lint").write_text('#!/bin/sh\necho "$3:1: warning: $2"\nexit 1\n')
    os.chmod("bin/secapp-lint", 0o755)
    expect("the warning", "script:1: warning: a=b", run(0, "script", "x", "-v", "a=b", "--secapp", "true").stderr)
    os.remove("bin/secapp-lint")


def starts_at_once():
    os.mkdir("at_once")
    runs = [start(secapp_boards, "../script", "x", "--secapp", "true", cwd="at_once", stdout=subprocess.DEVNULL) for _ in range(4)]
    expect("the statuses", [0] * 4, [run.wait(60) for run in runs])
    expect("the folders of logs", 4, len(os.listdir("at_once")))


def interrupts():
    board("endless", "--fault", "hang,s=100,command=burst")
    for number in (signal.SIGINT, signal.SIGTERM):
        pids = pathlib.Path(f"pids-{number}")
        pids.touch()
        flasher = start(secapp_boards, "script", "good 1", "endless", "last", "--image", "image", "--jobs", "1", "--json",
                        "--secapp", f"echo $$ >>{pids}; exec {SECAPP}", start_new_session=True, stdout=subprocess.PIPE, text=True)
        wait_until(lambda: pids.read_text().count("\n") == 2)
        # A terminal sends its signal to the whole group.
        (os.killpg if number == signal.SIGINT else os.kill)(flasher.pid, number)
        got = rows(flasher.communicate(timeout=60)[0])
        expect("the results", {"good 1": "good", "endless": "interrupted", "last": "not run"}, {name: got[name][0] for name in got})
        expect("the status", 128 + number, flasher.returncode)
        wait_until(lambda: not any(os.path.exists(f"/proc/{pid}") for pid in pids.read_text().split()))


def start_server(folder):
    """Two names for a server of this test, under one of which there is no secapp, and one that does not answer."""
    keys = []
    for key in ("server", "here", "bare"):
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", f"key_{key}"], check=True)
        os.mkdir(f"home_{key}")
        path = f"{folder}/bin:$PATH" if key == "here" else "$PATH"
        keys.append(f'command="cd {folder}/home_{key}; HOME=$PWD PATH={path}; eval \\"$SSH_ORIGINAL_COMMAND\\"" '
                    + pathlib.Path(f"key_{key}.pub").read_text())
    pathlib.Path("keys").write_text("".join(keys[1:]))
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    pathlib.Path("ssh_config").write_text("\n".join([
        f"Host here\nIdentityFile {folder}/key_here", f"Host bare\nIdentityFile {folder}/key_bare", "Host away\nPort 1",
        f"Host *\nHostName 127.0.0.1\nPort {port}", "IdentitiesOnly yes", "IdentityAgent none", "BatchMode yes", "LogLevel ERROR",
        f"UserKnownHostsFile {folder}/known\nStrictHostKeyChecking no\n"]))
    if os.geteuid() == 0 and not os.path.exists("/run/sshd"):
        os.mkdir("/run/sshd")
        atexit.register(os.rmdir, "/run/sshd")
    settings = [f"Port={port}", "ListenAddress=127.0.0.1", f"HostKey={folder}/key_server", f"AuthorizedKeysFile={folder}/keys",
                "StrictModes=no", "UsePAM=no", "PermitRootLogin=yes", "PidFile=none"]
    with open("sshd.log", "w") as log:
        server = start("/usr/sbin/sshd", "-D", "-e", "-f", "/dev/null", *(f"-o{setting}" for setting in settings), stderr=log)
    wait_until(lambda: server.poll() is not None or "listening" in pathlib.Path("sshd.log").read_text())


def other_machines():
    folder = os.getcwd()
    start_server(folder)
    os.symlink("image", "copy")
    pathlib.Path("carrying").write_text(SCRIPT + "verify copy MORVI\n")
    good = f"{folder}/good 3"
    hosts = [word for host in ("here", "bare", "away") for word in ("--host", host)]
    ended = run(1, "carrying", f"{good}@here", "/none@here", "x@bare", "x@away", "--image", f"{folder}/image", "--carry", "copy",
                   "-v", "serial=a@b", "--secapp", SECAPP, "--json", *hosts, "--", "--ssh", f"ssh -F {folder}/ssh_config")
    expect("what was said besides", [], ended.stderr.splitlines())
    got = rows(ended.stdout)
    expect("the row of a machine that does not answer", "away cannot be reached: ssh: connect to host", got["x@away"][2])
    expect("the rows", {f"{good}@here": ("good", 100000, ""), "/none@here": ("failed", 0, "/none: No such file or directory"),
                        "x@bare": ("failed", 0, "tested_secapp: command not found on bare"),
                        "x@away": ("failed", 0, got["x@away"][2])}, got)
    expect("what is left on the machine", [], os.listdir("home_here"))


def documented():
    """The man page and the completion name the options of the help."""
    root = secapp_boards.parent.parent
    options = sorted(re.findall(r"^  (?:-h, )?(--?[a-z-]+)", run(0, "--help").stdout, re.M))
    page = re.findall(r"^\.It Fl (Fl )?([a-z-]+)", (root / "docs/secapp-boards.1").read_text(), re.M)
    expect("the options of the man page", options, sorted(f"{'--' if long else '-'}{name}" for long, name in page))
    complete = 'source "$1"; COMP_WORDS=("$0" -) COMP_CWORD=1; _secapp_boards "$0"; echo "${COMPREPLY[@]}"'
    completed = subprocess.run(["bash", "-c", complete, secapp_boards, root / "completion/secapp-boards"], text=True,
                               stdout=subprocess.PIPE, check=True)
    expect("the options of the completion", options, sorted(completed.stdout.split()))


with tempfile.TemporaryDirectory() as temporary:
    os.chdir(temporary)
    os.mkdir("bin")
    os.symlink(programs / "secapp", "bin/tested_secapp")
    os.environ["PATH"] = f"{temporary}/bin:{programs}:{os.environ['PATH']}"
    pathlib.Path("script").write_text(SCRIPT)
    pathlib.Path("image").write_bytes(IMAGE)
    try:
        for check in (documented, many_boards, refusals, reports, starts_at_once, interrupts, other_machines):
            check()
    finally:
        for child in started:
            child.terminate()
            child.wait()
print("All rows are right")
