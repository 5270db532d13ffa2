"""orvex-conform passes on a desk camera, only reads unless asked to write, and reports what it found."""

import json
import re
import subprocess
from html.parser import HTMLParser

import pytest

from conforming import COMMAND, READER, WRITER, conform, phrases, state, traps
from desk import AGENT, BUILD, ROOT, await_until, free_udp_port
from expected_tree import OID, ORVEX, ROWS


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
    kept = [row for row in ROWS if row.name.startswith(
        ("rangeTrueNorth", "systemLens", "systemCameraFeature", "outputControl", "relayState"))]
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


@pytest.mark.judging
def test_an_interrupted_run_stops_the_camera(camera):
    command = [COMMAND, "--host", "127.0.0.1", "--port", camera.port, *WRITER, "--move", "motion", *state(camera)]
    run = subprocess.Popen(list(map(str, command)), env=camera.environment, stdout=subprocess.PIPE,
                           stderr=subprocess.PIPE, text=True)
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


@pytest.mark.judging
def test_pass_phrases_are_in_no_report(camera):
    camera.domectl("fault", "power", "fail")
    try:
        done = conform(camera, "--user", "desk", "--authentication", "SHA", "--html", camera.state / "page.html",
                       environment=phrases(camera))
    finally:
        camera.domectl("fault", "power", "ok")
    assert set(done.findings) == {"power"}
    assert '-A "$ORVEX_CONFORM_AUTHENTICATION" -x AES -X "$ORVEX_CONFORM_PRIVACY"' in done.text
    reports = [done.text] + [(camera.state / name).read_text() for name in ("conform.xml", "page.html")]
    assert [phrase for phrase in phrases(camera).values() for report in reports if phrase in report] == []


@pytest.mark.judging
def test_what_a_camera_does_not_have_is_skipped_or_missing(desk):
    desk.start_bus()
    desk.start_dome()
    desk.domectl("fault", "temperature", "fail")
    configuration = desk.state / "snmpd.conf"
    lines = configuration.read_text().splitlines(True)
    configuration.write_text("".join(line for line in lines if not re.match("group .* v1 ", line)))
    for points in ("alarm", "relay"):
        desk.domectl("banks", points, "none")
    desk.start_agent()
    done = conform(desk, *WRITER, "--move", "grammar", "--timeout", 0.5, *state(desk))
    assert (done.status, done.findings) == (0, {}), done.summary()
    assert (done.verdicts["temperature"], done.verdicts["SNMPv1"]) == ("skipped", "skipped")
    assert not any(name.startswith(("alarmState", "relayState")) for name in done.verdicts)

    done = conform(desk, *READER, "--enterprise", 99999)
    private = {row.name for row in ROWS if row.oid.startswith(f"{ORVEX}.1.1.")} - {"temperature", "power", "voltage"}
    assert done.findings == dict.fromkeys(private, {"presence"}), done.summary()


@pytest.mark.judging
def test_only_the_ends_of_a_large_table_are_asked_one_by_one(camera):
    camera.domectl("banks", "relay", "A=100")
    try:
        done = conform(camera, *READER, *state(camera))
    finally:
        camera.domectl("banks", "relay", "BNK1=4", "BNK2=2")
    assert (done.status, done.findings) == (0, {}), done.summary()
    assert {done.verdicts[f"relayState.{row}"] for row in range(1, 101)} == {"pass"}


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


@pytest.mark.judging
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
        cells = f'<th scope="row">{row.name}</th><td>{row.oid}</td>'
        assert re.search(re.escape(cells) + "<td>(pass|fail)</td>", text)
    assert f"<code>snmpget -v2c -c public -On -Ox 127.0.0.1:{camera.port} {OID['power']}</code>" in text


@pytest.mark.judging
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
    (["--community", "public", "--state-command", "echo no state"], "--state-command: "),
    (["--community", "public", "--state-command", "/nowhere/state"], "--state-command: "),
    (["--user", "desk"], "refuses the user: authorizationError"),
    (["--user", "nobody"], "refuses the user nobody: unknown user"),
])
def test_what_cannot_begin_ends_with_status_2_and_one_line(camera, words, said):
    done = conform(camera, *words, "--timeout", 0.2, "--retries", 0)
    assert (done.status, done.text) == (2, "")
    assert said in done.error.splitlines()[-1]


@pytest.mark.judging
def test_a_port_where_nobody_listens_is_unreachable(camera):
    done = conform(camera, *READER, "--port", free_udp_port(), "--timeout", 0.2, "--retries", 0)
    assert done.status == 2 and "does not answer" in done.error


@pytest.mark.commands
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


@pytest.mark.judging
def test_what_is_expected_does_not_come_from_the_module():
    """Neither the checks nor the oracle read the table from which the module is generated, or anything else of it."""
    sources = sorted((ROOT / "conform").rglob("*.py")) + [COMMAND]
    assert len(sources) > 10
    for file in sources:
        text = file.read_text()
        assert not re.search(r"objects\.toml|orvexsnmp/|import tomllib|\bdesk\b *import|from desk", text), file
