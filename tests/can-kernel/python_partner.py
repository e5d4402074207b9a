"""python_partner.py COUNT FRAME...: receives so many frames and prints them, then sends the frames given.

A frame is written as cansend takes it: 0F800001#20, 123#R; 20000040#... is an error frame.
"""
import sys

import can

ERROR = 0x20000000


def parse(text):
    identifier, data = text.split("#")
    number = int(identifier, 16)
    kind = {"is_extended_id": len(identifier) == 8, "is_remote_frame": data == "R", "is_error_frame": False}
    if kind["is_extended_id"] and number & ERROR:
        kind.update(is_extended_id=False, is_error_frame=True)
    return can.Message(arbitration_id=number % ERROR, data=bytes.fromhex(data.strip("R")), **kind)


def show(message):
    number = message.arbitration_id + (ERROR if message.is_error_frame else 0)
    wide = message.is_extended_id or message.is_error_frame
    data = "R" if message.is_remote_frame else message.data.hex().upper()
    return f"{number:0{8 if wide else 3}X}#{data}"


with can.Bus(channel="vcan0", bustype="socketcan") as bus:
    print("ready", flush=True)
    for _ in range(int(sys.argv[1])):
        print(show(bus.recv(timeout=60)), flush=True)
    for frame in sys.argv[2:]:
        bus.send(parse(frame))
