"""orvex-conform passes on a desk camera, and fails in the right places on one that is broken."""

import json

import re

import subprocess
from html.parser import HTMLParser

import pytest

import ber
from conforming import COMMAND, READER, WRITER, BreakableDesk, conform, domectl, phrases
from desk import AGENT, BUILD, ROOT, ManagerOf, await_until, free_udp_port
from expected_tree import OID, ROWS

SERVICES_OF_AXES = {"pan": "positionPan", "tilt": "positionTilt", "zoom": "positionZoomLens",
                    "focus2": "positionFocusLens", "iris": "positionIrisLens"}


def state(desk):
    return ["--state-command", domectl(desk, "state")]


def traps(desk, first, *sensors):
    """The options that cause a trap of each sensor: its reading changes."""
    words = ["--trap-port", desk.trap_port, "--trap-wait", 3]
    for number, sensor in enumerate(sensors, first):
        words += ["--trap-command", f"{sensor}={domectl(desk, 'set', sensor, number)}"]
    return words


@pytest.fixture
def quick(camera):
    """The camera's clock runs faster, so that its moves end sooner."""
    camera.domectl("clock", "rate", 4)
    yield camera
    camera.domectl("clock", "rate", 1)


@pytest.fixture
def camera(running):
    running.clear_calls()
    return running


# --- a camera as it should be ---


def test_a_desk_camera_passes_and_each_object_has_a_verdict(camera):
    done = conform(camera, *READER)
    assert (done.status, done.findings, done.error) == (0, {}, ""), done.summary()
    names = {row.name for row in ROWS}
    assert {name: verdict for name, verdict in done.verdicts.items() if name in names} == dict.fromkeys(names, "pass")
    assert {"SNMPv1", "SNMPv2c", "access control", "GETBULK"} <= set(done.verdicts)


def kinds_sent(desk, *options):
    """The kinds of the messages of a run, as the agent's own trace has them."""
    last = max((json.loads(line)["number"] or 0 for line in desk.domectl("trace", "--json").splitlines()), default=0)
    done = conform(desk, *options, environment=phrases(desk))
    assert done.status == 0, done.summary()
    entries = [json.loads(line) for line in desk.domectl("trace", "--json", "--since", last).splitlines()]
    kinds = [entry["pdu"] for entry in entries if entry["peer"]]
    assert len(kinds) > 400
    return set(kinds)


def test_reading_sends_no_set(camera):
    every_reading_option = [*WRITER, "--user", "desk", "--authentication", "SHA", *state(camera)]
    assert kinds_sent(camera, *every_reading_option) <= {"GET", "GETNEXT", "GETBULK", None}
    # Broken messages have broken kinds, too; none of those that write or are passed on.
    kinds = kinds_sent(camera, *every_reading_option, "--harsh", 1)
    assert [kind for kind in kinds if kind and re.search("SET|INFORM|(?i:trap)|163|164|166|167", kind)] == []
    assert drives(camera) == []


def drives(desk):
    return [call["service"] for call in desk.calls() if not call["call"].startswith(("Get", "Is"))]


def test_moving_passes_and_ends_at_rest_with_what_can_be_set_back(quick, manager):
    kept = [row for row in ROWS if row.name.startswith(("rangeTrueNorth", "systemLens", "systemCameraFeature", "outputControl",
                                                        "relayState"))]
    manager.set_integer(OID["relayState.2"], 1)
    manager.set_integer(OID["rangeTrueNorthOffset"], 0)
    before = {row.name: repr(manager.get(row.oid).bindings[0]) for row in kept}
    done = conform(quick, *WRITER, "--move", *state(quick), *traps(quick, 41, "temperature", "power", "voltage"),
                   "--html", quick.state / "conform.html")
    assert (done.status, done.findings) == (0, {}), done.summary()
    assert {row.name: repr(manager.get(row.oid).bindings[0]) for row in kept} == before
    assert not (quick.state / "restart.log").exists()
    shown = quick.dome_state()
    assert [axis for axis in ("pan", "tilt", "zoom", "iris") if shown[axis]["moving"]] == []
    assert {row.name for row in ROWS if row.name.startswith("position")} & set(done.findings) == set()
    assert "not judged: motion" not in done.text
    assert {"pan", "tilt", "zoom", "focus2", "iris", "relay"} <= set(drives(quick))
    manager.set_integer(OID["relayState.2"], 0)
    manager.set_integer(OID["rangeTrueNorthOffset"], 65535)


def test_an_interrupted_run_stops_the_camera(camera):
    command = [COMMAND, "--host", "127.0.0.1", "--port", camera.port, *WRITER, "--move", "motion", *state(camera)]
    run = subprocess.Popen(list(map(str, command)), env=camera.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                           text=True)
    try:
        await_until(lambda: camera.dome_state()["pan"]["moving"], "the pan moves")
        run.terminate()
        assert run.communicate(timeout=20) == ("", "orvex-conform: interrupted\n")
    finally:
        run.kill()
        run.wait()
    assert run.returncode == 2
    await_until(lambda: not camera.dome_state()["pan"]["moving"], "the pan is at rest", 3)
    assert [call["args"][0] for call in camera.calls() if call["service"] == "pan"][-1] == 0  # the stop


@pytest.mark.skipif(AGENT <= (5, 4, 2), reason="a huge GETBULK ends net-snmp 5.4.2, with the module or without")
def test_the_camera_survives_harsh_messages(camera):
    done = conform(camera, *READER, "--harsh", 3)
    assert (done.status, done.verdicts["robustness"]) == (0, "pass"), done.summary()
    assert camera.alive("agent")


def test_snmp_version_3_alone_is_enough(camera):
    done = conform(camera, "--user", "desk", "--write-user", "desk", "--authentication", "SHA", "--move", "grammar",
                   environment=phrases(camera))
    assert (done.status, done.findings) == (0, {}), done.summary()
    assert done.verdicts["SNMPv3"] == "pass" and "SNMPv1" not in done.verdicts
    assert not any(phrase in done.text for phrase in phrases(camera).values())


# --- services that fail ---


def restored(desk, service, oid):
    """Ends the fault; waits until the module calls the service again."""
    desk.domectl("fault", service, "ok")
    desk.domectl("calls", "--clear")
    with ManagerOf(desk) as manager:
        await_until(lambda: manager.get(oid) and any(call["service"] == service for call in desk.calls()), "it is asked again")


POINTS = {"alarm": ["alarmStatus", "inputStatus"], "relay": ["outputStatus"]}


@pytest.mark.parametrize(("service", "kind"), [("alarm", "fail"), ("alarm", "hang"), ("alarm", "gone"), ("relay", "fail")])
def test_a_faulty_bank_fails_exactly_its_own_objects(camera, service, kind):
    points = [("BNK1", number) for number in range(4)] + [("BNK2", number) for number in range(2)]
    camera.domectl("fault", service, kind)
    try:
        for point in points:
            camera.domectl("set", service, *point, 1)
        done = conform(camera, *READER, *state(camera))
    finally:
        for point in points:
            camera.domectl("set", service, *point, 0)
        restored(camera, service, OID[f"{service}State.1"])
    assert done.status == 1
    expected = POINTS[service] + [f"{service}State.{row}" for row in range(1, 7)]
    assert done.findings == dict.fromkeys(expected, {"platform"}), done.summary()


@pytest.mark.parametrize(("service", "kind"), [("temperature", "fail"), ("power", "hang"), ("voltage", "gone")])
def test_a_faulty_sensor_fails_exactly_its_object(camera, service, kind):
    camera.domectl("fault", service, kind)
    try:
        done = conform(camera, *READER)
    finally:
        restored(camera, service, OID[service])
    assert done.status == 1
    assert done.findings == {service: {"order", "answer"}}, done.summary()


@pytest.mark.parametrize("faults", [{"pan": "fail"}, {"tilt": "hang", "zoom": "gone", "focus2": "fail", "iris": "fail"}],
                         ids=["pan", "the others"])
def test_a_faulty_axis_fails_exactly_its_object(quick, faults):
    for service, kind in faults.items():
        quick.domectl("fault", service, kind)
    try:
        done = conform(quick, *WRITER, "--move", "motion", *state(quick))
    finally:
        for service in faults:
            quick.domectl("fault", service, "ok")
    assert done.findings == {SERVICES_OF_AXES[service]: {"motion"} for service in faults}, done.summary()
    with ManagerOf(quick) as manager:  # until a service that hung is called again
        await_until(lambda: [manager.set_octets(OID[SERVICES_OF_AXES[service]], bytes(4)) for service in faults] and
                    set(faults) <= {call["service"] for call in quick.calls() if call["outcome"] == "ok"}, "they work again")


# --- a module that is broken ---

commands = pytest.mark.commands  # only the desk build has the breaker

READS = {
    "rangePanLeftLimit": ("wrong-type", {"type"}),
    "positionTilt": ("too-short", {"value"}),
    "rangePanHomePosition": ("wrong-value", {"value"}),
    "alarmState.2": ("out-of-range", {"value"}),
    "rangeTiltUpLimit": ("missing", {"presence"}),
    "rangeZoomLimit": ("skipped", {"presence"}),
    "timeoutFocus": ("not-behind", {"order", "presence"}),
    "presetGotoPosition": ("slow", {"time"}),
    "moduleModel": ("wrong-value", {"relation"}),
    "power": ("error", {"order", "answer"}),
}
WRITES = {
    "rangeTrueNorthOffset": ("not-writable", {"SET grammar", "nothing half done"}),
    "globalMaxModules": ("writable", {"access"}),
    "timeoutPan": ("other-error", {"SET grammar"}),
    "systemCameraFeatureControl": ("any-number", {"SET grammar"}),
    "positionPan": ("beyond", {"SET grammar"}),
    "positionZoomLens": ("no-deltas", {"SET grammar"}),
    "positionFocusLens": ("other-answer", {"SET answer"}),
    "positionIrisLens": ("forgets", {"stored"}),
    "systemLensEquipped": ("ignores", {"SET grammar", "SET answer", "stored"}),
    "outputControl": ("half-done", {"stored", "nothing half done"}),
    "presetStorePosition": ("writable", {"SET answer"}),
    "relayState.3": ("ignores", {"stored"}),
    "relayState.5": ("any-octets", {"SET grammar"}),
    "rebootDevice": ("any-octets", {"SET grammar"}),
}
SEEN = {
    "positionPan": ("elsewhere", {"motion"}),
    "positionTilt": ("still", {"motion"}),
    "positionZoomLens": ("reversed", {"motion"}),
    "temperature": ("trap-type", {"trap"}),
    "power": ("no-trap", {"trap"}),
    "voltage": ("trap-value", {"trap"}),
}


@pytest.fixture(scope="module")
def breakable():
    with BreakableDesk() as desk:
        desk.start()
        desk.domectl("clock", "rate", 4)
        yield desk


def broken(desk, breaks, *options):
    desk.break_({OID[name]: kind for name, (kind, _) in breaks.items()})
    try:
        return conform(desk, *options)
    finally:
        desk.break_({})


def judged(breaks):
    return {name: checks for name, (_, checks) in breaks.items()}


@commands
def test_the_breaker_alone_breaks_nothing(breakable):
    done = conform(breakable, *WRITER, "--move", "grammar")
    assert (done.status, done.findings) == (0, {}), done.summary()


@commands
def test_broken_answers_are_found_at_their_objects_and_nowhere_else(breakable):
    done = broken(breakable, READS, *READER)
    assert (done.status, done.findings) == (1, judged(READS)), done.summary()


@commands
def test_broken_sets_are_found_at_their_objects_and_nowhere_else(breakable):
    done = broken(breakable, WRITES, *WRITER, "--move", "grammar")
    assert (done.status, done.findings) == (1, judged(WRITES)), done.summary()


@commands
def test_wrong_moves_and_traps_are_found_at_their_objects_and_nowhere_else(breakable):
    done = broken(breakable, SEEN, *WRITER, "--move", "motion", *state(breakable),
                  *traps(breakable, 51, "temperature", "power", "voltage"))
    assert (done.status, done.findings) == (1, judged(SEEN)), done.summary()


@commands
def test_a_trap_with_a_wrong_name_is_found(breakable):
    done = broken(breakable, {"temperature": ("trap-name", {"trap"})}, *READER, *traps(breakable, 61, "temperature"))
    assert (done.status, done.findings) == (1, {"temperature": {"trap"}}), done.summary()


@commands
def test_a_finding_is_repeated_by_its_command(breakable):
    breaks = {name: WRITES[name] for name in ("positionPan", "timeoutPan")}
    done = broken(breakable, breaks, *WRITER, "--move", "grammar")
    lines = [line.strip().removeprefix("$ ") for line in done.text.splitlines() if line.strip().startswith("$ snmpset")]
    assert len(lines) >= 2
    breakable.break_({OID[name]: kind for name, (kind, _) in breaks.items()})
    shown = {line: subprocess.run(["bash", "-c", line], env=breakable.environment, capture_output=True, text=True, timeout=20)
             for line in lines}
    breakable.break_({})
    for line, answer in shown.items():
        if OID["positionPan"] in line:  # takes what is out of range
            assert answer.returncode == 0, answer.stderr
        else:
            assert "wrongLength" in answer.stderr


@commands
def test_an_agent_that_dies_of_a_message_is_found(breakable):
    try:
        done = broken(breakable, {"modelName": ("dies-of-many", set())}, *READER, "--harsh", 2, "--timeout", 0.5)
    finally:
        await_until(lambda: not breakable.alive("agent"), "the agent has ended")
        breakable.start_agent()
    assert done.status == 1
    assert set(done.findings) == {"robustness", "answers"}, done.summary()
    assert "a GET of 1500 times the same name" in done.text


@commands
def test_readers_that_write_and_a_loader_in_sight_are_found():
    with BreakableDesk() as desk:
        file = desk.state / "snmpd.conf"
        text = file.read_text()
        for right, wrong in (('access readers "" any noauth exact readable none none',
                              'access readers "" any noauth exact readable camera none'),
                             ("view readable excluded .1.3.6.1.4.1.2021.13.14", "")):
            assert right in text
            text = text.replace(right, wrong)
        file.write_text(text)
        desk.start()
        done = conform(desk, *WRITER, "--move", "grammar")
    writable = {row.name for row in ROWS if row.access != "read-only"} - {"rebootDevice"}
    assert done.findings.pop("access control") == {"the module loader"}
    assert {name for name, checks in done.findings.items() if checks == {"a reader's SET"}} == writable, done.summary()


# --- reports and usage ---


class Page(HTMLParser):
    """What a page asks of others, and the elements that help a reader who cannot see it."""

    def __init__(self):
        super().__init__()
        self.tags, self.outside, self.language = [], [], None

    def handle_starttag(self, tag, attributes):
        self.tags.append((tag, dict(attributes)))
        self.language = dict(attributes).get("lang", self.language)
        self.outside += [value for name, value in attributes if name in ("src", "href", "srcset", "data")]


def test_the_page_is_one_file_with_a_row_for_each_object(camera):
    file = camera.state / "page.html"
    camera.domectl("fault", "power", "fail")
    try:
        conform(camera, *READER, "--html", file)
    finally:
        camera.domectl("fault", "power", "ok")
    text, page = file.read_text(), Page()
    page.feed(text)
    assert (page.outside, page.language) == ([], "en")
    assert "url(" not in text and "@import" not in text
    names = [tag for tag, _ in page.tags]
    assert {"title", "h1", "main", "caption", "thead"} <= set(names)
    assert [attributes["scope"] for tag, attributes in page.tags if tag == "th"][:4] == ["col"] * 4
    for row in ROWS:
        assert re.search(rf'<th scope="row">{re.escape(row.name)}</th><td>{re.escape(row.oid)}</td><td>(pass|fail)</td>', text)
    assert f"<code>snmpget -v2c -c public -On -Ox 127.0.0.1:{camera.port} {OID['power']}</code>" in text


@pytest.mark.parametrize(("words", "said"), [
    (["--community", "nobody"], "does not answer"),
    ([], "who asks?"),
    (["--community", "public", "--move"], "--move requires a --write-community or a --write-user"),
    (["--community", "public", "--reads", "--move", "--write-community", "x"], "exclude each other"),
    (["--community", "public", "--html", "/nowhere/page.html"], "the folder of /nowhere/page.html does not exist"),
    (["--community", "public", "--harsh", "4"], "requires a number from 1 to 3, not '4'"),
    (["--community", "public", "--host", "224.0.0.1"], "not one host's address"),
    (["--community", "public", "--host", "255.255.255.255"], "not one host's address"),
    (["--community", "public", "--trap-command", "fan=true"], "requires temperature|power|voltage=COMMAND"),
    (["--user", "desk"], "refuses the user: authorizationError"),
    (["--user", "nobody"], "refuses the user nobody: unknown user"),
])
def test_what_cannot_begin_ends_with_status_2_and_one_line(camera, words, said):
    done = conform(camera, *words, "--timeout", 0.2, "--retries", 0)
    assert (done.status, done.text) == (2, "")
    assert said in done.error.splitlines()[-1]


def test_a_port_where_nobody_listens_is_unreachable(camera):
    done = conform(camera, *READER, "--port", free_udp_port(), "--timeout", 0.2, "--retries", 0)
    assert done.status == 2 and "does not answer" in done.error


def test_the_command_runs_where_it_is_installed(camera, tmp_path):
    subprocess.run(["cmake", "--install", BUILD, "--component", "conform", "--prefix", tmp_path], check=True,
                   capture_output=True, timeout=60)
    command = tmp_path / "bin" / "orvex-conform"
    shown = subprocess.run([command, "--version"], capture_output=True, text=True, timeout=20, check=True).stdout
    assert re.fullmatch(r"orvex-conform \d+\.\d+\.\d+\n", shown)
    done = subprocess.run([command, "--host", "127.0.0.1", "--port", str(camera.port), *READER], capture_output=True,
                          text=True, timeout=60)
    assert (done.returncode, done.stderr) == (0, ""), done.stdout


# --- independence ---


def test_what_is_expected_does_not_come_from_the_module():
    """Neither the checks nor the oracle read the table from which the module is generated, or anything else of it."""
    sources = sorted((ROOT / "conform").rglob("*.py")) + [COMMAND]
    assert len(sources) > 10
    for file in sources:
        text = file.read_text()
        assert not re.search(r"objects\.toml|orvexsnmp/|import tomllib|\bdesk\b *import|from desk", text), file
