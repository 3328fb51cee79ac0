#!/usr/bin/env python3
"""Many simulated boards at the same time, of this host and of others, some of which fail, hang or are pulled; files, names
and cells of every kind; runs that must not touch a board. Usage: secapp_boards.py PROGRAMS SECAPP_BOARDS"""

import csv
import hashlib
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

programs, secapp_boards = (pathlib.Path(word).resolve() for word in sys.argv[1:])
SCRIPT = "echo serial [serial]; erase MORVI; program [image] MORVI; verify [image] MORVI\n"
FILE = "erase MORVI; program [file] MORVI; verify [file] MORVI\n"
IMAGE = os.urandom(100000)
# Waits longer than any time-out below, under a name that no host has installed.
SECAPP = "tested_secapp -g 60000"
SSHD = "/usr/sbin/sshd"
started = []


def expect(what, wanted, got):
    if not (wanted and wanted in got if isinstance(got, str) else wanted == got):
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


def run(status, *words, **keywords):
    ended = subprocess.run([secapp_boards, *words], capture_output=True, timeout=120, check=False,
                           **{"text": True, "errors": "surrogateescape", **keywords})
    if ended.returncode != status:
        sys.exit(f"{words}: status {ended.returncode} instead of {status}\n{ended.stdout}{ended.stderr}")
    return ended


def rows(output):
    return {row["board"]: (row["result"], row["bytes"], row["error"]) for row in map(json.loads, output.splitlines())}


def holds(name, image):
    expect(f"the memory of {name}", image, pathlib.Path(f"memory-{name}/MORVI.bin").read_bytes()[:len(image)])


def write(files):
    for name, content in files.items():
        os.makedirs(os.path.dirname(name) or b"." if isinstance(name, bytes) else os.path.dirname(name) or ".", exist_ok=True)
        with open(name, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())


def many_boards():
    names = [f"good {number}" for number in range(30)] + ["failing", "pulled"]
    with open("boards.csv", "w", newline="", encoding="utf-8-sig") as file:
        csv.writer(file).writerows([("device", "serial"), *((name, f'"{name}", made @ home') for name in names)])
    faults = {"failing": 'error,text=a "worn" cell,command=programPage,count=1',
              "pulled": "unplug,byte=50000,replug=0.5"}
    for name in names:
        board(name, *(["--fault", faults[name]] if name in faults else []))
    output = run(1, "script", "--boards", "boards.csv", "--image", "image", "--logs", "many", "--json",
                 "--secapp", SECAPP).stdout
    got = rows(output)
    reason = got.pop("pulled")
    expect("the row of the pulled one", ("failed", 0), reason[:2])
    expect("its error", True, reason[2] in ("Device pulled is gone", "Input/output error"))
    expect("the rows", {**{name: ("good", 100000, "") for name in names[:-2]}, "failing": ("failed", 0, 'a "worn" cell')}, got)
    expect("a serial number", 'serial "good 3", made @ home\n', pathlib.Path("many/4-good_3.log").read_text())
    row = json.loads(output.splitlines()[3])
    expect("the record", [f"{os.getcwd()}/good 3", "", "image", 100000, hashlib.sha256(IMAGE).hexdigest(), "script",
                          hashlib.sha256(SCRIPT.encode()).hexdigest(), "many/4-good_3.log", ""],
           [row[name] for name in ("device", "host", "image", "image_size", "image_sha256", "script", "script_sha256", "log",
                                   "identity")])
    expect("the start", True, bool(re.fullmatch(r"2\d\d\d-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d", row["start"])))
    stored = json.loads(pathlib.Path("many/run.json").read_text())["run"]["rows"][3]
    expect("the stored row", row, {**stored, "log": f"many/{stored['log']}"})

    # The retry takes nothing from outside its directory.
    wait_until(lambda: os.path.exists("pulled"))
    write({"script": "echo another\n", "image": b"rebuilt"})
    os.rename("many", "bin/moved")
    table = csv.DictReader(run(0, "--retry-failed", "--logs", "moved", "--csv", cwd="bin").stdout.splitlines())
    expect("the table", [[name, "good", "100000", ""] for name in names],
           [[row[column] for column in ("board", "result", "bytes", "error")] for row in table])
    write({"script": SCRIPT, "image": IMAGE})
    for name in names:
        holds(name, IMAGE)


def files_and_names():
    """What is good holds the image, whatever the names of files and the settings of parallel."""
    log = {}
    names = ["20261126", "build/20261126", "fw=2.bin", "my fw.bin", "it's \"fw\".bin", "[fw];#.bin", "-fw.bin", "new\nline.bin",
             b"caf\xe9.bin", f"{os.getcwd()}/absolute.bin", "../" + os.path.basename(os.getcwd()) + "/up.bin"]
    for number, name in enumerate(names):
        image = os.urandom(1000)
        write({name: image, "fw": b"the wrong one"})
        form = [["--csv"], ["--json"], []][number % 3]
        image_option = b"--image=" + name if isinstance(name, bytes) else f"--image={name}"
        run(0, "plain", "good 1", image_option, "--logs", "L{#}x", "--secapp", SECAPP, *form)
        holds("good 1", image)
        log = pathlib.Path("L{#}x/1-good_1.log").read_text()
        expect("the log", "Programmed 1000 bytes", log)
        shutil.rmtree("L{#}x")
    cells = ["a.bin", "sub/b.bin", "../c.bin", f"{os.getcwd()}/d.bin", "sub/../e.bin"]
    write({name: name for name in cells})
    write({"files.csv": "device,name,file\n" + "".join(f"good {n},station {n},{name}\n" for n, name in enumerate(cells)),
           "file": FILE})
    run(0, "file", "--boards", "files.csv", "--logs", "cells", "--secapp", SECAPP)
    write({name: b"rebuilt" for name in cells})
    for number, name in enumerate(cells):
        holds(f"good {number}", name.encode())
    settings = {"PARALLEL": "--shellquote", "PARALLEL_SHELL": "/bin/false", "SHELL": "/bin/false", "PARALLEL_HOME": "settings",
                "HOME": f"{os.getcwd()}/settings"}
    write({"settings/config": "--dry-run\n", "settings/.parallel/config": "--dry-run\n"})
    os.chdir("bin")
    run(0, "../script", "../good 1", "-v", "serial=1", "--image", "../image", "--secapp", "./tested_secapp",
        env={**os.environ, **settings})
    os.chdir("..")
    holds("good 1", IMAGE)


def refusals():
    """Runs that cannot succeed touch no board, and leave nothing."""
    os.symlink("good 1", "other")
    os.mkfifo("fifo")
    write({"empty": "", "elf": b"\x7fELF\2\1\1" + bytes(64), "hex": ":020000040000FA\r\n:00000001FF\r\n", "srec": "S00600004844521B\r\n",
           "no_file": "program nowhere.bin MORVI; verify nowhere.bin MORVI\n", "unused": "program a.bin MORVI; verify a.bin MORVI\n",
           "named": f"program {os.getcwd()}/a.bin MORVI\n", "file": FILE})
    tables = {"no_device": "board\nx\n", "no_value": "device,serial\ngood 1,\n", "cut": "device,serial\nx,1\ngood 1,QUJD==\n",
              "control": "device,serial\ngood 1,a\0b\n", "tab": "device,serial\ngood 1,a\tb\n", "spaces": "device,serial\ngood 1, 1\n",
              "latin": "device,serial\ngood 1,ä\n".encode("latin-1"), "more": "device,serial\ngood 1,1,2\n", "twice":
              "device,name\ngood 1,a\ngood 2,a\n", "quote": 'device,serial\ngood 1,"1\n', "own": "device,image\ngood 1,image\n",
              "zero": "device\ngood\0 1\n"}
    write({f"{name}.csv": text for name, text in tables.items()})
    image = ("--image", "image", "-v", "serial=1")
    for status, text, *words in [
            (2, "either devices or --all or --boards", "script"),
            (2, "only --csv and --json go with it", "--retry-failed", "--logs", "bin/moved", "--jobs", "1"),
            (2, "takes NAME=VALUE", "script", "good 1", "-v", "serial"),
            (2, "has a '='", "script", "good 1", "-v", "serial=QUJD=="),
            (2, "is empty", "script", "good 1", "-v", "=1"),
            (2, "--accept needs --rehearse", "script", "good 1", "--accept", "x"),
            (2, "unrecognized arguments: --shellquote", "script", "good 1", "--shellquote"),
            (1, "good 1 is named twice", "script", "good 1", "good 2", "good 1"),
            (1, "other is named twice, also as good 1", "script", "good 1", "other"),
            (1, "image is not a serial device", "script", "good 1", "image"),
            (1, "good 1 is not a regular file", "good 1", "good 2", *image),
            (1, "/dev/stdin is not a regular file", "/dev/stdin", "good 1", *image),
            (1, "no_image: No such file or directory", "script", "good 1", "--image", "no_image"),
            (1, "fifo is not a regular file", "script", "good 1", "--image", "fifo"),
            (1, "bin is not a regular file", "script", "good 1", "--image", "bin"),
            (1, "/dev/zero is not a regular file", "script", "good 1", "--image", "/dev/zero"),
            (1, "script:1: error: 'empty'", "script", "good 1", "--image", "empty", "-v", "serial=1"),
            (1, "objcopy -O binary", "script", "good 1", "--image", "elf", "-v", "serial=1"),
            (1, "script:1: error: 'hex'", "script", "good 1", "--image", "hex", "-v", "serial=1"),
            (1, "script:1: error: 'srec'", "script", "good 1", "--image", "srec", "-v", "serial=1"),
            (1, "script:1: error: '[image]'", "script", "good 1", "-v", "serial=1"),
            (1, "no_file:1: error: 'nowhere.bin'", "no_file", "good 1"),
            (1, "unused: error: [image] is not programmed or verified (good 1)", "unused", "good 1", "--image", "image"),
            (1, "names /", "named", "good 1"),
            (1, "fifo is not a regular file", "file", "good 1", "-v", "file=fifo"),
            (1, "the variable image is given twice", "script", "good 1", *image, "-v", "image=a.bin"),
            (1, "the variable image is given twice", "script", "--boards", "own.csv", *image),
            (1, "no_secapp: command not found", "script", "good 1", *image, "--secapp", "no_secapp"),
            (1, "bin/moved cannot be made", "script", "good 1", *image, "--logs", "bin/moved"),
            (1, "no_device.csv:1: must name the columns", "script", "--boards", "no_device.csv"),
            (1, "no_value.csv:2: serial is empty", "script", "--boards", "no_value.csv"),
            (1, "cut.csv:3: serial has a '='", "script", "--boards", "cut.csv"),
            (1, "control.csv:2: ", "script", "--boards", "control.csv"),
            (1, "zero.csv:2: ", "script", "--boards", "zero.csv"),
            (1, "tab.csv:2: serial has a control character: 'a\\tb'", "script", "--boards", "tab.csv"),
            (1, "spaces.csv:2: serial begins or ends with a space: ' 1'", "script", "--boards", "spaces.csv"),
            (1, "latin.csv:2: not UTF-8 text", "script", "--boards", "latin.csv"),
            (1, "more.csv:2: there are more values than columns", "script", "--boards", "more.csv"),
            (1, "twice.csv:3: the name a is used twice", "script", "--boards", "twice.csv"),
            (1, "quote.csv:2: ", "script", "--boards", "quote.csv"),
            (1, "with several hosts, a board is DEVICE@HOST", "script", "x", "--host", "a", "--host", "b"),
            (1, "no --host is c", "script", "x@c", "--host", "a", "--host", "b"),
            (1, "needs an absolute path", "script", "x", "--host", "a")]:
        before = sorted(os.listdir())
        ended = run(status, *words, *(["--secapp", "recording_secapp"] * (status == 1 and "--secapp" not in words)))
        expect(f"the refusal of {words}", text, ended.stderr)
        expect(f"what is left of {words}", before, sorted(os.listdir()))
        expect(f"no board is touched by {words}", False, os.path.exists("ran"))


def records():
    """A directory that does not hold what its run needs is refused."""
    holds("good 1", IMAGE)
    name = next(pathlib.Path("bin/moved/files").glob("image-*"))
    kept, text = pathlib.Path("bin/moved/run.json").read_text(), name.read_bytes()
    for what, path, content in [
            ("is incomplete or was changed", "run.json", kept[:-9]), ("is incomplete or was changed", "run.json", "{}"),
            ("is incomplete or was changed", "run.json", "[1]"), ("does not hold an earlier run", "run.json", None),
            ("is incomplete or was changed", "run.json", kept.replace('"jobs": 32', '"jobs": 33')),
            ("was changed after the run began", f"files/{name.name}", b"another"), ("No such file", f"files/{name.name}", None)]:
        os.remove(f"bin/moved/{path}")
        if content is not None:
            write({f"bin/moved/{path}": content})
        expect(f"the refusal of {path}", what, run(1, "--retry-failed", "--logs", "bin/moved").stderr)
        write({"bin/moved/run.json": kept, name: text})
    expect("the repaired run", "32 of 32 boards are good", run(0, "--retry-failed", "--logs", "bin/moved").stdout)


def reports():
    """A row is good only if the log shows that secapp ran the script to its end."""
    write({"plain": "echo plain\n", "end": "?\necho never\n"})
    for what, wanted, script, secapp in [
            ("a report in the middle of a line", "no end", "plain", r"printf 'half a lineError: script:3: no end\n'; exit 255"),
            ("no script", "secapp did not run the script to its end", "plain", "exit 0"),
            ("a false end", "secapp did not run the script to its end", "plain", "echo 0123456789abcdef end 0"),
            ("a status", "status 3", "plain", "exit 3")]:
        write({"bin/faked_secapp": f"#!/bin/sh\n{secapp}\n"})
        os.chmod("bin/faked_secapp", 0o755)
        expect(what, {"x": ("failed", 0, wanted)}, rows(run(1, script, "x", "--json", "--secapp", "faked_secapp").stdout))
    expect("a script that ends early", {"good 1": ("failed", 0, "secapp did not run the script to its end")},
           rows(run(1, "end", "good 1", "--json", "--force", "--secapp", SECAPP).stdout))
    long = "x" * 90
    table = run(1, "plain", long, "good 1", "--secapp", "faked_secapp", "--logs", "long").stdout.splitlines()
    expect("the rows", True, all(len(line) <= 100 for line in table) and len(table) == 4)
    write({"warned": "erase MORVI; program image MORVI\n"})
    expect("a warning", "warned:1: warning: no verify of 'image'", run(0, "warned", "good 1", "--secapp", SECAPP).stderr)
    got = json.loads(run(0, "script", "good 1", "--image", "image", "-v", "serial=1", "--identify", "--json", "--secapp", SECAPP).stdout)
    expect("the identity", "Serial = 5a100000-00000001-00c0ffee-20240229; USB vendor", got["identity"])


def rehearsal():
    """The script fits all kinds of boards, or none is touched but for questions."""
    simulators = [board("small", "--region", "MORVI,base=0x1000,size=64K,page=256,buffer=4K"), board("special")]
    write({"special.txt": "unlockSpecial\n" + FILE, "small.bin": os.urandom(9000)})
    words = ("special.txt", "good 1", "good 2", "small", "--json", "--secapp", "recording_secapp", "--rehearse")
    got = rows(run(1, *words, "--accept", "unlockSpecial", "-v", "file=image").stdout)
    expect("the rows", {"good 1": ("not run", 0, ""), "good 2": ("not run", 0, "")}, {name: got[name] for name in list(got)[:2]})
    expect("the row of the small one", "on its twin: Binary image image", got["small"][2])
    expect("the questions", ["queryFlash"] * 3, [line.split()[-1] for line in pathlib.Path("ran").read_text().splitlines()
                                                if "pts" not in line])
    os.remove("ran")
    expect("an unknown command", "on its twin: ", rows(run(1, *words, "-v", "file=small.bin").stdout)["good 1"][2])
    write({"plain.txt": FILE})
    run(0, "plain.txt", *words[1:], "-v", "file=small.bin")
    for name in ("good 1", "good 2", "small"):
        holds(name, pathlib.Path("small.bin").read_bytes())
    for simulator in simulators:
        simulator.terminate()


def starts_at_once():
    os.mkdir("at_once")
    write({"end.txt": "delay 1\n"})
    runs = [start(secapp_boards, "../end.txt", "../good 1", "--secapp", "true", cwd="at_once", stdout=subprocess.DEVNULL)
            for _ in range(4)]
    expect("the statuses", [1] * 4, [run.wait(60) for run in runs])
    expect("the directories", 4, len(os.listdir("at_once")))


def time_outs_and_interrupts():
    board("endless", "--fault", "hang,s=1000,command=burst")
    expect("a time-out", {"endless": ("timeout", 0, "no end within the time-out")}, rows(run(
        1, "script", "endless", "--image", "image", "-v", "serial=1", "--timeout", "1", "--json", "--secapp", SECAPP).stdout))
    for number in (signal.SIGINT, signal.SIGTERM):
        pathlib.Path("pids").write_text("")
        flasher = start(secapp_boards, "script", "good 1", "endless", "last", "--image", "image", "--jobs", "1", "--json", "-v",
                        "serial=1", "--secapp", "waiting_secapp", start_new_session=True, stdout=subprocess.PIPE, text=True)
        wait_until(lambda: pathlib.Path("pids").read_text().count("\n") == 2)
        # A terminal sends its signal to the whole group.
        (os.killpg if number == signal.SIGINT else os.kill)(flasher.pid, number)
        got = rows(flasher.communicate(timeout=60)[0])
        expect("the results", {"good 1": "good", "endless": "interrupted", "last": "not run"}, {name: got[name][0] for name in got})
        expect("the status", 128 + number, flasher.returncode)
        wait_until(lambda: not any(os.path.exists(f"/proc/{pid}") for pid in pathlib.Path("pids").read_text().split()))


def killed():
    """What has ended is believed after parallel or the program itself was killed; what still runs is not run again."""
    simulator = board("slow", "--fault", "hang,s=1000,command=burst")
    for victim in ("parallel", "itself"):
        pathlib.Path("pids").write_text("")
        words = ("--logs", f"killed {victim}", "--json")
        flasher = start(secapp_boards, "script", "good 1", "slow", "--image", "image", "-v", "serial=1", *words, "--secapp",
                        "waiting_secapp", stdout=subprocess.PIPE, text=True)
        wait_until(lambda: pathlib.Path("pids").read_text().count("\n") == 2
                   and " end 0\n" in pathlib.Path(f"killed {victim}/1-good_1.log").read_text())
        pids = pathlib.Path("pids").read_text().split()
        parallel = pathlib.Path(f"/proc/{flasher.pid}/task/{flasher.pid}/children").read_text().split()[0]
        os.kill(int(parallel) if victim == "parallel" else flasher.pid, signal.SIGKILL)
        if victim == "parallel":
            got = rows(flasher.communicate(timeout=60)[0])
            expect("the results", ["good", "interrupted"], [got[name][0] for name in got])
        flasher.wait()
        expect("the lock", "belongs to a run that has not ended", run(1, "--retry-failed", *words).stderr)
        for pid in pids:
            if os.path.exists(f"/proc/{pid}"):
                os.kill(int(pid), signal.SIGKILL)
        wait_until(lambda: subprocess.run(["flock", "-n", words[1], "true"], check=False).returncode == 0)
    simulator.terminate()
    simulator.wait()
    board("slow")
    pathlib.Path("pids").write_text("")
    expect("the rows", {"good 1": ("good", 100000, ""), "slow": ("good", 100000, "")},
           rows(run(0, "--retry-failed", *words).stdout))
    expect("the boards run again", 1, pathlib.Path("pids").read_text().count("\n"))


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
    if os.geteuid() == 0:
        os.makedirs("/run/sshd", exist_ok=True)
    settings = [f"Port={port}", "ListenAddress=127.0.0.1", f"HostKey={folder}/key_server", f"AuthorizedKeysFile={folder}/keys",
                "StrictModes=no", "UsePAM=no", "PermitRootLogin=yes", "PidFile=none"]
    with open("sshd.log", "w") as log:
        server = start(SSHD, "-D", "-e", "-f", "/dev/null", *(f"-o{setting}" for setting in settings), stderr=log)
    wait_until(lambda: server.poll() is not None or "listening" in pathlib.Path("sshd.log").read_text())


def other_hosts():
    folder = os.getcwd()
    start_server(folder)
    good = f"{folder}/good 3"
    write({"20261126": os.urandom(1000), "second": os.urandom(500),
           "both": "erase MORVI; program second MORVI+0x1000; program [image] MORVI; verify [image] MORVI; verify second MORVI+0x1000; echo [serial]\n"})
    hosts = [word for host in ("here", "bare", "away") for word in ("--host", host)]
    ssh = ["--ssh", f"ssh -F {folder}/ssh_config"]
    ended = run(1, "both", f"{good}@here", "/none@here", "/x@bare", "/x@away", "--image", "20261126", "-v", "serial=a@b", "--secapp",
                SECAPP, "--json", *hosts, *ssh)
    expect("what was said besides", [], ended.stderr.splitlines())
    got = rows(ended.stdout)
    reason = got.pop("/x@away")
    expect("the row of a host that does not answer", "away cannot be used: ssh: connect to host", reason[2])
    expect("the rows", {f"{good}@here": ("good", 1500, ""), "/none@here": ("failed", 0, "/none: No such file or directory"),
                        "/x@bare": ("failed", 0, "tested_secapp: command not found on bare")}, got)
    holds("good 3", pathlib.Path("20261126").read_bytes())
    expect("what is left on the host", [], os.listdir("home_here"))
    os.symlink("good 3", "link")
    expect("a device with two links", "is named twice, also as", run(
        1, "both", f"{good}@here", f"{folder}/link@here", *hosts[:2], *ssh, "--secapp", SECAPP).stderr)
    got = rows(run(0, "both", good, "--host", "here", "--image", "20261126", "-v", "serial=1", "--rehearse", "--json",
                   "--secapp", SECAPP, *ssh).stdout)
    expect("a rehearsal", {good: ("good", 1500, "")}, got)


def documented():
    """The help, the man page and the completion name the same options."""
    root = secapp_boards.parent.parent
    options = sorted(re.findall(r"^  (?:-h, )?(--?[a-z-]+)", run(0, "--help").stdout, re.M))
    page = re.findall(r"^\.It Fl (Fl )?([a-z-]+)", (root / "docs/secapp-boards.1").read_text(), re.M)
    expect("the options of the man page", options, sorted(f"{'--' if long else '-'}{name}" for long, name in page))
    for word, wanted in {"--im": "--image", "--retry": "--retry-failed", "--re": "--rehearse --retry-failed"}.items():
        complete = 'source "$1"; COMP_WORDS=("$0" "$2") COMP_CWORD=1; _secapp_boards "$0"; echo "${COMPREPLY[@]}"'
        completed = subprocess.run(["bash", "-c", complete, secapp_boards, root / "completion/secapp-boards", word], text=True,
                                   stdout=subprocess.PIPE, check=True)
        expect("a completion", wanted.split(), sorted(completed.stdout.split()))
    version = subprocess.run(["secapp-lint", "--version"], text=True, stdout=subprocess.PIPE, check=True).stdout.split()[1]
    expect("the version", f"secapp-boards {version}\n", run(0, "--version").stdout)


if not shutil.which("parallel"):
    print("GNU parallel is not installed")
    sys.exit(77)
with tempfile.TemporaryDirectory() as temporary:
    os.mkdir(f"{temporary}/work")
    os.chdir(f"{temporary}/work")
    os.mkdir("bin")
    os.symlink(programs / "secapp", "bin/tested_secapp")
    write({"bin/recording_secapp": f'#!/bin/sh\necho "$@" >>{temporary}/work/ran\nexec {SECAPP} "$@"\n',
           "bin/waiting_secapp": f'#!/bin/sh\necho $$ >>{temporary}/work/pids\nexec {SECAPP} "$@"\n'})
    for program in ("recording_secapp", "waiting_secapp"):
        os.chmod(f"bin/{program}", 0o755)
    os.environ["PATH"] = f"{os.getcwd()}/bin:{programs}:{os.environ['PATH']}"
    write({"script": SCRIPT, "plain": "erase MORVI; program [image] MORVI; verify [image] MORVI\n", "image": IMAGE})
    try:
        for check in (documented, many_boards, files_and_names, refusals, records, reports, rehearsal, starts_at_once, time_outs_and_interrupts,
                      killed):
            check()
        if os.path.exists(SSHD):
            other_hosts()
    finally:
        for child in started:
            child.terminate()
            child.wait()
print("All rows are right")
