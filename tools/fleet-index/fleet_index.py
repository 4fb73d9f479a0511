"""The fleet view of a directory of collected Zentrix reports: one entry per
host with its newest report, the health categories that need attention and
the recorded run, written as an HTML page, as JSON and as metrics.

Layout read (as the collection playbook writes it):
    REPORTS_DIR/<host>/Zentrix_<YYYYmmddHHMMSS>.html   the reports
    REPORTS_DIR/<host>/status.json                     the host's last run
"""

import glob
import html
import json
import os
import time
import urllib.parse

import zentrix_report

# Agent status codes, as the report's sections were coloured from them.
CODES = {"normal": 1, "warning": 2, "error": 3, "not-present": 4}
WORDS = {"normal": "Normal", "warning": "Warning", "error": "Error", "not-present": "Not present"}
RECORD = "status.json"
RECORD_TYPES = {"time": int, "exit_status": int, "stdout": str, "report": str, "error": str}


def collect(reports_dir, now=None):
    """Returns the hosts' entries, the style sheet of the newest readable
    report (None if none could be read), and the time of the collection."""
    now = time.time() if now is None else now
    hosts, style, newest = [], None, None
    for host in sorted(os.listdir(reports_dir)):
        directory = os.path.join(reports_dir, host)
        if os.path.isdir(directory):
            entry, report = _host(host, directory, reports_dir, now)
            hosts.append(entry)
            if report is not None and (newest is None or (entry["time"] or 0) > newest):
                style, newest = report.style, entry["time"] or 0
    # Hosts without a usable report first, then worst first, then by name.
    hosts.sort(key=lambda h: (h["status"] is not None,
                              -zentrix_report.STATUSES.index(h["status"]) if h["status"] else 0, h["host"]))
    return hosts, style, now


def _host(host, directory, reports_dir, now):
    entry = {"host": host, "time": None, "age_seconds": None, "status": None, "exit_status": None,
             "reason": None, "categories": [], "attention": [], "report": None}
    record = {}
    try:
        with open(os.path.join(directory, RECORD), encoding="utf-8") as f:
            record = json.load(f)
        if not isinstance(record, dict) or any(not isinstance(record.get(k), (t, type(None)))
                                               for k, t in RECORD_TYPES.items()):
            raise ValueError("not a run record")
        entry["time"], entry["exit_status"] = record.get("time"), record.get("exit_status")
    except FileNotFoundError:
        pass
    except (OSError, ValueError) as error:
        entry["reason"] = "run record cannot be read: %s" % error
        return entry, None
    failure = _failure(record)
    if failure:
        entry["reason"] = failure
        return entry, None
    reports = sorted(glob.glob(os.path.join(glob.escape(directory), "Zentrix_*.html")))
    if record.get("report"):
        reports = [os.path.join(directory, os.path.basename(record["report"]))]
    if not reports or not os.path.isfile(reports[-1]):
        entry["reason"] = "no report"
        return entry, None
    path = reports[-1]
    entry["report"] = os.path.relpath(path, reports_dir)
    if not record:
        entry["time"] = _stamp_time(path)
    entry["age_seconds"] = None if entry["time"] is None else max(0, int(now - entry["time"]))
    try:
        report = zentrix_report.read_file(path)
        entry["categories"] = [{"title": t, "status": s} for t, s in zentrix_report.categories(report)]
    except zentrix_report.ReportError as error:
        entry["reason"] = "report cannot be read: %s" % error
        return entry, None
    entry["attention"] = [c["title"] for c in entry["categories"] if CODES[c["status"]] in (2, 3)]
    entry["status"] = zentrix_report.worst(c["status"] for c in entry["categories"]) or "not-present"
    return entry, report


def _failure(record):
    """Why the recorded run left no report, or None when it did."""
    if record.get("error"):
        return record["error"]
    status = record.get("exit_status")
    if status in (None, 0):
        return None
    lines = [line.strip() for line in (record.get("stdout") or "").splitlines() if line.strip()]
    return "exit status %s%s" % (status, ": " + lines[-1] if lines else "")


def _stamp_time(path):
    stamp = os.path.basename(path)[len("Zentrix_"):-len(".html")]
    try:
        return int(time.mktime(time.strptime(stamp, "%Y%m%d%H%M%S")))
    except ValueError:
        return int(os.path.getmtime(path))


def _local(seconds):
    return None if seconds is None else time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(seconds))


def to_json(hosts, now):
    shown = [dict(h, time=_local(h["time"])) for h in hosts]
    return json.dumps({"generated": _local(now), "hosts": shown}, indent=2, ensure_ascii=False)


def to_html(hosts, style, now):
    e = html.escape
    rows = []
    for h in hosts:
        status = h["status"]
        word = WORDS[status] if status else "No report"
        detail = ", ".join(h["attention"]) if status else h["reason"]
        link = "" if h["report"] is None else '<a href="%s">%s</a>' % (
            e(urllib.parse.quote(h["report"])), e(os.path.basename(h["report"])))
        rows.append('\n          <tr data-host="%s">\n            <td class="status-%s icon status">%s</td>'
                    "\n            <td>%s</td>\n            <td>%s</td>\n            <td>%s</td>"
                    "\n            <td>%s</td>\n          </tr>"
                    % (e(h["host"]), status or "error", word, e(h["host"]), e(_local(h["time"]) or "-"),
                       e(detail or ""), link))
    # The report's own style sheet carries its icons and look; without a
    # readable report the page still lists every host, in plain text.
    return ('<!DOCTYPE html>\n<html>\n\n<head>\n  <meta charset="utf-8">\n'
            '  <meta name="viewport" content="width=device-width, initial-scale=1">\n'
            "  <title>Zentrix fleet</title>\n  <style>\n    %s\n  </style>\n</head>\n\n<body>\n"
            '  <div class="title-app">\n    <h2>Zentrix fleet</h2>\n    <h3>%s</h3>\n  </div>\n'
            '  <table class="data-table">\n        <thead>\n          <tr>\n            <th>Status</th>'
            "\n            <th>Host</th>\n            <th>Time</th>\n            <th>Needs attention</th>"
            "\n            <th>Report</th>\n          </tr>\n        </thead>\n        <tbody>%s"
            "\n        </tbody>\n      </table>\n</body>\n\n</html>\n"
            % (style or "", e(_local(now)), "".join(rows)))


def _label(value):
    return value.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")


def to_prometheus(hosts):
    lines = ["# HELP zentrix_category_status Health category status in the newest report:"
             " 1 normal, 2 warning, 3 error, 4 not present or unknown.",
             "# TYPE zentrix_category_status gauge"]
    for h in hosts:
        for c in h["categories"]:
            lines.append('zentrix_category_status{host="%s",category="%s"} %d'
                         % (_label(h["host"]), _label(c["title"]), CODES[c["status"]]))
    lines += ["# HELP zentrix_report_age_seconds Seconds since the newest report was made.",
              "# TYPE zentrix_report_age_seconds gauge"]
    lines += ['zentrix_report_age_seconds{host="%s"} %d' % (_label(h["host"]), h["age_seconds"])
              for h in hosts if h["age_seconds"] is not None]
    lines += ["# HELP zentrix_exit_status Exit status of the last run; -1 when the host was"
              " unreachable or no run is recorded.",
              "# TYPE zentrix_exit_status gauge"]
    lines += ['zentrix_exit_status{host="%s"} %d' % (_label(h["host"]), -1 if h["exit_status"] is None
                                                     else h["exit_status"]) for h in hosts]
    return "\n".join(lines) + "\n"


def write_atomically(path, text):
    """Readers (a browser, a metrics collector) see the old file or the new
    one, never half of it."""
    temporary = "%s.%d.tmp" % (path, os.getpid())
    try:
        with open(temporary, "w", encoding="utf-8") as out:
            out.write(text)
        os.chmod(temporary, 0o644)
        os.replace(temporary, path)
    finally:
        if os.path.exists(temporary):
            os.unlink(temporary)
