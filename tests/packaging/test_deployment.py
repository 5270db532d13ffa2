"""The Compose file brought up by podman-compose, and the manifests: rendered by kubectl, checked against the API's
types, their pods played by podman. Not a part of ./check; run tests/container/run."""

import copy
import os
import re
import shutil
import subprocess

import pytest
import yaml

from containers import Container, community
from expected_tree import OID
from manifests import COMPOSE, OVERLAYS, errors_of, of_kind, rendered

SERIAL = OID["serialNumber"]


def kubectl_version():
    if not shutil.which("kubectl"):
        return (0, 0)
    found = re.search(r"v(\d+)\.(\d+)", subprocess.run(["kubectl", "version", "--client"], capture_output=True, text=True).stdout)
    return (int(found[1]), int(found[2]))


with_kubectl = pytest.mark.skipif(kubectl_version() < (1, 21), reason="the manifests require kubectl 1.21 or later")


# podman-compose 1.0.3 gives each container a bridge, even one with network_mode: host. A podman that does not.
ON_THIS_MACHINES_NETWORK = """#!/bin/bash
[[ $1 != network ]] || exit 0
words=()
while (($#)); do
    case $1 in
        --net | --network-alias | -p) shift ;;
        *) words+=("$1") ;;
    esac
    shift
done
[[ ${words[0]} != run ]] || words=(run --network host "${words[@]:1}")
exec podman "${words[@]}"
"""


class Other(Container):
    """A container that something else than podman run has started."""

    def __init__(self, engine, name, port, cameras=1):
        self.engine, self.name, self.port, self.cameras = engine, name, port, cameras


def serial_of(camera, port=None):
    answer = camera.ask("snmpget", [*community("see"), "-Ov"], SERIAL, port=port)
    assert answer.returncode == 0, answer.stderr
    return bytes.fromhex(answer.stdout.strip(' "\n')).decode()


def test_docker_compose_accepts_the_file():
    done = subprocess.run(["docker-compose", "-f", COMPOSE, "config", "--quiet"], capture_output=True, text=True, timeout=60)
    assert (done.returncode, done.stderr) == (0, ""), done.stderr


def test_docker_compose_refuses_a_wrong_key(tmp_path):
    wrong = tmp_path / "compose.yaml"
    wrong.write_text(COMPOSE.read_text().replace("read_only:", "readonly:"))
    done = subprocess.run(["docker-compose", "-f", wrong, "config", "--quiet"], capture_output=True, text=True, timeout=60)
    assert done.returncode != 0


def test_podman_compose_starts_and_ends_the_camera(engine, image, tmp_path):
    ours = Container(engine, image)  # for its free ports
    override = tmp_path / "override.yaml"
    variables = {"ORVEX_AGENT_PORT": ours.port, "ORVEX_CONSOLE_PORT": 0, "ORVEX_READ_COMMUNITY": "see",
                 "ORVEX_ALLOW": "127.0.0.0/8"}
    override.write_text(yaml.safe_dump({"version": "3.7", "services": {"camera": {
        "environment": {name: str(value) for name, value in variables.items()}}}}))
    (tmp_path / "podman").write_text(ON_THIS_MACHINES_NETWORK)
    (tmp_path / "podman").chmod(0o755)
    compose = ["podman-compose", "--podman-path", tmp_path / "podman", "-p", f"orvextest{os.getpid()}", "-f", COMPOSE, "-f", override]
    engine.environment["ORVEX_IMAGE"] = image
    try:
        done = engine.run(*compose, "up", "-d")
        assert done.returncode == 0, done.stdout + done.stderr
        running = engine.podman("ps", "--quiet").split()
        assert len(running) == 1, done.stdout + done.stderr
        camera = Other(engine, running[0], ours.port)
        camera.await_ready()
        assert serial_of(camera) == "OD20-000001"
        assert camera.is_healthy()
        assert "Read-only file system" in camera.exec("touch", "/x").stderr
        assert camera.inspect()["HostConfig"]["CapDrop"]
    finally:
        engine.run(*compose, "down", "--volumes")
    assert engine.podman("ps", "--all", "--quiet") == ""


@with_kubectl
@pytest.mark.parametrize(("overlay", "pods", "cameras"), [("cameras", 3, 1), ("fleets", 2, 10)])
def test_an_overlay_has_a_service_for_each_agent(overlay, pods, cameras):
    documents = rendered(overlay)
    (stateful_set,) = of_kind(documents, "StatefulSet")
    assert stateful_set["spec"]["replicas"] == pods
    agents = {service["metadata"]["name"]: service["spec"] for service in of_kind(documents, "Service")}
    assert agents.pop("orvex-camera")["clusterIP"] == "None"
    assert len(agents) == pods * cameras
    for n in range(pods * cameras):
        service = agents[f"orvex-agent-{n + 1}"]
        assert service["selector"] == {"statefulset.kubernetes.io/pod-name": f"orvex-camera-{n // cameras}"}
        assert [(port["port"], port["targetPort"], port["protocol"]) for port in service["ports"]] == \
            [(161, 1161 + n % cameras, "UDP")]


@with_kubectl
@pytest.mark.parametrize("overlay", OVERLAYS)
def test_every_document_is_of_the_apis_types(overlay):
    documents = rendered(overlay)
    assert {document["kind"] for document in documents} == {"ConfigMap", "NetworkPolicy", "Service", "StatefulSet"}
    assert [error for document in documents for error in errors_of(document)] == []


@with_kubectl
@pytest.mark.parametrize(("change", "error"), [
    (lambda spec: spec.update(replica=3), "StatefulSet.spec.replica: V1StatefulSetSpec has no such field"),
    (lambda spec: spec.update(replicas="3"), "StatefulSet.spec.replicas: '3' is not of the type int"),
    (lambda spec: spec.pop("selector"), "StatefulSet.spec: Invalid value for `selector`, must not be `None`"),
    (lambda spec: spec["template"]["spec"]["containers"][0]["livenessProbe"].update(period=3),
     "StatefulSet.spec.template.spec.containers[0].livenessProbe.period: V1Probe has no such field"),
])
def test_an_error_in_a_manifest_is_found(change, error):
    (stateful_set,) = of_kind(rendered("cameras"), "StatefulSet")
    change(stateful_set["spec"])
    assert errors_of(stateful_set) == [error]


def pod_of(documents, ordinal, port, image):
    """The pod that the StatefulSet's controller would make, with its claim and its maps. Changed for this machine: its
    network, free ports, and the Secret that podman 4.3 cannot mount."""
    (stateful_set,) = copy.deepcopy(of_kind(documents, "StatefulSet"))
    name = f"{stateful_set['metadata']['name']}-{ordinal}"
    template, claims = stateful_set["spec"]["template"], []
    for claim in stateful_set["spec"]["volumeClaimTemplates"]:
        volume = claim["metadata"]["name"]
        claims.append({"apiVersion": "v1", "kind": "PersistentVolumeClaim", **claim,
                       "metadata": {"name": f"{volume}-{name}"}})
        template["spec"]["volumes"].append({"name": volume, "persistentVolumeClaim": {"claimName": f"{volume}-{name}"}})
    template["spec"]["hostNetwork"] = True
    camera = template["spec"]["containers"][0]
    camera["image"] = image
    variables = {"ORVEX_AGENT_PORT": port, "ORVEX_CONSOLE_PORT": 0, "ORVEX_READ_COMMUNITY": "see", "ORVEX_ALLOW": "127.0.0.0/8"}
    camera["env"] = [variable for variable in camera["env"] if variable["name"] != "ORVEX_PHRASES"]
    camera["env"] += [{"name": variable, "value": str(value)} for variable, value in variables.items()]
    del camera["ports"]  # podman refuses them on the machine's network
    for name_of_list in (template["spec"]["volumes"], camera["volumeMounts"]):
        name_of_list[:] = [entry for entry in name_of_list if entry["name"] != "phrases"]
    pod = {"apiVersion": "v1", "kind": "Pod", "metadata": {**template["metadata"], "name": name}, "spec": template["spec"]}
    return [*claims, *of_kind(documents, "ConfigMap"), pod]


@with_kubectl
@pytest.mark.parametrize(("overlay", "ordinal", "cameras"), [("cameras", 2, 1), ("fleets", 1, 10)])
def test_podman_plays_a_pod_of_the_stateful_set(engine, image, tmp_path, overlay, ordinal, cameras):
    ours = Container(engine, image, cameras=cameras)  # for its free ports
    file = tmp_path / "pod.yaml"
    documents = rendered(overlay)
    file.write_text(yaml.safe_dump_all(pod_of(documents, ordinal, ours.port, image)))
    try:
        done = engine.run("podman", "kube", "play", file)
        assert done.returncode == 0, done.stdout + done.stderr
        camera = Other(engine, f"orvex-camera-{ordinal}-camera", ours.port, cameras)
        camera.await_ready()
        serials = [serial_of(camera, port=ours.port + n) for n in range(cameras)]
        assert serials == [f"OD20-{ordinal * cameras + n + 1:06}" for n in range(cameras)]
        assert camera.is_healthy()
        assert "/usr/bin/orvex-camera-health" in " ".join(camera.inspect()["Config"]["Healthcheck"]["Test"])
        assert "Read-only file system" in camera.exec("touch", "/x").stderr
        assert {os.stat(f"/proc/{pid}").st_uid for _, pid in camera.tree()} == {961}
        print(f"memory: {camera.memory() / 2**20:.1f} MiB")
        # The state survives the pod.
        phrases = camera.phrases()
        engine.podman("kube", "down", file)
        *_, pod = yaml.safe_load_all(file.read_text())
        again = tmp_path / "again.yaml"  # podman refuses a claim whose volume exists
        again.write_text(yaml.safe_dump_all([*of_kind(documents, "ConfigMap"), pod]))
        engine.podman("kube", "play", again)
        camera.await_ready()
        assert camera.phrases() == phrases
    finally:
        engine.run("podman", "kube", "down", file)
        engine.run("podman", "volume", "rm", f"state-orvex-camera-{ordinal}")
