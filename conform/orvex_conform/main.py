"""The command: reads its options, runs the checks that were asked for, writes the reports."""

import argparse
import ipaddress
import os
import pathlib
import signal
import sys

import promises
from orvex_conform import access, harsh, motion, platform, reads, report, sets, traps, usm
from orvex_conform.commands import Commands
from orvex_conform.link import V1, V2C, V3, Access, Gone, Link, Silent, Unreachable
from orvex_conform.run import Run, StateUnknown
from orvex_conform.verdicts import FAIL, Verdicts

PASSED, FINDINGS, UNUSABLE = 0, 1, 2
AUTHORIZATION_ERROR = 16
PHRASES = "ORVEX_CONFORM"

DESCRIPTION = """
Checks a camera over SNMP against what is promised of its objects, and prints a verdict for each. By default it only
reads. It sends to the named host and to nobody else."""

EPILOG = f"""
Pass phrases of SNMPv3 come from the environment: {PHRASES}_AUTHENTICATION and {PHRASES}_PRIVACY for the user,
{PHRASES}_WRITE_AUTHENTICATION and {PHRASES}_WRITE_PRIVACY for the write user if it is another one.

Exit status: 0 nothing failed, 1 something failed, 2 wrong options, or the camera cannot be reached, 3 a fault of this
program."""


def parser(version):
    made = argparse.ArgumentParser(prog="orvex-conform", description=DESCRIPTION, epilog=EPILOG, allow_abbrev=False,
                                   formatter_class=argparse.RawDescriptionHelpFormatter)
    add = made.add_argument
    made.add_argument("--version", action="version", version=f"orvex-conform {version}")
    add("--host", required=True, help="the camera's name or address")
    add("--port", type=number(1, 65535), default=161, help="its UDP port; 161 by default")
    add("--community", help="reads, in SNMPv1 and SNMPv2c")
    add("--write-community", metavar="COMMUNITY", help="reads and writes, in SNMPv1 and SNMPv2c")
    add("--user", help="an SNMPv3 user that reads; the checks use it if there is no community")
    add("--write-user", metavar="USER", help="an SNMPv3 user that writes")
    add("--authentication", choices=usm.AUTHENTICATION, default="SHA-256", help="of both users; SHA-256 by default")
    add("--enterprise", metavar="N", type=number(0, 2**32 - 1), default=promises.DEFAULT_ENTERPRISE,
        help="the private enterprise number in the camera's OIDs; %(default)s by default")
    add("--timeout", metavar="SECONDS", type=seconds(0.05, 60), default=2.0,
        help="for each request; %(default)g by default")
    add("--retries", metavar="N", type=number(0, 10), default=1,
        help="of an unanswered request; %(default)s by default")
    add("--slow", metavar="SECONDS", type=seconds(0.001, 60), default=0.4,
        help="a slower answer is a finding; %(default)g by default")
    how = made.add_argument_group("how far to go")
    how.add_argument("--reads", action="store_true", help="only read: the default")
    how.add_argument("--move", nargs="?", const="all", choices=["all", "grammar", "motion"],
                     help="also write: this moves the camera and switches its relays; ends with a stop of every axis. "
                     "grammar: only what SETs answer; motion: only where the axes go")
    how.add_argument("--harsh", metavar="STRENGTH", type=number(1, 3), default=0,
                     help="also send broken messages (1), huge ones (2), floods (3)")
    seen = made.add_argument_group("what can be seen of the camera")
    seen.add_argument("--state-command", metavar="COMMAND",
                      help="prints the platform's state as one JSON object, in the form of domectl state")
    seen.add_argument("--trap-port", metavar="PORT", type=number(1, 65535), help="listens here for the camera's traps")
    seen.add_argument("--trap-command", metavar="SENSOR=COMMAND", action="append", default=[], type=trap_command,
                      help="changes the reading of temperature, power or voltage: its trap must come; repeatable")
    seen.add_argument("--trap-wait", metavar="SECONDS", type=seconds(0.1, 600), default=5.0,
                      help="for such a trap; %(default)g by default")
    reports = made.add_argument_group("reports; text goes to standard output")
    reports.add_argument("--junit", metavar="FILE", help="writes JUnit XML")
    reports.add_argument("--html", metavar="FILE", help="writes one HTML file")
    return made


def number(low, high):
    def read(text):
        if not text.isascii() or not text.isdigit() or not low <= int(text) <= high:
            raise argparse.ArgumentTypeError(f"requires a number from {low} to {high}, not '{text}'")
        return int(text)
    return read


def seconds(low, high):
    def read(text):
        try:
            value = float(text)
        except ValueError:
            value = -1.0
        if not low <= value <= high:
            raise argparse.ArgumentTypeError(f"requires {low:g} to {high:g} seconds, not '{text}'")
        return value
    return read


def trap_command(text):
    sensor, _, command = text.partition("=")
    if sensor not in promises.SENSORS or not command:
        raise argparse.ArgumentTypeError(f"requires {'|'.join(promises.SENSORS)}=COMMAND, not '{text}'")
    return sensor, command


def interrupt(*_):
    raise KeyboardInterrupt


class Unusable(Exception):
    """The run cannot begin."""


def main(words=None, version="0"):
    options = parser(version).parse_args(words)
    options.trap_commands = dict(options.trap_command)
    signal.signal(signal.SIGTERM, interrupt)  # so that a camera is stopped before the end
    try:
        return checked(options)
    except (Unusable, Unreachable) as error:
        print(f"orvex-conform: {error}", file=sys.stderr)
        return UNUSABLE
    except KeyboardInterrupt:
        print("orvex-conform: interrupted", file=sys.stderr)
        return UNUSABLE


def checked(options):
    if options.reads and options.move:
        raise Unusable("--reads and --move exclude each other")
    files = {report.junit: options.junit, report.page: options.html}
    for file in filter(None, files.values()):
        if not pathlib.Path(file).resolve().parent.is_dir():
            raise Unusable(f"the folder of {file} does not exist")
    only_one_host(options.host)
    link = Link(options.host, options.port, options.timeout, options.retries, may_set=bool(options.move))
    try:
        verdicts = judged(link, options)
    finally:
        link.close()
    print(report.text(verdicts), end="")
    for make, file in files.items():
        if file:
            try:
                pathlib.Path(file).write_text(make(verdicts), encoding="utf-8")
            except OSError as error:
                raise Unusable(f"cannot write {file}: {error.strerror}") from None
    return FINDINGS if verdicts.of(FAIL) else PASSED


def only_one_host(host):
    """Refuses addresses of many."""
    try:
        address = ipaddress.ip_address(host)
    except ValueError:
        return  # a name; the socket refuses a broadcast address by itself
    if address.is_multicast or address.is_unspecified or str(address) == "255.255.255.255":
        raise Unusable(f"{host} is not one host's address")


def phrases(which):
    return (os.environ.get(f"{which}_AUTHENTICATION", ""), os.environ.get(f"{which}_PRIVACY", ""))


def user_of(link, options, name, which):
    authentication, privacy = phrases(which)
    if privacy and not authentication:
        raise Unusable(f"{which}_PRIVACY requires {which}_AUTHENTICATION")
    user = usm.User(name, options.authentication, authentication, privacy, which)
    link.discover(user)
    return Access(V3, user=user)


def roles(link, options):
    """(readers, writers): each named role in each of its versions."""
    readers, writers = [], []
    for community, group in ((options.community, readers), (options.write_community, writers)):
        if community is not None:
            group += [Access(V2C, community), Access(V1, community)]
    for name, which, group in ((options.user, PHRASES, readers), (options.write_user, f"{PHRASES}_WRITE", writers)):
        if name is not None:
            if which != PHRASES and (name == options.user or not any(phrases(which))):
                which = PHRASES
            group.append(user_of(link, options, name, which))
    if not readers + writers:
        raise Unusable("who asks? name a --community or a --user")
    if options.move and not writers:
        raise Unusable("--move requires a --write-community or a --write-user")
    return readers, writers


def is_let_in(link, role, options, verdicts):
    """False, and skipped, for SNMPv1 if the camera does not speak it: SNMPv2c has the same community. Raises Unusable
    if the camera refuses that role altogether."""
    try:
        answer = link.get_next(role, promises.Tree(0, 0, options.enterprise).subtrees[0])
    except Silent:
        if role.version != V1:
            raise
        verdicts.skipped("SNMPv1", "answer", "the camera does not answer in SNMPv1, but in SNMPv2c")
        return False
    if answer.pdu == usm.REPORT:
        reports = [usm.REPORTS.get(binding.oid, binding.oid) for binding in answer.bindings]
        raise Unusable(f"the camera refuses the user {role.user.name}: {', '.join(reports)}")
    if answer.error == AUTHORIZATION_ERROR:
        raise Unusable(f"the camera refuses the {'user' if role.user else 'community'}: authorizationError")
    return True


def judged(link, options):
    verdicts = Verdicts(f"{options.host} port {options.port}")
    listener = listen(link, options)
    try:
        try:
            readers, writers = ([role for role in group if is_let_in(link, role, options, verdicts)]
                                for group in roles(link, options))
        except (Silent, Gone) as silence:
            raise Unusable(f"{options.host} port {options.port} does not answer: {silence}; is it the right address, "
                           "community or user?") from None
        run = Run(link, readers, writers, verdicts, Commands(options.host, options.port), options)
        try:
            check(run, listener)
        except (Silent, Gone, StateUnknown) as end:
            verdicts.failed("answers", "the checks ended", str(end))
    finally:
        if listener:
            listener.close()
    verdicts.end()
    return verdicts


def check(run, listener):
    try:
        run.platform()
    except StateUnknown as error:
        raise Unusable(str(error)) from None
    run.alarms, run.relays = (reads.count_rows(run, name) for name in ("alarm", "relay"))
    run.expect(run.expected_tree(run.alarms, run.relays))
    reads.check(run)
    platform.check(run)
    access.check(run, run.readers + run.writers)
    if run.options.move:
        before = sets.remember(run)
        try:
            sets.readers_write_nothing(run)
            if run.options.move != "motion":
                sets.check(run)
            if run.options.move != "grammar":
                motion.check(run)
        finally:
            sets.restore(run, before)
    traps.check(run, listener)
    if run.options.harsh:
        harsh.check(run, run.options.harsh)


def listen(link, options):
    if options.trap_port is None:
        if options.trap_command:
            raise Unusable("--trap-command requires a --trap-port")
        return None
    address = link.own_address()
    try:
        return traps.Listener(address, options.trap_port, link.address)
    except OSError as error:
        raise Unusable(f"cannot listen on port {options.trap_port} of {address}: {error.strerror}") from None
