"""python-can sends and receives; what is on one bus is not on the other."""
import can


def frame(identifier, data):
    return can.Message(arbitration_id=identifier, data=data, is_extended_id=True)


def bus(name):
    return can.Bus(channel=name, bustype="socketcan")


with bus("vcan0") as here, bus("vcan0") as there, bus("vcan1") as elsewhere:
    here.send(frame(0x0F800001, [0x20]))
    bus("vcan1").send(frame(0x1FFFFFFF, []))
    seen = there.recv(timeout=60)
    assert (seen.arbitration_id, seen.is_extended_id, bytes(seen.data)) == (0x0F800001, True, b"\x20"), seen
    first_elsewhere = elsewhere.recv(timeout=60)
    assert first_elsewhere.arbitration_id == 0x1FFFFFFF, first_elsewhere
