"""Messages that a camera must survive, at three strengths: broken ones (1), huge ones (2), floods (3). They only ask to
read, go only to the named host, and their number is bounded. After each group the camera must answer a plain GET."""

import random
import time

import ber
import promises
from orvex_conform import usm
from orvex_conform.link import MAX_MESSAGE, V3, Gone, Silent
from orvex_conform.reads import error_name, is_below, parts

SUBJECT = "robustness"
GROUP = 20  # messages between two GETs
RANDOM_MESSAGES = 400
FLOOD = 20000  # messages
FLOOD_SECONDS = 10
RECOVERY = 5  # timeouts that the camera may need to answer again


def check(run, strength):
    for level, test in ((1, broken), (2, huge), (3, flood)):
        if level <= strength:
            test(run)
        else:
            run.verdicts.skipped(SUBJECT, test.__name__, f"--harsh {level} was not asked for")


def alive(run, what, line=""):
    """Judges that the camera still answers; raises Gone if not."""
    run.link.drain()
    patience = RECOVERY * run.link.timeout
    deadline = time.monotonic() + patience
    while True:
        try:
            answer = run.link.get(run.reader, run.tree.oid("moduleNumber"), retries=0)
            run.verdicts.judge(SUBJECT, what, answer.error == 0,
                               f"after {what} a GET answers {error_name(answer.error)}", line)
            return
        except Silent:
            pass
        except Gone:
            if time.monotonic() > deadline:
                break
        if time.monotonic() > deadline:
            break
    run.verdicts.failed(SUBJECT, what, f"after {what} the camera did not answer for {patience:g} s", line)
    raise Gone(f"silent after {what}")


def plain(run, oid):
    return run.reader.message(ber.pdu_octets(ber.GET, [(oid, ber.NULL, b"")]), 1)


def send_all(run, what, messages):
    for start in range(0, len(messages), GROUP):
        group = messages[start : start + GROUP]
        for octets in group:
            run.link.send(octets)
        alive(run, what, run.commands.raw(group[-1]))


def broken(run):
    """Cut, flipped, mistyped and meaningless messages."""
    whole = plain(run, run.tree.oid("positionPan"))
    send_all(run, "cut messages", [whole[:length] for length in range(len(whole))])
    flipped = []
    for bit in range(len(whole) * 8):
        octets = bytearray(whole)
        octets[bit // 8] ^= 1 << bit % 8
        flipped.append(bytes(octets))
    send_all(run, "messages with one wrong bit", [octets for octets in flipped if not may_set(octets)])
    generator = random.Random(1)
    odd = []
    for _ in range(RANDOM_MESSAGES):
        octets = bytearray(whole)
        for _ in range(generator.randint(1, 6)):
            octets[generator.randrange(len(octets))] = generator.randrange(256)
        odd.append(bytes(octets))
    odd += [generator.randbytes(generator.randint(0, 600)) for _ in range(RANDOM_MESSAGES // 2)]
    send_all(run, "random messages", [octets for octets in odd if not may_set(octets)])
    send_all(run, "odd lengths", lengths(run))


def may_set(octets):
    """True if the octet of a SET's type is anywhere in it: harsh messages must not write, whatever the agent makes of
    them. So are traps and informs, which the agent would pass on."""
    return any(kind in octets for kind in (ber.SET, 0xA4, 0xA6, ber.TRAP2))


def lengths(run):
    """Lengths that lie, are too long, or have no end."""
    name = ber.tlv(ber.OID, ber.oid_octets(run.tree.oid("positionPan")))
    inner = [name + b"\x05\x80\0\0", name + b"\x05\x84\xff\xff\xff\xff", name + b"\x04\x84\x7f\xff\xff\xff",
             b"\x06\x00\x05\x00", b"\x06\x81\x81" + b"\x81" * 129 + b"\x05\x00", name + b"\x05\x89" + bytes(9)]
    messages = []
    for binding in inner:
        body = ber.integers(1, 0, 0) + ber.tlv(ber.SEQUENCE, ber.tlv(ber.SEQUENCE, binding))
        messages.append(run.reader.message(ber.tlv(ber.GET, body), 1))
    whole = plain(run, run.tree.oid("positionPan"))
    messages += [b"\x30\x84\xff\xff\xff\xff" + whole[2:], b"\x30\x80" + whole[2:]]
    return messages + [whole + bytes(100), b"", b"\x30"]


def huge(run):
    """Many names, many repetitions, long names, messages of the max size."""
    names = [row.oid for row in run.tree.rows if row.name in run.values]
    oid = run.tree.oid("modelName")

    def attempt(what, send, line=""):
        try:
            send()
        except Silent:
            pass  # it may have no answer; alive() judges the camera
        alive(run, what, line)

    many = (names * (1500 // max(1, len(names)) + 1))[:1500]
    attempt("a GET of 1500 names", lambda: run.link.get(run.reader, *many, retries=0))
    attempt("a GET of 1500 times the same name", lambda: run.link.get(run.reader, *[oid] * 1500, retries=0))
    long = ".".join(["1.3.6.1.4.1"] + ["4294967295"] * 122)
    attempt("a name of 128 numbers", lambda: run.link.get(run.reader, long, retries=0))
    attempt("a name of 1000 numbers", lambda: run.link.get(run.reader, ".".join(["1.3"] + ["1"] * 998), retries=0))
    body = ber.integers(1, 0, 0) + ber.tlv(ber.SEQUENCE, ber.tlv(ber.SEQUENCE, ber.tlv(
        ber.OID, ber.oid_octets(oid)) + ber.tlv(ber.OCTET_STRING, bytes(60000))))
    large = run.reader.message(ber.tlv(ber.GET, body), 1)
    attempt("a message of 60,000 octets", lambda: run.link.send(large))
    attempt("a message of the max size", lambda: run.link.send(large.ljust(MAX_MESSAGE, b"\0")))
    for repetitions in (1000, 2**31 - 1):
        for subtree in run.tree.subtrees:
            line = run.commands.get_bulk(run.reader, repetitions, subtree)
            attempt(f"a GETBULK of {repetitions} repetitions", lambda: bulk(run, repetitions, subtree, line), line)
    attempt("a GETBULK of 40 names and 2147483647 repetitions",
            lambda: run.link.get_bulk(run.reader, 2**31 - 1, *names[:40], retries=0))


def bulk(run, repetitions, subtree, line):
    answer = run.link.get_bulk(run.reader, repetitions, subtree, timeout=5.0, retries=0)
    met = [parts(binding.oid) for binding in answer.bindings if is_below(binding.oid, subtree)]
    run.verdicts.judge(SUBJECT, "order of a huge GETBULK", met == sorted(met), "its names are not in order", line)


def flood(run):
    """GETs as fast as they can be sent, without waiting for an answer."""
    messages = [plain(run, row.oid) for row in run.tree.rows if row.name in run.values]
    began, sent = time.monotonic(), 0
    while sent < FLOOD and time.monotonic() - began < FLOOD_SECONDS:
        run.link.send(messages[sent % len(messages)])
        sent += 1
        if sent % 500 == 0:
            run.link.drain()
    run.verdicts.note(f"flood: {sent} messages in {time.monotonic() - began:.1f} s")
    alive(run, f"a flood of {FLOOD} messages")
    strangers = [ber.message(ber.pdu_octets(ber.GET, [(promises.UP_TIME, ber.NULL, b"")]), f"stranger {number}")
                 for number in range(2000)]
    for message in strangers:
        run.link.send(message)
    alive(run, "2000 messages of strangers")
    if run.reader.version == V3:
        for number in range(500):
            run.link.send(usm.User("nobody").discovery(number + 1))
        alive(run, "500 discoveries")
