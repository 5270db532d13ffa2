"""Writes docs/performance.md and its plots from a results file of measure.py: report.py RESULTS MARKDOWN

Every figure on the page comes from the file. The prose describes the measurements and is valid for any figures.
"""

import json
import pathlib
import statistics
import sys

import plots
from contestants import NO_LANES
from loads import BEHIND, LIVE, LOADS, NO_SERVICE, WALKS, WORKLOADS

median = statistics.median
WHAT = {
    "identity": "GET `modelName`", "last command": "GET `positionPan`", "constant": "GET `rangePanHomePosition`",
    "temperature": "GET `temperature`", "input": "GET `inputStatus`", "cell": "GET a state of the alarm table",
    "move": "SET `positionPan`, absolute", "relay": "SET `outputControl`",
    "sysName": "GET `sysName` (built in)",
}
HOW = {"walk": "GETNEXT", "bulk walk": "GETBULK"}
PAGE = pathlib.Path(__file__).with_name("performance.md.in")
MEMORY_GOAL, START_GOAL, LOG_GOAL, RELAY_GOAL = 6.0, 300.0, 5.0, 100.0
BEFORE_LANES = {"walk": 655, "bulk walk": 533}  # µs a row of a table of 1,000 in the run of 2026-11-21 18:45 UTC


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|---|" + "---:|" * (len(header) - 1)]
    return "\n".join(lines + ["| " + " | ".join(map(str, row)) + " |" for row in rows]) + "\n"


def spread(values, form="{:.2f}"):
    """The median, and the min and max in brackets."""
    return f"{form.format(median(values))} ({form.format(min(values))}–{form.format(max(values))})"


class Results:
    def __init__(self, data):
        self.data = data
        self.series = {(s["contestant"], s["workload"], s["in_flight"]): s for s in data["series"]}
        present = {s["contestant"] for s in data["series"]}
        self.peers = [name for name in data["titles"] if name in present]
        self.title = {"module": "this module", NO_LANES: "this module without lanes", **data["titles"]}
        self.walks = {(w["contestant"], w["walk"]): w for w in data["walks"]}

    def rates(self, contestant, workload, in_flight):
        one = self.series.get((contestant, workload, in_flight))
        return [entry["rate"] for entry in one["rounds"]] if one else None

    def processor(self, contestant, workload, in_flight=8):
        return [entry["processor"] for entry in self.series[(contestant, workload, in_flight)]["rounds"]]

    def has_lanes(self, part):
        """True if the part also measured the module without lanes. Runs before 2026-11-22 12:00 UTC did not."""
        return {"series": (NO_LANES, LIVE[0], LOADS[0]) in self.series,
                "close_ups": "close_ups" in self.data and f"{LIVE[0]}, {NO_LANES}" in self.close_up(LOADS[0])[0],
                "table": f"walk, {NO_LANES}" in self.data.get("table", ())}[part]

    def workloads(self):
        return [name for name in WORKLOADS if ("module", name, LOADS[0]) in self.series]

    def close_up(self, in_flight):
        return self.data["close_ups"][str(in_flight)]

    def lanes_ratios(self, what, workload, in_flight):
        """With lanes over without, of "rate" or "processor", one a turn."""
        return [turn[workload][what] / turn[f"{workload}, {NO_LANES}"][what] for turn in self.close_up(in_flight)]

    def no_service_ratios(self, workload, in_flight):
        """Of the built-in scalar's rate, one a turn."""
        return [turn[workload]["rate"] / turn["sysName"]["rate"] for turn in self.close_up(in_flight)]

    def processor_ratios(self, workload, in_flight):
        return [turn[workload]["processor"] / turn["sysName"]["processor"] for turn in self.close_up(in_flight)]

    def live_parts(self, workload, way="bare", module=""):
        """Microseconds of (the whole, the built-in GET, the round trips that way), one a turn."""
        return [(turn[workload + module]["p50"], turn["sysName"]["p50"],
                 sum(turn[f"{way} {what}"]["p50"] for what in BEHIND[workload])) for turn in self.close_up(1)]

    def live_ratios(self, workload, way="bare", module=""):
        return [whole / (built_in + trips) for whole, built_in, trips in self.live_parts(workload, way, module)]

    def woken_ratios(self, workload, way="bare"):
        """Over the built-in GET and what the same calls add to a UDP echo."""
        return [turn[workload]["p50"] / (turn["sysName"]["p50"] + added)
                for turn, added in zip(self.close_up(1), self.added_to_echo(workload, way))]

    def added_to_echo(self, workload, way="bare"):
        calls = " ".join(("echo" if way == "bare" else f"{way} echo", *BEHIND[workload]))
        return [turn[calls]["p50"] - turn["echo"]["p50"] for turn in self.close_up(1)]

    def walk_ratio(self, walk, contestant="module"):
        """The time of the peer whose walk is the shortest over the contestant's, and that peer."""
        ours = median(self.walks[(contestant, walk)]["rounds"])
        return min((median(self.walks[(peer, walk)]["rounds"]) / ours, self.title[peer]) for peer in self.peers)

    def row_times(self, walk, rows):
        """Microseconds a row, one a round."""
        return [seconds / rows * 1e6 for seconds in self.data["table"][walk][str(rows)]]

    def slower_than(self, contestant="module"):
        """The loads at which a peer is faster: (workload, in flight, peer, the contestant's rate over the peer's)."""
        found = []
        for workload in self.workloads():
            for in_flight in LOADS:
                ours = median(self.rates(contestant, workload, in_flight))
                for peer in self.peers:
                    theirs = self.rates(peer, workload, in_flight)
                    if theirs and ours <= median(theirs):
                        found.append((workload, in_flight, peer, ours / median(theirs)))
        return found


def no_service_goal(results):
    worst = min(((median(results.no_service_ratios(w, n)), w, n) for w in NO_SERVICE for n in LOADS))
    return [("GETs that need no service", "at least 0.95 of the built-in scalar's rate",
             f"min {worst[0]:.2f} ({worst[1]}, {worst[2]} in flight)", worst[0] >= 0.95)]


def live_goals(results):
    rows = []
    for way, trip in (("bare", "bare round trip"), ("pair", "round trip over a pair of sockets")):
        for workload in BEHIND if way == "bare" or results.has_lanes("close_ups") else ():
            ratios, trips = results.live_ratios(workload, way), len(BEHIND[workload])
            limit = f"(built-in GET + {trips} {trip.replace('trip', 'trips', 1) if trips > 1 else trip})"
            without = results.has_lanes("close_ups") and spread(results.live_ratios(workload, way, f", {NO_LANES}"))
            rows.append(
                (WHAT[workload], f"at most 1.15 times {limit}", spread(ratios), median(ratios) <= 1.15, without))
    return rows


def lanes_goals(results):
    if not results.has_lanes("close_ups"):
        return []
    all_ = [(median(results.lanes_ratios("rate", w, n)), w, n) for w in LIVE for n in LOADS]
    work = [(median(results.lanes_ratios("processor", w, n)), w, n) for w in LIVE for n in LOADS]
    return [("against itself without lanes", "at least 1.4 times the rate at every load",
             "min {:.2f} ({}, {} in flight)".format(*min(all_)), min(all_)[0] >= 1.4),
            ("the same, all processes", "less processor time at every load",
             "max {:.2f} ({}, {} in flight)".format(*max(work)), max(work)[0] < 1)]


def peers_goal(results):
    compared = len(results.workloads()) * len(LOADS) * len(results.peers)

    def faster(contestant):
        return f"faster in {compared - len(results.slower_than(contestant))} of {compared} comparisons"

    return [("against every peer", "faster at every load", faster("module"), not results.slower_than(),
             results.has_lanes("series") and faster(NO_LANES))]


def walk_goals(results):
    rows = []
    for walk in WALKS if results.peers else ():
        ratio, peer = results.walk_ratio(walk)
        without = results.has_lanes("series") and "{:.2f} ({})".format(*results.walk_ratio(walk, NO_LANES))
        rows.append((f"walk of everything, {HOW[walk]}", "faster than every peer: its time over the module's above 1",
                     f"min {ratio:.2f} ({peer})", ratio > 1, without))
    return rows


def table_goals(results):
    ratio = median(results.row_times("bulk walk", 1000)) / median(results.row_times("bulk walk", 100))
    rows = [("a table of 1,000 rows, GETBULK walk", "a row costs at most 1.5 times a row of 100", f"{ratio:.2f}",
             ratio <= 1.5)]
    for walk, before in BEFORE_LANES.items() if results.has_lanes("table") else ():
        ours, without = results.row_times(walk, 1000), results.row_times(f"{walk}, {NO_LANES}", 1000)
        ratios = [one / other for one, other in zip(ours, without)]
        rows.append((f"a table of 1,000 rows, {HOW[walk]} walk with lanes",
                     f"at most half the time a row without lanes ({before} µs in the run of 2026-11-21 18:45 UTC)",
                     f"{spread(ratios)}; {median(ours):.0f} µs", median(ratios) <= 0.5, f"{median(without):.0f} µs"))
    return rows


def relays_goal(results):
    times = {name: [seconds * 1000 for seconds in one["seconds"]] for name, one in results.data["relays"].items()}
    errors = {name: one["errors"] for name, one in results.data["relays"].items()}

    def measured(name):
        return spread(times[name], "{:.0f}") + " ms" + (f", {errors[name]} failed" if errors[name] else "")

    return [("SET of one relay of 1,000", f"under {RELAY_GOAL:.0f} ms", measured("module"),
             median(times["module"]) < RELAY_GOAL and not errors["module"], measured(NO_LANES))]


def traps_goal(results):
    paced, rate = results.data["traps"]["paced"], results.data["traps"]["rate"]
    lost = sum(one["events"] - one["traps"] for one in paced)
    achieved = median([one["traps"] / max(one["seconds"], 1e-9) for one in paced])
    # The last event is emitted shortly before its trap arrives, so the measured rate is slightly below the event rate.
    return [("traps", f"{rate:,} a second from event to sink, none lost",
             f"{achieved:,.0f} a second, {lost} of {sum(one['events'] for one in paced):,} lost",
             lost == 0 and achieved >= 0.99 * rate)]


def start_and_memory_goals(results):
    memory = results.data["start_and_memory"]
    extra = [a - b for a, b in zip(memory["with"]["resident"], memory["without"]["resident"])]
    start = [seconds * 1000 for seconds in memory["with"]["start"]]
    return [("memory", f"snmpd's resident memory at most {MEMORY_GOAL:.0f} MB over that without the module",
             spread(extra, "{:.1f}") + " MB", median(extra) <= MEMORY_GOAL),
            ("start to first answer", f"under {START_GOAL:.0f} ms", spread(start, "{:.0f}") + " ms",
             median(start) < START_GOAL)]


def log_goal(results):
    off = max(median(times) for name, times in results.data["log_calls"].items() if name.endswith("IsOff"))
    return [("a log call whose level is off", f"under {LOG_GOAL:.0f} ns", f"{off:.1f} ns", off < LOG_GOAL)]


def goals(results):
    """(what, goal, measured, True when it is met, the same without lanes if it was measured); goals of a part that
    failed, or is newer than the results, are left out."""
    rows = []
    for part, goals_of in (("close_ups", no_service_goal), ("close_ups", live_goals), ("close_ups", lanes_goals),
                           ("series", peers_goal), ("walks", walk_goals), ("table", table_goals),
                           ("relays", relays_goal), ("traps", traps_goal),
                           ("start_and_memory", start_and_memory_goals), ("log_calls", log_goal)):
        if part in results.data:
            rows += [(*row, None)[:5] for row in goals_of(results)]
    return rows


# The text for each missed goal. It has no figures, which are in the tables.
REMARKS = {
    "GETs that need no service":
        "The module's own handler is one of several that the agent calls for a request; what it executes "
        "is listed under Instructions.",
    "live":
        "The round trips take longer inside a request than in sequence, because the processes involved sleep and must "
        "be woken in between. Live requests shows what that costs without the module. The round trips over a pair of "
        "sockets also leave out the camera's own work and what makes and reads the messages on both sides. Nearly all "
        "that the agent executes for a call belongs to the bus library, as a profile by callgrind shows. The module's "
        "client adds one system call: it looks whether the service has closed the lane. Without it the first call after "
        "a restart of the service would fail.",
    "against itself without lanes":
        "A lane saves the work of the bus daemon, and the waiting for it. What else a request takes is the same "
        "without: the agent's and the camera's own work, and with SET `outputControl` the camera's write to its "
        "settings store.",
    "the same, all processes":
        "A lane saves the work of the bus daemon. What else a request takes is the same without. SET `outputControl` "
        "includes the camera's write to its settings store.",
    "against every peer":
        "See the table below. An agent that calls a service while it serves other requests is faster than the "
        "module when many requests are in flight. The module's calls are synchronous, one at a time, as the "
        "camera's interfaces are. snmpsim makes no calls at all; it answers live objects from a file.",
    "walk of everything":
        "The module asks the services for every live object of the walk, one call at a time. Walks of everything shows "
        "the number of calls, and what the others do.",
    "SET of one relay of 1,000":
        "The SET reads the state of every relay again, one call each.",
    "a table of 1,000 rows":
        "Every request compares the table's number of rows with the service's, and asks for each state. So a row costs "
        "a call or two, whatever the table's size, plus the agent's own search for the row.",
    "traps":
        "One thread of the agent builds and sends every trap; Traps shows what it takes for one.",
    "memory":
        "The module's own objects are small; the rest is the C++ runtime and the libraries of the bus, the "
        "logger and the settings store, which the stock agent does not load.",
    "start to first answer":
        "The module asks each service once, and runs `myname` three times, before the agent serves.",
    "a log call whose level is off":
        "The call passes its arguments before it checks the level.",
}


def goals_section(results):
    rows = goals(results)
    text = table(["What", "Goal", "Measured", "", "Without lanes"],
                 [(what, goal, measured, "met" if met else "**missed**", without or "–")
                  for what, goal, measured, met, without in rows])
    live = {WHAT[workload] for workload in BEHIND}
    missed = []
    for what, _, _, met, _ in rows:
        key = "live" if what in live else next((key for key in REMARKS if what.startswith(key)))
        if not met and key not in missed:
            missed.append(key)
    for key in missed:
        text += f"\nMissed, {'live requests' if key == 'live' else key}: {REMARKS[key]}\n"
        if key == "against every peer":
            text += "\n" + table(["Request", "in flight", "faster was", "the module's rate over that one's"],
                                 [(WHAT[w], n, results.title[p], f"{ratio:.2f}")
                                  for w, n, p, ratio in results.slower_than()])
    return text


def requests_section(results):
    text = ""
    for in_flight in LOADS:
        rows = []
        for workload in results.workloads():
            ours = median(results.rates("module", workload, in_flight))
            row = [WHAT[workload], spread(results.rates("module", workload, in_flight), "{:,.0f}")]
            for peer in results.peers:
                theirs = results.rates(peer, workload, in_flight)
                row.append(f"{ours / median(theirs):.2f}" if theirs else "–")
            rows.append(row)
        text += f"\n### {in_flight} in flight\n\n" + table(
            ["Request", "this module, a second", *(f"over {results.title[peer]}" for peer in results.peers)], rows)
    return text


def processor_section(results):
    rows = []
    for workload in results.workloads():
        ours = median(results.processor("module", workload))
        row = [WHAT[workload], spread(results.processor("module", workload), "{:.1f}")]
        for peer in results.peers:
            theirs = median(results.processor(peer, workload))
            row += [f"{theirs:.1f}", f"{theirs / ours:.2f}"]
        rows.append(row)
    header = ["Request", "this module, µs"]
    for peer in results.peers:
        header += [f"{results.title[peer]}, µs", "ratio"]
    return table(header, rows)


def limits_section(results):
    rows = []
    for in_flight in LOADS:
        echo = results.series[("echo", "echo", in_flight)]
        built_in = results.series[("built-in", "sysName", in_flight)]
        fastest = max(median(results.rates(c, w, n)) for c, w, n in results.series
                      if n == in_flight and c not in ("echo", "bus"))
        echo_rate = median([entry["rate"] for entry in echo["rounds"]])
        rows.append((in_flight, spread(results.rates("echo", "echo", in_flight), "{:,.0f}"),
                     spread(results.rates("built-in", "sysName", in_flight), "{:,.0f}"),
                     f"{echo_rate / fastest:.1f}", f"{built_in['generator_share']:.0%}"))
    return table(["In flight", "UDP echo, a second", "`sysName`, a second", "echo over the fastest agent",
                  "generator's share of a processor at `sysName`"], rows)


def no_service_section(results):
    rows = [[WHAT[workload], *(spread(results.no_service_ratios(workload, n)) for n in LOADS),
             *(spread(results.processor_ratios(workload, n)) for n in LOADS)] for workload in NO_SERVICE]
    return table(["Over the built-in scalar's", *(f"rate, {n} in flight" for n in LOADS),
                  *(f"processor time, {n} in flight" for n in LOADS)], rows)


def live_section(results):
    text = ""
    for way, trips in (("bare", "bare round trips"), ("pair", "round trips over a pair of sockets")):
        rows = []
        for workload in BEHIND if way == "bare" or results.has_lanes("close_ups") else ():
            parts = results.live_parts(workload, way)
            whole, built_in, calls = (median([part[i] for part in parts]) for i in range(3))
            rows.append((WHAT[workload], len(BEHIND[workload]), f"{built_in:.1f}", f"{calls:.1f}", f"{whole:.1f}",
                         spread(results.live_ratios(workload, way)),
                         f"{median(results.added_to_echo(workload, way)):.1f}",
                         spread(results.woken_ratios(workload, way))))
        if rows:
            text += ("\n" if text else "") + table(
                ["Request", "calls", "built-in GET, µs", f"{trips}, µs", "measured, µs", "ratio",
                 "the round trips in a UDP echo, µs", "ratio with those"], rows)
    return text


def lanes_section(results):
    if not (results.has_lanes("close_ups") and results.has_lanes("series")):
        return "Not measured in this run.\n"
    rows = []
    for workload in LIVE:
        for in_flight in LOADS:
            rates = results.rates(NO_LANES, workload, in_flight)
            theirs = [results.rates(peer, workload, in_flight) for peer in results.peers]
            rows.append((WHAT[workload], in_flight, spread(results.lanes_ratios("rate", workload, in_flight)),
                         spread(results.lanes_ratios("processor", workload, in_flight)), f"{median(rates):,.0f}",
                         *(f"{median(rates) / median(one):.2f}" for one in theirs)))
    return table(["Request", "in flight", "rate with lanes over without", "processor time with lanes over without",
                  "without lanes, a second", *(f"over {results.title[peer]}" for peer in results.peers)], rows)


def latency_section(results):
    rows = []
    names = [("built-in", "sysName"), *(("module", workload) for workload in results.workloads())]
    for contestant, workload in names:
        for in_flight in LOADS:
            one = results.series[(contestant, workload, in_flight)]
            p = one["percentiles"]
            last = f"{p['99.9']:,.0f}" if one["samples"] >= 5000 else "–"
            rows.append((WHAT[workload], in_flight, f"{p['50']:,.1f}", f"{p['90']:,.1f}", f"{p['99']:,.1f}", last,
                         f"{one['samples']:,}", one["lost"]))
    return table(["Request", "in flight", "50 %", "90 %", "99 %", "99.9 %", "requests", "lost"], rows)


def walks_section(results):
    rows, calls = [], results.data.get("walk_calls", {})
    for contestant in ["module", *([NO_LANES] if results.has_lanes("series") else []), *results.peers]:
        row = [results.title[contestant]]
        for walk in WALKS:
            one = results.walks[(contestant, walk)]
            ours = median(results.walks[("module", walk)]["rounds"])
            row += [spread([seconds * 1000 for seconds in one["rounds"]], "{:.1f}"),
                    f"{median(one['rounds']) / ours:.2f}", calls.get(contestant, {}).get(walk, "–")]
        rows.append(row)
    one = results.walks[("module", "walk")]
    header = (cell for walk in WALKS for cell in (f"{HOW[walk]}, ms", "over the module's", "calls of services"))
    return table(["Agent", *header], rows) + \
        f"\n{one['objects']} objects; {one['requests']} requests by GETNEXT, " \
        f"{results.walks[('module', 'bulk walk')]['requests']} by GETBULK of 25.\n"


def table_section(results):
    rows = []
    for walk in results.data["table"]:
        few, many = results.row_times(walk, 100), results.row_times(walk, 1000)
        rows.append((walk, spread(few, "{:.0f}"), spread(many, "{:.0f}"), f"{median(many) / median(few):.2f}"))
    return table(["Of the alarm table", "100 rows, µs a row", "1,000 rows, µs a row", "ratio"], rows)


def traps_section(data):
    rows = []
    for kind, title in (("paced", f"{data['traps']['rate']:,} events a second"), ("burst", "all events at once"),
                        ("logged", "the same, the agent keeps its log")):
        all_ = data["traps"][kind]
        rates = [one["traps"] / one["seconds"] for one in all_]
        p = {key: median([one["percentiles"][key] for one in all_]) / 1000 for key in ("50", "99", "99.9")}
        rows.append((title, f"{sum(one['events'] for one in all_):,}",
                     sum(one["events"] - one["traps"] for one in all_),
                     sum(one["disordered"] for one in all_), spread(rates, "{:,.0f}"),
                     spread([one["processor"] for one in all_], "{:.1f}"),
                     f"{p['50']:.2f}", f"{p['99']:.2f}", f"{p['99.9']:.2f}"))
    return table(["", "events", "lost", "out of order", "traps a second", "the agent's processor time, µs a trap",
                  "50 %, ms", "99 %, ms", "99.9 %, ms"], rows)


def memory_section(data):
    rows = []
    for name, title in (("with", "with the module"), ("without", "without")):
        one = data["start_and_memory"][name]
        rows.append((title, spread([seconds * 1000 for seconds in one["start"]], "{:.0f}"),
                     spread(one["resident"], "{:.1f}")))
    return table(["snmpd", "start to first answer, ms", "resident memory, MB"], rows)


def stock_agent_section(data):
    one = data["stock_agent"]
    titles = {"all": "as a camera's by default: all parts, TCP wrappers", "no wrappers": "without TCP wrappers",
              "few parts": "with the parts that a camera needs", "both": "both, as a desk camera's"}
    rows = []
    for name, title in titles.items():
        agent = one["agents"][name]
        rates = [spread([turn["rate"] for turn in agent["rounds"][str(n)]], "{:,.0f}") for n in LOADS]
        times = spread([turn["processor"] for turn in agent["rounds"]["8"]], "{:.1f}")
        rows.append((title, *rates, times, f"{agent['wakes']:.1f}", f"{agent['memory']:.1f}"))
    header = ["snmpd", *(f"`sysName` a second, {n} in flight" for n in LOADS), "processor time, µs, 8 in flight",
              "wakes a second at rest", "memory, MB"]
    busy = " The machine was busy with other work: compare the processor times." if one["load"] > 1 else ""
    return table(header, rows) + f"\nMeasured on {one['date']}, at a load of {one['load']:.1f}.{busy}\n"


def instructions_section(data):
    counted = data["instructions"]
    return table(["Request", "instructions of the agent", "over the built-in scalar's"],
                 [(WHAT[what], f"{number:,.0f}", f"{number / counted['sysName']:.3f}")
                  for what, number in counted.items()])


def buses_section(data):
    entries = {(one["bus"], one["what"]): one for one in data["buses"]}
    kinds = list(dict.fromkeys(one["bus"] for one in data["buses"]))
    titles = {"dbus-daemon": "dbus-daemon", "dbus-broker": "dbus-broker", "none": "no bus, a direct connection"}
    whats = {"round trip": "bare round trip", "message reused": "the same, one message used again",
             "sysName": "GET `sysName`", "temperature": WHAT["temperature"], "cell": WHAT["cell"], "move": WHAT["move"]}
    rows = []
    for what, title in whats.items():
        row = [title]
        base = median([entry["p50"] for entry in entries[(kinds[0], what)]["rounds"]])
        for kind in kinds:
            times = [entry["p50"] for entry in entries[(kind, what)]["rounds"]]
            row += [spread(times, "{:.1f}"), f"{median(times) / base:.2f}"]
        rows.append(row)
    header = ["µs, 1 in flight"]
    for kind in kinds:
        header += [titles[kind], "ratio"]
    return table(header, rows)


def logs_section(data):
    titles = {"TraceThatIsOff": "off, one argument", "InformationThatIsOff": "off, three arguments",
              "ErrorToAFile": "on, written to /dev/null"}
    return table(["Log call", "ns"],
                 [(titles[name], spread(times, "{:.1f}")) for name, times in data["log_calls"].items()])


def calls_section(results):
    calls = results.data["service_calls"]
    return table(["Calls of services a request", *(results.title[c] for c in calls)],
                 [[WHAT[w], *(calls[c][w] for c in calls)] for w in WORKLOADS])


def draw(results, folder):
    names = ["module", *results.peers]
    titles = [results.title[name] for name in names]

    def values(name, workload, in_flight):
        rates = results.rates(name, workload, in_flight)
        return (median(rates), min(rates), max(rates)) if rates else None

    for in_flight in LOADS:
        groups = [(workload, [values(name, workload, in_flight) for name in names]) for workload in results.workloads()]
        write(folder / f"performance-rates-{in_flight}.svg",
              plots.bars(f"Requests a second, {in_flight} in flight", "a second", groups, titles))
    parts = []
    for workload in BEHIND if "close_ups" in results.data else ():
        measured = results.live_parts(workload)
        whole, built_in, bus = (median([part[i] for part in measured]) for i in range(3))
        parts.append((f"{workload}: limit", [None, built_in, bus]))
        if results.has_lanes("close_ups"):
            pair = median([part[2] for part in results.live_parts(workload, "pair")])
            parts.append(("limit over a pair", [None, built_in, pair]))
        parts.append(("measured", [whole, None, None]))
    if parts:
        write(folder / "performance-live.svg",
              plots.stacks("What a live request takes, 1 in flight", "µs", parts,
                         ["this module", "built-in GET", "bare round trips"]))
    keys = ("50", "90", "99", "99.9")
    series = []
    for name in names:
        one = results.series.get((name, "temperature", 1))
        if one:
            enough = [key != "99.9" or one["samples"] >= 5000 for key in keys]
            series.append((results.title[name], [one["percentiles"][key] if shown else None
                                                 for key, shown in zip(keys, enough)]))
    write(folder / "performance-latency.svg",
          plots.lines("GET temperature, 1 in flight: the time within which so many are answered", "µs",
                    [f"{key} %" for key in keys], series))


def write(path, text):
    path.write_text(text)
    print(f"written: {path}")


def page(results):
    data = results.data
    absent = "".join(f" {results.title[name]} was not measured: {reason}." for name, reason in data["absent"].items())
    for one in data["series"]:
        if one["errors"]:
            absent += f" {results.title[one['contestant']]} answered {one['errors']:,} of {one['samples']:,} " \
                      f"requests with an error ({WHAT[one['workload']]}, {one['in_flight']} in flight)."
    busy = data["machine"]["load"] > 1  # includes the run's own preparations
    warning = ""
    if data["kind"] != "full":
        warning += "\n**A shortened run: the figures are only rough.**\n"
    if not results.has_lanes("series"):
        warning += "\n**An older run: nobody took lanes, and newer parts are missing.**\n"
    if busy:
        warning += "\n**The machine was busy with other work: the times, and the results that depend on them, are provisional.**"
        warning += "\n"
    def part(name, section, *arguments):
        if name in data:
            return section(*arguments)
        return f"Not measured: {data['failed'].get(name, 'this run had no such part')}\n"

    return PAGE.read_text(encoding="utf-8").format(
        date=data["date"], rounds=data["rounds"], seconds=data["seconds"], **data["machine"], warning=warning,
        absent=absent, goals=goals_section(results), calls=calls_section(results), limits=limits_section(results),
        no_service=part("close_ups", no_service_section, results), live=part("close_ups", live_section, results),
        lanes=part("close_ups", lanes_section, results),
        requests=requests_section(results), processor=processor_section(results), latency=latency_section(results),
        walks=walks_section(results), table=part("table", table_section, results),
        traps=part("traps", traps_section, data), memory=part("start_and_memory", memory_section, data),
        stock=part("stock_agent", stock_agent_section, data), logs=part("log_calls", logs_section, data),
        instructions=part("instructions", instructions_section, data), buses=part("buses", buses_section, data))


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    results = Results(json.loads(pathlib.Path(sys.argv[1]).read_text()))
    out = pathlib.Path(sys.argv[2])
    out.parent.mkdir(parents=True, exist_ok=True)
    draw(results, out.parent)
    write(out, page(results))
    for what, goal, measured, met, _ in goals(results):
        print(f"{'met   ' if met else 'MISSED'}  {what}: {measured} ({goal})")


if __name__ == "__main__":
    main()
