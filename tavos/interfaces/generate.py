#!/usr/bin/env python3
"""Writes a service's client and server side from its D-Bus introspection file.

generate.py FILE.xml OUTPUT.cpp

The interface has annotations. org.tavos.Cpp.Class is its abstract class in C++, with its methods and an accessor
On<signal> for each signal. org.tavos.Cpp.Header is the header of that class. A service with several instances has
org.tavos.Cpp.Instance, the parameter that names an instance: it is appended to the well-known name and to the path. The
output defines CLASS::CreateClient and, in the class's namespace, Serve.
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

    def members(self):
        return (f"    {self.type} {self.member};\n"
                f"    tavos::msgbus::Subscription {self.member}Subscription;  // destroyed before the event\n")

    def server(self):
        return f"{{\"{self.name}\", \"{signature(self.arguments)}\"}}"


def generate(path):
    interface = xml.etree.ElementTree.parse(path).getroot().find("interface")
    bus_name = interface.get("name")
    annotations = {a.get("name"): a.get("value") for a in interface.findall("annotation")}
    namespace, _, class_name = annotations["org.tavos.Cpp.Class"].rpartition("::")
    instance = annotations.get("org.tavos.Cpp.Instance")
    methods = [Method(element) for element in interface.findall("method")]
    signals = [Signal(element) for element in interface.findall("signal")]

    more_parameter = f", const char* {instance}" if instance else ""
    more_value = f", {instance}" if instance else ""
    object_path = "/" + bus_name.replace(".", "/")
    name_end = f" + std::string(\".\") + {instance}" if instance else ""
    path_end = f" + std::string(\"/\") + {instance}" if instance else ""
    subscriptions = "".join(f",\n          {s.member}Subscription(_remote.Subscribe(\"{s.name}\", {s.member}))"
                            for s in signals)
    forwards = "".join(f"    tavos::msgbus::ForwardEvent(host.Internals(), address, \"{s.name}\", "
                       f"service.On{s.name}());\n" for s in signals)
    operations = "".join(f"\n                           {m.server(class_name)}," for m in methods)

    return f"""// Made from {path.rsplit("/", 1)[-1]} by generate.py.
#include "{annotations["org.tavos.Cpp.Header"]}"

#include "tavos/msgbus/Remote.h"
#include "tavos/msgbus/Service.h"

namespace {namespace} {{

{"TAVOS_API " if namespace == "tavos::interfaces" else ""}std::string Serve(tavos::msgbus::ServiceHost& host, {class_name}& service{more_parameter});

namespace {{

tavos::msgbus::ServiceAddress Address({more_parameter[2:]}) {{
    return {{"{bus_name}"{name_end}, "{object_path}"{path_end}, "{bus_name}"}};
}}

class {class_name}Client final : public {class_name} {{
public:
    explicit {class_name}Client(tavos::msgbus::IMsgBus* bus{more_parameter})
        : _remote(bus, Address({more_value[2:]})){subscriptions} {{}}

{"".join(m.client() for m in methods)}{"".join(s.client() for s in signals)}
private:
    tavos::msgbus::Remote _remote;
{"".join(s.members() for s in signals)}}};

}}  // namespace

{class_name}* {class_name}::CreateClient(tavos::msgbus::IMsgBus* bus{more_parameter}) {{
    return new {class_name}Client(bus{more_value});
}}

std::string Serve(tavos::msgbus::ServiceHost& host, {class_name}& service{more_parameter}) {{
    const tavos::msgbus::ServiceAddress address = Address({more_value[2:]});
    host.Internals().Add(address, &service,
                         {{{operations}}},
                         {{{", ".join(s.server() for s in signals)}}});
{forwards}    return address.service;
}}

}}  // namespace {namespace}
"""


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    text = generate(sys.argv[1])
    with open(sys.argv[2], "w", encoding="utf-8") as output:
        output.write(text)
