#!/usr/bin/env python3
"""Runs of secapp-boards on many simulated boards: faults, files and names of every kind, runs that
must not touch a board, retries, rehearsals, signals, and remote hosts where sshd is installed.
Usage: secapp_boards.py PROGRAMS SECAPP_BOARDS. Status 77 without GNU parallel."""

import csv
import hashlib
import json
import os
import pathlib
import re
import shlex
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
WITH_IMAGE = "--image image -v serial=1"
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


def stop(process):
    process.terminate()
    process.wait()


def board(name, *options):
    os.makedirs(f"memory-{name}", exist_ok=True)
    simulator = start("vqxsim", "--link", name, "--memory", f"memory-{name}", *options,
                      stdout=subprocess.DEVNULL)
    wait_until(lambda: os.path.exists(name))
    return simulator


def run(status, line, output="", **keywords):
    """Runs secapp-boards with the words of a line."""
    words = shlex.split(line)
    if not {"--secapp", "--retry-failed", "--help", "--version"} & set(words):
        words += ["--secapp", SECAPP]
    command = ["sh", "-c", f'exec "$0" "$@" {output}', secapp_boards, *words]
    ended = subprocess.run(command, timeout=120, text=True, capture_output=True,
                           errors="surrogateescape", check=False, **keywords)
    if ended.returncode != status:
        sys.exit(f"{line}: status {ended.returncode} instead of {status}\n"
                 f"{ended.stdout}{ended.stderr}")
    return ended


def rows(output):
    return {row["board"]: (row["result"], row["bytes"], row["error"])
            for row in map(json.loads, output.splitlines())}


def run_rows(status, line):
    return rows(run(status, f"{line} --json").stdout)


def read(name):
    return pathlib.Path(name).read_text()


def write(files):
    for name, content in files.items():
        os.makedirs(os.path.dirname(os.path.abspath(name)), exist_ok=True)
        with open(name, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())


def write_program(name, text):
    write({f"bin/{name}": f"#!/bin/sh\n{text}\n"})
    os.chmod(f"bin/{name}", 0o755)


def holds(name, image):
    with open(f"memory-{name}/MORVI.bin", "rb") as file:
        expect(f"the memory of {name}", image, file.read(len(image)))


def many_boards():
    names = [f"good {number}" for number in range(30)] + ["failing", "pulled"]
    with open("boards.csv", "w", newline="", encoding="utf-8-sig") as file:
        csv.writer(file).writerows([("device", "serial"), *((name, f'"{name}", made @ home')
                                                            for name in names)])
    faults = {"failing": 'error,text=a "worn" cell,command=programPage,count=1',
              "pulled": "unplug,byte=50000,replug=0.5"}
    for name in names:
        board(name, *(["--fault", faults[name]] if name in faults else []))
    output = run(1, "script --boards boards.csv --image image --logs many --json").stdout
    got = rows(output)
    pulled = got.pop("pulled")
    expect("the pulled one", ("failed", 0), pulled[:2])
    expect("its log", "/pulled is gone\n", read("many/32-pulled.log"))
    expect("the rows", {**{name: ("good", 100000, "") for name in names[:-2]},
                        "failing": ("failed", 0, 'a "worn" cell')}, got)
    expect("a serial number", 'serial "good 3", made @ home\n', read("many/4-good_3.log"))
    row = json.loads(output.splitlines()[3])
    expect("a row", {
        "device": f"{os.getcwd()}/good 3", "host": "", "image": "image", "image_size": len(IMAGE),
        "image_sha256": hashlib.sha256(IMAGE).hexdigest(), "script": "script",
        "script_sha256": hashlib.sha256(SCRIPT.encode()).hexdigest(), "log": "many/4-good_3.log",
        "identity": ""}, {name: row[name] for name in row if name not in (
            "board", "result", "seconds", "bytes", "error", "start")})
    if not re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d", row["start"]):
        sys.exit(f"the start is {row['start']}")
    expect("the record", {**row, "log": "4-good_3.log"},
           json.loads(read("many/run.json"))["run"]["rows"][3])

    # A retry takes nothing from outside the directory of its run.
    wait_until(lambda: os.path.exists("pulled"))
    write({"script": "echo another\n", "image": b"rebuilt"})
    os.rename("many", "bin/moved")
    output = run(0, "--retry-failed --logs moved --csv", cwd="bin").stdout
    expect("the table", [[name, "good", "100000", ""] for name in names],
           [[row[column] for column in ("board", "result", "bytes", "error")]
            for row in csv.DictReader(output.splitlines())])
    write({"script": SCRIPT, "image": IMAGE})
    for name in names:
        holds(name, IMAGE)


def files_and_names():
    """A good board holds the image, whatever files are called and parallel is told."""
    here = os.getcwd()
    for number, name in enumerate([
            "20261126", "build/20261126", "fw=2.bin", "it's \"fw\".bin", "[fw];#.bin", "-fw.bin",
            "new\nline.bin", os.fsdecode(b"caf\xe9.bin"), f"../{os.path.basename(here)}/up.bin"]):
        image = os.urandom(1000)
        write({name: image, "fw": b"the wrong one", "plain": SCRIPT.partition(";")[2]})
        run(0, f"plain 'good 1' {shlex.quote(f'--image={name}')} --logs L{{#}}x "
               f"{['--csv', '--json', ''][number % 3]}")
        holds("good 1", image)
        expect("the log", "Programmed 1000 bytes", read("L{#}x/1-good_1.log"))
        shutil.rmtree("L{#}x")

    cells = ["a.bin", "sub/b.bin", "../c.bin", f"{here}/d.bin", "sub/../e.bin"]
    write({name: name for name in cells})
    write({"file": FILE, "files.csv": "device,name,file\n" + "".join(
        f"good {number},station {number},{name}\n" for number, name in enumerate(cells))})
    output = run(0, "file --boards files.csv --logs cells").stdout
    expect("the name of a board", "station 3  good", output)
    for number, name in enumerate(cells):
        holds(f"good {number}", name.encode())
    expect("the copies", ["../c.bin", "a.bin", f"absolute{here}/d.bin", "e.bin", "script",
                          "sub/b.bin"], sorted(json.loads(read("cells/run.json"))["run"]["files"]))

    write({"settings/config": "--dry-run\n", "settings/.parallel/config": "--dry-run\n"})
    settings = {"PARALLEL": "--shellquote", "PARALLEL_SHELL": "/bin/false", "SHELL": "/bin/false",
                "PARALLEL_ENV": "exit 0\1", "PARALLEL_HOME": f"{here}/settings",
                "HOME": f"{here}/settings",
                "PATH": f"../{os.path.relpath(programs)}:{path}"}
    run(0, "../script '../good 1' -v serial=1 --image ../image --secapp ./tested_secapp",
        cwd="bin", env={**os.environ, **settings})
    holds("good 1", IMAGE)


def refusals():
    """A run that cannot succeed touches no board and leaves no files."""
    os.symlink("good 1", "other")
    os.mkfifo("fifo")
    write({"empty": "", "elf": b"\x7fELF\2\1\1" + bytes(64), "srec": "S00600004844521B\r\n",
           "hex": ":020000040000FA\r\n:00000001FF\r\n", "lost": FILE.replace("[file]", "none.bin"),
           "asks": "erase FLASH\npause now\n",
           "outside": FILE.replace("[file]", os.path.abspath("a.bin"))})
    image = "script 'good 1' -v serial=1 --image"
    table = [
        (2, "give exactly one of DEVICE..., --all and --boards", "script"),
        (2, "only --csv and --json go with it", "--retry-failed --logs x --all"),
        (2, "the value is empty", "script 'good 1' -v serial"),
        (2, "the name is empty", "script 'good 1' -v =1"),
        (2, "the value has a '='", "script 'good 1' -v serial=QUJD=="),
        (2, "--accept needs --rehearse", "script 'good 1' --accept x"),
        (2, "unrecognized arguments: --shellquote", "script 'good 1' --shellquote"),
        (1, "other and good 1 are the same device", "script 'good 1' other"),
        (1, "image is not a serial device", "script 'good 1' image"),
        (1, "good 1 is not a regular file", "'good 1' 'good 2' --image image -v serial=1"),
        (1, "/dev/stdin is not a regular file", "/dev/stdin 'good 1' --image image"),
        (1, "none: No such file or directory", f"{image} none"),
        (1, "script:1: error: '[image]'", "script 'good 1' -v serial=1"),
        (1, "lost:1: error: 'none.bin'", "lost 'good 1'"),
        (1, "asks:2: error: 'pause' waits for a user", "asks 'good 1'"),
        (1, "file: error: [image] is not programmed or verified\n",
         "file 'good 1' --image image -v file=image"),
        (1, f"the script names {os.getcwd()}/a.bin: ", "outside 'good 1'"),
        (1, "fifo is not a regular file", "file 'good 1' -v file=fifo"),
        (1, "image is given twice", f"{image} image -v image=a.bin"),
        (1, "none: command not found", f"{image} image --secapp none"),
        (1, "bin is not empty", f"{image} image --logs bin"),
        (1, "a board is DEVICE@HOST", "script x --host a --host b"),
        (1, "no --host is c", "script x@c --host a --host b"),
        (1, "needs an absolute path", "script x --host a"),
        *((1, f"{name} is not a regular file", f"{image} {name}")
          for name in ("fifo", "bin", "/dev/zero")),
        *((1, f"script:1: error: '{name}'", f"{image} {name}")
          for name in ("empty", "elf", "hex", "srec"))]
    for number, (text, content) in enumerate([
            ("1: must name the columns", "board\nx\n"),
            ("2: serial is empty", "device,serial\ngood 1,\n"),
            ("3: serial has a '='", "device,serial\nx,1\ngood 1,QUJD==\n"),
            (r"2: serial has a control character: 'a\tb'", "device,serial\ngood 1,a\tb\n"),
            ("2: ", "device,serial\ngood 1,a\0b\n"), ("2: ", "device\ngood\0 1\n"),
            ("2: serial begins or ends with a space", "device,serial\ngood 1, 1\n"),
            ("3: not UTF-8 text", "device\nx\nä\n".encode("latin-1")),
            ("2: there are more values than columns", "device\ngood 1,1\n"),
            ("3: the name a is used twice", "device,name\ngood 1,a\ngood 2,a\n"),
            ("2: ", 'device\n"good 1\n'), (" image is given twice", "device,image\ngood 1,x\n")]):
        write({f"{number}.csv": content})
        text = text if text.startswith(" ") else f"{number}.csv:{text}"
        table.append((1, text, f"script --boards {number}.csv --image image"))
    for status, text, line in table:
        before = sorted(os.listdir())
        line += " --secapp recording_secapp" if "--secapp" not in line else ""
        expect(f"the refusal of {line}", text, run(status, line).stderr)
        expect(f"the files after {line}", before, sorted(os.listdir()))


def records():
    """The directory of a run that does not hold what was there is refused."""
    image = next(pathlib.Path("bin/moved/files").glob("image-*"))
    record, content = read("bin/moved/run.json"), image.read_bytes()
    retry = "--retry-failed --logs bin/moved"
    for text, name, changed in [
            ("is incomplete or was changed", "run.json", record[:-9]),
            ("is incomplete or was changed", "run.json", "{}"),
            ("is incomplete or was changed", "run.json", record.replace("tested_", "other_")),
            ("does not hold an earlier run", "run.json", None),
            ("was changed after the run began", f"files/{image.name}", b"another"),
            ("No such file or directory", f"files/{image.name}", None)]:
        os.remove(f"bin/moved/{name}")
        write({f"bin/moved/{name}": changed} if changed is not None else {})
        expect(f"the refusal of {name}", text, run(1, retry).stderr)
        write({"bin/moved/run.json": record, image: content})
    expect("the repaired run", "32 of 32 boards are good", run(0, retry).stdout)


def reports():
    """A row is good only if the log shows that secapp ran the script to its end."""
    write({"hello": "echo hello\n", "help": "?\necho never\n", "only": "program image MORVI\n"})
    for error, secapp in [
            ("no end", r"printf 'half a lineError: script:3: no end\n'; exit 255"),
            ("status 3", "exit 3"), ("secapp did not run the script to its end", "exit 0"),
            ("secapp did not run the script to its end", "echo 0123456789abcdef end 0"),
            ("secapp did not run the script to its end", ">../1-x.log; echo Processed 1 lines")]:
        write_program("fake_secapp", secapp)
        expect(f"what {secapp} leaves", {"x": ("failed", 0, error)},
               run_rows(1, "hello x --secapp fake_secapp"))
    expect("an early end", {"good 1": ("failed", 0, "secapp did not run the script to its end")},
           run_rows(1, "help 'good 1' --force"))
    for output in (">&-", ">/dev/full"):
        expect(output, "standard output: ", run(1, "hello 'good 1'", output).stderr)
    expect("a warning", "only:1: warning: no verify of 'image'", run(0, "only 'good 1'").stderr)
    output = run(0, f"script 'good 1' {WITH_IMAGE} --identify --json").stdout
    expect("the identity", "Serial = 5a100000-00000001-00c0ffee-20240229; USB vendor",
           json.loads(output)["identity"])
    write_program("fake_secapp", "echo 'Error: script:1: " + 20 * "a long error " + "'; exit 255")
    table = run(1, f"hello {'x' * 90} --secapp fake_secapp").stdout.splitlines()[:-1]
    expect("the whole error", 20 * "a long error ".split(), " ".join(table).split()[-60:])
    expect("the widest line", True, max(map(len, table)) <= 100)


def rehearsal():
    """If the script does not fit one kind of board, all are only asked for their memories."""
    small = board("small", "--region", "MORVI,base=0x1000,size=64K,page=256,buffer=4K")
    write({"special": "unlockSpecial\n" + FILE, "small.bin": os.urandom(9000)})
    words = "'good 1' 'good 2' small --rehearse --secapp 'recording_secapp -e n'"
    got = run_rows(1, f"special {words} --accept unlockSpecial -v file=image")
    expect("the row of the small one", "on its twin: Binary image image", got.pop("small")[2])
    expect("the rows", {name: ("not run", 0, "") for name in ("good 1", "good 2")}, got)
    expect("the commands for boards", ["queryFlash"] * 3,
           [line.split()[-1] for line in read("ran").splitlines() if "/dev/pts" not in line])
    expect("an unknown command", "on its twin: ",
           run_rows(1, f"special {words} -v file=small.bin")["good 1"][2])
    expect("a board without an answer", "none: No such file or directory",
           run_rows(1, f"file {words} none -v file=small.bin")["none"][2])
    for name in ("good 1", "good 2", "small"):
        holds(name, pathlib.Path("small.bin").read_bytes())
    stop(small)


def starts_at_once():
    os.mkdir("at_once")
    runs = [start(secapp_boards, "../hello", f"../good {number}", cwd="at_once",
                  stdout=subprocess.DEVNULL) for number in range(4)]
    expect("the statuses", [0] * 4, [process.wait(60) for process in runs])
    expect("the directories", 4, len(os.listdir("at_once")))


def time_outs_and_interrupts():
    board("endless", "--fault", "hang,s=1000,command=burst")
    words = f"{WITH_IMAGE} --secapp waiting_secapp"
    expect("a time-out", {"endless": ("timeout", 0, "no end within the time-out")},
           run_rows(1, f"script endless {words} --timeout 1"))
    for number in (signal.SIGINT, signal.SIGTERM):
        write({"pids": ""})
        running = start(secapp_boards, "script", "good 1", "endless", "last", *words.split(),
                        "--jobs", "1", "--json", start_new_session=True, stdout=subprocess.PIPE,
                        text=True)
        wait_until(lambda: read("pids").count("\n") == 2)
        # A terminal sends its signal to the whole group.
        (os.killpg if number == signal.SIGINT else os.kill)(running.pid, number)
        got = rows(running.communicate(timeout=60)[0])
        expect("the results", {"good 1": "good", "endless": "interrupted", "last": "not run"},
               {name: got[name][0] for name in got})
        expect("the status", 128 + number, running.returncode)
        wait_until(lambda: not any(os.path.exists(f"/proc/{pid}") for pid in read("pids").split()))


def killed():
    """After parallel or the program was killed, only boards that have ended count, and those that
    still run are not run again."""
    slow = board("slow", "--fault", "hang,s=1000,command=burst")
    for victim in ("parallel", "itself"):
        write({"pids": ""})
        # Without standard output, GNU parallel must still hold the lock.
        output = ">&-" if victim == "itself" else ""
        running = start("sh", "-c", f"""exec {secapp_boards} script 'good 1' slow {WITH_IMAGE} \\
            --logs killed_{victim} --json --secapp waiting_secapp {output}""",
                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        wait_until(lambda: read("pids").count("\n") == 2
                   and " end 0\n" in read(f"killed_{victim}/1-good_1.log"))
        child = read(f"/proc/{running.pid}/task/{running.pid}/children").split()[0]
        os.kill(int(child) if victim == "parallel" else running.pid, signal.SIGKILL)
        if victim == "parallel":
            got = rows(running.communicate(timeout=60)[0])
            expect("the results", ["good", "interrupted"], [got[name][0] for name in got])
        running.wait()
        expect("the lock", "belongs to a run that has not ended",
               run(1, f"--retry-failed --logs killed_{victim}").stderr)
        for pid in read("pids").split():
            if os.path.exists(f"/proc/{pid}"):
                os.kill(int(pid), signal.SIGKILL)
        wait_until(lambda: subprocess.run(["flock", "-n", f"killed_{victim}", "true"],
                                          check=False).returncode == 0)
    stop(slow)
    board("slow")
    write({"pids": ""})
    expect("the rows", {"good 1": ("good", 100000, ""), "slow": ("good", 100000, "")},
           run_rows(0, "--retry-failed --logs killed_itself"))
    expect("how many boards ran again", 1, read("pids").count("\n"))


def start_server(directory):
    """Two names for a server of this test, one without secapp, and one that does not answer."""
    keys = ""
    for key in ("server", "here", "bare"):
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", f"key_{key}"],
                       check=True)
        os.mkdir(f"home_{key}")
        path = f"{directory}/bin:$PATH" if key == "here" else "$PATH"
        keys += (f'command="cd {directory}/home_{key}; HOME=$PWD PATH={path}; eval '
                 f'\\"$SSH_ORIGINAL_COMMAND\\"" {read(f"key_{key}.pub")}')
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    write({"keys": keys, "ssh_config": f"""Host here
IdentityFile {directory}/key_here
Host bare
IdentityFile {directory}/key_bare
Host away
Port 1
Host *
HostName 127.0.0.1
Port {port}
IdentitiesOnly yes
IdentityAgent none
BatchMode yes
LogLevel INFO
UserKnownHostsFile {directory}/known
StrictHostKeyChecking no
"""})
    if os.geteuid() == 0:
        os.makedirs("/run/sshd", exist_ok=True)
    settings = [f"Port={port}", "ListenAddress=127.0.0.1", f"HostKey={directory}/key_server",
                f"AuthorizedKeysFile={directory}/keys", "StrictModes=no", "UsePAM=no",
                "PermitRootLogin=yes", "PidFile=none", f"Banner={directory}/key_server.pub"]
    with open("sshd.log", "w") as log:
        server = start(SSHD, "-D", "-e", "-f", "/dev/null",
                       *(f"-o{setting}" for setting in settings), stderr=log)
    wait_until(lambda: server.poll() is not None or "listening" in read("sshd.log"))


def remote_hosts():
    directory = os.getcwd()
    start_server(directory)
    device = f"{directory}/good 3"
    write({"20261126": os.urandom(1000), "../second": os.urandom(500), "both": SCRIPT.strip()
           + "; program ../second MORVI+0x1000; verify ../second MORVI+0x1000\n"})
    write({"ran": ""})
    ssh = f"--ssh 'ssh -F {directory}/ssh_config' --secapp recording_secapp --host here"
    ended = run(1, f"both '{device}@here' /none@here /x@bare /x@away --image 20261126 "
                   f"-v serial=a@b --host bare --host away --json {ssh}")
    expect("what was said besides", [], ended.stderr.splitlines())
    got = rows(ended.stdout)
    expect("a host that does not answer", "away cannot be used: ssh: connect to host",
           got.pop("/x@away")[2])
    expect("the rows", {f"{device}@here": ("good", 1500, ""),
                        "/none@here": ("failed", 0, "/none: No such file or directory"),
                        "/x@bare": ("failed", 0, "bare cannot be used: recording_secapp: command "
                                                  "not found")}, got)
    holds("good 3", pathlib.Path("20261126").read_bytes())
    expect("the files left on the host", [], os.listdir("home_here"))
    os.symlink("good 3", "link")
    expect("a device with two links", "are the same device",
           run(1, f"both '{device}' {directory}/link {ssh}").stderr)
    expect("a rehearsal", {device: ("good", 1500, "")},
           run_rows(0, f"both '{device}' {WITH_IMAGE} --image 20261126 --rehearse {ssh}"))
    expect("how many directories were made", 2,
           len(set(re.findall(r"home_here/\.secapp-boards/\w+", read("ran")))))


def documented():
    """The help, the man page and the completion name the same options."""
    root = secapp_boards.parent.parent
    options = sorted(re.findall(r"^  (?:-h, )?(--?[a-z-]+)", run(0, "--help").stdout, re.M))
    page = "".join(re.findall(r"^\.It Fl .*", read(root / "docs/secapp-boards.1"), re.M))
    page = sorted(f"{'--' if long else '-'}{name}"
                  for long, name in re.findall("Fl (Fl )?([a-z-]+)", page))
    expect("the options of the help", page, options)
    complete = ('source "$1"; COMP_WORDS=("$0" "$2" "$3") COMP_CWORD=2; _secapp_boards "$0"; '
                'printf "%s\\n" "${COMPREPLY[@]}"')
    for before, word, wanted in [
            ("script", "-", page), ("script", "--re", ["--rehearse", "--retry-failed"]),
            ("--image", "ima", ["image"]), ("--logs", "b", ["bin"]), ("--jobs", "i", [""])]:
        completed = subprocess.run(
            ["bash", "-c", complete, secapp_boards, root / "completion/secapp-boards", before,
             word], text=True, stdout=subprocess.PIPE, check=True).stdout
        expect(f"what completes {before} {word}", wanted, sorted(completed.split("\n")[:-1]))
    version = subprocess.run(["secapp-lint", "--version"], text=True, stdout=subprocess.PIPE,
                             check=True).stdout.split()[1]
    expect("the version", f"secapp-boards {version}\n", run(0, "--version").stdout)


if not shutil.which("parallel"):
    print("GNU parallel is not installed")
    sys.exit(77)
with tempfile.TemporaryDirectory() as temporary:
    os.makedirs(f"{temporary}/work/bin")
    os.chdir(f"{temporary}/work")
    os.symlink(programs / "secapp", "bin/tested_secapp")
    write_program("recording_secapp", f'echo "$PWD $@" >>{os.getcwd()}/ran; exec {SECAPP} "$@"')
    write_program("waiting_secapp", f'echo $$ >>{os.getcwd()}/pids; exec {SECAPP} "$@"')
    path = os.environ["PATH"]
    os.environ["PATH"] = f"{os.getcwd()}/bin:{programs}:{path}"
    write({"script": SCRIPT, "image": IMAGE})
    try:
        for check in (documented, many_boards, files_and_names, refusals, records, reports,
                      rehearsal, starts_at_once, time_outs_and_interrupts, killed):
            check()
        if os.path.exists(SSHD):
            remote_hosts()
    finally:
        for child in started:
            stop(child)
print("All rows are right")
