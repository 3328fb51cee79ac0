"""The requests that secapp must send to a target, and the log of a simulated target.

The commands below are a model of secapp that is independent of its code. Each is a generator: it
yields the requests that must be sent, one after the other, receives an `Answer` to each, and raises
`Failed` when the command must fail."""

import re

BASE, FLASH_SIZE = 0x0C000000, 128 * 1024
LINE_LIMIT = 16384

# White space at the ends of a line, as the log shows it.
EDGES = re.compile(r"^(?: |\\x09|\\x0b|\\x0c)+|(?: |\\x09|\\x0b|\\x0c)+$")
OK = "VQX_OK"

# The values of the words of pass-through commands, and whether a memory's name is in them.
VALUES = {"FLASH": (BASE, True), "flash+28": (BASE + 28, True), "FLASH+4*8": (BASE + 32, True),
          "2+FLASH": (BASE + 2, True), "FLASH*4096": (BASE * 4096, True), "NOSUCH": (None, True),
          "0x99999999": (0x99999999, False), "0x100000": (0x100000, False), "64": (64, False),
          "8": (8, False), "7": (7, False), "0": (0, False), "1-2": (2**64 - 1, False),
          "1/0": (None, False), "+5": (None, False)}


class Failed(Exception):
    """The current command must fail, with this text."""


class Refused(Failed):
    """The target refused a request, with this text."""


class Answer:
    """The answer to a request: the lines that secapp keeps, the failure that must follow, if any,
    and whether secapp must have received all lines, not only the first few."""

    def __init__(self, lines, failure=None, complete=True):
        self.lines, self.failure, self.complete = lines, failure, complete


class HostModel:
    """The state of the model: the settings, the expected output and memory of the target."""

    def __init__(self, case):
        self.case = case
        self.output = []  # texts; a list among them has lines of which only the first few may come
        self.memory = bytearray(case["before"])
        self.undetected = set()  # addresses of stuck bits that no verify has read since
        self.has_timeout = True  # of the answers

    def ask(self, request, shown=True):
        """Sends a request and returns the lines of its answer."""
        answer = yield request
        if shown:
            lines = [line + "\n" for line in answer.lines]
            self.output += lines if answer.complete else [answer.lines]
        if answer.failure:
            raise answer.failure
        return answer.lines

    def write(self, address, data):
        self.memory[address - BASE:address - BASE + len(data)] = data


def query(host, shown=False):
    """Asks for the memories, between debug options that the target may refuse."""
    yield from debug_options(host, host.case["debug"], shown)
    yield from host.ask("queryFlash", shown)
    yield from debug_options(host, 7, shown)


def debug_options(host, number, shown):
    try:
        if host.case["debug"] is not None:
            yield from host.ask(f"DebugOptions {number}", shown)
    except Refused:
        pass


def pass_through(host, word, *arguments):
    """Evaluates words with names; asks for the memories once, and again if the target refused."""
    known, line = False, word
    for argument in arguments:
        value, named = VALUES[argument]
        if named and not known:
            try:
                yield from query(host)
                known = True
            except Refused:
                value = None
        line += f" {argument}" if value is None else f" {value:x}"
    yield from host.ask(line)


def blank_check(host):
    yield from query(host)
    yield from pass_through(host, "blankCheck", "FLASH")


def erase(host, item, offset):
    yield from query(host)
    host.output.append(f"Erasing {item} ")
    host.has_timeout = False
    try:
        yield from host.ask(f"eraseFlash {BASE + offset:x}")
    finally:
        host.has_timeout = True
        host.output.append("... completed in 0.000s\n")
    host.write(BASE + offset, b"\xff" * (FLASH_SIZE - offset))


def target_info(host):
    answer = yield from host.ask("queryPart", False)
    part = dict(re.split(r"\s*=\s*", line, maxsplit=1) for line in answer if "=" in line)
    if "Partid" in part:
        host.output.append(f"{part.get('Decode', '')} PartID: {part['Partid']} "
                           f"Clock: {part.get('Core clock', '')}Hz\n")
    yield from query(host)
    identity = yield from host.ask("queryID", False)
    host.output.append(f"FLASH: 0x{BASE:08x}-0x{BASE + FLASH_SIZE - 1:08x} "
                       f"({FLASH_SIZE // 1024}K bytes) PageSize: 0x{host.case['page']:x}\n"
                       "ID: " + "".join(line + "\n" for line in identity) + "\n")


def words_of(data, pad=b"\xff"):
    """The 32-bit words of the data; `pad` completes the last one."""
    data += pad * (-len(data) % 4)
    return [int.from_bytes(data[at:at + 4], "little") for at in range(0, len(data), 4)]


def with_check_word(image):
    """The image with an eighth word that makes the sum of the first eight zero; a shorter image is
    returned unchanged."""
    if len(image) < 32:
        return image
    total = sum(words_of(image[:28]))
    return image[:28] + (-total % 2**32).to_bytes(4, "little") + image[32:]


def with_word_from_target(host, image, address):
    lines = yield from host.ask(f"readWord 0x{address + 28:x}")
    number = re.match(r"[+-]?(?:0[xX])?[0-9a-fA-F]+", lines[0]) if lines else None
    if not number:
        raise Failed(f"No value in the answer to readWord at 0x{address + 28:x}")
    return image[:28] + (int(number[0], 16) % 2**32).to_bytes(4, "little") + image[32:]


def encode(host, chunk, burst, pad):
    """Sends a chunk to the target's buffer, in bursts or in lines of words."""
    if host.case["encoder"] == 1:
        for at in range(0, len(chunk), burst):
            data = chunk[at:at + burst]
            total = sum(words_of(data)) % 2**32
            yield from host.ask(f"databurst {len(data):x} {at:x} {total:x}")
            yield from host.ask(f"[burst of 0x{len(data):x} bytes, checksum 0x{total:08x}]")
        return
    step = 4 * host.case["words"]
    for at in range(0, len(chunk), step):
        words = words_of(chunk[at:at + step], pad)
        yield from host.ask(f"dataPacket {at:x} " + " ".join(f"{word:x}" for word in words))


def download(host, image, check):
    size = host.case["limit"] or 32768
    if check and size < 32 <= len(image):
        raise Failed("The check word of an image does not fit a transfer buffer of "
                     f"{size} bytes")
    if check:
        image = with_check_word(image)
    for at in range(0, len(image), size):
        yield from host.ask(f"dataSet {size // 4:x} 0")
        yield from encode(host, image[at:at + size], size, b"\0")
    yield from host.ask(f"dataSet {size // 4:x} 0")
    host.output.append(f"\nDownloaded {len(image)} bytes to 0x0 in 0.000s "
                       "(0.000KB/sec)\n")


def transfer(host, word, image, offset, check="", width=1):
    """Programs or verifies one buffer after the other."""
    page, buffer = host.case["page"], host.case["buffer"]
    address, staged = BASE + offset, b""
    yield from query(host)
    if buffer % width and width % buffer:
        raise Failed(f"Fill width {width} does not fit the buffer of memory FLASH "
                     f"({buffer} bytes)")
    if check == "+c":
        image = with_check_word(image)
    if check == "+i" and image:
        image = yield from with_word_from_target(host, image, address)
    for at in [*range(0, len(image), buffer), len(image)]:
        if staged:
            pages = -(-len(staged) // page)
            yield from host.ask(f"{word}Page {address:x} {pages:x}")
            if word == "program":
                host.write(address, staged.ljust(pages * page, b"\xff"))
            else:
                host.undetected -= set(range(address, address + pages * page))
            address += len(staged)
        yield from host.ask(f"dataSet {buffer // 4:x} ff")
        staged = image[at:at + buffer]
        yield from encode(host, staged, host.case["limit"] or buffer, b"\xff")
    done = "Programmed" if word == "program" else "Verified"
    host.output.append(f"\n{done} {len(image)} bytes to 0x{BASE + offset:x} in 0.000s "
                       "(0.000KB/sec)\n")


class Exchange:
    """A request as the log shows it, the faults that occurred, and its answer: the lines that
    secapp must keep, and the status: an error's text, `OK`, or None without a complete status."""

    def __init__(self, stamp, request):
        self.stamp, self.request, self.faults = float(stamp), request, []
        self.lines, self.status, self.longest = [], None, 0

    def add_text(self, text, flood_lines):
        """Adds a line of the log to the answer. Line ends other than CR LF are hexadecimal."""
        flood = re.fullmatch(r"\[flood of (\d+) bytes\]", text)
        if flood and "ignored" in dict(self.faults):
            lines = []
        elif flood:
            length, step = int(flood[1]), 64 if flood_lines else LINE_LIMIT
            lines = ["f" * min(62 if flood_lines else step, length - at)
                     for at in range(0, length, step)]
        else:
            lines = [EDGES.sub("", line) for line in re.split(r"\\x0d|\\x0a|\\x00", text)]
        for line in lines:
            self.longest = max(self.longest, len(line))
            if self.status is None and line and not line.startswith("="):
                self.add(line)

    def add(self, line):
        if line.startswith(OK):
            self.status = OK
            return
        self.lines.append(line)
        if line.upper().startswith(("VQX_ERROR", "VQX_FATAL")):
            self.status = EDGES.sub("", line[9:])


def read_log(log, flood_lines):
    """The exchanges of a log, the kinds of the faults that occurred, when the device vanished, if
    it did, and whether the target hung in the middle of a request to the end."""
    exchanges, occurred, unplugged, early = [], [], None, []
    for stamp, sort, text in re.findall(r"^([\d.]+) (?:\d+ )?([>!<#]) (.*)$", log, re.M):
        fault = re.fullmatch(r"(exchange \d+, )?(\w+): (.*)", text) if sort == "!" else None
        if sort == ">":
            exchanges.append(Exchange(stamp, text))
            exchanges[-1].faults, early = early, []
        elif sort == "<" and exchanges:
            # The line feed after a status in single bytes can arrive after the next request.
            before = exchanges[-2:][0]
            late = before.status is None and "split" in dict(before.faults)
            (before if late else exchanges[-1]).add_text(text, flood_lines)
        elif fault:
            occurred.append(fault[2])
            if fault[1]:
                exchanges[-1].faults.append((fault[2], fault[3]))
            elif fault[2] == "hang":
                early.append((fault[2], fault[3]))  # at a byte of the next request
        elif text == "unplugged":
            unplugged = float(stamp)
    for exchange in exchanges:
        if {"cut", "noend"} & dict(exchange.faults).keys():
            exchange.status = None  # A line that does not end is not a status.
    return exchanges, occurred, unplugged, bool(early)
