#!/usr/bin/env python3
"""Writes a fleet of varied images of the sample radio, a few of them damaged.

    generate.py FOLDER [-n 200] [--seed 1] [--layout examples/radio/layout.json]

Image i (radio-0000.kov, ...) has 2 to 4 channel banks of 1 to 16 channels, 1 to 60 contacts
and settings of its own, all drawn from a generator seeded with seed and i, so a run gives the
same files every time. Every 37th image (from the 6th) has one data byte flipped, so one block's
checksum is wrong; every 53rd (from the 8th) is cut a few bytes short.
"""

import argparse
import copy
import json
import os
import random

import kov

HERE = os.path.dirname(os.path.abspath(__file__))
RADIO = os.path.join(os.path.dirname(HERE), "radio")


def radio_values(i, seed):
    """The values of image i: the sample's, varied."""
    with open(os.path.join(RADIO, "values.json")) as f:
        values = json.load(f)
    rng = random.Random(seed * 1000003 + i)
    values["Device info"]["Serial"] = "%08d" % rng.randrange(10 ** 8)
    general = values["General"]
    general["Volume"] = rng.randrange(16)
    general["Squelch"] = rng.randrange(16)
    general["Radio alias"] = "Unit %d" % i
    banks = []
    for b in range(rng.randint(2, 4)):
        channels = []
        for c in range(rng.randint(1, 16)):
            if rng.random() < 0.5:
                mode = {"Analog": {"Rx frequency": rng.choice(["145.500", "146.520", "156.800"]),
                                   "Power": rng.randrange(4), "Wide": rng.randrange(2),
                                   "Frequency trim": rng.randrange(-128, 128)}}
                kind = 1
            else:
                mode = {"Digital": {"Color code": rng.randrange(16), "Time slot": rng.randrange(2),
                                    "Talkgroup": rng.randrange(1 << 24)}}
                kind = 2
            channels.append({"Kind": kind, "Channel name": "B%dC%d" % (b + 1, c + 1),
                             "Mode": mode})
        banks.append({"Channels": channels})
    values["Channel bank"] = banks
    template = values["Contacts"]["Contact list"][0]
    contacts = []
    for n in range(rng.randint(1, 60)):
        contact = copy.deepcopy(template)
        contact.update({"Contact id": 1000 + n, "Call type": rng.randrange(2),
                        "Contact name": "C%d" % n})
        contacts.append(contact)
    values["Contacts"]["Contact list"] = contacts
    return values


def damaged(i):
    """How image i is damaged: "flipped", "cut" or None."""
    return "flipped" if i % 37 == 5 else "cut" if i % 53 == 7 else None


def damage(image, i, seed):
    """The image as written: flipped or cut for the few images chosen to be damaged."""
    rng = random.Random(seed * 7919 + i)
    if damaged(i) == "flipped":
        records = [r for r in kov.inspect(image) if r["data_size"] > 0]
        record = rng.choice(records)
        at = record["offset"] + 6 + rng.randrange(record["data_size"])
        out = bytearray(image)
        out[at] ^= 0x10
        return bytes(out)
    if damaged(i) == "cut":
        return image[:-rng.randint(1, 5)]
    return image


def make_images(folder, n, seed=1, layout_path=None):
    """Writes n images into folder and returns their paths."""
    layout = kov.Layout.load(layout_path or os.path.join(RADIO, "layout.json"))
    os.makedirs(folder, exist_ok=True)
    paths = []
    for i in range(n):
        image = damage(layout.pack(radio_values(i, seed)), i, seed)
        path = os.path.join(folder, "radio-%04d.kov" % i)
        with open(path, "wb") as f:
            f.write(image)
        paths.append(path)
    return paths


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder")
    parser.add_argument("-n", type=int, default=200, help="how many images (default 200)")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--layout", help="the layout file (default: the sample radio's)")
    args = parser.parse_args()
    paths = make_images(args.folder, args.n, args.seed, args.layout)
    print("%s: %d images" % (args.folder, len(paths)))


if __name__ == "__main__":
    main()
