"""The runs of scripts/faults: images, options, scripts and faults, all derived from a seed and the
run's number, and the possible effects of each kind of fault."""

import random
import re

import host_model
from host_model import FLASH_SIZE

SETTINGS = ["1200 min 3 time 7", "115200 cstopb ixon", "istrip inlcr igncr min 0",
            "crtscts opost onlcr min 9", "isig intr ^A eof ^B", "57600 brkint parmrk tostop iexten",
            "38400 -hupcl min 0 time 2"]
SIZES = [0, 1, 3, 4, 31, 32, 33, 511, 512, 513, 1000, 4095, 4096, 8191, 32767, 32768, 32769, 65537,
         70001]
# Requests that a script sends as they are.
UNCHANGED = ["print hello", "print not VQX_OK", "print vqx_ok", "print Vqx_Ok (done)",
             "print xVQX_ERROR", "print  two  words", "queryID", "queryPart", "help",
             "helpadvanced", "print " + "long" * 50]
# Pass-through commands that the target accepts, and others that it refuses.
ACCEPTED = ["dump FLASH 64", "dump FLASH+4*8 8", "readWord flash+28", "readWord FLASH",
            "bootBank 0", "DebugOptions 7"]
REFUSED = ["eraseFlash 0x99999999", "bogus FLASH 7 NOSUCH", "readWord 2+FLASH",
           "dump FLASH 0x100000", "readWord NOSUCH", "dump NOSUCH FLASH", "eraseFlash 1-2",
           "dump FLASH*4096 8", "verifyPage FLASH*4096 8", "programPage FLASH 0", "bogus +5 1/0",
           "verifyPage 2+FLASH 8"]


def answered(*_):
    return {"answered"}


def lost(*_):
    return {"lost"}


def kept_status(_, exchange, __):
    """Noise on the line of the status makes it another line."""
    return {"lost"} if exchange.status is None else {"answered"}


def in_time(detail, exchange, limit):
    """A late answer; `detail` contains the delay of the answer, of each of its bytes, or of each
    ignored line before it, in seconds."""
    seconds = float(re.search(r"[\d.]+", detail)[0])
    if "lines" in detail:
        total = seconds * int(detail.split()[-3])
        if seconds > limit + 0.4 or total > 10 * limit + 1:
            return {"lost"}
        return {"answered"} if seconds < limit / 2 and total < 5 * limit else {"answered", "lost"}
    if "apart" in detail:
        line = seconds * max(len(exchange.request), exchange.longest, 100)
        return {"answered"} if line < limit / 2 else {"answered", "lost"}
    if seconds > limit + 0.4:
        return {"lost"}
    return {"answered"} if seconds < limit / 2 else {"answered", "lost"}


def lost_if_slow(_, __, limit):
    """A burst without its last bytes, which the target abandons after 0.5 s."""
    return {"answered", "lost"} if limit < 2 else {"answered"}


# The kinds of faults: the settings to choose from, and the possible outcomes of their answers.
KINDS = {
    "error": (["text=made up", "text=not VQX_OK", "status=VQX_FATAL", "status=vqx_error"],
              answered),
    "hang": (["s=0.1", "s={late}.5"], in_time),
    "unplug": ([""], lambda *_: {"gone"}),
    "stuckprogram": (["bit={bit},silent={silent}"], answered),
    "stuckerase": (["bit={bit},silent={silent}"], answered),
    "flip": ([""], answered),
    "lose": ([""], lost_if_slow),
    "double": (["offset=0"], answered),
    "drop": ([""], lost),
    "delay": (["ms=1", "ms=20", "ms=200", "ms={late}500", "ms={late}500"], in_time),
    "cut": ([""], lost),
    "split": (["us=50", "us=900", "us=3000", "us=12000"], in_time),
    "noise": (["bytes={small}", "bytes=20,lines=0"], kept_status),
    "noend": ([""], lost),
    "ignored": (["ms=50,times={small},line={line}", "ms=400,times=40,line={line}",
                 "ms=1500,times=2,line={line}"], in_time),
    "ends": (["with=CR", "with=LF", "with=NUL", "with=NUL"], answered),
    "flood": (["bytes={flood},lines={lines}"], answered),
}
LOSING = ("drop", "cut", "noend", "noise")
IN_BURSTS = ("flip", "lose", "double")
# The command words that a fault may name.
FIRMWARE = ["batchmode", "blankCheck", "bootBank", "databurst", "dataPacket", "dataSet",
            "DebugOptions", "dump", "eraseFlash", "help", "helpadvanced", "otp_ProgUSBID", "print",
            "programPage", "queryFlash", "queryID", "queryMORVI", "queryPart", "readWord",
            "verifyPage", "version"]


def one_request(text, request=None):
    """A command that is sent as one request."""
    return text, lambda host: host.ask(request or text)


def passed(text):
    return text, lambda host: host_model.pass_through(host, *text.split())


def erased(offset=0):
    item = f"FLASH+{offset}" if offset else "FLASH"
    return f"erase {item}", lambda host: host_model.erase(host, item, offset)


def transferred(word, image, check="", offset=0):
    return (f"{word} {check} [i] FLASH+{offset}",
            lambda host: host_model.transfer(host, word, image, offset, check))


def filled(word, width, value, offset, length):
    """A fill with as many whole values as fit."""
    image = (value.to_bytes(4, "little")[:width] * (length // width)).ljust(length, b"\0")
    return (f"{word} +w{width} 0x{value:x} FLASH+{offset} {length}",
            lambda host: host_model.transfer(host, word, image, offset, width=width))


def other_command(random_):
    """A command that sends no data."""
    return random_.choice([
        one_request(random_.choice(UNCHANGED)),
        passed(random_.choice(ACCEPTED)),
        ("targetInfo", host_model.target_info),
        ("queryFlash", lambda host: host_model.query(host, True)),
        one_request("setBoot BankB", "bootBank 1"),
        one_request("setVidPid 0x1209 0x42", "otp_ProgUSBID 0x42 0x1209")])


def image_commands(random_, image):
    from_target = "+i" if len(image) >= 32 else ""
    check, again = random_.choices([("", ""), ("+c", "+c"), ("+c", from_target)], [8, 1, 1])[0]
    offset = random_.choice([0, 0, 0x8000]) if check == "" else 0
    load = random_.choice(["", "+c"])
    program = transferred("program", image, check, offset)
    verify = transferred("verify", image, again, offset)
    blank_check = ("blankCheck FLASH", host_model.blank_check)
    return random_.choices([
        [program, verify],
        [erased(offset), program, verify],
        [program],
        [(f"download {load} [i]", lambda host: host_model.download(host, image, load))],
        [blank_check, program, blank_check],
    ], [5, 4, 2, 1, 1])[0]


def fill_commands(random_, page):
    """Fills of any length, each in its own pages; a few are verified against another value."""
    commands, offset = [], 0
    for _ in range(random_.randint(1, 4)):
        width = random_.choice([1, 2, 4])
        length = random_.randint(1, random_.choice([100, 2000, 9000]))
        value = random_.randint(0, 256**width - 1)
        commands.append(filled("program", width, value, offset, length))
        if random_.random() < 0.6:
            value ^= random_.random() < 0.1
            commands.append(filled("verify", width, value, offset, length))
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
        others = [other_command(random_) for _ in range(random_.randint(1, 4))]
        commands = others + commands[:random_.choice([0, 9])]
    if random_.random() < 0.3:
        commands.insert(random_.randint(0, len(commands)), other_command(random_))
    if random_.random() < 0.4:
        commands.append(passed(random_.choice(REFUSED)))
    return commands


def rehearse(case):
    """The requests of the case if no fault occurs."""
    requests = []
    for _, steps in case["commands"]:
        sender, answer = steps(host_model.HostModel(case)), None
        try:
            while True:
                requests.append(sender.send(answer))
                answer = host_model.Answer(["0"])
        except (StopIteration, host_model.Failed):
            pass
    return requests


def make_fault(random_, case, requests):
    """A value for --fault of vqxsim, for one of the requests."""
    kind = random_.choice(list(KINDS))
    settings = random_.choice(KINDS[kind][0]).format(
        late=int(case["timeout"]) // 1000 + 1, bit=random_.randint(0, 7),
        silent=random_.randint(0, 1), small=random_.randint(1, 200),
        flood=random_.choice([100, 16384, 16385, 40000, 300000]), lines=case["flood lines"],
        line=random_.choice(["empty", "repeat", "zero"]))
    words = [request.split()[0].replace("[burst", "burst") for request in requests]
    possible = ["burst"] if kind in IN_BURSTS else [*FIRMWARE, "burst"]
    known = [word for word in words if word in possible]
    places = [f"at={random_.randint(1, len(words) + 2)}",
              f"chance={random_.randint(1, 15)},count={random_.randint(1, 3)}"]
    if kind in LOSING and "eraseFlash" in words:
        # secapp waits for the answer to an erase without limit. Do not lose it.
        known, places = [word for word in known if word != "eraseFlash"], []
    if known:
        places += [f"command={random_.choice(known)},count=1"] * 2
    if kind in ("unplug", "hang") and random_.random() < 0.3:
        last = len(requests) * 40 + len(case["image"]) // random_.choice([1, 9])
        places = [f"byte={random_.randint(1, last)}"]
    if kind.startswith("stuck"):
        places = ["count=1"]
    parts = (kind, settings, random_.choice(places or ["at=1"]))
    return ",".join(part for part in parts if part)


def make_faults(random_, case):
    if case["replug"]:
        return [f"unplug,byte={random_.randint(1, len(case['image']) + 2000)},"
                f"replug={random_.choice([0, 0.2, 1])}"]
    requests = rehearse(case)
    number = random_.choice([0, 1, 1, 1, 1, 2, 3])
    faults = [make_fault(random_, case, requests) for _ in range(number)]
    # In one answer, a second flood would hide the status, and noise without a line end would become
    # part of the flood's line.
    floods = [fault for fault in faults if fault.startswith(("flood", "ignored"))]
    return floods[:1] + [fault for fault in faults
                         if fault not in floods and not (floods and fault.startswith("noise"))]


def make_settings(random_):
    """The image, the memory and the settings of secapp."""
    if random_.random() < 0.4:
        size = random_.choice(SIZES)
    else:
        size = random_.randint(0, random_.choice([3000, 70000]))
    page = random_.choice([64, 256, 512])
    small = size < 5000  # A large image in small pieces would take minutes.
    return {
        "image": random_.randbytes(size),
        "page": page,
        "buffer": page * random_.choice([1, 3, 8, 64] if small else [8, 64]),
        "limit": random_.choice([0, 0, 0, 16 if small else 64, 37, 512, 1000, 4096, 32768]),
        "words": random_.randint(1 if small else 8, 64),
        "encoder": random_.randint(0, 1),
        "debug": random_.choice([None, None, 0, 1, 2, 4]),
        "timeout": random_.choice(["1", "1", "1", "1", "1", "1500"]),
        "settings": random_.choice(SETTINGS),
        "flood lines": random_.randint(0, 1),
        "seed": random_.randint(1, 1 << 30),
        "replug": random_.random() < 0.03,
    }


def make_options(random_, case, repeats):
    """The options of secapp."""
    letter = {None: "", 0: "N", 1: "A", 2: "B", 4: "S"}[case["debug"]]
    options = ["-a", str(case["encoder"]), "-g", case["timeout"], "-m", str(case["limit"]),
               "-w", str(case["words"])]
    options += ["-e", letter] if letter else []
    options += ["-b"] if repeats else []
    options += ["-p"] if case["confirmed"] else []
    options += ["-M", str(random_.randint(0, 3))] if random_.random() < 0.15 else []
    options += ["-T", str(random_.randint(0, 2))] if random_.random() < 0.1 else []
    return options


def make_case(seed, number):
    random_ = random.Random(f"{seed}:{number}")
    case = make_settings(random_)
    if random_.random() < 0.02 and not case["replug"]:
        case["page"], case["buffer"] = 6, random_.choice([6, 30])
    stalls = random_.random() < 0.03 and not case["replug"]
    if stalls:
        # A burst that is larger than the port's queue, and a target that stops reading within it.
        case |= {"image": random_.randbytes(60000), "page": 512, "buffer": 32768, "limit": 0,
                 "encoder": 1, "timeout": "1500"}
    program = transferred("program", case["image"])
    if stalls:
        case["commands"] = [program]
    elif case["replug"]:
        case["commands"] = [erased(), program, transferred("verify", case["image"])]
    else:
        case["commands"] = make_commands(random_, case)
    case["script"] = "; ".join(text for text, _ in case["commands"])
    # The flash before the run. An erase needs bits to erase, and stuckerase a bit that stays.
    erases = "erase " in case["script"]
    case["before"] = random_.randbytes(FLASH_SIZE) if erases else b"\xff" * FLASH_SIZE
    repeats = random_.random() < 0.15  # with -b, secapp does not send batchmode
    if not repeats:
        case["commands"].insert(0, one_request("batchmode 1"))
    # With -p, how many commands the user confirms before standard input ends.
    confirms = random_.random() < 0.08 and not case["replug"]
    case["confirmed"] = random_.randint(1, len(case["commands"])) if confirms else 0
    if stalls:
        case["faults"] = [f"hang,byte={random_.randint(500, 4000)},s=2.5"]
    else:
        case["faults"] = make_faults(random_, case)
    quick = ("unplug", "error", "flip", "ends")
    if case["faults"] and all(fault.startswith(quick) for fault in case["faults"]):
        case["timeout"] = "8000"  # None of these faults may delay the run that long.
    case["options"] = make_options(random_, case, repeats)
    return case
