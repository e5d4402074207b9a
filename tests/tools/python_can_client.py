"""python_can_client.py PORT TARN: python-can as a client of tarn serve, in both directions."""

import subprocess
import sys
import time

import can

PATIENCE = 20


def connect(port):
    return can.Bus(interface="socketcand", host="127.0.0.1", port=port, channel="desk")


def receive(bus):
    """The next frame: as this version of python-can reads only part of what has come, it is asked
    again."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        frame = bus.recv(0.1)
        if frame is not None:
            return frame
    raise AssertionError("no frame came")


def expect(frame, identifier, data):
    assert frame.arbitration_id == identifier, frame
    assert bytes(frame.data) == data, frame
    assert abs(frame.timestamp - time.time()) < 3600, frame


def main(port, tarn):
    one, other = connect(port), connect(port)
    for identifier, data in [(0x0F800001, b"\x20\x01\xff"), (0x12345, b""), (0x7FF, bytes(range(8)))]:
        one.send(can.Message(arbitration_id=identifier, is_extended_id=identifier > 0x7FF, data=data))
        expect(receive(other), identifier, data)

    # From a verb to python-can, and back.
    bus = f"socketcand:127.0.0.1:{port}/desk"
    subprocess.run([tarn, "send", "-q", "-b", bus, "--source", "1", "--target", "9", "--register", "17"],
                   check=True, timeout=PATIENCE)
    for client in (one, other):
        identifier = receive(client).arbitration_id
        assert (identifier & 0x7F, identifier >> 7 & 0x7F, identifier >> 14 & 0xFF) == (1, 9, 17)
    with subprocess.Popen([tarn, "dump", "-q", "-b", bus, "-n", "1", "--json"],
                          stdout=subprocess.PIPE, text=True) as dump:
        while dump.poll() is None:  # it may not listen yet
            one.send(can.Message(arbitration_id=0x0F800001, data=b"\x20"))
            time.sleep(0.05)
        assert '"frame":"0F800001#20"' in dump.stdout.read()
    one.shutdown()
    other.shutdown()


if __name__ == "__main__":
    main(int(sys.argv[1]), sys.argv[2])
