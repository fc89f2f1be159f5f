#!/usr/bin/env python3
"""The Python module against Python construct on W1, and the fleet script's images per second.

    python_bench.py [--instances 3000] [--repetitions 5] [--construct-repetitions 3]
                    [--fleet-images 4000] [--skip-fleet]

W1 (see bench/README.md) through the module: layout.pack(dict) and layout.unpack(bytes) over a
JSON layout of the W1 block; and through construct, a declarative parser and builder of binary
structures written in Python, on the same image. Both images are checked against the published
SHA-256 of W1 and both unpacks against the values they were made from before anything is timed.
Times are the median of the repetitions, with min and max; the ratio is construct's median over
the module's. Then 4 packs and 4 unpacks on one thread and split over two, and the fleet script
(examples/fleet) over generated images on a local dask.distributed cluster of 1 and of 2 worker
processes, in images per second.
"""

import argparse
import binascii
import hashlib
import os
import statistics
import sys
import tempfile
import time

import kov

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "examples", "fleet"))

W1_SHA256 = {
    3: "1fa39ffb2ba37b3f34198d072b151a1cc79358f4753ba67d11015aba5bf2c1f1",
    300: "520433d96cdc1440fe4500ddce182112bf603ba10f41c28924a46c3f5b3313bb",
    3000: "6bfeadf56df98fbf1701c239279239af632215ddb5c5f1a44731eb6ab83aa477",
    30000: "205a424caddbc54e22c9dde2dd44fd12dbda06e30cc168249026bf3935e8098c",
}

ENTRY_FIELDS = [  # name, bits, byte, MSB
    ("rx_freq", 32, 0, 7), ("tx_freq", 32, 4, 7), ("power", 3, 8, 7), ("wide", 1, 8, 4),
    ("scan", 1, 8, 3), ("talkaround", 1, 8, 2), ("reserved", 2, 8, 1), ("color_code", 4, 9, 7),
    ("talkgroup", 20, 9, 3),
]


def w1_layout(instances):
    entry = [{"name": n, "type": "number", "bits": b, "byteOffset": o, "msbStart": m}
             for n, b, o, m in ENTRY_FIELDS]
    entry.append({"name": "name", "type": "string", "chars": 8, "byteOffset": 12})
    return {"maxImageSize": 330 * instances, "partitions": [{"number": 1, "blocks": [
        {"name": "ChannelBank", "kovType": "0x0031", "multiInstance": True, "maxDataSize": 322,
         "fields": [
             {"name": "count", "type": "number", "bits": 16, "byteOffset": 0},
             {"name": "entries", "type": "list", "format": "contiguous", "byteOffset": 2,
              "maxEntries": 16, "entryBits": 160, "quantity": {"field": "count"},
              "entry": entry}]}]}]}


def w1_channel(i, e):
    k = 16 * i + e
    rx = 400000000 + 2500 * k
    return {"rx_freq": rx, "tx_freq": rx if k % 2 == 0 else rx + 5000000, "power": k % 8,
            "wide": (k >> 1) & 1, "scan": (k >> 2) & 1, "talkaround": (k >> 3) & 1, "reserved": 0,
            "color_code": (i + e) % 16, "talkgroup": (7919 * k) % (1 << 20), "name": "CH%d" % k}


def kov_values(instances):
    # The module's string field writes the characters it is given: the names carry W1's padding.
    banks = []
    for i in range(instances):
        entries = []
        for e in range(16):
            c = w1_channel(i, e)
            c["name"] = c["name"].ljust(8)
            entries.append(c)
        banks.append({"entries": entries})
    return {"ChannelBank": banks}


def construct_codec(instances):
    from construct import (Array, BitStruct, BitsInteger, Bytes, Checksum, Const, ExprAdapter,
                           Flag, Int16ub, Int32ub, RawCopy, Struct, Terminated, this)
    name = ExprAdapter(Bytes(8), decoder=lambda obj, ctx: obj.rstrip(b" ").decode("ascii"),
                       encoder=lambda obj, ctx: obj.encode("ascii").ljust(8, b" "))
    entry = Struct(
        "rx_freq" / Int32ub, "tx_freq" / Int32ub,
        "bits" / BitStruct("power" / BitsInteger(3), "wide" / Flag, "scan" / Flag,
                           "talkaround" / Flag, "reserved" / BitsInteger(2),
                           "color_code" / BitsInteger(4), "talkgroup" / BitsInteger(20)),
        "name" / name)
    instance = Struct(
        "type" / Const(0x0031, Int16ub), "id" / Int16ub, "size" / Const(324, Int16ub),
        "data" / RawCopy(Struct("count" / Const(16, Int16ub), "entries" / Array(16, entry))),
        "crc" / Checksum(Int16ub, lambda data: binascii.crc_hqx(data, 0), this.data.data))
    return Struct("instances" / Array(instances, instance), Terminated)


def construct_values(instances):
    out = []
    for i in range(instances):
        entries = []
        for e in range(16):
            c = w1_channel(i, e)
            entries.append({"rx_freq": c["rx_freq"], "tx_freq": c["tx_freq"], "bits": {
                "power": c["power"], "wide": bool(c["wide"]), "scan": bool(c["scan"]),
                "talkaround": bool(c["talkaround"]), "reserved": 0,
                "color_code": c["color_code"], "talkgroup": c["talkgroup"]},
                "name": c["name"]})
        out.append({"id": i, "data": {"value": {"entries": entries}}})
    return {"instances": out}


def timed(fn, repetitions):
    times = []
    result = None
    for _ in range(repetitions):
        start = time.perf_counter()
        result = fn()
        times.append(time.perf_counter() - start)
    return result, times


def show(label, times, instances):
    med = statistics.median(times)
    print("  %-26s %9.2f ms  (min %.2f, max %.2f)  %6.2f M fields/s  %7.1f MB/s" % (
        label, med * 1e3, min(times) * 1e3, max(times) * 1e3, 161 * instances / med / 1e6,
        330 * instances / med / 1e6))
    return med


def bench_w1(instances, repetitions, construct_repetitions):
    print("W1 at B = %d: %d fields, %d bytes" % (instances, 161 * instances, 330 * instances))
    layout = kov.Layout.from_json(w1_layout(instances))
    values = kov_values(instances)
    image = layout.pack(values)
    want = W1_SHA256.get(instances)
    if want is not None and hashlib.sha256(image).hexdigest() != want:
        sys.exit("python_bench: the module's W1 image differs from the published SHA-256")
    if layout.unpack(image) != values:
        sys.exit("python_bench: the module's W1 unpack differs from the values")
    codec = construct_codec(instances)
    cvalues = construct_values(instances)
    if codec.build(cvalues) != image:
        sys.exit("python_bench: construct's W1 image differs from the module's")
    parsed = codec.parse(image)
    back = [[(c.rx_freq, c.bits.talkgroup, c.name) for c in inst.data.value.entries]
            for inst in parsed.instances]
    if back != [[(c["rx_freq"], c["talkgroup"], c["name"].rstrip()) for c in bank["entries"]]
                for bank in values["ChannelBank"]]:
        sys.exit("python_bench: construct's W1 parse differs from the values")

    _, kp = timed(lambda: layout.pack(values), repetitions)
    _, ku = timed(lambda: layout.unpack(image), repetitions)
    _, cp = timed(lambda: codec.build(cvalues), construct_repetitions)
    _, cu = timed(lambda: codec.parse(image), construct_repetitions)
    kp, ku = show("pack   kov module", kp, instances), show("unpack kov module", ku, instances)
    cp, cu = show("pack   construct", cp, instances), show("unpack construct", cu, instances)
    print("  construct / kov module: pack %.0fx, unpack %.0fx (target: at least 50x)" % (
        cp / kp, cu / ku))
    return cp / kp, cu / ku


def bench_threads(instances, calls=4):
    """calls packs, then unpacks, of W1 on 1 thread and split over 2: the GIL is released
    around the library's work, so the second thread gains what the conversions leave."""
    import threading
    layout = kov.Layout.from_json(w1_layout(instances))
    values = kov_values(instances)
    image = layout.pack(values)
    print("threads: %d calls at B = %d over one layout" % (calls, instances))
    for name, call in (("pack", lambda: layout.pack(values)),
                       ("unpack", lambda: layout.unpack(image))):
        times, busy = [], []
        for n in (1, 2):
            threads = [threading.Thread(target=lambda: [call() for _ in range(calls // n)])
                       for _ in range(n)]
            start, cpu = time.perf_counter(), time.process_time()
            for t in threads:
                t.start()
            for t in threads:
                t.join()
            times.append(time.perf_counter() - start)
            busy.append((time.process_time() - cpu) / times[-1])
        # Cores busy: the process's CPU time over the wall time; a machine shared with other
        # work gives the threads less than two cores.
        print("  %-6s 1 thread %7.0f ms, 2 threads %7.0f ms: %.2fx (cores busy %.2f, %.2f)" % (
            name, times[0] * 1e3, times[1] * 1e3, times[0] / times[1], busy[0], busy[1]))


def bench_fleet(count):
    import fleet
    import generate
    from distributed import LocalCluster

    layout = os.path.join(os.path.dirname(HERE), "examples", "radio", "layout.json")
    with tempfile.TemporaryDirectory() as folder:
        paths = generate.make_images(folder, count)
        print("fleet: %d generated images (%d damaged), local dask.distributed cluster" % (
            count, sum(1 for i in range(count) if generate.damaged(i))))
        for workers in (1, 2):
            with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                              host="127.0.0.1", dashboard_address=None) as cluster:
                # A first small run starts the workers and loads the layout in each.
                fleet.summarize_all(paths[:4 * workers], layout, cluster.scheduler_address)
                start = time.perf_counter()
                rows = fleet.summarize_all(paths, layout, cluster.scheduler_address)
                elapsed = time.perf_counter() - start
            print("  %d worker%s: %7.0f images/s (%d images in %.2f s)" % (
                workers, "" if workers == 1 else "s", len(rows) / elapsed, len(rows), elapsed))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--instances", type=int, default=3000)
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--construct-repetitions", type=int, default=3)
    parser.add_argument("--fleet-images", type=int, default=4000)
    parser.add_argument("--skip-fleet", action="store_true")
    args = parser.parse_args()
    bench_w1(args.instances, args.repetitions, args.construct_repetitions)
    bench_threads(args.instances)
    if not args.skip_fleet:
        bench_fleet(args.fleet_images)


if __name__ == "__main__":
    main()
