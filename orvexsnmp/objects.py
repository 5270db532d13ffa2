#!/usr/bin/env python3
"""Generates the code, the MIBs and the page of the scalar objects from objects.toml.

objects.py code FOLDER          the C++ that core/, frame/ and the providers include
objects.py mib TEMPLATE OUTPUT  a MIB: fills the template's lines "@OBJECTS SECTION...@" and "@VARIATIONS SECTION...@",
                                and "@MEMBERS SECTION...@" within a line
objects.py trace FILE           the C++ rows of trace/reader: each object's name, OID, type, access
                                and whether its octets are a text
objects.py page PAGE            rewrites the rows of docs/objects.md below each "<!-- objects.toml: SECTION... -->"

Does not write a file whose content is already right, so that a build does not compile it again.
"""

import dataclasses
import pathlib
import re
import sys
import textwrap
import tomllib

TABLE = pathlib.Path(__file__).with_name("objects.toml")
NTCIP = "1.3.6.1.4.1.1206."
TYPES = {  # of a constant, by its width in bytes
    1: "std::uint8_t",
    2: "std::int16_t",
    4: "std::int32_t",
}
PARAMETERS = """(netsnmp_mib_handler*, netsnmp_handler_registration*,
    netsnmp_agent_request_info* info, netsnmp_request_info* requests)"""


@dataclasses.dataclass
class Object:
    """An object with its attributes and those of its section. objects.toml explains the attributes."""

    name: str
    oid: str
    node: str
    syntax: str
    description: str
    units: str = ""
    access: str = "read-only"
    provider: str = ""
    handler: str = ""
    constant: int | str | None = None
    bytes: int = 4
    log: str = ""
    done: str = "Trace"
    enabled: bool = True
    apart: bool = False
    summary: str = ""
    variation: dict | None = None

    def __post_init__(self):
        if not re.fullmatch(r"(orvexEnterprise|\d+)(\.\d+)+", self.oid):
            self.refuse(f"oid must be numbers, from 1.3.6 or from orvexEnterprise on, not {self.oid}")
        if self.access not in ("read-only", "read-write"):
            self.refuse(f"access must be read-only or read-write, not {self.access}")
        if self.bytes not in TYPES:
            self.refuse(f"bytes must be 1, 2 or 4, not {self.bytes}")
        if '"' in self.description:
            self.refuse("a MIB's description cannot hold double quotes")
        self.is_octets = self.syntax.startswith("Orvex")  # the MIBs' textual conventions
        self.is_number = self.constant is not None and not self.is_octets
        if not self.summary and not self.is_number:
            self.refuse("summary is missing: what docs/objects.md says")
        self.is_writable = self.access == "read-write"
        try:
            self.line = self.log and self.log % (f"handle_{self.name}", self.constant)
        except (TypeError, ValueError) as error:
            self.refuse(f"log does not take the handler's name and the value: {error}")

    def refuse(self, why):
        refuse(self.name, why)

    # C++

    def array(self):
        parts = self.oid.replace("orvexEnterprise", "1.3.6.1.4.1.ORVEX_ENTERPRISE_NUMBER").split(".")
        return f"oid OrvexSnmpOid::oid_{self.name}[{len(parts)}]", ", ".join(parts)

    def handler_name(self):
        """Its name outside its class."""
        return self.handler or (f"{self.provider}::" if self.provider else "") + f"handle_{self.name}"

    def row(self):
        access = "HANDLER_CAN_RWRITE" if self.is_writable else "HANDLER_CAN_RONLY"
        return f"Row(\"{self.name}\", OrvexSnmpOid::oid_{self.name}, {self.handler_name()}, {access}, " \
               f"{int(self.enabled)}),\n"

    def constant_handler(self):
        name, line = f"\"handle_{self.name}\"", f"\"{self.line}\"" if self.log else "nullptr"
        if not self.provider:
            value = f"\"{self.constant}\"" if isinstance(self.constant, str) else self.constant
            answer = f"AnswerIdentity({name}, info, requests, {value}, {line})"
        else:
            kind = "ASN_OCTET_STR" if self.is_octets else "ASN_INTEGER"
            answer = f"AnswerConstant<{TYPES[self.bytes]}>(GetInstance()->GetLogger(), {name}, info, requests, " \
                     f"{self.constant}, {line},\n        {kind}, tavos::core::k{self.done})"
        return f"int {self.handler_name()}{PARAMETERS} {{\n    return {answer};\n}}\n"

    # MIBs

    def mib_name(self):
        return "orvex" + self.name[0].upper() + self.name[1:] if self.oid.startswith(NTCIP) else self.name

    def mib_object(self):
        units = f"    UNITS \"{self.units}\"\n" if self.units else ""
        paragraphs = [textwrap.fill(" ".join(paragraph.split()), 74, initial_indent=" " * 9, subsequent_indent=" " * 9,
                                    break_on_hyphens=False) for paragraph in self.description.split("\n\n")]
        description = "\n\n".join(paragraphs)[9:]
        return f"{self.mib_name()} OBJECT-TYPE\n    SYNTAX {self.syntax}\n{units}    MAX-ACCESS {self.access}\n" \
               f"    STATUS current\n    DESCRIPTION\n        \"{description}\"\n" \
               f"    ::= {{ {self.node} {self.oid.split('.')[-2]} }}\n"

    def mib_variation(self):
        """Its variation in the capabilities; empty if there is none."""
        clauses = self.variation
        if clauses is None and self.is_number:
            named = self.syntax.startswith("INTEGER")
            clauses = {"syntax": self.syntax if named else f"Integer32 ({self.constant})", "description": "Constant."}
            if self.is_writable:
                clauses |= {"access": "read-only", "description": "Constant. Every SET is refused with genErr."}
        if not clauses:
            return ""
        text = f"        VARIATION {self.mib_name()}\n"
        for key in ("syntax", "write-syntax", "access"):
            if key in clauses:
                text += f"            {key.upper()} {clauses[key]}\n"
        return text + textwrap.fill(f"DESCRIPTION \"{' '.join(clauses['description'].split())}\"", 115,
                                    initial_indent=" " * 12, subsequent_indent=" " * 16, break_on_hyphens=False) + "\n"

    # The trace and docs/objects.md

    def kind(self):
        return "OCTET STRING" if self.is_octets else "Gauge32" if self.syntax == "Gauge32" else "INTEGER"

    def trace_row(self):
        kind = {"OCTET STRING": "kOctetString", "Gauge32": "kGauge32", "INTEGER": "kInteger"}[self.kind()]
        _, parts = self.array()
        is_text = self.syntax == "OrvexText" and self.constant is None
        return f"{{\"{self.name}\", {{{parts}}}, {kind}, {str(self.is_writable).lower()}, {str(is_text).lower()}}},\n"

    def page_row(self):
        summary = self.summary or str(self.constant) + ("; every SET: genErr" if self.is_writable else "")
        return f"| `{self.name}` | `{self.oid}` | {self.kind()} | {self.access} | {' '.join(summary.split())} |\n"


def refuse(name, why):
    sys.exit(f"{TABLE.name}: {name}: {why}")


def made(name, attributes):
    try:
        return Object(name, **attributes)
    except TypeError as error:  # a missing or an unknown attribute
        return refuse(name, str(error).removeprefix("Object.__init__() "))


def read_table():
    """The objects of each section, in the table's order."""
    sections = {}
    for section, content in tomllib.loads(TABLE.read_text()).items():
        shared = {key: value for key, value in content.items() if not isinstance(value, dict)}
        sections[section] = [made(name, shared | own) for name, own in content.items() if isinstance(own, dict)]
    objects = [thing for things in sections.values() for thing in things]
    for number, thing in enumerate(objects):
        for earlier in objects[:number]:
            if thing.oid == earlier.oid or thing.name == earlier.name:
                thing.refuse(f"its name or OID is that of {earlier.name}")
    return sections


def write(path, text):
    path = pathlib.Path(path)
    if not path.exists() or path.read_text() != text:
        path.write_text(text)


def write_code(sections, folder):
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    objects = [thing for things in sections.values() for thing in things]
    rows = [thing for thing in objects if not thing.apart]
    constants = [thing for thing in objects if thing.constant is not None]
    arrays = [thing.array() for thing in objects]
    handlers = {"IdentityHandlers": []}
    for thing in objects:
        if not thing.handler:
            start = "static " if thing.provider else ""
            handlers.setdefault(thing.provider or "IdentityHandlers", []).append(
                f"{start}Netsnmp_Node_Handler handle_{thing.name};\n")
    files = {
        "ScalarCount.h": [f"#pragma once\n\n#include <cstddef>\n\nconstexpr std::size_t kScalarCount = {len(rows)};\n"],
        "OrvexSnmpOid": [f"static const {array.replace('OrvexSnmpOid::', '')};\n" for array, _ in arrays],
        "OidArrays": [f"const {array} = {{{parts}}};\n" for array, parts in arrays],
        "ScalarRows": [thing.row() for thing in rows],
        "Constants": [thing.constant_handler() for thing in constants if thing.provider],
        "IdentityConstants": [thing.constant_handler() for thing in constants if not thing.provider],
        "ConstantValues": [f"{{\"{thing.name}\", {thing.constant}}},\n" for thing in objects if thing.is_number],
        **handlers,
    }
    for name, lines in files.items():
        write(folder / (name if "." in name else f"{name}.inc"),
              "// Generated from objects.toml by objects.py: change those files.\n" + "".join(lines))


def write_trace(sections, path):
    rows = [thing.trace_row() for things in sections.values() for thing in things]
    pathlib.Path(path).parent.mkdir(parents=True, exist_ok=True)
    write(path, "// Generated from objects.toml by objects.py: change those files.\n" + "".join(rows))


def named(sections, names):
    unknown = [name for name in names.split() if name not in sections]
    if unknown:
        sys.exit(f"{TABLE.name} has no section {unknown[0]}")
    return [thing for name in names.split() for thing in sections[name]]


def fill_template(sections, text):
    def objects(match):
        return "\n".join(thing.mib_object() for thing in named(sections, match[1]))

    def members(match):
        indent, before, names, after = match.groups()
        members = ", ".join(thing.mib_name() for thing in named(sections, names))
        return textwrap.fill(before + members + after, 120, initial_indent=indent, subsequent_indent=indent) + "\n"

    def variations(match):
        return "".join(thing.mib_variation() for thing in named(sections, match[1]))

    text = re.sub(r"^@OBJECTS (.+)@\n", objects, text, flags=re.MULTILINE)
    text = re.sub(r"^( +)(.*)@MEMBERS (.+)@(.*)\n", members, text, flags=re.MULTILINE)
    return re.sub(r"^@VARIATIONS (.+)@\n", variations, text, flags=re.MULTILINE)


def fill_page(sections, text):
    def rows(match):
        return match[1] + "".join(thing.page_row() for thing in named(sections, match[2]))

    return re.sub(r"(^<!-- objects\.toml: (.+) -->\n\n\|.*\n\|.*\n)(?:\|.*\n)*", rows, text, flags=re.MULTILINE)


def main(what, source, output=None):
    sections = read_table()
    if what == "code":
        write_code(sections, source)
    elif what == "trace":
        write_trace(sections, source)
    elif what == "mib":
        write(output, fill_template(sections, pathlib.Path(source).read_text()))
    elif what == "page":
        write(source, fill_page(sections, pathlib.Path(source).read_text()))
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(*sys.argv[1:])
