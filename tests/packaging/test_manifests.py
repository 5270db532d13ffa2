"""The Compose file, the manifests and the image's files agree with each other and with docs/containers.md. Nothing is
run: tests/container/run does that."""

import re
import subprocess

import pytest

from desk import ROOT
from manifests import COMPOSE, KUBERNETES, OVERLAYS, load, load_all

CONTAINER = ROOT / "packaging" / "container"
SETTINGS = (CONTAINER / "settings.sh").read_text()
VARIABLES = set(re.findall(r'"\$\{(ORVEX_\w+):=', SETTINGS))
FILES = [COMPOSE, *sorted(KUBERNETES.rglob("*.yaml"))]


def version():
    return re.search(r"^project\(.* VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]


def stateful_set():
    return load(KUBERNETES / "base" / "statefulset.yaml")["spec"]


def container():
    return stateful_set()["template"]["spec"]["containers"][0]


@pytest.mark.parametrize("path", FILES, ids=lambda path: str(path.relative_to(ROOT / "packaging")))
def test_a_file_is_yaml_without_double_keys(path):
    documents = load_all(path.read_text())
    assert documents
    if path != COMPOSE:
        assert all({"apiVersion", "kind"} <= document.keys() for document in documents)


def test_a_double_key_is_found():
    with pytest.raises(AssertionError, match="twice"):
        load_all("a: 1\nb: 2\na: 3\n")


@pytest.mark.parametrize("overlay", OVERLAYS)
def test_the_services_are_those_that_the_script_makes(overlay):
    kept = (KUBERNETES / overlay / "services.yaml").read_text()
    numbers = re.match(r"# Made by packaging/kubernetes/services (\d+) (\d+);", kept).groups()
    made = subprocess.run([KUBERNETES / "services", *numbers], capture_output=True, text=True, check=True).stdout
    assert kept == made
    overlay = load(KUBERNETES / overlay / "kustomization.yaml")
    variables = [line for map_ in overlay.get("configMapGenerator", []) for line in map_["literals"]]
    assert overlay["replicas"][0]["count"] == int(numbers[0])
    assert variables == ([] if numbers[1] == "1" else [f"ORVEX_CAMERAS={numbers[1]}"])


@pytest.mark.parametrize("words", [[], ["0"], ["1", "x"], ["1", "2", "3"], ["1000"]])
def test_the_script_of_services_refuses_other_words(words):
    done = subprocess.run([KUBERNETES / "services", *words], capture_output=True, text=True)
    assert (done.returncode, done.stdout) == (2, "")


def test_the_images_version_is_the_projects():
    image = f"localhost/orvex-camera:{version()}"
    assert container()["image"] == image
    assert load(COMPOSE)["services"]["camera"]["image"] == f"${{ORVEX_IMAGE:-{image}}}"


def test_the_user_is_the_images():
    user = re.search(r"^USER (\d+):(\d+)$", (CONTAINER / "Containerfile").read_text(), re.MULTILINE)
    security = stateful_set()["template"]["spec"]["securityContext"]
    assert (security["runAsUser"], security["runAsGroup"], security["fsGroup"]) == (int(user[1]), int(user[2]), int(user[2]))


def test_nothing_is_open_that_nobody_asked_for():
    compose = load(COMPOSE)["services"]["camera"]
    assert set(compose["environment"]) == {"ORVEX_CAMERAS"}
    assert (compose["read_only"], compose["cap_drop"], compose["security_opt"]) == (True, ["ALL"], ["no-new-privileges"])
    text = "".join(path.read_text() for path in KUBERNETES.rglob("*.yaml"))
    assert "COMMUNITY" not in text and "CONSOLE" not in text
    assert container()["securityContext"] == {"allowPrivilegeEscalation": False, "readOnlyRootFilesystem": True,
                                              "capabilities": {"drop": ["ALL"]}}


def test_every_health_check_is_the_images():
    command = re.search(r'^HEALTHCHECK .* CMD \["(\S+)"\]$', (CONTAINER / "Containerfile").read_text(), re.MULTILINE)[1]
    assert load(COMPOSE)["services"]["camera"]["healthcheck"]["test"] == ["CMD", command]
    for probe in ["startupProbe", "readinessProbe", "livenessProbe"]:
        assert container()[probe]["exec"]["command"] == [command]


def test_the_page_describes_every_variable():
    page = (ROOT / "docs" / "containers.md").read_text()
    assert set(re.findall(r"^\| `(ORVEX_\w+)` \|", page, re.MULTILINE)) == VARIABLES
    named = set(re.findall(r"ORVEX_\w+", COMPOSE.read_text() + "".join(p.read_text() for p in KUBERNETES.rglob("*.yaml"))))
    assert named - {"ORVEX_IMAGE"} <= VARIABLES
