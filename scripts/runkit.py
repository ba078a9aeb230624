"""What scripts/demo and scripts/soak share: the Linux program in a program folder of its own, between the
simulator stand-in and feedplay, each process watched, and the trace judge over the run. Every step that
fails ends the run with a message and a non-zero exit."""

import csv
import gzip
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import time
from pathlib import Path
from xml.etree import ElementTree

ROOT = Path(__file__).resolve().parent.parent
NATIVE = ROOT / "build/native"
WINDOWS = ROOT / "build/windows"
SIMSTAND = NATIVE / "tools/simstand/simstand"
FEEDPLAY = NATIVE / "tools/feedplay/feedplay"
JUDGE = NATIVE / "tools/judge/judge"

# The stands of Minneapolis's concourse G as the demo and the soak have them: G2 is where the real Delta
# 737-900 parked, the others a row beside it; the user stands on the last.
KMSP_ELEVATION = 841  # feet
KMSP_STANDS = [(f"G{i}", 44.880384, -93.21055 + (i - 1) * 0.00065) for i in range(1, 11)]
KMSP_USER_STAND = "G10"
STAND_HEADING = 31  # degrees


def fail(what):
    print(f"\nFAILED: {what}", file=sys.stderr)
    sys.exit(1)


def realData():
    for candidate in [os.environ.get("REAL_DATA", ""), ROOT / "../shared/data/real", "/work/shared/data/real"]:
        if candidate and (Path(candidate) / "adsb").is_dir():
            return Path(candidate).resolve()
    fail("the real data is not found (REAL_DATA)")


def inPrivateNetwork():
    """Runs the script again in a network namespace of its own, where the fixed UDP ports of the feed are free
    whatever else runs on the machine; without namespaces it goes on in the machine's network."""
    if os.environ.get("ORY_PRIVATE_NET") or not shutil.which("unshare") or not shutil.which("ip"):
        return
    probe = subprocess.run(["unshare", "-rn", "true"], capture_output=True)
    if probe.returncode != 0:
        print("note: no network namespace; the run shares the machine's UDP ports 49004 and 49005")
        return
    os.environ["ORY_PRIVATE_NET"] = "1"
    os.execvp("unshare", ["unshare", "-rn", "sh", "-c", 'ip link set lo up && exec "$0" "$@"', sys.executable,
                          *sys.argv])


class Progress:
    """One line that tells what the run is doing, rewritten in place on a terminal."""

    def __init__(self):
        self.start = time.monotonic()
        self.tty = sys.stdout.isatty()
        self.lastKind = ""

    def say(self, text):
        elapsed = int(time.monotonic() - self.start)
        # Off a terminal (CI's log), a line when the step changes and every half minute.
        kind = text.split(":")[0]
        if not self.tty and kind == self.lastKind and elapsed % 30:
            return
        self.lastKind = kind
        line = f"[{elapsed // 60:02d}:{elapsed % 60:02d}] {text}"
        if self.tty:
            print(f"\r\033[K{line}", end="", flush=True)
        else:
            print(line, flush=True)

    def done(self):
        if self.tty:
            print()


def freePort():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Processes:
    """The processes a run started, ended by their ids when the run ends, however it ends."""

    def __init__(self):
        self.started = []
        signal.signal(signal.SIGTERM, lambda *_: sys.exit("stopped"))
        signal.signal(signal.SIGINT, lambda *_: sys.exit("stopped"))

    def start(self, args, cwd, output, env=None):
        process = subprocess.Popen([str(a) for a in args], cwd=cwd, stdout=open(output, "w"),
                                   stderr=subprocess.STDOUT, env=env)
        self.started.append(process)
        return process

    def endAll(self):
        for process in self.started:
            if process.poll() is None:
                process.kill()
                process.wait()


def stop(process, seconds):
    """SIGTERM, then the exit code; None when it did not end in time."""
    if process.poll() is None:
        process.send_signal(signal.SIGTERM)
    try:
        return process.wait(timeout=seconds)
    except subprocess.TimeoutExpired:
        return None


def waitFor(check, seconds, what):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if check():
            return
        time.sleep(0.2)
    fail(what)


def startSimstand(processes, work, scenario, name):
    """The stand-in with its scenario; returns the process and its port."""
    scenarioFile = work / f"{name}.json"
    scenarioFile.write_text(json.dumps(scenario, indent=1))
    out = work / f"{name}.out"
    stand = processes.start([SIMSTAND, "--scenario", scenarioFile, "--trace", work / f"{name}.jsonl", "--port", 0],
                            work, out)
    waitFor(lambda: "listening on" in out.read_text(), 10, f"simstand did not start: {out.read_text()}")
    return stand, int(out.read_text().split("listening on ")[1].split()[0])


def scenario(zulu, userLat, userLon, titles, timeline=(), rate=30):
    return {"simulator": {"name": "Lockheed Martin\u00ae Prepar3D\u00ae v5", "version": [5, 3, 17, 28160]},
            "frames": {"rate": rate, "frameRate": 60}, "zulu": zulu,
            "user": {"track": [{"t": 0, "lat": userLat, "lon": userLon, "heading": STAND_HEADING}]},
            "terrain": {"elevation": KMSP_ELEVATION},
            "titles": [{"title": t, "staticCg": 9.5, "staticPitch": 0.0} for t in titles],
            "timeline": list(timeline)}


def writeSimObjects(folder, liveries):
    """One aircraft.cfg a livery (airline, type, title), as an add-on's SimObjects folder holds them."""
    for airline, type_, title in liveries:
        cfg = folder / f"{airline}_{type_}" / "aircraft.cfg"
        (cfg.parent / "model").mkdir(parents=True, exist_ok=True)
        (cfg.parent / f"texture.{airline}").mkdir(exist_ok=True)
        (cfg.parent / f"{type_}.air").write_bytes(b"")
        cfg.write_text(f"[fltsim.0]\ntitle={title}\nsim={type_}\nmodel=\ntexture={airline}\n"
                       f"atc_parking_codes={airline}\n\n[General]\natc_type=Airliner\natc_model={type_}\n"
                       "Category=airplane\n")


def writeKmsp(program, learned):
    """The airport file of Minneapolis with the stands above, and its learned file: learned is a list of
    (stand, registration, airline, type, callsign) standing there at every half hour of the week."""
    stands = "".join(f'<parkpos id="{s}" latitude="{lat:.6f}" longitude="{lon:.6f}" heading="{STAND_HEADING}" '
                     'radius="20"/>' for s, lat, lon in KMSP_STANDS)
    airport = program / "airports/my_thirdparty/KMSP.xml"
    airport.parent.mkdir(parents=True, exist_ok=True)
    airport.write_text('<parameters><parameter name="airport_name" value="Minneapolis-St Paul Intl"/>'
                       '<parameter name="publisher" value="unknown"/><parameter name="altitude" '
                       f'value="{KMSP_ELEVATION}"/></parameters><parkpositions>{stands}</parkpositions>\n')
    allDay = ",".join(str(h) for h in range(48))
    options = "".join(f'<parkpos id="{s}"><opt reg="{reg}" airl="{airl}" type="{type_}" day="1" hh="{allDay}" '
                      f'cs="{cs}"/></parkpos>' for s, reg, airl, type_, cs in learned)
    learnedFile = learnedPath(program)
    learnedFile.parent.mkdir(parents=True, exist_ok=True)
    learnedFile.write_text('<parameters><parameter name="airport_name" value="Minneapolis-St Paul Intl"/>'
                           '<parameter name="WEEK" value="true"/><parameter name="parking_percentage" '
                           f'value="100"/></parameters><parkpositions>{options}</parkpositions>\n')
    return airport


def learnedPath(program):
    return program / "airports/learned/thirdparty/unknown/KMSP.xml"


def learnedOptions(program):
    """The (stand, registration) pairs of the learned file; fails when the file is gone or unreadable."""
    import xml.etree.ElementTree as ElementTree
    path = learnedPath(program)
    try:
        text = path.read_text()
        root = ElementTree.fromstring(f"<file>{text[text.index('?>') + 2:] if '?>' in text else text}</file>")
    except (OSError, ElementTree.ParseError) as error:
        fail(f"the learned file {path} can't be read: {error}")
    return {(p.get("id"), o.get("reg")) for p in root.iter("parkpos") for o in p.iter("opt")}


class LinuxHost:
    """The Linux program of the native build; its user's folders below work/home."""

    def __init__(self, work):
        self.programSource = NATIVE / "program"
        self.home = work / "home"
        self.appData = self.home / "AppData/Roaming"
        self.simInstallPath = "/opt/Prepar3D v5"

    def path(self, path):
        return str(path)

    def start(self, processes, program, name):
        env = dict(os.environ, HOME=str(self.home))
        return processes.start([program / "Trovalyn_P3D"], program, program.parent / f"{name}.out", env)

    def stop(self, process, seconds):
        return stop(process, seconds)

    def end(self):
        pass  # nothing of the program outlives it here


class WineHost:
    """The Windows program of build/windows under Wine, in a prefix of its own below work, on an X server of its
    own; closed as a user closes it, by its window."""

    def __init__(self, processes, work):
        self.programSource = WINDOWS / "program"
        display = f":{100 + os.getpid() % 100}"
        self.env = dict(os.environ, WINEPREFIX=str(work / "prefix"), WINEDEBUG="-all",
                        WINEDLLOVERRIDES="mscoree,mshtml=", DISPLAY=display)
        processes.start(["Xvfb", display, "-screen", "0", "1280x800x24", "-nolisten", "tcp"], work, work / "xvfb.out")
        result = subprocess.run(["wineboot", "-i"], env=self.env, capture_output=True, text=True)
        if result.returncode != 0:
            fail(f"wineboot could not make the prefix: {result.stderr[-500:]}")
        users = work / "prefix/drive_c/users"
        self.appData = next((p for p in users.glob("*/AppData/Roaming") if p.parent.parent.name != "Public"), None)
        if not self.appData:
            fail("no AppData/Roaming in the Wine prefix")
        self.simInstallPath = "C:\\Prepar3D v5"

    def path(self, path):
        return "Z:" + str(path).replace("/", "\\")

    def start(self, processes, program, name):
        return processes.start(["wine", "Trovalyn_P3D.exe"], program, program.parent / f"{name}.out", self.env)

    def stop(self, process, seconds):
        if process.poll() is None:
            subprocess.run(["wine", WINDOWS / "tools/wintools/post-close.exe"], env=self.env, capture_output=True)
        try:
            return process.wait(timeout=seconds)
        except subprocess.TimeoutExpired:
            return None

    def end(self):
        subprocess.run(["wineserver", "-k"], env=self.env, capture_output=True)


def prepareProgram(work, rtPort, liveries, host):
    """A program folder of its own (the build's, with its data files), its user's settings, and the SimObjects
    tree the program scans for liveries at its start."""
    program = work / "program"
    shutil.copytree(host.programSource, program)
    writeSimObjects(work / "SimObjects", liveries)
    parameters = {"SIM_INSTALL_PATH": host.simInstallPath, "SCAN_LIVERIES": "true", "LIG_AUTOMATIC": "false",
                  "lfolder0": host.path(work / "SimObjects"), "SCAN_AIRPORTS": "false", "AUTO_RANGE": "false",
                  "LOG": "true", "PORT_NUMBER": str(rtPort)}
    settings = host.appData / "Trovalyn_P3D/parameters.xml"
    settings.parent.mkdir(parents=True)
    settings.write_text('<?xml version="1.0"?>\n<parameters>\n' + "".join(
        f'  <parameter name="{k}" value="{v}" />\n' for k, v in parameters.items()) + "</parameters>\n")
    mark = host.appData / "InsideSystems/RealTraffic.jar"
    mark.parent.mkdir(parents=True)
    mark.write_bytes(b"PK")
    return program


def pointAt(program, port):
    (program / "SimConnect.cfg").write_text(f"[SimConnect]\r\nProtocol=IPv4\r\nAddress=127.0.0.1\r\nPort={port}\r\n")


def startPlayer(processes, work, capture, rtPort, name):
    return processes.start([FEEDPLAY, "play", "--capture", capture, "--port", rtPort, "--record",
                            work / f"{name}.link"], work, work / f"{name}.out")


class Resources:
    """CPU time and resident memory of a process, from /proc, sampled as the run goes."""

    def __init__(self, process):
        self.pid = process.pid
        self.started = time.monotonic()
        self.samples = []  # (seconds since start, resident kB)
        self.peakKb = 0
        self.cpuSeconds = 0.0

    def sample(self):
        try:
            status = Path(f"/proc/{self.pid}/status").read_text()
            stat = Path(f"/proc/{self.pid}/stat").read_text()
        except OSError:
            return
        fields = {line.split(":")[0]: line.split()[1] for line in status.splitlines() if line.startswith("Vm")}
        self.peakKb = max(self.peakKb, int(fields.get("VmHWM", 0)))
        self.samples.append((time.monotonic() - self.started, int(fields.get("VmRSS", 0))))
        ticks = stat.rsplit(")", 1)[1].split()
        self.cpuSeconds = (int(ticks[11]) + int(ticks[12])) / os.sysconf("SC_CLK_TCK")

    def cpuShare(self):
        return self.cpuSeconds / max(1e-9, time.monotonic() - self.started)


def runFor(seconds, resources, progress, what, alive=(), until=None):
    """Samples the program once a second for seconds, or until until() holds, telling how far it is; fails
    when a process of alive ends before."""
    end = time.monotonic() + seconds
    while time.monotonic() < end and not (until and until()):
        resources.sample()
        for process, name in alive:
            if process.poll() is not None:
                fail(f"{name} ended early with {process.returncode}")
        rss = resources.samples[-1][1] // 1024 if resources.samples else 0
        left = f"{int(end - time.monotonic())} s at most to go, " if seconds > 1 else ""
        progress.say(f"{what}: {left}RSS {rss} MB")
        time.sleep(1)


def runwayArgs(icao):
    """The open runways of an airport from OurAirports' runways.csv, as the judge's --runway arguments."""
    args = []
    with gzip.open(realData() / "reference/ourairports/runways.csv.gz", "rt", newline="") as f:
        for r in csv.DictReader(f):
            ends = [r["le_latitude_deg"], r["le_longitude_deg"], r["he_latitude_deg"], r["he_longitude_deg"]]
            if r["airport_ident"] == icao and r["closed"] == "0" and all(ends):
                width = float(r["width_ft"] or 148) * 0.3048
                args += ["--runway", f'{r["le_ident"]}/{r["he_ident"]}:{",".join(ends)},{width:.0f}']
    return args


def parkArgs(icao):
    """The park airport's reference point and elevation from the program's airport list, as the judge's --park:
    the ground reports that the program refuses away from it leave the real tracks."""
    for a in ElementTree.parse(NATIVE / "data/airports_p3d.xml").getroot().iter("airport"):
        if a.get("code") == icao:
            return ["--park", f'{a.get("lat")},{a.get("lon")},{a.get("alt")}']
    return []


def judge(work, name, capture, airport, image=None):
    """The judge's figures of a run's trace, as the list of its summary."""
    args = [JUDGE, "--trace", work / f"{name}.jsonl", "--scenario", work / f"{name}.json", "--capture", capture,
            "--airport", airport, "--report", work / f"{name}-judge.txt", "--summary", work / f"{name}-judge.json",
            *runwayArgs("KMSP"), *parkArgs("KMSP")]
    if image:
        args += ["--image", image]
    result = subprocess.run([str(a) for a in args], capture_output=True, text=True)
    if result.returncode != 0:
        fail(f"the judge could not read the run {name}: {result.stderr}")
    return json.loads((work / f"{name}-judge.json").read_text())


def createdTails(work, name):
    """The tail numbers of the AI objects the program created, in order."""
    tails = []
    with open(work / f"{name}.jsonl") as trace:
        for line in trace:
            if '"kind":"created"' in line:
                tails.append(json.loads(line).get("tail", ""))
    return tails


def traceFigures(work, name):
    """The most AI objects the stand-in held at once, and how many of its frames came more than a quarter
    second late on the wall clock: a machine too loaded for a fair verdict on jumps."""
    peak, late, lastWall = 0, 0, None
    with open(work / f"{name}.jsonl") as trace:
        for line in trace:
            if '"kind":"state"' not in line:
                continue
            state = json.loads(line)
            peak = max(peak, sum(1 for o in state["objects"] if not o.get("user")))
            late += 1 if lastWall is not None and state["wall"] - lastWall > 250 else 0
            lastWall = state["wall"]
    return peak, late


def convert(work, sources, output):
    real = realData()
    result = subprocess.run([str(FEEDPLAY), "convert", *[str(real / "adsb" / s) for s in sources], str(output),
                             "--registry", str(real / "adsb/sample_hex_registry_subset.csv"), "--types",
                             str(real / "reference/tar1090-db/icao_aircraft_types2.json")],
                            cwd=work, capture_output=True, text=True)
    if result.returncode != 0:
        fail(f"feedplay convert: {result.stderr}")


def freshWork(name, windows=False):
    needed = [SIMSTAND, FEEDPLAY, JUDGE, NATIVE / "program/Trovalyn_P3D"]
    needed += [WINDOWS / "program/Trovalyn_P3D.exe", WINDOWS / "tools/wintools/post-close.exe"] if windows else []
    for tool in needed:
        if not tool.exists():
            fail(f"{tool} is not built (make native{', make windows' if windows else ''})")
    work = ROOT / "build" / name
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    return work
