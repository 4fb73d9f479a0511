#!/usr/bin/python3
"""Writes simulator profiles of a chosen size, derived from a base profile.

  make_profile.py BASE OUT --scale K      every component list K times as long
  make_profile.py BASE OUT --events N     the event log replaced by N records

Output is deterministic for the same arguments (fixed seed), so two runs of
the scale bench measure the same bytes. Prints the number of rows made
(components or event records) on stdout.
"""
import argparse
import copy
import json
import random
import sys

# Flat lists of the profile that the report turns into table rows.
COMPONENT_LISTS = ("fans", "temperatureSensors", "powerSupplies", "voltages",
                   "memoryModules", "processors", "pciSlots", "driverMonitor")
# The member that tells copies apart in the report.
NAME_MEMBER = {"memoryModules": "socket", "processors": "socket"}
# Readings jittered so copies are not byte-identical rows.
JITTER = {"rpm": 120, "celsius": 3, "currentWatts": 15, "current": 2}

SEED = 20240601


def renamed(entry, member, copy_number):
    out = copy.deepcopy(entry)
    if copy_number > 0 and isinstance(out.get(member), str):
        out[member] = "%s #%d" % (out[member], copy_number + 1)
    return out


def jittered(entry, rng):
    for key, spread in JITTER.items():
        if isinstance(entry.get(key), int) and entry[key] > spread:
            entry[key] += rng.randint(-spread, spread)
    return entry


def scale_list(items, k, member, rng):
    return [jittered(renamed(item, member, c), rng) for c in range(k) for item in items]


def scale_components(profile, k, rng):
    """Multiplies every component list by k; returns the number of components."""
    rows = 0
    for name in COMPONENT_LISTS:
        if name in profile:
            profile[name] = scale_list(profile[name], k, NAME_MEMBER.get(name, "designation"), rng)
            rows += len(profile[name])
    raid = profile.get("raid")
    if raid and "adapters" in raid:
        # More adapters with the same drives each: total drives grow by k, not k*k.
        adapters = []
        for c in range(k):
            for adapter in raid["adapters"]:
                clone = renamed(adapter, "designation", c)
                for drives in ("logicalDrives", "physicalDrives"):
                    clone[drives] = [renamed(d, "designation", c) for d in clone.get(drives, [])]
                    rows += len(clone[drives])
                adapters.append(clone)
                rows += 1
        raid["adapters"] = adapters
    return rows


def make_event_log(base_records, n, rng):
    """n records in time order, messages and codes drawn from the base log."""
    if not base_records:
        base_records = [{"severity": 0, "code": 1, "time": 0, "message": "Event"}]
    t = 1700000000
    records = []
    for i in range(n):
        model = base_records[rng.randrange(len(base_records))]
        t += rng.randint(1, 3600)
        records.append({"severity": model.get("severity", 0), "code": model.get("code", 0),
                        "time": t, "message": "%s (#%d)" % (model.get("message", ""), i + 1)})
    return records


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("base")
    parser.add_argument("out")
    group = parser.add_mutually_exclusive_group(required=True)
    group.add_argument("--scale", type=int, help="component list multiplier (1 or more)")
    group.add_argument("--events", type=int, help="number of event log records (0 or more)")
    args = parser.parse_args(argv)

    with open(args.base, encoding="utf-8") as f:
        profile = json.load(f)
    rng = random.Random(SEED)
    if args.scale is not None:
        if args.scale < 1:
            parser.error("--scale must be 1 or more")
        rows = scale_components(profile, args.scale, rng)
        profile["description"] = "%s (component lists x%d)" % (profile.get("description", ""), args.scale)
    else:
        if args.events < 0:
            parser.error("--events must be 0 or more")
        profile["eventLog"] = make_event_log(profile.get("eventLog", []), args.events, rng)
        rows = args.events
        profile["description"] = "%s (%d event log records)" % (profile.get("description", ""), args.events)

    with open(args.out, "w", encoding="utf-8") as f:
        json.dump(profile, f, separators=(",", ":"))
    print(rows)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
