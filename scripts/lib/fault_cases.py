"""The runs of the campaign of faults: images, options, scripts and faults, all derived from a seed and a run's number, and
what each kind of fault explains."""

import random
import re

import conversation as talk
from conversation import FLASH_SIZE

SETTINGS = ["1200 min 3 time 7", "115200 cstopb ixon", "istrip inlcr igncr min 0", "crtscts opost onlcr min 9",
            "isig intr ^A eof ^B", "57600 brkint parmrk tostop iexten", "38400 -hupcl min 0 time 2"]
SIZES = [0, 1, 3, 4, 31, 32, 33, 511, 512, 513, 1000, 4095, 4096, 8191, 32767, 32768, 32769, 65537, 70001]
ASKED = ["print hello", "print not VQX_OK", "print vqx_ok", "print Vqx_Ok (done)", "print xVQX_ERROR", "print  two  words",
         "queryID", "queryPart", "help", "helpadvanced", "print " + "long" * 50]
PASSED = ["dump FLASH 64", "dump FLASH+4*8 8", "readWord flash+28", "readWord FLASH", "bootBank 0", "DebugOptions 7"]
REFUSED = ["eraseFlash 0x99999999", "bogus FLASH 7 NOSUCH", "readWord 2+FLASH", "dump FLASH 0x100000", "readWord NOSUCH",
           "dump NOSUCH FLASH", "eraseFlash 1-2", "dump FLASH*4096 8", "verifyPage FLASH*4096 8", "programPage FLASH 0", "bogus +5 1/0", "verifyPage 2+FLASH 8"]


def answered(*_):
    return {"answered"}


def lost(*_):
    return {"lost"}


def kept_status(_, exchange, __):
    """Noise on the line of the status makes it none."""
    return {"lost"} if exchange.status is None else {"answered"}


def in_time(detail, exchange, limit):
    """A late answer; `detail` tells its delay in seconds, or that of each of its bytes or of ignored lines before it."""
    seconds = float(re.search(r"[\d.]+", detail)[0])
    if "lines" in detail:
        total = seconds * int(detail.split()[-3])
        if seconds > limit + 0.4 or total > 10 * limit + 1:
            return {"lost"}
        return {"answered"} if seconds < limit / 2 and total < 5 * limit else {"answered", "lost"}
    if "apart" in detail:
        line = seconds * max(len(exchange.request), exchange.longest, 100)
        return {"answered"} if line < limit / 2 else {"answered", "lost"}
    return {"answered"} if seconds < limit / 2 else {"lost"} if seconds > limit + 0.4 else {"answered", "lost"}


# The kinds of faults: the settings to choose from, and what may have become of an answer that one has struck.
KINDS = {
    "error": (["text=made up", "text=not VQX_OK", "status=VQX_FATAL", "status=vqx_error"], answered),
    "hang": (["s=0.1", "s={late}.5"], in_time),
    "unplug": ([""], lambda *_: {"gone"}),
    "stuckprogram": (["bit={bit},silent={silent}"], answered),
    "stuckerase": (["bit={bit},silent={silent}"], answered),
    "flip": ([""], answered),
    "lose": ([""], lambda _, __, limit: {"answered", "lost"} if limit < 2 else {"answered"}),  # given up after 0.5 s
    "double": (["offset=0"], answered),
    "drop": ([""], lost),
    "delay": (["ms=1", "ms=20", "ms=200", "ms={late}500", "ms={late}500"], in_time),
    "cut": ([""], lost),
    "split": (["us=50", "us=900", "us=3000", "us=12000"], in_time),
    "noise": (["bytes={small}", "bytes=20,lines=0"], kept_status),
    "noend": ([""], lost),
    "ignored": (["ms=50,times={small},line={line}", "ms=400,times=40,line={line}", "ms=1500,times=2,line={line}"],
                in_time),
    "ends": (["with=CR", "with=LF", "with=NUL", "with=NUL"], answered),
    "flood": (["bytes={flood},lines={lines}"], answered),
}
LOSING = ("drop", "cut", "noend", "noise")
IN_BURSTS = ("flip", "lose", "double")
# The command words that a fault may name.
FIRMWARE = ["batchmode", "blankCheck", "bootBank", "databurst", "dataPacket", "dataSet", "DebugOptions", "dump",
            "eraseFlash", "help", "helpadvanced", "otp_ProgUSBID", "print", "programPage", "queryFlash", "queryID",
            "queryMORVI", "queryPart", "readWord", "verifyPage", "version"]


def one_request(text, request=None):
    """A command that goes out as one request."""
    return text, lambda host: host.ask(request or text)


def passed(text):
    return text, lambda host: talk.pass_through(host, *text.split())


def erased(offset=0):
    item = f"FLASH+{offset}" if offset else "FLASH"
    return f"erase {item}", lambda host: talk.erase(host, item, offset)


def transferred(word, image, check="", offset=0):
    return f"{word} {check} [i] FLASH+{offset}", lambda host: talk.transfer(host, word, image, offset, check)


def filled(word, width, value, offset, length):
    """A fill; a last value that does not fit is not begun."""
    image = (value.to_bytes(4, "little")[:width] * (length // width)).ljust(length, b"\0")
    return (f"{word} +w{width} 0x{value:x} FLASH+{offset} {length}",
            lambda host: talk.transfer(host, word, image, offset, width=width))


def other_command(random_):
    """A command that carries no data."""
    return random_.choice([
        one_request(random_.choice(ASKED)), passed(random_.choice(PASSED)), ("targetInfo", talk.target_info),
        ("queryFlash", lambda host: talk.query(host, True)), one_request("setBoot BankB", "bootBank 1"),
        one_request("setVidPid 0x1209 0x42", "otp_ProgUSBID 0x42 0x1209")])


def image_commands(random_, image):
    check, again = random_.choices([("", ""), ("+c", "+c"), ("+c", "+i" if len(image) >= 32 else "")], [8, 1, 1])[0]
    offset = random_.choice([0, 0, 0x8000]) if check == "" else 0
    load = random_.choice(["", "+c"])
    program, verify = transferred("program", image, check, offset), transferred("verify", image, again, offset)
    return random_.choices([
        [program, verify], [erased(offset), program, verify], [program],
        [(f"download {load} [i]", lambda host: talk.download(host, image, load))],
        [("blankCheck FLASH", talk.blank_check), program, ("blankCheck FLASH", talk.blank_check)],
    ], [5, 4, 2, 1, 1])[0]


def fill_commands(random_, page):
    """Fills of any length, each in pages of its own; a few are verified against something else."""
    commands, offset = [], 0
    for _ in range(random_.randint(1, 4)):
        width, length = random_.choice([1, 2, 4]), random_.randint(1, random_.choice([100, 2000, 9000]))
        value = random_.randint(0, 256**width - 1)
        commands.append(filled("program", width, value, offset, length))
        if random_.random() < 0.6:
            commands.append(filled("verify", width, value ^ (random_.random() < 0.1), offset, length))
        offset += -(-length // page) * page
    return commands


def make_commands(random_, case):
    """The commands of a script: the text of each, and its model."""
    if case["page"] % 4:
        commands = [filled("program", 4, 0x11223344, 0, 24)]  # Its width does not fit the buffer.
    elif random_.random() < 0.6:
        commands = image_commands(random_, case["image"])
    else:
        commands = fill_commands(random_, case["page"])
    if random_.random() < 0.5:
        commands = [*(other_command(random_) for _ in range(random_.randint(1, 4))), *commands[:random_.choice([0, 9])]]
    if random_.random() < 0.3:
        commands.insert(random_.randint(0, len(commands)), other_command(random_))
    if random_.random() < 0.4:
        commands.append(passed(random_.choice(REFUSED)))
    return commands


def rehearse(case):
    """The requests of the case when nothing goes wrong."""
    requests = []
    for _, steps in case["commands"]:
        conversation, reply = steps(talk.Host(case)), None
        try:
            while True:
                requests.append(conversation.send(reply))
                reply = talk.Reply(["0"])
        except (StopIteration, talk.Failed):
            pass
    return requests


def make_fault(random_, case, requests):
    """One fault as vqxsim takes it, aimed at one of the requests."""
    kind = random_.choice(list(KINDS))
    made = random_.choice(KINDS[kind][0]).format(
        late=int(case["timeout"]) // 1000 + 1, bit=random_.randint(0, 7), silent=random_.randint(0, 1),
        small=random_.randint(1, 200), flood=random_.choice([100, 16384, 16385, 40000, 300000]), lines=case["flood lines"],
        line=random_.choice(["empty", "repeat", "zero"]))
    words = [request.split()[0].replace("[burst", "burst") for request in requests]
    known = [word for word in words if word in (["burst"] if kind in IN_BURSTS else [*FIRMWARE, "burst"])]
    places = [f"at={random_.randint(1, len(words) + 2)}", f"chance={random_.randint(1, 15)},count={random_.randint(1, 3)}"]
    if kind in LOSING and "eraseFlash" in words:
        # The answer to an erase is awaited without limit: not that one.
        known, places = [word for word in known if word != "eraseFlash"], []
    if known:
        places += [f"command={random_.choice(known)},count=1"] * 2
    if kind in ("unplug", "hang") and random_.random() < 0.3:
        places = [f"byte={random_.randint(1, len(requests) * 40 + len(case['image']) // random_.choice([1, 9]))}"]
    if kind.startswith("stuck"):
        places = ["count=1"]
    return ",".join(part for part in (kind, made, random_.choice(places or ["at=1"])) if part)


def make_faults(random_, case):
    if case["replug"]:
        return [f"unplug,byte={random_.randint(1, len(case['image']) + 2000)},replug={random_.choice([0, 0.2, 1])}"]
    requests = rehearse(case)
    faults = [make_fault(random_, case, requests) for _ in range(random_.choice([0, 1, 1, 1, 1, 2, 3]))]
    # In one answer, a second flood would wash away the status, and noise without a line end melt into the flood's line.
    floods = [made for made in faults if made.startswith(("flood", "ignored"))]
    return floods[:1] + [made for made in faults if made not in floods and not (floods and made.startswith("noise"))]


def make_case(seed, number):
    random_ = random.Random(f"{seed}:{number}")
    size = random_.choice(SIZES) if random_.random() < 0.4 else random_.randint(0, random_.choice([3000, 70000]))
    page = random_.choice([64, 256, 512])
    small = size < 5000  # A large image in small pieces would take minutes.
    case = {"image": random_.randbytes(size), "page": page,
            "buffer": page * random_.choice([1, 3, 8, 64] if small else [8, 64]),
            "limit": random_.choice([0, 0, 0, 16 if small else 64, 37, 512, 1000, 4096, 32768]),
            "words": random_.randint(1 if small else 8, 64), "encoder": random_.randint(0, 1),
            "debug": random_.choice([None, None, 0, 1, 2, 4]), "timeout": random_.choice(["1", "1", "1", "1", "1", "1500"]),
            "settings": random_.choice(SETTINGS), "flood lines": random_.randint(0, 1),
            "seed": random_.randint(1, 1 << 30), "replug": random_.random() < 0.03}
    if random_.random() < 0.02 and not case["replug"]:
        case["page"], case["buffer"] = 6, random_.choice([6, 30])
    stalls = random_.random() < 0.03 and not case["replug"]
    if stalls:  # A burst that does not fit the queue of the port, and a target that takes nothing in the middle of it.
        case |= {"image": random_.randbytes(60000), "page": 512, "buffer": 32768, "limit": 0, "encoder": 1, "timeout": "1500"}
    program = transferred("program", case["image"])
    if stalls:
        case["commands"] = [program]
    elif case["replug"]:
        case["commands"] = [erased(), program, transferred("verify", case["image"])]
    else:
        case["commands"] = make_commands(random_, case)
    case["script"] = "; ".join(text for text, _ in case["commands"])
    # What the flash holds before: without it, an erase would have nothing to do and no bit could resist.
    erases = "erase " in case["script"]
    case["before"] = random_.randbytes(FLASH_SIZE) if erases else b"\xff" * FLASH_SIZE
    repeats = random_.random() < 0.15
    if not repeats:
        case["commands"].insert(0, one_request("batchmode 1"))
    # With -p, how many commands the user confirms before standard input ends.
    confirms = random_.random() < 0.08 and not case["replug"]
    case["confirmed"] = random_.randint(1, len(case["commands"])) if confirms else 0
    case["faults"] = [f"hang,byte={random_.randint(500, 4000)},s=2.5"] if stalls else make_faults(random_, case)
    if case["faults"] and all(made.startswith(("unplug", "error", "flip", "ends")) for made in case["faults"]):
        case["timeout"] = "8000"  # Nothing of this may take that long.
    letter = {None: "", 0: "N", 1: "A", 2: "B", 4: "S"}[case["debug"]]
    case["options"] = ["-a", str(case["encoder"]), "-g", case["timeout"], "-m", str(case["limit"]), "-w", str(case["words"]),
                       *(["-e", letter] if letter else []), *(["-b"] if repeats else []), *(["-p"] if confirms else []),
                       *(["-M", str(random_.randint(0, 3))] if random_.random() < 0.15 else []),
                       *(["-T", str(random_.randint(0, 2))] if random_.random() < 0.1 else [])]
    return case
