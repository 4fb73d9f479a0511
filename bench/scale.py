#!/usr/bin/python3
"""Scale bench: Zentrix against simulator profiles of growing size.

For every profile it measures wall time, requests, output size and peak RSS
of the Zentrix process, and sets the time per request against the raw
round-trip floor of the same bytes (rtt_floor). It also finds the largest
reply the agent channel takes in (reply_limit). Called by bench/run, which
builds the programs first.
"""
import argparse
import csv
import json
import os
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TOP = os.path.dirname(HERE)
PROFILES = os.path.join(TOP, "tools", "agent-sim", "profiles")
DEFAULT_RESULTS = os.path.join(HERE, "results")
EVENT_LOG_OC = 0x0B10

# Children still running; killed on every way out.
_children = []


class BenchError(Exception):
    pass


def _on_signal(signum, _frame):
    raise SystemExit(128 + signum)


def _kill_children():
    for proc in reversed(list(_children)):
        if proc.poll() is None:
            proc.terminate()  # the simulator removes its sockets on SIGTERM
            try:
                proc.wait(timeout=5)
            except subprocess.TimeoutExpired:
                proc.kill()
                proc.wait()
        _children.remove(proc)


def _spawn(argv, cpus=None, **kw):
    """Starts argv; with cpus, the process and its children run only there."""
    if cpus:
        kw["preexec_fn"] = lambda: os.sched_setaffinity(0, cpus)
    proc = subprocess.Popen(argv, **kw)
    _children.append(proc)
    return proc


class Simulator:
    """agent-sim under a fresh system root, for one Zentrix run."""

    def __init__(self, build, profile, workdir, verbose=False, cpus=None):
        self.root = tempfile.mkdtemp(prefix="root-", dir=workdir)
        self.record = os.path.join(self.root, "requests.txt") if verbose else None
        self.log = os.path.join(self.root, "sim.log") if verbose else None
        argv = [os.path.join(build, "tools", "agent-sim", "agent-sim"), "--root", self.root]
        if profile:
            argv += ["--profile", profile]
        if verbose:
            argv += ["--verbose", "--record", self.record]
        self._stderr = open(self.log, "wb") if verbose else subprocess.DEVNULL
        self.proc = _spawn(argv, cpus, stdout=subprocess.DEVNULL, stderr=self._stderr)
        pid_file = os.path.join(self.root, "var", "run", "omad.pid")
        deadline = time.monotonic() + 10
        while not os.path.exists(pid_file):
            if self.proc.poll() is not None or time.monotonic() > deadline:
                self.close()
                raise BenchError("agent-sim did not start for %s" % (profile or "no profile"))
            time.sleep(0.005)

    def control(self, command):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as s:
            s.settimeout(10)
            s.connect(os.path.join(self.root, "run", "agent-sim.ctl"))
            s.sendall(command.encode() + b"\n")
            answer = b""
            while not answer.endswith(b"\n"):
                chunk = s.recv(4096)
                if not chunk:
                    break
                answer += chunk
        return answer.decode().strip()

    def requests(self):
        match = re.search(r"\brequests=(\d+)", self.control("status"))
        if not match:
            raise BenchError("agent-sim status has no request count")
        return int(match.group(1))

    def cpu_seconds(self):
        """CPU time the simulator used so far (ns resolution), or None."""
        try:
            with open("/proc/%d/schedstat" % self.proc.pid) as f:
                return int(f.read().split()[0]) / 1e9
        except (OSError, ValueError, IndexError):
            return None

    def close(self):
        if self.proc in _children:
            self.proc.terminate()
            try:
                self.proc.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
            _children.remove(self.proc)
        if self._stderr is not subprocess.DEVNULL:
            self._stderr.close()

    def remove(self):
        shutil.rmtree(self.root, ignore_errors=True)


def run_zentrix(build, root, workdir, args, cpus=None):
    """One Zentrix process; returns (seconds, exit status, peak RSS KiB, CPU seconds).

    Started through peak_rss: a child forked from this interpreter would
    report the interpreter's own resident set as its peak.
    """
    env = dict(os.environ, ZENTRIX_ROOT=root)
    for name in list(env):
        if name.startswith("OV_LOG_"):
            del env[name]  # tracing would be measured too
    proc = _spawn([os.path.join(build, "bench", "peak_rss"), os.path.join(build, "Zentrix")] + args, cpus,
                  cwd=workdir, env=env, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    output, _ = proc.communicate()
    _children.remove(proc)
    match = re.search(r"status=(\d+) seconds=([\d.]+) cpu_seconds=([\d.]+) maxrss_kib=(\d+)", output)
    if proc.returncode != 0 or not match:
        raise BenchError("peak_rss could not run Zentrix")
    return float(match.group(2)), int(match.group(1)), int(match.group(4)), float(match.group(3))


def shown_rows(html, family):
    """Data rows in the report: the event log table's, or every table's."""
    if family == "eventlog":
        start = html.find(">System Event Log</button>")
        if start < 0:
            return 0
        end = html.find("</table>", start)
        html = html[start:end if end >= 0 else len(html)]
    return len(re.findall(r"<tr>\s*<td", html))


def measure_profile(build, case, workdir, reps, cpus):
    """Repeated runs of one profile against one simulator, after a warm-up.

    The simulator stays up between runs like the daemon on a real server;
    the request count of each run is the difference of its counter.
    """
    times, rss, requests, statuses, cpu, sim_cpu, shown = [], [], [], [], [], [], []
    out = os.path.join(workdir, "report.html")
    planned = reps
    sim = Simulator(build, case["profile"], workdir, cpus=cpus)
    try:
        run_zentrix(build, sim.root, workdir, ["-output", out], cpus)
        i = 0
        while i < planned:
            before, sim_before = sim.requests(), sim.cpu_seconds()
            seconds, status, peak, used = run_zentrix(build, sim.root, workdir, ["-output", out], cpus)
            sim_after = sim.cpu_seconds()
            requests.append(sim.requests() - before)
            if sim_before is not None and sim_after is not None:
                sim_cpu.append(sim_after - sim_before)
            cpu.append(used)
            times.append(seconds)
            rss.append(peak)
            statuses.append(status)
            # Rows per run: a reply near the size limit may come through in one run and not the next.
            with open(out, encoding="utf-8", errors="replace") as f:
                shown.append(shown_rows(f.read(), case["family"]))
            i += 1
            if seconds > 5 and planned > 3:
                planned = max(3, i)  # slow case: fewer repetitions, shown in the table
            elif i == 1 and seconds < 0.2 and 1 < planned < 11:
                planned = 11  # millisecond runs: more repetitions against scheduling noise
    finally:
        sim.close()
        sim.remove()
    result = dict(case)
    result.update(reps=len(times), wall_median=statistics.median(times), wall_min=min(times), wall_max=max(times),
                  requests=max(requests), requests_varied=min(requests) != max(requests),
                  rss_kib=max(rss), output_bytes=os.path.getsize(out), cpu_median=statistics.median(cpu),
                  sim_cpu_median=statistics.median(sim_cpu) if sim_cpu else None,
                  rows_shown=min(shown), rows_shown_max=max(shown), status=max(statuses))
    os.remove(out)
    return result


def harvest_sizes(build, case, workdir):
    """One traced run: the size of every request and reply, in order.

    Request texts come from the simulator's --record file, reply texts from
    its --verbose log ("reply: <text>"), i.e. what was actually sent.
    """
    sim = Simulator(build, case["profile"], workdir, verbose=True)
    try:
        run_zentrix(build, sim.root, workdir, ["-output", os.path.join(workdir, "traced.html")])
    finally:
        sim.close()
    try:
        with open(sim.record, "rb") as f:
            requests = f.read().split(b"\n")[:-1]
        replies = []
        with open(sim.log, "rb") as f:
            for line in f:
                if line.startswith(b"agent-sim: reply: "):
                    replies.append(len(line) - len(b"agent-sim: reply: ") - 1)
    finally:
        sim.remove()
    if len(requests) != len(replies):
        raise BenchError("%s: %d requests recorded but %d replies logged"
                         % (case["name"], len(requests), len(replies)))
    event_log_reply = None
    for text, reply in zip(requests, replies):
        if re.search(rb'"OC":%d[,}]' % EVENT_LOG_OC, text):
            event_log_reply = reply
    return [(len(t), r) for t, r in zip(requests, replies)], event_log_reply


def floor_ns(build, pairs, workdir, name):
    """Median and best ns per round trip of the raw exchange of these sizes.

    Measured with both processes free and with both on one CPU; the floor is
    the better of the two medians (on an idle machine cross-core wake-ups
    can dominate, on a busy one sharing a core can).
    """
    path = os.path.join(workdir, "pairs-%s.txt" % name)
    with open(path, "w") as f:
        for request, reply in pairs:
            f.write("%d %d\n" % (request, reply))
    medians, best = [], []
    for extra in ([], ["--one-cpu"]):
        out = subprocess.run([os.path.join(build, "bench", "rtt_floor"), path, "0.5"] + extra,
                             capture_output=True, text=True, check=False)
        match = re.search(r"ns_per_round_trip_median=(\d+) ns_per_round_trip_min=(\d+)", out.stdout)
        if out.returncode != 0 or not match:
            raise BenchError("rtt_floor failed: " + out.stderr.strip())
        medians.append(int(match.group(1)))
        best.append(int(match.group(2)))
    return min(medians), min(best), medians[0], medians[1]


def reply_limit(build, workdir, resolution):
    root = tempfile.mkdtemp(prefix="root-", dir=workdir)
    proc = _spawn([os.path.join(build, "bench", "reply_limit"), str(resolution)],
                  env=dict(os.environ, ZENTRIX_ROOT=root), stdout=subprocess.PIPE, text=True)
    output, _ = proc.communicate()
    _children.remove(proc)
    shutil.rmtree(root, ignore_errors=True)
    probes = [(int(b), int(r), float(s)) for b, r, s in
              re.findall(r"probe bytes=(\d+) result=(\d+) seconds=([\d.]+)", output)]
    match = re.search(r"limit_bytes=(\d+) first_failure_bytes=(\w+)", output)
    if proc.returncode != 0 or not match:
        raise BenchError("reply_limit failed")
    return int(match.group(1)), match.group(2), probes


def cases(workdir, quick):
    typical = os.path.join(PROFILES, "typical.json")
    made = [("baseline", "empty", os.path.join(PROFILES, "empty.json"), None)]
    made += [("components", "x%d" % k, None, ["--scale", str(k)]) for k in ((1,) if quick else (1, 10, 100))]
    made += [("eventlog", "%dk-events" % (n // 1000), None, ["--events", str(n)])
             for n in ((1000,) if quick else (1000, 10000, 20000, 100000))]
    with open(typical, encoding="utf-8") as f:
        base_events = len(json.load(f).get("eventLog", []))
    out = []
    for family, name, path, gen in made:
        rows = 0
        if gen:
            path = os.path.join(workdir, name + ".json")
            made_rows = subprocess.run([sys.executable, os.path.join(HERE, "make_profile.py"), typical, path] + gen,
                                       capture_output=True, text=True, check=True).stdout
            rows = int(made_rows.strip())
        out.append(dict(family=family, name=name, profile=path, rows=rows, base_events=base_events))
    return out


def read_text(path):
    try:
        with open(path) as f:
            return f.read().strip()
    except OSError:
        return None


def fmt_bytes(n):
    for unit in ("B", "KiB", "MiB", "GiB"):
        if n < 1024 or unit == "GiB":
            return ("%d %s" % (n, unit)) if unit == "B" else ("%.1f %s" % (n, unit))
        n /= 1024.0


def fmt_time(seconds):
    if seconds >= 1:
        return "%.2f s" % seconds
    if seconds >= 1e-3:
        return "%.2f ms" % (seconds * 1e3)
    return "%.1f us" % (seconds * 1e6)


COLUMNS = [("profile", "name"), ("rows", "rows"), ("shown", "rows_shown"), ("requests", "requests"),
           ("runs", "reps"), ("wall median", "wall"), ("wall free", "wall_free"), ("per request*", "per_request"),
           ("raw floor/rt", "floor"), ("ratio", "ratio"), ("CPU/req**", "cpu"), ("sim CPU/req", "sim_cpu"), ("output", "output"), ("peak RSS", "rss"),
           ("RSS/output", "rss_ratio"), ("exit", "status")]


def table_row(r):
    per_request = r.get("per_request_s")
    return {
        "name": r["name"], "rows": str(r["rows"]),
        "rows_shown": str(r["rows_shown"]) + ("" if r["rows_shown"] == r["rows_shown_max"]
                                              else "-%d" % r["rows_shown_max"]),
        "requests": str(r["requests"]) + ("~" if r["requests_varied"] else ""), "reps": str(r["reps"]),
        "wall": fmt_time(r["wall_median"]),
        "wall_free": fmt_time(r["wall_free_median"]),
        "per_request": fmt_time(per_request) if per_request is not None else "-",
        "floor": fmt_time(r["floor_ns"] / 1e9) if r.get("floor_ns") else "-",
        "ratio": "%.2fx" % r["ratio"] if r.get("ratio") else "-",
        "cpu": fmt_time(r["cpu_per_request_s"]) if r.get("cpu_per_request_s") is not None else "-",
        "sim_cpu": fmt_time(r["sim_cpu_per_request_s"]) if r.get("sim_cpu_per_request_s") is not None else "-",
        "output": fmt_bytes(r["output_bytes"]), "rss": fmt_bytes(r["rss_kib"] * 1024),
        "rss_ratio": "%.1fx" % r["rss_ratio"] if r.get("rss_ratio") else "-",
        "status": str(r["status"]),
    }


def print_table(results):
    rows = [table_row(r) for r in results]
    widths = [max(len(title), *(len(row[key]) for row in rows)) for title, key in COLUMNS]
    print("  ".join(title.ljust(w) for (title, _), w in zip(COLUMNS, widths)))
    print("  ".join("-" * w for w in widths))
    for row in rows:
        print("  ".join(row[key].rjust(w) if i else row[key].ljust(w)
                        for i, ((_, key), w) in enumerate(zip(COLUMNS, widths))))
    print("Zentrix and the simulator on one CPU; 'wall free': median wall time with both unpinned")
    print("* wall time beyond process start (median of 'Zentrix -?') divided by requests sent")
    print("** Zentrix CPU time (user+system) beyond process start per request; sim CPU/req: the simulator's "
          "CPU time per request (its whole work: parse, look up, serialise, socket)")


def write_csv(results, path):
    keys = ["family", "name", "rows", "rows_shown", "rows_shown_max", "requests", "reps", "wall_median", "wall_min",
            "wall_max", "wall_free_median",
            "beyond_start_s", "per_request_s", "floor_ns", "floor_min_ns", "floor_free_ns",
            "floor_one_cpu_ns", "ratio", "cpu_median", "cpu_per_request_s",
            "sim_cpu_median", "sim_cpu_per_request_s", "output_bytes", "rss_kib", "rss_ratio",
            "status"]
    with open(path, "w", newline="") as f:
        writer = csv.writer(f)
        writer.writerow(keys)
        for r in results:
            writer.writerow([("%.9g" % r[k]) if isinstance(r.get(k), float) else r.get(k, "") for k in keys])


def write_plot(results, start_s, path):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    fig, ax = plt.subplots(figsize=(7, 5))
    for family, marker in (("components", "o"), ("eventlog", "s")):
        pts = [(r["rows"], r["wall_median"]) for r in results if r["family"] == family and r["rows"] > 0]
        if not pts:
            continue
        xs, ys = zip(*pts)
        ax.plot(xs, ys, marker=marker, label="%s (wall time)" % family)
        for r in results:
            if r["family"] == family and r["rows"] > 0 and r["rows_shown_max"] == 0:
                ax.annotate("no rows in report", (r["rows"], r["wall_median"]), textcoords="offset points",
                            xytext=(6, -12), fontsize=8)
        # Linear growth from the smallest case: the time a linear tool would take.
        ref = [ys[0] * x / xs[0] for x in xs]
        ax.plot(xs, ref, linestyle="--", color="grey", linewidth=0.8)
    ax.axhline(start_s, linestyle=":", color="black", linewidth=0.8, label="process start (Zentrix -?)")
    ax.plot([], [], linestyle="--", color="grey", linewidth=0.8, label="linear reference")
    ax.set_xscale("log")
    ax.set_yscale("log")
    ax.set_xlabel("rows (components or event records)")
    ax.set_ylabel("wall time, median (s)")
    ax.set_title("Zentrix report time against the agent simulator")
    ax.grid(True, which="both", linewidth=0.3)
    ax.legend()
    fig.tight_layout()
    fig.savefig(path, dpi=110)
    plt.close(fig)


def evaluate(results, start_s, start_rss):
    by_name = {r["name"]: r for r in results}
    lines = []
    small = [r for r in results if r["family"] == "components" and r.get("ratio")]
    if small:
        worst = max(small, key=lambda r: r["ratio"])
        lines.append("time per request <= 1.5x raw floor (small values): %s (worst %s: %.2fx)"
                     % ("MET" if worst["ratio"] <= 1.5 else "NOT MET", worst["name"], worst["ratio"]))
    one, hundred = by_name.get("x1"), by_name.get("x100")
    if one and hundred:
        t = (hundred["wall_median"] - start_s) / max(one["wall_median"] - start_s, 1e-9)
        m = (hundred["rss_kib"] - start_rss) / max(one["rss_kib"] - start_rss, 1)
        free = (hundred["wall_free_median"] - start_s) / max(one["wall_free_median"] - start_s, 1e-9)
        lines.append("x100 costs <= 110x x1 beyond process start: time %.1fx, peak memory %.1fx: %s "
                     "(unpinned: time %.1fx)" % (t, m, "MET" if t <= 110 and m <= 110 else "NOT MET", free))
    large = [r for r in results if r["output_bytes"] >= 1 << 20]
    if large:
        worst = max(large, key=lambda r: r["rss_ratio"])
        beyond = (worst["rss_kib"] - start_rss) * 1024.0 / worst["output_bytes"]
        lines.append("peak RSS <= 4x output for large reports (>= 1 MiB): %s (worst %s: %.1fx, %.1fx beyond "
                     "process start)" % ("MET" if worst["rss_ratio"] <= 4 else "NOT MET", worst["name"],
                                         worst["rss_ratio"], beyond))
    return lines


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", required=True, help="build directory with Zentrix, agent-sim and bench/")
    parser.add_argument("--results", help="directory for scale.csv/png (default bench/results; "
                        "with --quick a temporary one)")
    parser.add_argument("--quick", action="store_true", help="1x profiles only, one run each (self-check)")
    parser.add_argument("--reps", type=int, default=5, help="runs per profile (default 5)")
    args = parser.parse_args(argv)
    signal.signal(signal.SIGTERM, _on_signal)
    signal.signal(signal.SIGHUP, _on_signal)
    reps = 1 if args.quick else args.reps
    args.build = os.path.abspath(args.build)  # children run in other directories
    # Zentrix and the simulator share one CPU for the main figures: on an idle
    # virtual machine a wake-up on the other core costs tens of microseconds
    # and makes each request several times slower, at random. The same
    # profiles run once more unpinned ("wall free") to show that effect.
    one_cpu = {sorted(os.sched_getaffinity(0))[-1]}

    began = time.monotonic()
    workdir = tempfile.mkdtemp(prefix="zx-bench-")
    try:
        print("process start: Zentrix -? ...", flush=True)
        start_root = tempfile.mkdtemp(prefix="root-", dir=workdir)
        starts = [run_zentrix(args.build, start_root, workdir, ["-?"], one_cpu)
                  for _ in range(3 if args.quick else 21)]
        start_s = statistics.median(s for s, _, _, _ in starts)
        start_rss = max(r for _, _, r, _ in starts)
        start_cpu = statistics.median(c for _, _, _, c in starts)
        print("  median %s, peak RSS %s" % (fmt_time(start_s), fmt_bytes(start_rss * 1024)), flush=True)

        results = []
        event_replies = {}
        for case in cases(workdir, args.quick):
            print("%s: %d rows ..." % (case["name"], case["rows"]), flush=True)
            pairs, event_reply = harvest_sizes(args.build, case, workdir)
            if event_reply is not None and case["family"] != "baseline":
                # Component profiles keep the base profile's event log.
                records = case["rows"] if case["family"] == "eventlog" else case["base_events"]
                event_replies[case["name"]] = (records, event_reply)
            r = measure_profile(args.build, case, workdir, reps, one_cpu)
            free = measure_profile(args.build, case, workdir, min(reps, 5), None)
            r["wall_free_median"] = free["wall_median"]
            if r["requests"] != len(pairs):
                print("  note: %d requests in the measured runs, %d in the traced run" % (r["requests"], len(pairs)))
            (r["floor_ns"], r["floor_min_ns"], r["floor_free_ns"],
             r["floor_one_cpu_ns"]) = floor_ns(args.build, pairs, workdir, case["name"])
            r["beyond_start_s"] = r["wall_median"] - start_s
            r["per_request_s"] = r["beyond_start_s"] / r["requests"] if r["requests"] else None
            r["ratio"] = r["per_request_s"] / (r["floor_ns"] / 1e9) if r["per_request_s"] else None
            r["rss_ratio"] = r["rss_kib"] * 1024.0 / r["output_bytes"] if r["output_bytes"] else None
            if r["requests"]:
                r["cpu_per_request_s"] = (r["cpu_median"] - start_cpu) / r["requests"]
                if r["sim_cpu_median"] is not None:
                    r["sim_cpu_per_request_s"] = r["sim_cpu_median"] / r["requests"]
            print("  %d requests, %s median of %d, exit %d" % (r["requests"], fmt_time(r["wall_median"]),
                                                              r["reps"], r["status"]), flush=True)
            results.append(r)

        print("reply size limit (JsonSendRequest, peer writing at full speed) ...", flush=True)
        limit, first_failure, probes = reply_limit(args.build, workdir, (1 << 21) if args.quick else 16384)

        print()
        print_table(results)
        print()
        print("Reply size limit: %d bytes come through, %s bytes do not (10 read passes, 1 s pause "
              "after each incomplete one)" % (limit, first_failure))
        for size, result, seconds in probes:
            print("  reply %10d bytes: result %d after %.2f s" % (size, result, seconds))
        # A second per piece: a piece is what the socket holds between two read passes.
        passed = [(size, seconds) for size, result, seconds in probes if result == 0]
        if passed:
            size, seconds = max(passed)
            print("  the largest reply that came through arrived in %d pieces of about %d bytes, one second "
                  "apart (socket send buffer default: %s bytes)"
                  % (round(seconds) + 1, size / (round(seconds) + 1),
                     read_text("/proc/sys/net/core/wmem_default") or "unknown"))
        # Text bytes per event record, from two event-log replies of known record counts.
        known = sorted(event_replies.values())
        if len(known) >= 2 and known[-1][0] > known[0][0]:
            (n0, b0), (n1, b1) = known[0], known[-1]
            per_record = (b1 - b0) / float(n1 - n0)
            fixed = b0 - per_record * n0
            print("  event log reply: %.1f text bytes per record (%d records: %d bytes); the limit is about "
                  "%d records" % (per_record, n1, b1, int((limit - fixed) / per_record)))
        print()
        for line in evaluate(results, start_s, start_rss):
            print(line)

        # A quick self-check must not overwrite the committed figures.
        results_dir = args.results or (os.path.join(workdir, "results") if args.quick else DEFAULT_RESULTS)
        os.makedirs(results_dir, exist_ok=True)
        write_csv(results, os.path.join(results_dir, "scale.csv"))
        write_plot(results, start_s, os.path.join(results_dir, "scale.png"))
        for name in ("scale.csv", "scale.png"):
            if os.path.getsize(os.path.join(results_dir, name)) == 0:
                raise BenchError("%s came out empty" % name)
        print("\nwrote %s and scale.png" % os.path.join(results_dir, "scale.csv"))
    except (BenchError, OSError, subprocess.CalledProcessError) as e:
        print("bench: ERROR: %s" % e, file=sys.stderr)
        return 1
    finally:
        _kill_children()
        shutil.rmtree(workdir, ignore_errors=True)
        print("total bench time: %.0f s" % (time.monotonic() - began))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
