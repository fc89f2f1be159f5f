#!/usr/bin/env python3
"""One summary table of a folder of codeplug images, made with Dask.

    fleet.py FOLDER LAYOUT [--scheduler ADDRESS] [--workers N] [--csv FILE]

Per image: its block instances, channels (the entries of every "Channel bank"), contacts (the
"Contact list" of "Contacts") and checksum faults (instances whose checksum is wrong, and one
more when the image ends part-way through an instance). A damaged image shows its faults and
the library's reason in the table instead of stopping the run; its channel and contact counts
are then empty, since the library refuses to unpack it.

The images are a dask.bag over the files. Without --scheduler the bag runs on Dask's local
scheduler (worker processes on this machine, --workers of them); with --scheduler ADDRESS
(tcp://host:8786) on that dask.distributed cluster, whose workers need the kov module installed.
"""

import argparse
import csv
import os
import sys

import dask.bag as db

import kov

COLUMNS = ("image", "blocks", "channels", "contacts", "faults", "problem")

# One loaded layout per worker process, by path: loading is done once, not once an image.
_layouts = {}


def _layout(path):
    layout = _layouts.get(path)
    if layout is None:
        layout = _layouts[path] = kov.Layout.load(path)
    return layout


def summarize(path, layout_path):
    """The table row of the image at path: a dict keyed by COLUMNS."""
    layout = _layout(layout_path)
    with open(path, "rb") as f:
        data = f.read()
    records = kov.inspect(data, layout)
    blocks = [r for r in records if "damage" not in r]
    faults = sum(not r["crc_ok"] for r in blocks) + (len(records) - len(blocks))
    row = {"image": os.path.basename(path), "blocks": len(blocks), "channels": None,
           "contacts": None, "faults": faults, "problem": ""}
    try:
        values = layout.unpack(data)
    except kov.ImageError as e:
        row["problem"] = e.text
        return row
    row["channels"] = sum(len(bank.get("Channels", [])) for bank in _instances(values, "Channel bank"))
    row["contacts"] = sum(len(c.get("Contact list", [])) for c in _instances(values, "Contacts"))
    return row


def _instances(values, block):
    """The instances of block in values: a list whether the block is multi-instance or not."""
    value = values.get(block, [])
    return value if isinstance(value, list) else [value]


def image_paths(folder):
    return sorted(os.path.join(folder, name) for name in os.listdir(folder)
                  if name.endswith(".kov"))


def summarize_all(paths, layout_path, scheduler=None, workers=None):
    """The rows of every image in paths, in their order. scheduler: None for Dask's local
    scheduler (processes), or the address of a dask.distributed scheduler."""
    layout_path = os.path.abspath(layout_path)
    kov.Layout.load(layout_path)  # a broken layout fails here, once, not in every task
    paths = [os.path.abspath(p) for p in paths]
    partitions = max(1, min(len(paths), 4 * (workers or os.cpu_count() or 1)))
    bag = db.from_sequence(paths, npartitions=partitions).map(summarize, layout_path)
    if scheduler is None:
        return bag.compute(scheduler="processes", num_workers=workers)
    from dask.distributed import Client
    with Client(scheduler) as client:
        # The workers import this file as a module: ship it to them.
        client.upload_file(os.path.abspath(__file__))
        return bag.compute()


def format_table(rows):
    """The rows as a text table with a line of totals."""
    def cell(v):
        return "-" if v is None else str(v)
    lines = [[c for c in COLUMNS]] + [[cell(r[c]) for c in COLUMNS] for r in rows]
    damaged = sum(1 for r in rows if r["faults"] or r["problem"])
    lines.append(["total %d" % len(rows), str(sum(r["blocks"] for r in rows)),
                  str(sum(r["channels"] or 0 for r in rows)),
                  str(sum(r["contacts"] or 0 for r in rows)),
                  str(sum(r["faults"] for r in rows)), "%d damaged" % damaged])
    widths = [max(len(line[i]) for line in lines) for i in range(len(COLUMNS) - 1)]
    out = []
    for line in lines:
        cells = [line[0].ljust(widths[0])] + [v.rjust(w) for v, w in zip(line[1:-1], widths[1:])]
        out.append("  ".join(cells + [line[-1]]).rstrip())
    return "\n".join(out) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", help="the folder of images (*.kov)")
    parser.add_argument("layout", help="the layout file (JSON)")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="a dask.distributed scheduler (default: the local scheduler)")
    parser.add_argument("--workers", type=int, help="local worker processes (default: one a core)")
    parser.add_argument("--csv", metavar="FILE", help="also write the table as CSV")
    args = parser.parse_args()
    try:
        rows = summarize_all(image_paths(args.folder), args.layout, args.scheduler, args.workers)
    except (kov.Error, OSError) as e:
        print("fleet: %s" % e, file=sys.stderr)
        return 2
    sys.stdout.write(format_table(rows))
    if args.csv:
        with open(args.csv, "w", newline="") as f:
            writer = csv.DictWriter(f, fieldnames=COLUMNS)
            writer.writeheader()
            writer.writerows(rows)
    return 0


if __name__ == "__main__":
    # The tasks name their functions by module, so that worker processes import this file as
    # "fleet" and keep its loaded layouts between tasks.
    sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
    import fleet
    sys.exit(fleet.main())
