"""What the paths may cost. Every limit is a multiple of a reference that is measured in the same run."""

from collections import namedtuple

# The time of `path`, at most `limit` times that of `reference`.
TimeLimit = namedtuple("TimeLimit", "text path reference limit")

RECV = "reference/recv"
LOCK = "reference/lock_unlock"

SINGLE_FIELDS = (
    "Type Priority Addressing AccessType Direction AddressingMode Register TargetAddr SourceAddr "
    "Module RStatus WStatus DataType FullHeader ChcpMacID"
).split()

TIME_LIMITS = [
    TimeLimit("frame to one handler that reads nothing", "route/one_handler", RECV, 0.30),
    TimeLimit("frame to one handler that reads four fields", "route/four_fields", RECV, 0.45),
    TimeLimit("the same, beside what the contract demands", "route/four_fields", "bare/four_fields", 1.2),
    TimeLimit("126 other addresses subscribed", "route/among_126_addresses", "route/four_fields", 1.03),
    TimeLimit("100 handlers on the address", "route/100_handlers", "bare/100_calls", 1.15),
    TimeLimit("no handler for the address", "route/no_handler", "route/four_fields", 0.8),
    TimeLimit("a float to the lower layer's frame", "send/float", RECV, 0.16),
    TimeLimit("three U16 to the lower layer's frame", "send/three_u16", RECV, 0.16),
    TimeLimit("ToStringShort", "text/short", "reference/ostringstream_short", 1 / 6),
    TimeLimit("ToString", "text/long", "reference/ostringstream_long", 1 / 6),
    TimeLimit("request, inline bus, one core", "request/inline", "reference/ping_pong_one_core", 1.2),
    TimeLimit("request, threaded bus, one core", "request/threaded_one_core", "reference/ping_pong_one_core", 2.2),
    TimeLimit("request, threaded bus, two cores", "request/threaded_two_cores", "reference/ping_pong_two_cores", 1.15),
]
TIME_LIMITS += [TimeLimit(f"Get{name}", f"get/{name}", LOCK, 1.15) for name in SINGLE_FIELDS]
TIME_LIMITS += [
    TimeLimit(f"Set{name}", f"set/{name}", LOCK, 1.15) for name in SINGLE_FIELDS if name != "Module"
]
# These take two locks each by their contract, the setters one inside the other.
TIME_LIMITS += [
    TimeLimit(f"{way.capitalize()}{name}, two locks", f"{way}2/{name}", LOCK, 2 * 1.15)
    for name in ["Module", "ChcpID", "ChcpCommand", "ChcpDeviceCode"]
    for way in ["get", "set"]
    if (way, name) != ("get", "Module")
]

# Frames a second through one consumer of a threaded virtual bus, at least.
BUS_FRAMES_PER_SECOND = 1_000_000

# The time of `tarn decode`, as a multiple of that of log2asc on the same log; and its memory, of that on a tenth of it.
DECODE_LIMITS = {"text": 1.0, "json": 1.5}
DECODE_MEMORY = 1.05

# Shown for orientation.
SHOWN = [
    "reference/allocate_8", "reference/make_mutex", "reference/recvmmsg_32", "reference/snprintf_short", "bare/one_handler",
    "reference/ping_pong_one_core_ordinary", "bare/request_one_core_ordinary", "request/threaded_one_core_ordinary",
]

# The instructions of `path`, at most `limit` times those of `reference`, counted by callgrind: exact for one compiler,
# so that a limit can stand a little above what is counted today. An instruction is not a nanosecond (a lock is
# two atomic ones and 90 in all), so these limits only keep what the times have gained.
InstructionLimit = namedtuple("InstructionLimit", "text path reference limit")

INSTRUCTION_LIMITS = [
    InstructionLimit("frame to one handler that reads nothing", "route/one_handler", "bare/one_handler", 1.31),
    InstructionLimit("frame to one handler that reads four fields", "route/four_fields", "bare/four_fields", 1.19),
    InstructionLimit("126 other addresses subscribed", "route/among_126_addresses", "route/four_fields", 1.01),
    InstructionLimit("100 handlers on the address", "route/100_handlers", "bare/100_calls", 1.09),
    InstructionLimit("no handler for the address", "route/no_handler", "route/four_fields", 0.69),
    InstructionLimit("a CHCP frame to one handler", "route/chcp", "bare/one_handler", 0.95),
    InstructionLimit("a float to the lower layer's frame", "send/float", LOCK, 6.8),
    InstructionLimit("three U16 to the lower layer's frame", "send/three_u16", LOCK, 6.0),
    InstructionLimit("ToStringShort", "text/short", "reference/ostringstream_short", 1 / 6),
    InstructionLimit("ToString", "text/long", "reference/ostringstream_long", 1 / 6),
]
INSTRUCTION_LIMITS += [
    InstructionLimit(f"Get{name}", f"get/{name}", LOCK, 1.21) for name in SINGLE_FIELDS
]
INSTRUCTION_LIMITS += [
    # Only the type has something to ask: whether the payload becomes that of a CHCP message.
    InstructionLimit(f"Set{name}", f"set/{name}", LOCK, 1.48 if name == "Type" else 1.34)
    for name in SINGLE_FIELDS
    if name != "Module"
]

# Against the library compiled without its log statements, all of them off.
UNTRACED_LIMITS = [
    InstructionLimit("frame, log statements off or left out", "route/four_fields", "route/four_fields", 1.02),
    InstructionLimit("100 handlers, log statements off or left out", "route/100_handlers", "route/100_handlers", 1.02),
]
