"""The addresses on which a process listens and to which its sockets are bound; private networks for tests."""

import ipaddress
import pathlib
import re
import subprocess

INTERNET = ["tcp", "tcp6", "udp", "udp6", "udplite", "udplite6", "raw", "raw6", "icmp", "icmp6"]
LISTENING = "0A"
UNIX_LISTENING = 0x10000


def _endpoint(text):
    """The kernel writes an address as words of four octets, each in reverse order, then the port."""
    address, port = text.split(":")
    octets = b"".join(bytes.fromhex(address[i:i + 8])[::-1] for i in range(0, len(address), 8))
    return f"{ipaddress.ip_address(octets)}:{int(port, 16)}"


def _internet(kind, fields):
    local, remote = _endpoint(fields[1]), _endpoint(fields[2])
    listens = " listens" if kind.startswith("tcp") and fields[3] == LISTENING else ""
    return f"{kind} {local}{listens}" + ("" if remote.endswith(":0") else f" to {remote}")


def _unix(fields):
    path = f" {fields[7]}" if len(fields) > 7 else ""
    return f"unix{path} listens" if int(fields[3], 16) & UNIX_LISTENING else "unix connected"


def _rows(pid, kind):
    try:
        return [line.split() for line in pathlib.Path(f"/proc/{pid}/net/{kind}").read_text().splitlines()[1:]]
    except FileNotFoundError:  # a kernel without that protocol
        return []


def _named(pid):
    """Every socket with an address in the process's network, by its inode."""
    named = {fields[9]: _internet(kind, fields) for kind in INTERNET for fields in _rows(pid, kind)}
    named.update({fields[6]: _unix(fields) for fields in _rows(pid, "unix")})
    named.update({fields[-1]: "netlink" for fields in _rows(pid, "netlink")})
    named.update({fields[-1]: "packet" for fields in _rows(pid, "packet")})
    return named


def _links(folder):
    for link in pathlib.Path(folder).iterdir():
        try:
            yield str(link.readlink())
        except FileNotFoundError:  # closed meanwhile
            continue


def sockets_of(pid):
    """The process's sockets as sorted texts. Sockets without an address are left out, because nobody can reach them."""
    links = _links(f"/proc/{pid}/fd")
    inodes = [match[1] for match in (re.fullmatch(r"socket:\[(\d+)\]", link) for link in links) if match]
    named = _named(pid)
    return sorted(named[inode] for inode in inodes if inode in named)


class Network:
    """A network of this test that has only loopback; every port is free there. For a `with`."""

    def __enter__(self):
        self._holder = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", "unshare", "--net", "--", "bash", "-c",
             "ip link set lo up && echo up && exec sleep infinity"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        assert self._holder.stdout.readline() == b"up\n", "creating a network requires root"
        return self

    def __exit__(self, *_):
        self._holder.kill()
        self._holder.wait()

    def command(self, *words):
        """The command that runs `words` in this network."""
        return ["nsenter", f"--net=/proc/{self._holder.pid}/ns/net", "--", *words]
