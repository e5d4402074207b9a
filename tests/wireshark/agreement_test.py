"""Every field of random frames, sound and damaged, is in tshark what it is in 'tarn decode --json'.

usage: agreement_test.py FRAMES
"""

import math
import pathlib
import struct
import sys
import tempfile

import captures
import tools

NAMES = pathlib.Path(tools.PROJECT) / "examples/installations/pump-station.json"

# A field of the dissector: the number in the object of the command.
NUMBERS = {
    "tarn.type": "typeNumber",
    "tarn.priority": "priorityNumber",
    "tarn.addressing": "addressingNumber",
    "tarn.access": "accessTypeNumber",
    "tarn.direction": "directionNumber",
    "tarn.mode": "addressingModeNumber",
    "tarn.status": "statusNumber",
    "tarn.datatype": "dataTypeNumber",
    "tarn.source": "source",
    "tarn.target": "target",
    "tarn.module": "module",
    "tarn.register": "register",
    "tarn.mac": "mac",
    "tarn.device_code": "deviceCode",
    "tarn.chcp_id": "chcpId",
    "tarn.chcp_command": "chcpCommand",
}
TEXTS = {
    "tarn.source_name": "sourceName",
    "tarn.target_name": "targetName",
    "tarn.module_name": "moduleName",
    "tarn.register_name": "registerName",
    "tarn.mac_name": "macName",
}
TYPED = [f"tarn.value.s16f{number}" for number in range(8)] + [
    f"tarn.value.{name}" for name in ("u8", "u16", "u24", "u32", "u48", "float")
]
NOTES = {
    "CHCP frame without its 7 bytes: reads as an empty DATA message": ["tarn.expert.chcp_length"],
    "payload does not fit its data type": ["tarn.expert.payload_size", "tarn.expert.unknown_type"],
}
EXPERTS = [expert for experts in NOTES.values() for expert in experts]
NAMED = ["tarn.named", "tarn.named.value", "tarn.named.unit"]
FIELDS = [
    "frame.time_epoch", *NUMBERS, *TEXTS, *TYPED, *EXPERTS, *NAMED, "tarn.value", "tarn.payload",
    "tarn.note", "tarn.expert.too_short", "_ws.col.Info",
]
MAY_HAVE_WITHOUT_MESSAGE = {"frame.time_epoch", "tarn.note", "tarn.expert.too_short", "_ws.col.Info"}


def single(number):
    """The bits of the nearest single; every NaN is one."""
    if math.isnan(number):
        return "nan"
    try:
        return struct.pack(">f", number).hex()
    except OverflowError:
        return "inf" if number > 0 else "-inf"


def as_number(text):
    return float("nan") if text in ("nan", "-nan") else float(text)


def same_values(shown, expected, is_real):
    numbers = [as_number(text) for text in shown]
    if is_real:
        return [single(n) for n in numbers] == [single(as_number(str(v))) for v in expected]
    return [int(text) for text in shown] == expected


def exact_fixed_point(row, message):
    """What the bytes of a fixed-point payload say, worked out here."""
    payload = bytes.fromhex(message["payload"])
    steps = struct.unpack(f"<{len(payload) // 2}h", payload)
    scale = 4 ** message["dataTypeNumber"] / 8192
    return [float(text) for text in row["tarn.value"]] == [step * scale for step in steps]


def expected_named(message):
    def text(name, value):
        unit = f" {value['unit']}" if "unit" in value else ""
        return name, float(value["value"]), unit

    return [text(name, value) for name, value in message.get("named", {}).items()]


def shown_named(row):
    found = []
    for text in row["tarn.named"]:
        name, _, rest = text.partition("=")
        number, blank, unit = rest.partition(" ")
        found.append((name, as_number(number), blank + unit))
    return found


def has_nan(pairs):
    return any(math.isnan(number) for _, number, _ in pairs)


def wrong_in_message(row, message):
    """What differs, a line each."""
    wrong = []

    def expect(what, same, shown, expected):
        if not same:
            wrong.append(f"{what}: tshark {shown}, tarn {expected}")

    for field, key in NUMBERS.items():
        expected = [message[key]] if key in message else []
        shown = [int(text, 0) for text in row[field]]
        expect(field, shown == expected, shown, expected)
    for field, key in TEXTS.items():
        expected = [message[key]] if key in message else []
        expect(field, row[field] == expected, row[field], expected)
    payload = "".join(row["tarn.payload"]).replace(" ", "").replace(":", "").upper()
    expect("tarn.payload", payload == message["payload"], payload, message["payload"])
    wrong += wrong_in_values(row, message)
    note = NOTES.get(message.get("note"), [])
    shown = [expert for expert in EXPERTS if row[expert]]
    expect("note", len(shown) == bool(note) and all(s in note for s in shown), shown, note)
    expected = [message["note"]] if "note" in message else []
    expect("tarn.note", row["tarn.note"] == expected, row["tarn.note"], expected)
    expect("too short", not row["tarn.expert.too_short"], "an expert note", "none")
    return wrong


def wrong_in_values(row, message):
    wrong = []
    values = message.get("values", [])
    is_real = message["dataTypeNumber"] < 8 or message["dataTypeNumber"] == 13
    typed = f"tarn.value.{message['dataType'].lower()}"
    for field in TYPED:
        expected = values if field == typed else []
        if not same_values(row[field], expected, is_real):
            wrong.append(f"{field}: tshark {row[field]}, tarn {expected}")
    if not same_values(row["tarn.value"], values, is_real):
        wrong.append(f"tarn.value: tshark {row['tarn.value']}, tarn {values}")
    if values and message["dataTypeNumber"] < 8 and not exact_fixed_point(row, message):
        wrong.append(f"tarn.value: {row['tarn.value']} is not exactly {message['payload']}")
    text = f"{message['dataType']} {', '.join(str(value) for value in values)}"
    if values and "named" not in message and text not in row["_ws.col.Info"][0]:
        wrong.append(f"Info: {row['_ws.col.Info']} has no {text}")
    shown, expected = shown_named(row), expected_named(message)
    if shown != expected and not (has_nan(shown) and has_nan(expected)):
        wrong.append(f"tarn.named: tshark {shown}, tarn {expected}")
    numbers = [number for _, number, _ in expected]
    if not has_nan(expected) and [as_number(t) for t in row["tarn.named.value"]] != numbers:
        wrong.append(f"tarn.named.value: tshark {row['tarn.named.value']}, tarn {numbers}")
    return wrong


def wrong_in_other(row):
    """Of a frame that is no message: it has no field of one."""
    return [
        f"{field}: tshark {row[field]}, tarn nothing"
        for field in FIELDS
        if row[field] and field not in MAY_HAVE_WITHOUT_MESSAGE
    ]


def is_too_short(packet):
    """An extended data frame without room for its trailing bytes."""
    identifier = int.from_bytes(packet[:4], "big")
    kind = identifier & 0xF0000000
    needed = 2 if identifier & 1 << 22 else 1
    return len(packet) == 16 and kind == captures.EXTENDED and packet[4] < needed


def compare(capture, packets, *, with_names):
    options = ("-o", f"tarn.names:{NAMES}") if with_names else ()
    rows = tools.columns(capture, FIELDS, *options)
    decoded = tools.decode(capture, *(("--names", str(NAMES)) if with_names else ()))
    messages = {round(message["time"] % 1 * 1e6) + int(message["time"]) % 1600000000 * 1000000: message
                for message in decoded}
    assert len(rows) == len(packets), f"{len(rows)} of {len(packets)} packets"
    assert len(messages) == len(decoded) and len(messages) > len(packets) / 2
    for number, (row, packet) in enumerate(zip(rows, packets)):
        message = messages.get(number)
        wrong = wrong_in_message(row, message) if message else wrong_in_other(row)
        if not message and bool(row["tarn.expert.too_short"]) != is_too_short(packet):
            wrong.append("too short is not told, or told wrongly")
        assert not wrong, f"{capture.name}, packet {number + 1}, {packet.hex()}: " + "; ".join(wrong)
    return len(messages)


def to_known_devices(packet, frames):
    """Half of the DATA frames go between devices that have names."""
    identifier = int.from_bytes(packet[:4], "big")
    if identifier >> 28 == 9:
        macs = [0xABCDE, identifier & 0xFFFFFFF]
        return (identifier >> 28 << 28 | frames.random.choice(macs)).to_bytes(4, "big") + packet[4:]
    if identifier >> 28 != 8 or frames.bits(1):
        return packet
    addresses = [1, 5, 9]
    identifier &= ~0x3FFFFF
    identifier |= frames.random.choice(addresses) | frames.random.choice(addresses) << 7
    identifier |= frames.random.choice([0x10, 0x11]) << 14
    changed = bytearray(identifier.to_bytes(4, "big") + packet[4:])
    if identifier & 1 << 22 and changed[4] > 0:
        changed[7 + changed[4]] = frames.random.choice([0, 3, changed[7 + changed[4]]])
    return bytes(changed)


def main():
    count = int(sys.argv[1])
    frames = captures.RandomFrames(20210104)
    with tempfile.TemporaryDirectory() as folder:
        packets = [to_known_devices(frames.next(), frames) for _ in range(count)]
        half = count // 2
        plain = pathlib.Path(folder) / "plain.pcap"
        captures.write_pcap(plain, captures.LINK_SOCKETCAN, packets[:half])
        cooked = pathlib.Path(folder) / "cooked.pcap"
        captures.write_pcap(cooked, captures.LINK_COOKED, [captures.cooked(p) for p in packets[half:]])
        messages = compare(plain, packets[:half], with_names=True)
        messages += compare(cooked, packets[half:], with_names=False)
    print(f"{messages} messages of {count} frames agree in every field")


main()
