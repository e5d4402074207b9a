-- Wireshark dissector of Tarn over CAN. docs/wireshark.md says how to install and use it.

local tarn = Proto("tarn", "Tarn")

-- Words.

local TYPES = {[0] = "DATA", "CHCP"}
local PRIORITIES = {[0] = "SYNC", "EMRGENCY", "CONTROL", "DATA"}
local ADDRESSINGS = {[0] = "GROUP", "DEVICE"}
local ACCESS_TYPES = {[0] = "WRITE", "READ"}
local DIRECTIONS = {[0] = "RESPONSE", "REQUEST"}
local ADDRESSING_MODES = {[0] = "STANDARD", "EXTENDED"}
local STATUSES = {
    [0] = "UNKNOWN", "OFFLINE", "POWERUP", "STANDBY", "STARTUP", "OPERATING",
    "OPERATING WITH WARNING", "OPERATING WITH FAILURE", "STOPPED BY HW-FAILURE",
    "STOPPED BY EXTERNAL", "STOPPED BY INTERNAL", "RESOURCE NOT EXISTING",
    "RESOURCE EXCLUSIVE RESERVED", "RESOURCE OVERLOADED", "FRAME-FAILURE", "ACCESS NOT GRANTED",
}
local DATA_TYPES = {
    [0] = "S16F0", "S16F1", "S16F2", "S16F3", "S16F4", "S16F5", "S16F6", "S16F7",
    "U8", "U16", "U24", "U32", "U48", "FLOAT", "INVALID", "NOT A TYPE",
}
local CHCP_COMMANDS = {[0] = "0", "1", "2", "3", "4", "5", "no valid one"}

local PRIORITY_DATA, ACCESS_READ, DIRECTION_REQUEST = 3, 1, 1
local ADDRESSING_GROUP, ADDRESSING_DEVICE, MODE_EXTENDED = 0, 1, 1
local STATUS_OPERATING_WITH_WARNING = 6
local DATATYPE_S16F7, DATATYPE_U48, DATATYPE_FLOAT = 7, 12, 13
local CHCP_LENGTH, CHCP_COMMAND_NONE = 7, 6
local MAX_DATA_SIZE = 8

-- Fields.

-- A field of the identifier, whose bits are shown in all 32 of its word.
local function identifier_field(name, title, words, mask, description)
    return ProtoField.uint32("tarn." .. name, title, base.DEC, words, mask, description)
end

local fields = {
    type = identifier_field("type", "Type", TYPES, 0x10000000),
    priority = identifier_field("priority", "Priority", PRIORITIES, 0x0C000000),
    addressing = identifier_field("addressing", "Addressing", ADDRESSINGS, 0x02000000),
    access = identifier_field("access", "Access type", ACCESS_TYPES, 0x01000000),
    direction = identifier_field("direction", "Direction", DIRECTIONS, 0x00800000),
    mode = identifier_field("mode", "Addressing mode", ADDRESSING_MODES, 0x00400000),
    register = identifier_field("register", "Register", nil, 0x003FC000),
    target = identifier_field("target", "Target", nil, 0x00003F80, "Address of a device or group"),
    source = identifier_field("source", "Source", nil, 0x0000007F),
    mac = ProtoField.uint32("tarn.mac", "MAC", base.HEX, nil, 0x0FFFFFFF),
    addr = ProtoField.uint32("tarn.addr", "Source or target", base.DEC),
    conversation = ProtoField.string("tarn.conversation", "Conversation",
        nil, "Who talks with whom, the smaller address first: 1-5, or group 1-2"),

    payload = ProtoField.bytes("tarn.payload", "Payload", base.SPACE),
    status = ProtoField.uint8("tarn.status", "Status", base.DEC, STATUSES, 0xF0),
    datatype = ProtoField.uint8("tarn.datatype", "Data type", base.DEC, DATA_TYPES, 0x0F),
    module = ProtoField.uint8("tarn.module", "Module", base.DEC),

    device_code = ProtoField.uint32("tarn.device_code", "Device code", base.HEX),
    chcp_id = ProtoField.uint8("tarn.chcp_id", "CHCP identifier", base.DEC, nil, 0x7F),
    chcp_command = ProtoField.uint8("tarn.chcp_command", "CHCP command", base.DEC, CHCP_COMMANDS),

    value = ProtoField.double("tarn.value", "Value", nil, "A value of any data type"),
    step = ProtoField.int16("tarn.value.s16", "Step", base.DEC, nil, nil,
        "A fixed-point value as it is sent: a number of steps"),
    u8 = ProtoField.uint8("tarn.value.u8", "Value", base.DEC),
    u16 = ProtoField.uint16("tarn.value.u16", "Value", base.DEC),
    u24 = ProtoField.uint24("tarn.value.u24", "Value", base.DEC),
    u32 = ProtoField.uint32("tarn.value.u32", "Value", base.DEC),
    u48 = ProtoField.uint64("tarn.value.u48", "Value", base.DEC),
    float = ProtoField.double("tarn.value.float", "Value"),

    response_in = ProtoField.framenum("tarn.response_in", "Response in", base.NONE,
        frametype.RESPONSE),
    response_to = ProtoField.framenum("tarn.response_to", "Response to", base.NONE,
        frametype.REQUEST),
    time = ProtoField.relative_time("tarn.time", "Response time"),

    note = ProtoField.string("tarn.note", "Note", nil, "What is odd about the frame"),

    source_name = ProtoField.string("tarn.source_name", "Source name"),
    target_name = ProtoField.string("tarn.target_name", "Target name"),
    module_name = ProtoField.string("tarn.module_name", "Module name"),
    register_name = ProtoField.string("tarn.register_name", "Register name"),
    mac_name = ProtoField.string("tarn.mac_name", "Device name"),
    named = ProtoField.string("tarn.named", "Named value"),
    named_value = ProtoField.double("tarn.named.value", "Number"),
    named_unit = ProtoField.string("tarn.named.unit", "Unit"),
}
for format = 0, DATATYPE_S16F7 do
    fields["s16f" .. format] = ProtoField.double("tarn.value.s16f" .. format, "Value")
end

tarn.fields = (function()
    local list = {}
    for _, field in pairs(fields) do
        list[#list + 1] = field
    end
    return list
end)()

local experts = {
    too_short = ProtoExpert.new("tarn.expert.too_short",
        "Too few data bytes for a Tarn message", expert.group.MALFORMED, expert.severity.ERROR),
    cut = ProtoExpert.new("tarn.expert.cut",
        "The capture holds only a part of the data bytes", expert.group.UNDECODED,
        expert.severity.WARN),
    chcp_length = ProtoExpert.new("tarn.expert.chcp_length",
        "CHCP frame without its 7 bytes: reads as an empty DATA message", expert.group.MALFORMED,
        expert.severity.WARN),
    chcp_command = ProtoExpert.new("tarn.expert.chcp_command",
        "No valid CHCP command", expert.group.UNDECODED, expert.severity.WARN),
    unknown_type = ProtoExpert.new("tarn.expert.unknown_type",
        "Payload of a data type without values", expert.group.UNDECODED, expert.severity.WARN),
    payload_size = ProtoExpert.new("tarn.expert.payload_size",
        "Payload does not fit its data type", expert.group.MALFORMED, expert.severity.WARN),
    failure = ProtoExpert.new("tarn.expert.failure",
        "The device tells of a failure or refuses", expert.group.RESPONSE_CODE,
        expert.severity.NOTE),
    no_response = ProtoExpert.new("tarn.expert.no_response",
        "No response in this capture", expert.group.SEQUENCE, expert.severity.NOTE),
}
tarn.experts = (function()
    local list = {}
    for _, note in pairs(experts) do
        list[#list + 1] = note
    end
    return list
end)()

tarn.prefs.every_frame = Pref.bool("Treat every extended frame as Tarn", true,
    "Takes every 29-bit data frame that no other protocol claims. Off: only where Decode As says so")
tarn.prefs.names = Pref.string("Names file", "",
    "Installation file of the tarn command: names of devices and registers, units and scales")
tarn.prefs.window = Pref.uint("Longest response time in ms", 5000,
    "A response that comes later is not linked to its request")

-- What the dissector of the CAN frame has found.
local can_id = Field.new("can.id")
local can_extended = Field.new("can.flags.xtd")
local can_remote = Field.new("can.flags.rtr")
local can_error = Field.new("can.flags.err")
local can_flexible = Field.new("canfd.flags.brs")
local frame_time = Field.new("frame.time_epoch")
local frame_interface = Field.new("frame.interface_id")
local cooked_interface = Field.new("sll.ifindex") -- of a capture of all interfaces

-- What the statistics count.
local counted = {}
for _, name in ipairs({"mac", "source", "target", "addressing", "direction", "status", "time", "note"}) do
    counted[name] = Field.new("tarn." .. name)
end

-- Numbers as text.

-- A locale may have given the number a comma.
local function number_text(format, number)
    return (string.format(format, number):gsub(",", "."))
end

local function to_number(text)
    return tonumber(text) or tonumber((text:gsub("%.", ",")))
end

local function to_single(number)
    return (Struct.unpack("<f", Struct.pack("<f", number)))
end

local SMALLEST_NORMAL = 2 ^ -126
local SINGLE_DIGITS, MOST_SINGLE_DIGITS = 6, 9

-- The number with so many digits, like "1.50e+00", if that still means this single. Next to a power
-- of two it may be the text above the nearest one that does.
local function single_with(digits, number)
    local format = "%." .. digits - 1 .. "e"
    local text = number_text(format, number)
    if to_single(to_number(text)) == number then
        return text
    end
    local unit = 10 ^ (tonumber(text:match("e(.*)$")) - digits + 1)
    text = number_text(format, number < 0 and number - unit or number + unit)
    return to_single(to_number(text)) == number and text
end

-- Fewest digits that mean this single, and the power of ten of the first: "1.5", "+00".
local function single_digits(number)
    local least = math.abs(number) < SMALLEST_NORMAL and 1 or SINGLE_DIGITS
    for digits = least, MOST_SINGLE_DIGITS do
        local text = single_with(digits, number)
        if text then
            local mantissa, exponent = text:match("^(.-)e(.+)$")
            return mantissa:find("%.") and mantissa:gsub("%.?0*$", "") or mantissa, exponent
        end
    end
end

-- The shortest text that means this single, as the command prints it.
local function single_text(number)
    if number ~= number then
        return "nan"
    elseif number == math.huge or number == -math.huge then
        return number > 0 and "inf" or "-inf"
    end
    local mantissa, exponent = single_digits(number)
    local scientific = mantissa .. "e" .. exponent
    local _, digits = mantissa:gsub("%d", "")
    local decimals = math.max(0, digits - 1 - tonumber(exponent))
    local fixed = number_text("%." .. string.format("%.0f", decimals) .. "f", number)
    return #fixed <= #scientific and fixed or scientific
end

-- Reading JSON.

local json = {MAX_BYTES = 16 * 1024 * 1024, MAX_VALUES = 1000000, MAX_LEVELS = 16}

local UTF8_SEQUENCES = {
    "[\194-\223][\128-\191]", "\224[\160-\191][\128-\191]",
    "[\225-\236\238\239][\128-\191][\128-\191]", "\237[\128-\159][\128-\191]",
    "\240[\144-\191][\128-\191][\128-\191]", "[\241-\243][\128-\191][\128-\191][\128-\191]",
    "\244[\128-\143][\128-\191][\128-\191]",
}

local function is_utf8(text)
    if not text:find("[\128-\255]") then
        return true
    end
    for _, sequence in ipairs(UTF8_SEQUENCES) do
        text = text:gsub(sequence, "?")
    end
    return not text:find("[\128-\255]")
end

local function utf8_bytes(code)
    local function continuation(divisor)
        return string.char(128 + math.floor(code / divisor) % 64)
    end
    if code < 0x80 then
        return string.char(code)
    elseif code < 0x800 then
        return string.char(192 + math.floor(code / 64)) .. continuation(1)
    elseif code < 0x10000 then
        return string.char(224 + math.floor(code / 4096)) .. continuation(64) .. continuation(1)
    end
    return string.char(240 + math.floor(code / 262144)) .. continuation(4096) ..
        continuation(64) .. continuation(1)
end

-- A refusal is thrown as a table, to tell it from a mistake in this file.
local function refuse(text)
    error({refusal = text}, 0)
end

local ESCAPES = {
    ['"'] = '"', ["\\"] = "\\", ["/"] = "/", b = "\b", f = "\f", n = "\n", r = "\r", t = "\t",
}

local Reader = {}
Reader.__index = Reader

function Reader:refuse(text)
    local _, line_ends = self.text:sub(1, self.at - 1):gsub("\n", "")
    refuse("line " .. (line_ends + 1) .. ": " .. text)
end

function Reader:skip_blanks()
    self.at = self.text:find("[^ \t\r\n]", self.at) or #self.text + 1
    return self.text:sub(self.at, self.at)
end

-- Takes what the pattern, which begins with ^, finds here; nil for nothing.
function Reader:take(pattern)
    local first, last = self.text:find(pattern, self.at)
    if not first then
        return nil
    end
    self.at = last + 1
    return self.text:sub(first, last)
end

function Reader:code_unit()
    local digits = self:take("^u%x%x%x%x")
    return digits and tonumber(digits:sub(2), 16)
end

-- Behind a backslash and in front of u.
function Reader:code_point()
    local code = self:code_unit()
    if code and code >= 0xD800 and code < 0xDC00 and self:take("^\\") then
        local low = self:code_unit()
        if low and low >= 0xDC00 and low < 0xE000 then
            return 0x10000 + (code - 0xD800) * 0x400 + (low - 0xDC00)
        end
        code = nil
    end
    if not code or (code >= 0xD800 and code < 0xE000) then
        self:refuse("no character: correct it behind \\u")
    end
    return code
end

function Reader:escape()
    if self.text:sub(self.at, self.at) == "u" then
        return utf8_bytes(self:code_point())
    end
    local character = ESCAPES[self:take("^.") or ""]
    return character or self:refuse("no such escape; correct it")
end

function Reader:string()
    local parts = {}
    self.at = self.at + 1
    while true do
        parts[#parts + 1] = self:take('^[^"\\\0-\31]+')
        if self:take('^"') then
            return table.concat(parts)
        elseif not self:take("^\\") then
            self:refuse("a text does not end, or has a control character; correct it")
        end
        parts[#parts + 1] = self:escape()
    end
end

-- Numbers stay as they are written, because a text may stand for one, too.
function Reader:number()
    local start = self.at
    self:take("^-")
    local whole = self:take("^%d+")
    if not whole or (#whole > 1 and whole:sub(1, 1) == "0") then
        self:refuse("no JSON; correct it")
    end
    if self:take("^%.") and not self:take("^%d+") then
        self:refuse("no number; correct it")
    end
    if self:take("^[eE]") and not (self:take("^[+-]?%d+")) then
        self:refuse("no number; correct it")
    end
    return {number = self.text:sub(start, self.at - 1)}
end

function Reader:word()
    local word = self:take("^%a+")
    if word == "true" or word == "false" then
        return word == "true"
    elseif word ~= "null" then
        self:refuse("no JSON; correct it")
    end
    return {null = true}
end

-- Items up to the closing bracket; each is read by the function.
function Reader:items(closing, read)
    self.at = self.at + 1
    if self:skip_blanks() == closing then
        self.at = self.at + 1
        return
    end
    while true do
        read()
        local separator = self:skip_blanks()
        self.at = self.at + 1
        if separator == closing then
            return
        elseif separator ~= "," then
            self:refuse("a comma or " .. closing .. " is missing; add it")
        end
    end
end

function Reader:list(level)
    local list = {}
    self:items("]", function()
        list[#list + 1] = self:value(level)
    end)
    return {list = list}
end

function Reader:object(level)
    local members = {}
    self:items("}", function()
        if self:skip_blanks() ~= '"' then
            self:refuse("the name of a member is missing; add it")
        end
        local name = self:string()
        if members[name] ~= nil then
            self:refuse('"' .. name .. '" stands there twice; remove one')
        elseif self:skip_blanks() ~= ":" then
            self:refuse("a colon is missing; add it")
        end
        self.at = self.at + 1
        members[name] = self:value(level)
    end)
    return {members = members}
end

function Reader:value(level)
    self.count = self.count + 1
    if self.count > json.MAX_VALUES then
        self:refuse("more than a million values; divide the file")
    end
    local first = self:skip_blanks()
    if first == '"' then
        return self:string()
    elseif first:find("%a") then
        return self:word()
    elseif first ~= "{" and first ~= "[" then
        return self:number()
    elseif level == json.MAX_LEVELS then
        self:refuse("lists and objects lie more than 16 deep; correct it")
    end
    return first == "{" and self:object(level + 1) or self:list(level + 1)
end

-- Texts and truths as they are; {number = text}, {list = items}, {members = by name}, {null = true}.
function json.read(text)
    if #text > json.MAX_BYTES then
        refuse("more than 16 MB; divide it")
    elseif not is_utf8(text) then
        refuse("is no UTF-8; convert it")
    end
    local reader = setmetatable({text = text, at = 1, count = 0}, Reader)
    local root = reader:value(0)
    if reader:skip_blanks() ~= "" then
        reader:refuse("something stands behind the end; remove it")
    end
    return root
end

-- Names.

local MAX_NAME_BYTES = 64
local LAST_ADDRESS, MAX_BYTE, MAX_MAC = 126, 255, 0x0FFFFFFF
local HIGHEST, MOST_VALUES = 1e300, 6
local DATA_TYPE_OF = {}
for number = 0, DATATYPE_FLOAT do
    DATA_TYPE_OF[DATA_TYPES[number]] = number
end

local function members_of(node, what)
    return type(node) == "table" and node.members or refuse(what .. " is no object; write one")
end

local function items_of(node, what)
    return type(node) == "table" and node.list or refuse(what .. " is no list; write one")
end

local function text_of(node, what)
    if type(node) ~= "string" or #node > MAX_NAME_BYTES or node:find("%c") then
        refuse(what .. " is no text of 64 bytes at most, without control characters; correct it")
    end
    return node
end

local function name_of(node, what)
    local name = text_of(node, what)
    return name ~= "" and name or refuse(what .. " is empty; write a name")
end

-- Digits, or 0x and hexadecimal digits, in quotation marks or not.
local function whole_of(node, most, what)
    local text = type(node) == "table" and node.number or node
    local digits = type(text) == "string" and
        (text:match("^%d+$") or text:match("^0[xX]%x+$"))
    local number = digits and #digits <= 20 and tonumber(digits)
    if not number or number > most then
        refuse(what .. " is no whole number from 0 to " .. most .. "; correct it")
    end
    return number
end

local function real_of(node, what)
    local number = type(node) == "table" and node.number and to_number(node.number)
    if type(node) == "string" then
        number = whole_of(node, 2 ^ 53, what)
    end
    if not number or not (math.abs(number) <= HIGHEST) then
        refuse(what .. " is no number, or too large; correct it")
    end
    return number
end

local function read_values(node, register, what)
    if node == nil then
        return {{name = register, unit = "", scale = 1, offset = 0}}
    end
    local values = {}
    for _, item in ipairs(items_of(node, what)) do
        local members = members_of(item, what)
        values[#values + 1] = {
            name = name_of(members.name, what .. ".name"),
            unit = members.unit and text_of(members.unit, what .. ".unit") or "",
            scale = members.scale and real_of(members.scale, what .. ".scale") or 1,
            offset = members.offset and real_of(members.offset, what .. ".offset") or 0,
        }
    end
    if #values == 0 or #values > MOST_VALUES then
        refuse(what .. " has not 1 to 6 values; correct it")
    end
    return values
end

local function place_of(module, register)
    return module * 256 + register
end

local function read_registers(node, what)
    local registers = {}
    for _, item in ipairs(node and items_of(node, what) or {}) do
        local members = members_of(item, what)
        local name = name_of(members.name, what .. ".name")
        local module = members.module and whole_of(members.module, MAX_BYTE, what .. ".module") or 0
        local place = place_of(module, whole_of(members.register, MAX_BYTE, what .. ".register"))
        if registers[place] then
            refuse(what .. ' "' .. name .. '" stands in the place of another; correct one of them')
        end
        registers[place] = {
            name = name,
            data_type = DATA_TYPE_OF[type(members.type) == "string" and members.type:upper() or ""]
                or refuse(what .. ' "' .. name .. '" has no known type; correct it'),
            values = read_values(members.values, name, what .. ".values"),
        }
    end
    return registers
end

local function read_numbered_names(node, most, what)
    local names = {}
    for number, name in pairs(node and members_of(node, what) or {}) do
        names[whole_of(number, most, what)] = name_of(name, what)
    end
    return names
end

local function read_groups(node)
    local groups = {}
    for _, item in ipairs(node and items_of(node, "groups") or {}) do
        groups[whole_of(item, LAST_ADDRESS, "groups")] = true
    end
    return groups
end

local function read_device(node)
    local members = members_of(node, "devices")
    local name = name_of(members.name, "devices.name")
    return {
        name = name,
        address = whole_of(members.address, LAST_ADDRESS, name .. ".address"),
        mac = members.mac and whole_of(members.mac, MAX_MAC, name .. ".mac"),
        groups = read_groups(members.groups),
        modules = read_numbered_names(members.modules, MAX_BYTE, name .. ".modules"),
        registers = read_registers(members.registers, name .. ".registers"),
    }
end

local function read_installation(text)
    local root = members_of(json.read(text), "the file")
    local names = {
        devices = {}, -- in the order of their addresses
        by_address = {},
        by_mac = {},
        groups = read_numbered_names(root.groups, LAST_ADDRESS, "groups"),
    }
    for _, item in ipairs(items_of(root.devices, "devices")) do
        local device = read_device(item)
        if names.by_address[device.address] then
            refuse(device.name .. " has the address of another device; correct one of them")
        end
        names.by_address[device.address] = device
        names.devices[#names.devices + 1] = device
    end
    table.sort(names.devices, function(one, other)
        return one.address < other.address
    end)
    for _, device in ipairs(names.devices) do
        if device.mac and not names.by_mac[device.mac] then
            names.by_mac[device.mac] = device
        end
    end
    return names
end

local NO_NAMES = {devices = {}, by_address = {}, by_mac = {}, groups = {}}
local names = NO_NAMES
local names_path, names_text, names_report = "", nil, nil

local function read_file(path)
    local file, reason = io.open(path, "rb")
    if not file then
        refuse("cannot be read: " .. tostring(reason) .. "; check name and rights")
    end
    local text = file:read(json.MAX_BYTES + 1)
    file:close()
    return text or refuse("is empty or cannot be read; check it")
end

local function renew_names()
    local text = read_file(names_path)
    if text ~= names_text then
        names = NO_NAMES
        names_text = text
        names = read_installation(text)
    end
end

-- Once, however often the capture is read anew.
local function report_names(failure)
    local text = "Tarn names file " .. names_path .. ": " .. failure
    if text ~= names_report then
        names_report = text
        report_failure(text)
    end
end

-- Reads the names file when it is another one, or has changed.
local function load_names()
    if tarn.prefs.names ~= names_path then
        names_path, names_text, names = tarn.prefs.names, nil, NO_NAMES
    end
    if names_path == "" then
        return
    end
    local done, failure = pcall(renew_names)
    if not done then
        report_names(type(failure) == "table" and failure.refusal or tostring(failure))
    end
end

-- Messages.

local function bits(word, low, width)
    return math.floor(math.floor(word / 2 ^ low) % 2 ^ width)
end

local function read_header(word, message)
    message.source = bits(word, 0, 7)
    message.target = bits(word, 7, 7)
    message.register = bits(word, 14, 8)
    message.mode = bits(word, 22, 1)
    message.direction = bits(word, 23, 1)
    message.access = bits(word, 24, 1)
    message.addressing = bits(word, 25, 1)
    message.priority = bits(word, 26, 2)
end

local function fixed_point(format)
    local step = 4 ^ format / 8192
    return {
        size = 2, most = 3, field = "s16f" .. format,
        read = function(range)
            return range:le_int() * step
        end,
    }
end

local function whole(size, most, field)
    return {
        size = size, most = most, field = field,
        read = function(range)
            return range:le_uint()
        end,
    }
end

-- How values are read, by data type.
local CODECS = {
    [8] = whole(1, 6, "u8"), [9] = whole(2, 3, "u16"), [10] = whole(3, 2, "u24"),
    [11] = whole(4, 1, "u32"),
    [DATATYPE_U48] = {
        size = 6, most = 1, field = "u48",
        read = function(range)
            return range:le_uint64():tonumber()
        end,
    },
    [DATATYPE_FLOAT] = {
        size = 4, most = 1, field = "float",
        read = function(range)
            return range:le_float()
        end,
    },
}
for format = 0, DATATYPE_S16F7 do
    CODECS[format] = fixed_point(format)
end

local function is_real(data_type)
    return data_type <= DATATYPE_S16F7 or data_type == DATATYPE_FLOAT
end

local function value_text(data_type, number)
    return is_real(data_type) and single_text(number) or string.format("%.0f", number)
end

-- Fills in values, or what keeps them from being read.
local function read_values_of(tvb, message)
    message.values = {}
    local size, codec = message.payload_size, CODECS[message.data_type]
    if size == 0 then
        return
    elseif not codec then
        message.oddity = "unknown_type"
    elseif size % codec.size ~= 0 or size / codec.size > codec.most then
        message.oddity = "payload_size"
    else
        for at = 0, size - 1, codec.size do
            local range = tvb(at, codec.size)
            message.values[#message.values + 1] = {range = range, number = codec.read(range)}
        end
    end
end

local function read_status(tvb, at, message)
    message.status_at = at
    message.status = bits(tvb(at, 1):uint(), 4, 4)
    message.data_type = bits(tvb(at, 1):uint(), 0, 4)
    message.payload_size = at
end

local function read_data(word, tvb, size)
    local trailing = bits(word, 22, 1) == MODE_EXTENDED and 2 or 1
    if size < trailing then
        return {kind = "short", oddity = "too_short"}
    end
    local message = {kind = "data", module = 0}
    read_header(word, message)
    read_status(tvb, size - trailing, message)
    if trailing == 2 then
        message.module_at = size - 1
        message.module = tvb(size - 1, 1):uint()
    end
    read_values_of(tvb, message)
    return message
end

local function read_chcp(word, tvb, size)
    if size ~= CHCP_LENGTH then
        local message = {kind = "empty", module = 0, status = 0, data_type = 0, payload_size = 0}
        read_header(0, message)
        message.values = {}
        message.oddity = "chcp_length"
        return message
    end
    local message = {kind = "chcp", mac = bits(word, 0, 28)}
    read_status(tvb, size - 1, message)
    message.device_code = tvb(0, 4):le_uint()
    message.chcp_id = tvb(4, 1):uint() % 128
    message.chcp_command = math.min(tvb(5, 1):uint(), CHCP_COMMAND_NONE)
    return message
end

-- What the library reads in a frame.
local function read_message(word, tvb)
    local size = tvb:reported_len()
    if tvb:len() < size then
        return {kind = "cut", oddity = "cut"}
    end
    if bits(word, 28, 1) == 1 then
        return read_chcp(word, tvb, size)
    end
    return read_data(word, tvb, size)
end

-- Names of a message.

local function name_in(device)
    return device and device.name
end

-- The device whose register the message is about.
local function owner_of(message, place)
    if message.direction ~= DIRECTION_REQUEST then
        return names.by_address[message.source]
    elseif message.addressing == ADDRESSING_DEVICE then
        return names.by_address[message.target]
    end
    for _, device in ipairs(names.devices) do
        if device.groups[message.target] and device.registers[place] then
            return device
        end
    end
end

local function is_one_type(one, other)
    return one == other or (one <= DATATYPE_S16F7 and other <= DATATYPE_S16F7)
end

local function shown_number(value, data_type, number)
    if not is_real(data_type) then
        return number_text("%.15g", number * value.scale + value.offset)
    elseif value.scale ~= 1 or value.offset ~= 0 then
        local shown = number * value.scale + value.offset
        return shown == shown and number_text("%.7g", shown) or "nan"
    end
    return single_text(number)
end

-- The values in their units.
local function name_values(entry, message)
    if not is_one_type(entry.data_type, message.data_type) or #entry.values ~= #message.values then
        return nil
    end
    local named = {}
    for at, value in ipairs(entry.values) do
        local number = message.values[at].number
        named[at] = {
            name = value.name, unit = value.unit, range = message.values[at].range,
            text = shown_number(value, message.data_type, number),
        }
    end
    return named
end

local function find_names(message)
    if message.kind == "chcp" then
        message.mac_name = name_in(names.by_mac[message.mac])
        return
    end
    message.source_name = name_in(names.by_address[message.source])
    if message.addressing == ADDRESSING_DEVICE then
        message.target_name = name_in(names.by_address[message.target])
    else
        message.target_name = names.groups[message.target]
    end
    local place = place_of(message.module, message.register)
    local owner = owner_of(message, place)
    if not owner then
        return
    end
    message.module_name = owner.modules[message.module]
    local entry = owner.registers[place]
    if entry then
        message.register_name = entry.name
        message.named = name_values(entry, message)
    end
end

-- Requests and their responses.

local MOST_RESPONSES = 32 -- shown of a request to a group

local links -- renewed with every capture

local function forget_links()
    links = {
        waiting = {},   -- the latest request without response, by what its response has to be
        responses = {}, -- frames of the responses, by the frame of the request
        requests = {},  -- frame of the request and time, by the frame of the response
        last = 0,       -- the last frame that was looked at
    }
end
forget_links()

local function link_key(message, requester, responder)
    local interface = cooked_interface() or frame_interface()
    return table.concat({
        interface and tostring(interface.value) or "", requester, responder, message.register,
        message.access, message.addressing, message.mode, message.module,
    }, " ")
end

-- Nanoseconds between two times, or nil where the capture has none.
local function nanoseconds_between(one, other)
    if not one or not other then
        return nil
    end
    return (other.secs - one.secs) * 1e9 + (other.nsecs - one.nsecs)
end

local function link_response(message, frame, time)
    local key = link_key(message, message.target, message.source)
    local request = links.waiting[key]
    local delay = request and nanoseconds_between(request.time, time)
    if not delay or delay < 0 or delay > tarn.prefs.window * 1e6 then
        return
    end
    links.requests[frame] = {frame = request.frame, delay = delay}
    local responses = links.responses[request.frame] or {}
    links.responses[request.frame] = responses
    if #responses < MOST_RESPONSES then
        responses[#responses + 1] = frame
    end
    if message.addressing == ADDRESSING_DEVICE then
        links.waiting[key] = nil -- of a group, others answer too
    end
end

-- Once a frame, when the frames come in their order for the first time. A program that goes through
-- a capture twice may leave out the tree, and so this dissector, on its first way.
local function link_once(message, pinfo)
    message.is_known = pinfo.number <= links.last
    if message.is_known then
        return
    end
    links.last = pinfo.number
    local now = frame_time()
    local time = now and now.value
    if message.direction == DIRECTION_REQUEST then
        local key = link_key(message, message.source, message.target)
        links.waiting[key] = {frame = pinfo.number, time = time}
    else
        link_response(message, pinfo.number, time)
    end
end

local function link(message, pinfo)
    link_once(message, pinfo)
    message.request = links.requests[pinfo.number]
    -- What answers for a group has the group for its source, and is addressed as the group was.
    message.is_group_answer = message.request ~= nil and message.addressing == ADDRESSING_GROUP
end

-- Sentences.

local function group_text(group)
    return names.groups[group] or "group " .. group
end

local function device_text(address)
    return name_in(names.by_address[address]) or tostring(address)
end

local function source_text(message)
    return (message.is_group_answer and group_text or device_text)(message.source)
end

-- A module is one of the device whose register this is: the target of a request alone.
local function target_text(message)
    local is_group = message.addressing == ADDRESSING_GROUP and not message.is_group_answer
    local text = (is_group and group_text or device_text)(message.target)
    if message.mode == MODE_EXTENDED and message.direction == DIRECTION_REQUEST then
        text = text .. "." .. (message.module_name or message.module)
    end
    return text
end

local function responder_text(message)
    local text = source_text(message)
    if message.mode == MODE_EXTENDED then
        text = text .. "." .. (message.module_name or message.module)
    end
    return text
end

local function register_text(message)
    local number = "register " .. message.register
    return message.register_name and message.register_name .. " (" .. number .. ")" or number
end

local function payload_text(tvb, message)
    return "[" .. tostring(tvb(0, message.payload_size):bytes()) .. "]"
end

local function with_unit(value)
    return value.unit == "" and value.text or value.text .. " " .. value.unit
end

local function named_value_text(value)
    return value.name .. "=" .. with_unit(value)
end

local function named_text(message)
    if #message.named == 1 then
        return with_unit(message.named[1])
    end
    local parts = {}
    for at, value in ipairs(message.named) do
        parts[at] = named_value_text(value)
    end
    return table.concat(parts, ", ")
end

-- "U16 1205, 7", in their units where they have names; nil where there is no payload.
local function values_text(tvb, message)
    if message.payload_size == 0 then
        return nil
    elseif message.named then
        return named_text(message)
    elseif #message.values == 0 then
        return DATA_TYPES[message.data_type] .. " " .. payload_text(tvb, message)
    end
    local parts = {}
    for at, value in ipairs(message.values) do
        parts[at] = value_text(message.data_type, value.number)
    end
    return DATA_TYPES[message.data_type] .. " " .. table.concat(parts, ", ")
end

local function request_text(message, values)
    local place = register_text(message)
    if message.access == ACCESS_READ then
        return string.format("%s asks %s for %s%s", source_text(message), target_text(message),
            place, values and " with " .. values or "")
    end
    return string.format("%s writes %s to %s of %s", source_text(message), values or "nothing",
        place, target_text(message))
end

local function response_text(message, values)
    return string.format("%s tells %s: %s%s, %s", responder_text(message), target_text(message),
        register_text(message), values and " is " .. values or "", STATUSES[message.status])
end

local function chcp_text(message)
    local command = message.chcp_command < CHCP_COMMAND_NONE and message.chcp_command or "invalid"
    return string.format("CHCP %07X%s: device %08X, id %d, command %s, %s", message.mac,
        message.mac_name and " (" .. message.mac_name .. ")" or "", message.device_code,
        message.chcp_id, command, STATUSES[message.status])
end

local function data_text(tvb, message)
    local values = values_text(tvb, message)
    local text = message.direction == DIRECTION_REQUEST and request_text(message, values) or
        response_text(message, values)
    if message.priority ~= PRIORITY_DATA then
        text = text .. ", priority " .. PRIORITIES[message.priority]
    end
    return text
end

local ODDITIES = {
    unknown_type = "no values of this type", payload_size = "payload does not fit its type",
}

local function sentence(tvb, message)
    if message.kind == "short" then
        return "no Tarn message: too few data bytes (" .. tvb:reported_len() .. ")"
    elseif message.kind == "cut" then
        return "cut off by the capture"
    elseif message.kind == "empty" then
        return "CHCP frame of " .. tvb:reported_len() .. " bytes reads as an empty DATA message"
    elseif message.kind == "chcp" then
        return chcp_text(message)
    end
    local oddity = ODDITIES[message.oddity]
    return data_text(tvb, message) .. (oddity and " (" .. oddity .. ")" or "")
end

-- The tree.

local HEADER = {"type", "priority", "addressing", "access", "direction", "mode", "register",
    "target", "source"}
local CHCP_HEADER = {"type", "mac"}

local function add_generated(tree, field, value)
    return tree:add(field, value):set_generated()
end

local function add_hidden(tree, field, ...)
    tree:add(field, ...):set_generated():set_hidden()
end

local function add_name(tree, field, name)
    if name then
        add_generated(tree, field, name)
    end
end

local function add_header(tree, keys, identifier)
    for _, key in ipairs(keys) do
        tree:add(fields[key], identifier.range, identifier.word)
    end
end

-- The fields of a message that is not what stands in the identifier.
local function add_empty_header(tree, identifier)
    for _, key in ipairs(HEADER) do
        local item = tree:add(fields[key], identifier.range, 0)
        item:set_generated()
    end
end

local function conversation_text(message)
    local low = math.min(message.source, message.target)
    local high = math.max(message.source, message.target)
    return string.format("%s%d-%d", message.addressing == ADDRESSING_DEVICE and "" or "group ", low, high)
end

local function add_addresses(tree, message)
    add_hidden(tree, fields.addr, message.source)
    add_hidden(tree, fields.addr, message.target)
    add_generated(tree, fields.conversation, conversation_text(message))
end

local function add_status(tree, tvb, message)
    tree:add(fields.status, tvb(message.status_at, 1))
    tree:add(fields.datatype, tvb(message.status_at, 1))
end

local function add_value(tree, value, data_type)
    local field = fields[CODECS[data_type].field]
    if data_type == DATATYPE_U48 then
        tree:add_le(field, value.range)
    else
        local item = tree:add(field, value.range, value.number)
        if is_real(data_type) then
            item:set_text("Value: " .. single_text(value.number))
        end
        if data_type <= DATATYPE_S16F7 then
            item:add_le(fields.step, value.range)
        end
    end
    add_hidden(tree, fields.value, value.range, value.number)
end

local NOT_FINITE = {nan = 0 / 0, inf = math.huge, ["-inf"] = -math.huge}

local function add_named_value(tree, value)
    local item = tree:add(fields.named, value.range, named_value_text(value)):set_generated()
    add_generated(item, fields.named_value, NOT_FINITE[value.text] or to_number(value.text))
    if value.unit ~= "" then
        add_generated(item, fields.named_unit, value.unit)
    end
end

local function add_values(tree, message)
    for _, value in ipairs(message.values) do
        add_value(tree, value, message.data_type)
    end
    for _, value in ipairs(message.named or {}) do
        add_named_value(tree, value)
    end
end

local function add_data_names(tree, message)
    add_name(tree, fields.source_name, message.source_name)
    add_name(tree, fields.target_name, message.target_name)
    add_name(tree, fields.module_name, message.module_name)
    add_name(tree, fields.register_name, message.register_name)
end

local function add_time(tree, nanoseconds)
    local seconds = math.floor(nanoseconds / 1e9)
    add_generated(tree, fields.time, NSTime.new(seconds, nanoseconds - seconds * 1e9))
end

local function add_links(tree, message, pinfo)
    local frame = pinfo.number
    for _, response in ipairs(links.responses[frame] or {}) do
        add_generated(tree, fields.response_in, response)
    end
    if message.request then
        add_generated(tree, fields.response_to, message.request.frame)
        add_time(tree, message.request.delay)
    end
    local unanswered = message.direction == DIRECTION_REQUEST and not links.responses[frame]
    if unanswered and message.is_known then
        tree:add_proto_expert_info(experts.no_response)
    end
end

local function add_payload(tree, tvb, message)
    if message.payload_size > 0 then
        return tree:add(fields.payload, tvb(0, message.payload_size))
    end
end

local function add_data(tree, tvb, message, identifier)
    add_header(tree, HEADER, identifier)
    add_addresses(tree, message)
    add_payload(tree, tvb, message)
    add_values(tree, message)
    add_status(tree, tvb, message)
    if message.module_at then
        tree:add(fields.module, tvb(message.module_at, 1))
    else
        add_generated(tree, fields.module, 0)
    end
    add_data_names(tree, message)
    local refused = message.status > STATUS_OPERATING_WITH_WARNING
    if refused and message.direction ~= DIRECTION_REQUEST then
        tree:add_proto_expert_info(experts.failure, STATUSES[message.status])
    end
end

local function add_chcp(tree, tvb, message, identifier)
    add_header(tree, CHCP_HEADER, identifier)
    add_payload(tree, tvb, message)
    tree:add_le(fields.device_code, tvb(0, 4))
    tree:add(fields.chcp_id, tvb(4, 1))
    local command = tree:add(fields.chcp_command, tvb(5, 1), message.chcp_command)
    if message.chcp_command == CHCP_COMMAND_NONE then
        command:add_proto_expert_info(experts.chcp_command)
    end
    add_status(tree, tvb, message)
    add_name(tree, fields.mac_name, message.mac_name)
end

local function add_empty(tree, message, identifier)
    add_empty_header(tree, identifier)
    add_addresses(tree, message)
    add_generated(tree, fields.status, 0)
    add_generated(tree, fields.datatype, 0)
    add_generated(tree, fields.module, 0)
    add_data_names(tree, message)
end

local NOTES = {
    too_short = "too few data bytes for a Tarn frame",
    cut = "the capture holds only a part of the data bytes",
    chcp_length = "CHCP frame without its 7 bytes: reads as an empty DATA message",
    unknown_type = "payload does not fit its data type",
    payload_size = "payload does not fit its data type",
}

local function add_message(tree, tvb, message, identifier, pinfo)
    if message.kind == "chcp" then
        add_chcp(tree, tvb, message, identifier)
    elseif message.kind == "empty" then
        add_empty(tree, message, identifier)
    elseif message.kind == "data" then
        add_data(tree, tvb, message, identifier)
        add_links(tree, message, pinfo)
    end
    if message.oddity then
        add_generated(tree, fields.note, NOTES[message.oddity])
            :add_proto_expert_info(experts[message.oddity])
    end
end

-- The dissector.

-- The innermost of several CAN frames in a packet.
local function last(...)
    return (select(select("#", ...), ...))
end

local function is_set(extractor)
    local info = last(nil, extractor())
    return info ~= nil and info.value == true
end

-- Identifier and place of the frame that is being dissected; nil unless it is an extended data
-- frame of classical CAN.
local function find_identifier()
    local info = last(nil, can_id())
    if not info or not is_set(can_extended) or is_set(can_remote) or is_set(can_error) or
        can_flexible() then
        return nil
    end
    return {word = info.value, range = info.range}
end

local function fill_columns(pinfo, tvb, message)
    pinfo.cols.protocol = "Tarn"
    pinfo.cols.info = sentence(tvb, message)
    if message.kind == "data" then
        pinfo.cols.src = source_text(message)
        pinfo.cols.dst = target_text(message)
    end
end

-- True when the frame is one for Tarn.
local function dissect(tvb, pinfo, tree)
    local identifier = find_identifier()
    if not identifier or tvb:reported_len() > MAX_DATA_SIZE then
        return false
    end
    local message = read_message(identifier.word, tvb)
    if message.kind ~= "short" and message.kind ~= "cut" then
        find_names(message)
    end
    if message.kind == "data" then
        link(message, pinfo)
    end
    fill_columns(pinfo, tvb, message)
    local subtree = tree:add(tarn, tvb:len() > 0 and tvb() or identifier.range)
    subtree:append_text(", " .. sentence(tvb, message))
    add_message(subtree, tvb, message, identifier, pinfo)
    return true
end

-- Nothing taken means that the frame is not for Tarn, so a frame without data counts as one byte.
function tarn.dissector(tvb, pinfo, tree)
    return dissect(tvb, pinfo, tree) and math.max(1, tvb:reported_len()) or 0
end

function tarn.init()
    forget_links()
    load_names()
end

DissectorTable.get("can.subdissector"):add_for_decode_as(tarn)
tarn:register_heuristic("can", function(tvb, pinfo, tree)
    return tarn.prefs.every_frame and dissect(tvb, pinfo, tree)
end)

-- Statistics.

local MOST_ROWS = 4096
local NO_DEVICE, DEVICE, GROUP, CHCP = 3, 0, 1, 2 -- in the order of the table

local Devices = {}
Devices.__index = Devices

function Devices.new()
    return setmetatable({rows = {}, list = {}}, Devices)
end

function Devices:row(kind, number)
    local key = kind .. " " .. number
    if not self.rows[key] and #self.list >= MOST_ROWS then
        kind, number, key = NO_DEVICE, 1, "others"
    end
    if not self.rows[key] then
        local row = {
            kind = kind, number = number, sent = 0, received = 0, requests = 0, responses = 0,
            failures = 0, odd = 0, timed = 0, time = 0, longest = 0,
        }
        self.rows[key] = row
        self.list[#self.list + 1] = row
    end
    return self.rows[key]
end

local function counted_value(name)
    local info = counted[name]()
    return info and info.value
end

local function count_time(row, time)
    local seconds = time.secs + time.nsecs / 1e9
    row.timed = row.timed + 1
    row.time = row.time + seconds
    row.longest = math.max(row.longest, seconds)
end

function Devices:count_data(source)
    local time = counted_value("time")
    local to_group = counted_value("addressing") == ADDRESSING_GROUP
    -- What answers for a group has the group for its source.
    local sender = self:row(to_group and time and GROUP or DEVICE, source)
    local receiver = self:row(to_group and not time and GROUP or DEVICE, counted_value("target"))
    local is_request = counted_value("direction") == DIRECTION_REQUEST
    local kind = is_request and "requests" or "responses"
    sender[kind] = sender[kind] + 1
    receiver.received = receiver.received + 1
    if not is_request and counted_value("status") > STATUS_OPERATING_WITH_WARNING then
        sender.failures = sender.failures + 1
    end
    if time then
        count_time(sender, time)
    end
    return sender
end

function Devices:count()
    local mac, source = counted_value("mac"), counted_value("source")
    local sender
    if mac then
        sender = self:row(CHCP, mac)
    elseif source then
        sender = self:count_data(source)
    else
        sender = self:row(NO_DEVICE, 0)
    end
    sender.sent = sender.sent + 1
    if counted_value("note") then
        sender.odd = sender.odd + 1
    end
end

local function row_name(row)
    if row.kind == DEVICE then
        return tostring(row.number), name_in(names.by_address[row.number])
    elseif row.kind == GROUP then
        return "group " .. row.number, names.groups[row.number]
    elseif row.kind == CHCP then
        return string.format("CHCP %07X", row.number), name_in(names.by_mac[row.number])
    end
    return row.number == 0 and "no message" or "others", nil
end

local function milliseconds(seconds)
    return number_text("%.3f", seconds * 1000)
end

-- Narrow enough for the window that Wireshark opens.
local ROW = "%-12s %6s %6s %6s %6s %5s %5s %7s %7s  %s"

local function row_text(row)
    local address, name = row_name(row)
    local line = string.format(ROW, address, row.sent, row.received, row.requests, row.responses,
        row.failures, row.odd, row.timed > 0 and milliseconds(row.time / row.timed) or "-",
        row.timed > 0 and milliseconds(row.longest) or "-", name or "")
    return (line:gsub(" +$", ""))
end

function Devices:text()
    table.sort(self.list, function(one, other)
        if one.kind ~= other.kind then
            return one.kind < other.kind
        end
        return one.number < other.number
    end)
    local lines = {
        "Tarn: frames by device",
        string.format(ROW, "Device", "Sent", "Recvd", "Req", "Resp", "Fail", "Odd", "Mean ms",
            "Max ms", "Name"),
    }
    for _, row in ipairs(self.list) do
        lines[#lines + 1] = row_text(row)
    end
    return table.concat(lines, "\n") .. "\n"
end

-- Counts the frames that pass the filter, and hands the table to the function.
local function tap_devices(filter, show)
    local tap = Listener.new("frame", filter)
    local devices = Devices.new()
    function tap.packet()
        devices:count()
    end
    function tap.draw()
        show(devices:text())
    end
    function tap.reset()
        devices = Devices.new()
    end
    return tap
end

-- tshark -z tarn,devices or tarn,devices,FILTER
register_stat_cmd_arg("tarn,devices", function(argument)
    local filter = (argument or ""):match("^tarn,devices,(.+)$")
    tap_devices(filter and "tarn && (" .. filter .. ")" or "tarn", function(text)
        io.stdout:write(text)
    end)
end)

local function show_devices()
    local window = TextWindow.new("Tarn: frames by device")
    local tap = tap_devices("tarn", function(text)
        window:set(text)
    end)
    window:set_atclose(function()
        tap:remove()
    end)
    retap_packets()
end

local function ask_conversation()
    new_dialog("Tarn conversation", function(one, other)
        one, other = tonumber(one), tonumber(other)
        if one and other then
            set_filter(string.format("tarn.addr == %d && tarn.addr == %d", one, other))
            apply_filter()
        end
    end, "Address", "Other address")
end

if gui_enabled() then
    register_menu("Tarn Devices", show_devices, MENU_STAT_UNSORTED)
    register_menu("Tarn Conversation", ask_conversation, MENU_TOOLS_UNSORTED)
end
