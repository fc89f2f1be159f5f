"""The Python module: packing and unpacking, every error class, buffer types and threads."""

import binascii
import decimal
import json
import os
import pathlib
import random
import threading
import warnings

import pytest

import kov

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
RADIO = os.path.join(ROOT, "examples", "radio")
TESTDATA = os.path.join(ROOT, "tools", "testdata")

# The complete example of docs/layout-format.md: one block, a 12-bit number, a floating 3-bit
# field one bit behind it, an 8-character string and a list of two entries holding a union.
SETTINGS_LAYOUT = {
    "maxImageSize": 1024,
    "partitions": [{"number": 1, "blocks": [
        {"name": "Settings", "kovType": "0x0011", "kovId": 2, "maxDataSize": 40, "fields": [
            {"name": "Power", "type": "number", "bits": 12, "byteOffset": 0},
            {"name": "Mode", "type": "number", "bits": 3, "gap": 1},
            {"name": "Alias", "type": "string", "chars": 8, "byteOffset": 2},
            {"name": "Count", "type": "number", "bits": 8, "byteOffset": 10},
            {"name": "Items", "type": "list", "format": "contiguous", "byteOffset": 11,
             "maxEntries": 4, "entryBits": 32, "quantity": {"field": "Count"},
             "entry": [
                 {"name": "Kind", "type": "number", "bits": 8, "byteOffset": 0},
                 {"name": "Body", "type": "union", "format": "fixed", "bits": 24,
                  "byteOffset": 1, "discriminants": [{"field": "Kind"}],
                  "select": {"cases": [{"when": 1, "option": "Tone"},
                                       {"when": 2, "option": "Code"}]},
                  "options": [
                      {"name": "Tone", "fields": [
                          {"name": "Hz", "type": "number", "bits": 16, "byteOffset": 0}]},
                      {"name": "Code", "fields": [
                          {"name": "Digits", "type": "string", "charBits": 4, "chars": 6,
                           "byteOffset": 0}]}]}]}]}]}],
}
SETTINGS_VALUES = {"Settings": {
    "Power": 2748, "Mode": 5, "Alias": "Base",
    "Items": [{"Kind": 1, "Body": {"Tone": {"Hz": 1750}}},
              {"Kind": 2, "Body": {"Code": {"Digits": "240117"}}}]}}
# By hand: Power 0xABC in bits 0-11, bit 12 the gap, Mode 101 in bits 13-15 (AB C5); "Base" and
# four zero bytes; Count 2; entry 1: Kind 1, Hz 0x06D6 and the union's last byte; entry 2: Kind
# 2, six 4-bit digits.
SETTINGS_DATA = bytes.fromhex("ABC5 4261736500000000 02 0106D600 02240117")
SETTINGS_IMAGE = (bytes.fromhex("0011 0002 0015") + SETTINGS_DATA
                  + binascii.crc_hqx(SETTINGS_DATA, 0).to_bytes(2, "big"))


@pytest.fixture(scope="module")
def settings():
    return kov.Layout.from_json(SETTINGS_LAYOUT)


@pytest.fixture(scope="module")
def radio():
    return kov.Layout.load(os.path.join(RADIO, "layout.json"))


@pytest.fixture(scope="module")
def radio_values():
    with open(os.path.join(RADIO, "values.json")) as f:
        return json.load(f)


@pytest.mark.parametrize("data, crc", [
    (b"123456789", 0x31C3),           # the published check value of CRC-16/XMODEM
    (bytearray(b"\xff\xff"), 0x1D0F),
    (memoryview(b"xx123456789")[2:], 0x31C3),
    (b"", 0),
])
def test_crc16_gives_the_check_values(data, crc):
    assert kov.crc16(data) == crc


@pytest.mark.parametrize("wrap", [bytes, bytearray, memoryview,
                                  lambda b: memoryview(b"junk" + b + b"junk")[4:-4]],
                         ids=["bytes", "bytearray", "memoryview", "memoryview-slice"])
def test_hand_derived_image_packs_and_unpacks_from_every_buffer_type(settings, wrap):
    assert settings.pack(SETTINGS_VALUES) == SETTINGS_IMAGE
    assert settings.unpack(wrap(SETTINGS_IMAGE)) == SETTINGS_VALUES


def test_radio_round_trips_with_and_without_prefixes(radio, radio_values):
    for prefixes in (False, True):
        image = radio.pack(radio_values, prefixes=prefixes)
        values = radio.unpack(image, prefixes=prefixes)
        assert values == radio_values
        assert radio.pack(values, prefixes=prefixes) == image
    # Prefixed: every instance carries 2 bytes more than the plain image.
    plain, prefixed = radio.pack(radio_values), radio.pack(radio_values, prefixes=True)
    assert len(prefixed) == len(plain) + 2 * len(kov.inspect(plain))


def test_layout_text_tree_and_warnings(radio):
    with open(os.path.join(TESTDATA, "radio.tree.txt")) as f:
        assert radio.tree() == f.read()
    assert radio.verify() == []
    assert radio.blocks[:3] == ["Device info", "General", "Channel bank"]
    warning = ("WARNING: KOV Name field 1 in block B references block 99\n"
               "but no layout for that block exists.")
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        advice = kov.Layout.load(os.path.join(TESTDATA, "advice-layout.json"))
    assert [str(w.message) for w in caught] == [warning]
    assert advice.verify() == [warning]


def test_load_takes_str_bytes_and_path_like_paths(tmp_path):
    # A path that is not UTF-8 comes back in file as os.fsdecode gives it.
    path = os.path.join(RADIO, "layout.json")
    for given in (path, os.fsencode(path), pathlib.Path(path)):
        assert kov.Layout.load(given).file == path
    missing = os.fsencode(str(tmp_path)) + b"/\xff.json"
    with pytest.raises(kov.LayoutError) as info:
        kov.Layout.load(missing)
    assert os.fsencode(info.value.file) == missing
    assert str(info.value) == str(tmp_path) + "/\\xff.json: can't be read: No such file or directory"


def _with_bits(bits):
    layout = json.loads(json.dumps(SETTINGS_LAYOUT))
    layout["partitions"][0]["blocks"][0]["fields"][0]["bits"] = bits
    return layout


@pytest.mark.parametrize("load, file, pointer, text", [
    (lambda: kov.Layout.load("/nonexistent/layout.json"), "/nonexistent/layout.json", "",
     "can't be read: No such file or directory"),
    (lambda: kov.Layout.from_json("{"), "<string>", "",
     "not valid JSON: parse error at line 1, column 2: syntax error while parsing object key - "
     "unexpected end of input; expected string literal"),
    (lambda: kov.Layout.from_json(_with_bits(40)), "<string>",
     "/partitions/0/blocks/0/fields/0/bits", "must be a whole number from 1 to 32, not 40"),
    (lambda: kov.Layout.load(os.path.join(TESTDATA, "unverifiable-layout.json")),
     os.path.join(TESTDATA, "unverifiable-layout.json"), "/partitions/0/blocks/0/fields/0",
     "the layout fails verification: Field 'Q' must immediately precede field 'L' (see block B)"),
])
def test_layout_errors_name_file_and_pointer(load, file, pointer, text):
    with pytest.raises(kov.LayoutError) as info:
        load()
    e = info.value
    assert (e.file, e.pointer, e.text, e.offset) == (file, pointer, text, None)
    assert str(e) == file + ": " + (pointer + ": " if pointer else "") + text
    assert isinstance(e, kov.Error)


def _loop():
    loop = []
    loop.append(loop)
    return {"Settings": {"Items": loop}}


@pytest.mark.parametrize("values, pointer, text", [
    ({"Nope": {}}, "/Nope", "no block named 'Nope' in <string>"),
    ({"Settings": {"Power": 4096}}, "/Settings/Power",
     "must be a whole number from 0 to 4095, not 4096"),
    ({"Settings": {"Power": -1}}, "/Settings/Power",
     "must be a whole number from 0 to 4095, not -1"),
    ({"Settings": {"Power": 2 ** 70}}, "/Settings/Power",
     "the number 1180591620717411303424 is out of range"),
    ({"Settings": {"Power": 1.5}}, "/Settings/Power",
     "must be a whole number from 0 to 4095, not a number"),
    ({"Settings": {"Power": {1, 2}}}, "/Settings/Power",
     "a value must be a dict, list, str, int, float, decimal.Decimal, bool or None, not set"),
    ({"Settings": {1: 2}}, "/Settings", "a key must be a string, not int"),
    # A name that a later entry of a list adds to the names its first entry matched.
    ({"Settings": {"Items": [{"Kind": 0}, {"Kind": 0, "Hz": 1}]}}, "/Settings/Items/1/Hz",
     "no field 'Hz' here; the fields are 'Kind', 'Body'"),
    ({"Settings": {"Alias": "ninechars"}}, "/Settings/Alias",
     "9 characters do not fit the field's 8"),
    ({"Settings": {"Items": [{"Kind": 1, "Body": {"Code": {"Digits": "1"}}}]}},
     "/Settings/Items/0/Body", "option 'Code' is given, but the discriminant value 1 selects option 'Tone'"),
    # A tuple is read as a list, in place, with its indexes in the pointer.
    ({"Settings": {"Items": ({"Kind": 0}, {"Kind": 1, "Body": {"Code": {"Digits": "1"}}})}},
     "/Settings/Items/1/Body", "option 'Code' is given, but the discriminant value 1 selects option 'Tone'"),
    ({"Settings": {"Alias": "\ud800"}}, "/Settings/Alias", "the string can't be encoded as UTF-8"),
    (_loop(), "/Settings/Items" + "/0" * 63,
     "nested too deep (a dict or list that contains itself?)"),
    ([], "", "the values must be a dict of blocks"),
])
def test_values_errors_name_the_pointer(settings, values, pointer, text):
    with pytest.raises(kov.ValuesError) as info:
        settings.pack(values)
    assert (info.value.file, info.value.pointer, info.value.text) == ("<values>", pointer, text)


def _flip(data, at):
    out = bytearray(data)
    out[at] ^= 0x01
    return bytes(out)


@pytest.mark.parametrize("image, offset, text", [
    (b"", None, "the image is empty"),
    (SETTINGS_IMAGE[:5], 0, "header cut short: 5 bytes left where a header needs 6"),
    (_flip(SETTINGS_IMAGE, 6), 0,
     "block 'Settings' [1] has checksum 0xF2C8, but its data gives 0x2CD7"),
    (_flip(SETTINGS_IMAGE, 1), 0, "KOV name 0x00100002 belongs to no block of <string>"),
    (SETTINGS_IMAGE[:-1], 0, "KOV name 0x00110002 of size 21 runs 1 byte past the end of the "
                             "image"),
])
def test_image_errors_carry_text_and_offset(settings, image, offset, text):
    with pytest.raises(kov.ImageError) as info:
        settings.unpack(image)
    assert (info.value.text, info.value.offset, info.value.pointer) == (text, offset, None)


def _reseal(image):
    """SETTINGS_IMAGE-shaped bytes with the checksum of their data written again."""
    data = image[6:-2]
    return image[:-2] + binascii.crc_hqx(data, 0).to_bytes(2, "big")


def test_unpack_is_strict_unless_lenient(settings):
    # Bit 12 of the data is the gap between Power and Mode: set, it packs back to 0xC5.
    gap = _reseal(SETTINGS_IMAGE[:7] + b"\xcd" + SETTINGS_IMAGE[8:])
    with pytest.raises(kov.ImageError) as info:
        settings.unpack(gap)
    assert (info.value.offset, info.value.text) == (
        7, "block 'Settings' [1] (at offset 0x000000): the image breaks its layout: the image "
           "holds 0xCD where its values pack to 0xC5")
    assert settings.unpack(gap, lenient=True) == SETTINGS_VALUES


def test_scaled_values_are_exact_text_and_pack_from_decimal(radio, radio_values):
    image = radio.pack(radio_values)
    analog = radio.unpack(image)["Channel bank"][0]["Channels"][0]["Mode"]["Analog"]
    assert analog["Rx frequency"] == "145.500" and analog["Power"] == "High"
    values = json.loads(json.dumps(radio_values))
    channel = values["Channel bank"][0]["Channels"][0]["Mode"]["Analog"]
    channel["Rx frequency"] = decimal.Decimal("145.5")
    values["Scan list"]["Hang time"] = decimal.Decimal("1.5E+1")
    assert radio.pack(values) == image
    channel["Rx frequency"] = decimal.Decimal("145.5001")
    with pytest.raises(kov.ValuesError) as info:
        radio.pack(values)
    assert info.value.pointer == "/Channel bank/0/Channels/0/Mode/Analog/Rx frequency"


def test_dump_gives_every_value_with_place_raw_bits_and_value(radio, radio_values):
    image = radio.pack(radio_values)
    rows = radio.dump(image)
    assert len(rows) == 93
    assert [r["offset"] * 8 + 7 - r["msb"] for r in rows] == sorted(
        r["offset"] * 8 + 7 - r["msb"] for r in rows)
    by_path = {r["path"]: r for r in rows}
    # Hand-read: General's data starts at 0x1E; Key lock floats behind Beep at 0x1F, MSB 2.
    assert by_path["General.Key lock"] == {
        "path": "General.Key lock", "block": "General", "instance": 1, "offset": 0x1F,
        "msb": 2, "bits": 1, "raw": "0", "value": 0}
    freq = by_path["Channel bank[1].Channels[1].Mode.Analog.Rx frequency"]
    # 145.500 / 0.005 = 29100 = 0x71AC.
    assert (freq["raw"], freq["value"], freq["bits"]) == ("71AC", "145.500", 16)
    assert by_path["Zone[1].Zone options"]["value"] == ["Scan"]
    prefixed = radio.dump(radio.pack(radio_values, prefixes=True), prefixes=True)
    assert [r["value"] for r in prefixed] == [r["value"] for r in rows]
    with pytest.raises(kov.ImageError):
        radio.dump(image[:-3])


def test_inspect_reports_blocks_faults_and_damage(radio, radio_values):
    image = radio.pack(radio_values)
    records = kov.inspect(image, radio)
    assert len(records) == 13 and all(r["crc_ok"] for r in records)
    assert records[0] == {"offset": 0, "kov_type": 0x0101, "kov_id": 1, "size": 18,
                          "data_size": 16, "stored_crc": records[0]["data_crc"],
                          "data_crc": kov.crc16(image[6:22]), "crc_ok": True,
                          "block": "Device info", "instance": 1}
    assert [r["instance"] for r in records if r["block"] == "Channel bank"] == [1, 2]
    bad = kov.inspect(_flip(image, 7))
    assert [r["crc_ok"] for r in bad].count(False) == 1 and "block" not in bad[0]
    cut = kov.inspect(image[:-3], radio)
    assert cut[-1]["damage"] == "KOV name 0x08020002 of size 28 runs 3 bytes past the end of the image"
    assert cut[-1]["offset"] == records[-1]["offset"]


def test_garbage_never_crashes(radio, radio_values):
    image = radio.pack(radio_values)
    rng = random.Random(20261123)
    refused = 0
    for _ in range(300):
        data = bytearray(image)
        for _ in range(rng.randint(1, 4)):
            data[rng.randrange(len(data))] = rng.randrange(256)
        data = data[:rng.randint(0, len(data))]
        kov.inspect(data, radio)
        try:
            radio.unpack(data)
        except kov.ImageError:
            refused += 1
    assert refused > 250


def test_threads_share_one_layout(radio, radio_values):
    # Different images on several threads at once must give what they give one at a time.
    images = []
    for i in range(8):
        values = json.loads(json.dumps(radio_values))
        values["General"]["Volume"] = i
        values["Contacts"]["Contact list"] = values["Contacts"]["Contact list"][:i + 2]
        images.append((values, radio.pack(values)))
    failures = []

    def work(k):
        for n in range(40):
            values, image = images[(k + n) % len(images)]
            if radio.pack(values) != image or radio.unpack(image) != values:
                failures.append((k, n))

    threads = [threading.Thread(target=work, args=(k,)) for k in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert failures == []
