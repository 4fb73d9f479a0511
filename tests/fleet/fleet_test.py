#!/usr/bin/python3
"""Checks the fleet index on golden reports, then runs the collection
playbook on three local hosts, each with its own simulated agent (typical,
degraded, and one whose daemon is stopped), and checks the fetched reports,
the recorded runs and the index with its links.

    fleet_test.py --zentrix BIN --agent-sim BIN --out DIR
Exit 77: no ansible-playbook."""

import argparse, json, os, pathlib, re, shutil, socket, subprocess, sys, time

SOURCE = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
sys.path.insert(0, os.path.join(SOURCE, "tools", "fleet-index"))
import zentrix_report  # noqa: E402
from zentrix_report_test import golden  # noqa: E402

INDEX = os.path.join(SOURCE, "tools", "fleet-index", "zentrix-fleet-index")
HOSTS = {"typical": "typical", "degraded": "degraded", "stopped": "typical"}  # host: profile
REPORT = "Zentrix_20260101120000.html"
DOWN = "ERROR: Orvana Agentless Service could not be connected"


def check(condition, what):
    if not condition:
        sys.exit("FAIL: %s" % what)


def index(reports, *options):
    return json.loads(subprocess.run([INDEX, "--json", *options, reports], stdout=subprocess.PIPE,
                                     check=True).stdout)["hosts"]


def check_index_on_goldens(reports):
    """Unreadable reports are listed; worst first; metrics agree."""
    warn = golden("typical").replace(' status-normal">Network', ' status-warning">Network')
    for host, name, text in (("a-ok", REPORT, golden("typical")), ("b-warn", REPORT, warn), ("c-empty", REPORT,
                             golden("empty")), ("d-cut", REPORT, golden("degraded")[:5000]),
                             ("e-odd", "status.json", '{"exit_status": "0"}')):
        os.makedirs(os.path.join(reports, host))
        pathlib.Path(reports, host, name).write_text(text, encoding="utf-8")
    listed = index(reports, "--prometheus", reports + "/fleet.prom")
    check([h["host"] for h in listed] == ["d-cut", "e-odd", "b-warn", "c-empty", "a-ok"], listed)
    check(listed[0]["reason"].startswith("report cannot be read: line ") and listed[0]["report"], listed[0])
    check(listed[1]["reason"].startswith("run record cannot be read"), listed[1])
    check(listed[2]["attention"] == ["Network"], listed[2])
    metrics = pathlib.Path(reports, "fleet.prom").read_text(encoding="utf-8").splitlines()
    check({'zentrix_category_status{host="c-empty",category="Network"} 4', 'zentrix_exit_status{host="d-cut"} -1',
           'zentrix_category_status{host="b-warn",category="Network"} 2'} <= set(metrics) and
          sum(m.startswith("zentrix_category_status{") for m in metrics) == 18, metrics)


def main():
    parser = argparse.ArgumentParser()
    for option in ("--zentrix", "--agent-sim", "--out"):
        parser.add_argument(option, required=True, type=os.path.abspath)
    args = parser.parse_args()
    shutil.rmtree(args.out, ignore_errors=True)  # nothing left from an earlier run
    check_index_on_goldens(os.path.join(args.out, "goldens"))
    if not shutil.which("ansible-playbook"):
        print("fleet test skipped: ansible-playbook missing (tools/install-deps.sh fleet)")
        return 77
    # The simulators make their roots.
    reports, roots = os.path.join(args.out, "reports"), {h: os.path.join(args.out, h + "-root") for h in HOSTS}
    sims = [subprocess.Popen([args.agent_sim, "--root", roots[h], "--profile",
                              os.path.join(SOURCE, "tools", "agent-sim", "profiles", p + ".json")])
            for h, p in HOSTS.items()]
    try:
        deadline = time.monotonic() + 10  # each pid file appears once its sockets accept
        while not all(os.path.exists(os.path.join(r, "var/run/omad.pid")) for r in roots.values()):
            check(time.monotonic() < deadline and all(s.poll() is None for s in sims), "simulators did not start")
            time.sleep(0.05)
        with socket.socket(socket.AF_UNIX) as control:
            control.connect(os.path.join(roots["stopped"], "run", "agent-sim.ctl"))
            control.sendall(b"stop\n")
            check(control.recv(100).startswith(b"ok"), "the stopped host's daemon did not stop")
        with open(os.path.join(args.out, "inventory"), "w", encoding="utf-8") as inventory:
            inventory.write("".join("%s zentrix_root=%s\n" % item for item in roots.items()) +
                            "[all:vars]\nansible_connection=local\nansible_python_interpreter=%s\nzentrix_bin=%s\n"
                            "zentrix_reports_dir=%s\n" % (sys.executable, args.zentrix, reports))
        env = dict(os.environ, ANSIBLE_NOCOLOR="1", ANSIBLE_HOME=os.path.join(args.out, "ansible"),
                   ANSIBLE_ASYNC_DIR=os.path.join(args.out, "ansible", "async"), ANSIBLE_RETRY_FILES_ENABLED="0")
        play = subprocess.run(["ansible-playbook", "-i", "inventory", SOURCE + "/contrib/ansible/collect.yml"],
                              cwd=args.out, env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        check(play.returncode == 0, "ansible-playbook exited %d:\n%s" % (play.returncode, play.stdout))

        # A fetched report is the report of its host's profile.
        for host in ("typical", "degraded"):
            fetched = [f for f in os.listdir(os.path.join(reports, host)) if re.fullmatch(r"Zentrix_\d{14}\.html", f)]
            check(len(fetched) == 1, "%s: fetched %s" % (host, fetched))
            check(zentrix_report.read_file(os.path.join(reports, host, fetched[0])).pages ==
                  zentrix_report.read(golden(host)).pages, host + ": the fetched report differs from the golden one")
    finally:
        for sim in sims:
            sim.terminate()
            sim.wait(timeout=10)
    record = json.loads(pathlib.Path(reports, "stopped", "status.json").read_text(encoding="utf-8"))
    check(record["exit_status"] == 255 and DOWN in record["stdout"] and record["report"] is None, record)

    page = pathlib.Path(reports, "index.html").read_text(encoding="utf-8")  # the playbook's, before --json
    rows = re.findall(r'<tr data-host="([^"]+)">(.*?)</tr>', page, re.S)
    check(not re.search(r'(?:src|href)="(?:[a-z]+:|/)|url\((?!data:)', page), "the index refers outside itself")
    listed = index(reports)
    order = ["stopped", "degraded", "typical"]
    check([h for h, _ in rows] == order == [h["host"] for h in listed], "order: %s, %s" % (rows, listed))
    worse = [t for t, s in zentrix_report.categories(zentrix_report.read(golden("degraded")))
             if s in ("warning", "error")]
    check(worse and listed[1]["attention"] == worse and all(t in rows[1][1] for t in worse), listed[1])
    check(listed[0]["reason"] == "exit status 255: " + DOWN and DOWN in rows[0][1], listed[0])
    check(listed[2]["status"] == "normal" and not listed[2]["attention"], listed[2])
    # A reported host's row links its fetched report, relative to the index; the stopped one has none.
    links = {h: re.findall(r'href="([^"]+)"', row) for h, row in rows}
    check(links["stopped"] == [] and all(len(links[h]) == 1 and os.path.dirname(links[h][0]) == h and
                                         os.path.isfile(os.path.join(reports, links[h][0])) for h in order[1:]), links)
    print("fleet test passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
