#!/usr/bin/env python3
"""Writes C++ from a service's D-Bus introspection file.

generate.py FILE.xml OUTPUT.cpp                the client and the server side, on the bus
generate.py FILE.xml OUTPUT.cpp HEADER CLASS   only the client side, on CLASS, declared in HEADER, instead of
                                               tavos::msgbus::Remote: a recorder for tests, for example
generate.py FILE.xml OUTPUT.h                  VisitOperations: the operations' names, methods and arguments' names

The interface has annotations. org.tavos.Cpp.Class is its abstract class in C++, with its methods and an accessor
On<signal> for each signal. org.tavos.Cpp.Header is the header of that class. A service with several instances has
org.tavos.Cpp.Instance, the parameter that names an instance: it is appended to the well-known name and to the path. The
output defines CLASS::CreateClient and, for the server side, Serve in the class's namespace.

The operation OpenLane is no part of the class: the bus library calls and serves it (tavos/msgbus/Lane.h).
"""

import sys
import xml.etree.ElementTree

TYPES = {
    "i": "std::int32_t",
    "u": "std::uint32_t",
    "d": "double",
    "b": "bool",
    "s": "std::string",
    "as": "std::vector<std::string>",
}


OPEN_LANE = "OpenLane"


def value_type(argument):
    code = argument.get("type")
    if code not in TYPES:
        sys.exit(f"{sys.argv[1]}: no C++ type for \"{code}\"")
    return TYPES[code]


def parameter(argument):
    kind = value_type(argument)
    return f"const {kind}& {argument.get('name')}" if kind.startswith("std::string") or "<" in kind \
        else f"{kind} {argument.get('name')}"


def signature(arguments):
    return "".join(argument.get("type") for argument in arguments)


class Method:
    def __init__(self, element):
        self.name = element.get("name")
        self.inputs = [a for a in element.findall("arg") if a.get("direction", "in") == "in"]
        self.outputs = [a for a in element.findall("arg") if a.get("direction") == "out"]
        if len(self.outputs) > 1:
            sys.exit(f"{sys.argv[1]}: {self.name} has more than one result")
        self.result = value_type(self.outputs[0]) if self.outputs else "void"

    def client(self):
        parameters = ", ".join(map(parameter, self.inputs))
        values = "".join(f", {a.get('name')}" for a in self.inputs)
        return (f"    {self.result} {self.name}({parameters}) override {{\n"
                f"        return _remote.Call<{self.result}>(\"{self.name}\"{values});\n"
                f"    }}\n")

    def visit(self, interface):
        names = "".join(f", \"{a.get('name')}\"" for a in self.inputs)
        return f"    visit(\"{self.name}\", &{interface}::{self.name}{names});\n"

    def server(self, interface):
        return (f"tavos::msgbus::OperationOf<&{interface}::{self.name}>(\"{self.name}\", "
                f"\"{signature(self.inputs)}\", \"{signature(self.outputs)}\")")


class Signal:
    def __init__(self, element):
        self.name = element.get("name")
        self.arguments = element.findall("arg")
        self.member = "_" + self.name[0].lower() + self.name[1:]
        kinds = ", ".join(map(value_type, self.arguments))
        self.type = f"tavos::core::Event{len(self.arguments)}<{kinds}>"

    def client(self):
        return f"    {self.type}& On{self.name}() override {{ return {self.member}; }}\n"

    def members(self, remote):
        return (f"    {self.type} {self.member};\n"
                f"    {remote}::Subscription {self.member}Subscription;  // destroyed before the event\n")

    def server(self):
        return f"{{\"{self.name}\", \"{signature(self.arguments)}\"}}"


class Interface:
    def __init__(self, path):
        interface = xml.etree.ElementTree.parse(path).getroot().find("interface")
        annotations = {a.get("name"): a.get("value") for a in interface.findall("annotation")}
        self.origin = f"// Generated from {path.rsplit('/', 1)[-1]} by generate.py."
        self.bus_name = interface.get("name")
        self.header = annotations["org.tavos.Cpp.Header"]
        self.namespace, _, self.name = annotations["org.tavos.Cpp.Class"].rpartition("::")
        methods = interface.findall("method")
        self.methods = [Method(element) for element in methods if element.get("name") != OPEN_LANE]
        self.has_lanes = "true" if len(self.methods) < len(methods) else "false"
        self.signals = [Signal(element) for element in interface.findall("signal")]
        instance = annotations.get("org.tavos.Cpp.Instance")
        self.more_parameter = f", const char* {instance}" if instance else ""
        self.more_value = f", {instance}" if instance else ""
        self.name_end = f" + std::string(\".\") + {instance}" if instance else ""
        self.path_end = f" + std::string(\"/\") + {instance}" if instance else ""

    def client(self, remote):
        object_path = "/" + self.bus_name.replace(".", "/")
        subscriptions = "".join(f",\n          {s.member}Subscription(_remote.Subscribe(\"{s.name}\", {s.member}))"
                                for s in self.signals)
        return f"""namespace {{

tavos::msgbus::ServiceAddress Address({self.more_parameter[2:]}) {{
    return {{"{self.bus_name}"{self.name_end}, "{object_path}"{self.path_end}, "{self.bus_name}", {self.has_lanes}}};
}}

class {self.name}Client final : public {self.name} {{
public:
    explicit {self.name}Client(tavos::msgbus::IMsgBus* bus{self.more_parameter})
        : _remote(bus, Address({self.more_value[2:]})){subscriptions} {{}}

{"".join(m.client() for m in self.methods)}{"".join(s.client() for s in self.signals)}
private:
    {remote} _remote;
{"".join(s.members(remote) for s in self.signals)}}};

}}  // namespace

{self.name}* {self.name}::CreateClient(tavos::msgbus::IMsgBus* bus{self.more_parameter}) {{
    return new {self.name}Client(bus{self.more_value});
}}
"""

    def server_parameters(self):
        return f"tavos::msgbus::ServiceHost& host, {self.name}& service{self.more_parameter}"

    def server(self):
        operations = "".join(f"\n                           {m.server(self.name)}," for m in self.methods)
        forwards = "".join(f"    tavos::msgbus::ForwardEvent(host.Internals(), address, \"{s.name}\", "
                           f"service.On{s.name}());\n" for s in self.signals)
        return f"""std::string Serve({self.server_parameters()}) {{
    const tavos::msgbus::ServiceAddress address = Address({self.more_value[2:]});
    host.Internals().Add(address, &service,
                         {{{operations}}},
                         {{{", ".join(s.server() for s in self.signals)}}});
{forwards}    return address.service;
}}
"""

    def both_sides(self):
        return f"""{self.origin}
#include "{self.header}"

#include "tavos/msgbus/Remote.h"
#include "tavos/msgbus/Service.h"

namespace {self.namespace} {{

{"TAVOS_API " if self.namespace == "tavos::interfaces" else ""}std::string Serve({self.server_parameters()});

{self.client("tavos::msgbus::Remote")}
{self.server()}
}}  // namespace {self.namespace}
"""

    def client_only(self, remote_header, remote):
        return f"""{self.origin}
#include "{self.header}"

#include "{remote_header}"

namespace {self.namespace} {{

{self.client(remote)}
}}  // namespace {self.namespace}
"""

    def operations(self):
        return f"""{self.origin}
#pragma once

#include "{self.header}"

namespace {self.namespace} {{

/// Calls visit(OPERATION, METHOD, ARGUMENT...) for each operation, with the names of its arguments.
template <class Visit>
void VisitOperations(const {self.name}*, [[maybe_unused]] Visit&& visit) {{
{"".join(m.visit(self.name) for m in self.methods)}}}

}}  // namespace {self.namespace}
"""


def generate(path, output, *remote):
    interface = Interface(path)
    if output.endswith(".h"):
        return interface.operations()
    return interface.client_only(*remote) if remote else interface.both_sides()


if __name__ == "__main__":
    if len(sys.argv) not in (3, 5):
        sys.exit(__doc__)
    text = generate(*sys.argv[1:])
    with open(sys.argv[2], "w", encoding="utf-8") as file:
        file.write(text)
