"""The Compose file and the manifests for Kubernetes as data, and a strict check against the API's types."""

import re
import subprocess

import yaml

from desk import ROOT

COMPOSE = ROOT / "packaging" / "container" / "compose.yaml"
KUBERNETES = ROOT / "packaging" / "kubernetes"
OVERLAYS = ["cameras", "fleets"]


class StrictLoader(yaml.SafeLoader):
    """Refuses a key that occurs twice, of which YAML would silently keep the last."""

    def construct_mapping(self, node, deep=False):
        keys = [self.construct_object(key, deep=deep) for key, _ in node.value]
        assert len(keys) == len(set(keys)), f"a key occurs twice at {node.start_mark}"
        return super().construct_mapping(node, deep)


def load_all(text):
    return list(yaml.load_all(text, StrictLoader))


def load(path):
    (document,) = load_all(path.read_text())
    return document


def rendered(overlay):
    done = subprocess.run(["kubectl", "kustomize", KUBERNETES / overlay], capture_output=True, text=True, timeout=60)
    assert (done.returncode, done.stderr) == (0, ""), done.stderr
    return load_all(done.stdout)


def of_kind(documents, kind):
    return [document for document in documents if document["kind"] == kind]


def errors_of(document):
    """What the API's types, as Debian's client of the API (python3-kubernetes) has them, say against a document: names
    that they do not have, values of another type, and missing required values."""
    from kubernetes import client  # installed for tests/container/run only
    group = document["apiVersion"].split("/")[-1].capitalize()
    return list(_errors(client, document, f"{group}{document['kind']}", document["kind"]))


def _errors(client, value, kind, path):
    simple = {"str": str, "int": int, "bool": bool, "float": (int, float), "object": object, "datetime": str}
    if kind in simple:
        if not isinstance(value, simple[kind]) or (kind == "int" and isinstance(value, bool)):
            yield f"{path}: {value!r} is not of the type {kind}"
    elif of := re.fullmatch(r"list\[(.*)\]", kind):
        if not isinstance(value, list):
            yield f"{path}: {value!r} is not a list"
            return
        for index, item in enumerate(value):
            yield from _errors(client, item, of[1], f"{path}[{index}]")
    elif of := re.fullmatch(r"dict\(str, (.*)\)", kind):
        for name, item in value.items():
            yield from _errors(client, item, of[1], f"{path}.{name}")
    else:
        yield from _errors_of_object(client, value, getattr(client, kind), path)


def _errors_of_object(client, value, kind, path):
    if not isinstance(value, dict):
        yield f"{path}: {value!r} is not an object"
        return
    attributes = {name: attribute for attribute, name in kind.attribute_map.items()}
    for name in value.keys() - attributes.keys():
        yield f"{path}.{name}: {kind.__name__} has no such field"
    known = {name: item for name, item in value.items() if name in attributes}
    try:
        kind(**{attributes[name]: item for name, item in known.items()})  # refuses missing required values
    except ValueError as error:
        yield f"{path}: {error}"
    for name, item in known.items():
        yield from _errors(client, item, kind.openapi_types[attributes[name]], f"{path}.{name}")
