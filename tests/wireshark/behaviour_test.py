"""What people see in Wireshark: words, sentences, links, names, statistics; and that nothing upsets it."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import captures
import tools

NAMES = pathlib.Path(tools.PROJECT) / "examples/installations/pump-station.json"
WITH_NAMES = ("-o", f"tarn.names:{NAMES}")

ASK = "0F840281#20"  # 1 asks 5 for register 16
TELL = "0F040085#B50459"  # 5 tells 1: U16 1205, OPERATING


class Captured(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def capture(self, literals, times=None):
        path = self.folder / "test.pcap"
        packets = [captures.frame(one) if isinstance(one, str) else one for one in literals]
        captures.write_pcap(path, captures.LINK_SOCKETCAN, packets, times)
        return path

    def sentences(self, literals, *options, **settings):
        rows = tools.columns(self.capture(literals), ["_ws.col.Info"], *options, **settings)
        return [row["_ws.col.Info"][0] for row in rows]

    def tree(self, literal, *options):
        return tools.tshark(self.capture([literal]), "-V", *options)[0]


class Shown(Captured):
    def test_identifier_shows_its_bits(self):
        tree = self.tree("0F72008A#000C5105")
        for line in (
            "...0 .... .... .... .... .... .... .... = Type: DATA (0)",
            ".... 11.. .... .... .... .... .... .... = Priority: DATA (3)",
            ".... ..1. .... .... .... .... .... .... = Addressing: DEVICE (1)",
            ".... ...1 .... .... .... .... .... .... = Access type: READ (1)",
            ".... .... 0... .... .... .... .... .... = Direction: RESPONSE (0)",
            ".... .... .1.. .... .... .... .... .... = Addressing mode: EXTENDED (1)",
            ".... .... ..11 0010 00.. .... .... .... = Register: 200",
            ".... .... .... .... ..00 0000 1... .... = Target: 1",
            ".... .... .... .... .... .... .000 1010 = Source: 10",
            "0101 .... = Status: OPERATING (5)",
            ".... 0001 = Data type: S16F1 (1)",
            "Module: 5",
            "Value: 1.5",
            "Step: 3072",
        ):
            self.assertIn(line, tree)

    def test_chcp_shows_its_bits(self):
        tree = self.tree("10ABCDEF#78563412850310")
        for line in (
            "...1 .... .... .... .... .... .... .... = Type: CHCP (1)",
            ".... 0000 1010 1011 1100 1101 1110 1111 = MAC: 0x0abcdef",
            "Device code: 0x12345678",
            ".000 0101 = CHCP identifier: 5",
            "CHCP command: 3 (3)",
            "0001 .... = Status: OFFLINE (1)",
        ):
            self.assertIn(line, tree)

    def test_words_are_those_of_the_command(self):
        # Priority, addressing, access, direction and mode by the high bits; status and type equal.
        literals = [f"0{n:X}{(n % 4) << 2:X}00081#{n:X}{n:X}00" for n in range(16)]
        capture = self.capture(literals)
        trees = tools.tshark(capture, "-V")[0].split("Controller Area Network")[1:]
        messages = tools.decode(capture)
        self.assertEqual(len(trees), 16)
        titles = {"type": "Type", "priority": "Priority", "addressing": "Addressing",
                  "accessType": "Access type", "direction": "Direction",
                  "addressingMode": "Addressing mode", "status": "Status", "dataType": "Data type"}
        for tree, message in zip(trees, messages, strict=True):
            for key, title in titles.items():
                self.assertIn(f" = {title}: {message[key]} ({message[key + 'Number']})\n", tree)

    def test_sentences(self):
        table = {
            "0F800001#20": "1 asks 0 for register 0",
            ASK: "1 asks 5 for register 16",
            TELL: "5 tells 1: register 16 is U16 1205, OPERATING",
            "0A8A0501#3412010029": "1 writes U16 4660, 1 to register 40 of 10, priority CONTROL",
            "0F72008A#000C5105": "10.5 tells 1: register 200 is S16F1 1.5, OPERATING",
            "0FC40281#2003": "1 asks 5.3 for register 16",
            "0C808081#29": "1 writes nothing to register 2 of group 1",
            "0001C103#0000003F0D": "3 tells group 2: register 7 is FLOAT 0.5, UNKNOWN, priority SYNC",
            "0F040085#B0": "5 tells 1: register 16, RESOURCE NOT EXISTING",
            "10ABCDEF#78563412850310": "CHCP 0ABCDEF: device 12345678, id 5, command 3, OFFLINE",
            "10ABCDEF#78563412050910":
                "CHCP 0ABCDEF: device 12345678, id 5, command invalid, OFFLINE",
            "10ABCDEF#785634120503": "CHCP frame of 6 bytes reads as an empty DATA message",
            "0F040085#B5045D": "5 tells 1: register 16 is FLOAT [B504], OPERATING "
                "(payload does not fit its type)",
            "0F040085#B5045E": "5 tells 1: register 16 is INVALID [B504], OPERATING "
                "(no values of this type)",
            "0F800001#": "no Tarn message: too few data bytes (0)",
        }
        self.assertEqual(self.sentences(table), list(table.values()))

    def test_fields_can_be_filtered(self):
        literals = [ASK, TELL, "0F040089#000C51", "10ABCDEF#78563412050310"]
        table = {
            'tarn.status == "OPERATING"': [2, 3],
            "tarn.value > 1.4 && tarn.value < 2": [3],
            "tarn.value.s16f1 == 1.5": [3],
            "tarn.value.s16 == 3072": [3],
            "tarn.value.u16 == 1205": [2],
            "tarn.addr == 5": [1, 2],
            'tarn.conversation == "1-5"': [1, 2],
            "tarn.mac == 0xABCDEF": [4],
            "tarn.payload[0] == b5": [2],
        }
        capture = self.capture(literals)
        for filter_text, expected in table.items():
            rows = tools.columns(capture, ["frame.number"], "-Y", filter_text)
            self.assertEqual([int(r["frame.number"][0]) for r in rows], expected, filter_text)

    def test_numbers_do_not_depend_on_the_locale(self):
        if not shutil.which("localedef"):
            self.skipTest("no localedef")
        locale = self.folder / "de_TEST"
        subprocess.run(["localedef", "-i", "de_DE", "-f", "UTF-8", str(locale)], capture_output=True)
        comma = subprocess.run(
            ["locale", "-k", "decimal_point"], capture_output=True, text=True,
            env={"LOCPATH": str(self.folder), "LC_ALL": "de_TEST"},
        )
        self.assertIn('","', comma.stdout)
        environment = {"LOCPATH": str(self.folder), "LC_ALL": "de_TEST"}
        literals = ["0F72008A#000C5105", "0F044085#CDCC8C3F5D", "0F040085#B50459"]
        self.assertEqual(
            self.sentences(literals, *WITH_NAMES, environment=environment),
            ["10.5 tells controller: register 200 is S16F1 1.5, OPERATING",
             "pump tells controller: pressure (register 17) is 1.1 bar, OPERATING",
             "pump tells controller: speed (register 16) is 120.5 rpm, OPERATING"],
        )


class Links(Captured):
    def links(self, capture, *options):
        """A pair a frame: the responses to it, and the request it answers."""
        fields = ["tarn.response_in", "tarn.response_to"]
        rows = tools.columns(capture, fields, "-2", "-Y", "tarn", *options)
        return [tuple([int(n) for n in row[f]] for f in fields) for row in rows]

    def test_request_and_response_know_each_other(self):
        capture = self.capture([ASK, TELL], [1000, 1310])
        self.assertEqual(self.links(capture), [([2], []), ([], [1])])
        rows = tools.columns(capture, ["tarn.time"])
        self.assertEqual(rows[1]["tarn.time"], ["0.000310000"])

    def test_without_a_tree_on_the_first_way_responses_know_their_requests(self):
        rows = tools.columns(self.capture([ASK, TELL]), ["tarn.response_to"], "-2")
        self.assertEqual([row["tarn.response_to"] for row in rows], [[], ["1"]])

    def test_what_is_another_thing_is_no_response(self):
        others = {
            "register": "0F044085#B50459",
            "access": "0E040085#B50459",
            "addressing": "0D040085#B50459",
            "source": "0F040086#B50459",
            "target": "0F040105#B50459",
            "module": "0F440085#B5045903",
            "request": ASK.replace("20", "50"),
        }
        for what, other in others.items():
            links = self.links(self.capture([ASK, other]))
            self.assertEqual(links, [([], []), ([], [])], what)

    def test_modules_have_responses_of_their_own(self):
        literals = ["0FC40281#2003", "0FC40281#2004", "0F440085#5004", "0F440085#5003"]
        self.assertEqual(
            self.links(self.capture(literals)), [([4], []), ([3], []), ([], [2]), ([], [1])]
        )

    def test_the_latest_request_is_answered_and_once(self):
        self.assertEqual(
            self.links(self.capture([ASK, ASK, TELL, TELL])),
            [([], []), ([3], []), ([], [2]), ([], [])],
        )

    def test_a_group_answers_several_times(self):
        literals = ["0D840101#20", "0D040082#50", "0D040082#60"]
        self.assertEqual(
            self.links(self.capture(literals)), [([2, 3], []), ([], [1]), ([], [1])]
        )

    def test_a_late_response_is_none(self):
        capture = self.capture([ASK, TELL], [0, 5000001])
        self.assertEqual(self.links(capture), [([], []), ([], [])])
        self.assertEqual(self.links(capture, "-o", "tarn.window:5001"), [([2], []), ([], [1])])

    def test_time_that_goes_back_links_nothing(self):
        self.assertEqual(self.links(self.capture([ASK, TELL], [9, 8])), [([], []), ([], [])])

    def test_interfaces_are_apart(self):
        path = self.folder / "two.pcapng"
        ask, tell = captures.frame(ASK), captures.frame(TELL)
        captures.write_pcapng(path, [(0, ask), (1, tell), (0, tell)])
        self.assertEqual(self.links(path), [([3], []), ([], []), ([], [1])])

    def test_interfaces_of_a_cooked_capture_are_apart(self):
        path = self.folder / "any.pcap"
        ask, tell = captures.frame(ASK), captures.frame(TELL)
        packets = [captures.cooked_2(*one) for one in ((3, ask), (4, tell), (3, tell))]
        captures.write_pcap(path, captures.LINK_COOKED_2, packets)
        self.assertEqual(self.links(path), [([3], []), ([], []), ([], [1])])

    def test_a_request_without_response_is_told(self):
        rows = tools.columns(self.capture([ASK, TELL, ASK]), ["tarn.expert.no_response"], "-2", "-Y", "tarn")
        self.assertEqual([bool(row["tarn.expert.no_response"]) for row in rows], [False, False, True])


class Names(Captured):
    def test_names_stand_in_the_sentence(self):
        self.assertEqual(
            self.sentences(["0FC40281#2003", "0F440085#65585803", TELL, "0D840081#20"], *WITH_NAMES),
            ["controller asks pump.drive for temperature (register 16)",
             "pump.drive tells controller: temperature (register 16) is winding=61 degC, "
             "bearing=48 degC, OPERATING",
             "pump tells controller: speed (register 16) is 120.5 rpm, OPERATING",
             "controller asks all actuators for speed (register 16)"],
        )

    def test_who_answers_for_a_group_has_the_name_of_the_group(self):
        self.assertEqual(
            self.sentences(["0D840081#20", "0D040081#DA0559"], *WITH_NAMES)[1],
            "all actuators tells controller: register 16 is U16 1498, OPERATING",
        )

    def with_file(self, content):
        """Sentences, and what is told of the file."""
        path = self.folder / "names.json"
        path.write_bytes(content.encode() if isinstance(content, str) else content)
        output, errors = tools.tshark(self.capture([ASK]), "-o", f"tarn.names:{path}")
        reports = [line for line in errors.splitlines() if "Tarn names file" in line]
        self.assertLessEqual(len(reports), 1, reports)
        return output, "".join(reports)

    def device(self, members):
        return '{"devices": [{"name": "pump", "address": 5' + members + "}]}"

    def test_escapes_and_letters(self):
        text = '{"devices": [{"name": "p\\u00fcmp\\ud83d\\ude00 Ä", "address": "0x5"}]}'
        output, report = self.with_file(text)
        self.assertEqual(report, "")
        self.assertIn("1 asks pümp😀 Ä for register 16", output)

    def test_unusable_files_are_told_and_do_no_harm(self):
        register = ', "registers": [{"name": "r", "register": 16, "type": "U16"%s}]'
        table = {
            "": "is empty",
            "{": "name of a member is missing",
            "[]": "the file is no object",
            '{"devices": 1}': "devices is no list",
            '{"devices": [1]}': "devices is no object",
            '{"devices": []} x': "behind the end",
            '{"devices": [], "devices": []}': "stands there twice",
            '{"devices": [],\n\n"a": tru}': "line 3",
            '{"devices": [{"address": 5}]}': "devices.name",
            '{"devices": [{"name": "", "address": 5}]}': "is empty",
            '{"devices": [{"name": "x", "address": 127}]}': "no whole number from 0 to 126",
            '{"devices": [{"name": "x", "address": -1}]}': "no whole number",
            '{"devices": [{"name": "x", "address": 1.5}]}': "no whole number",
            '{"devices": [{"name": "x", "address": "0x"}]}': "no whole number",
            '{"devices": [{"name": "x", "address": null}]}': "no whole number",
            '{"devices": [{"name": "' + "x" * 65 + '", "address": 5}]}': "64 bytes",
            '{"devices": [{"name": "a\\u0007", "address": 5}]}': "control characters",
            '{"devices": [{"name": "a\\ud800", "address": 5}]}': "no character",
            '{"devices": [{"name": "a\\q", "address": 5}]}': "no such escape",
            '{"devices": [{"name": "a\n", "address": 5}]}': "control character",
            '{"devices": [{"name": "a': "does not end",
            b'{"devices": [{"name": "\xc3", "address": 5}]}': "is no UTF-8",
            b'{"devices": [{"name": "\xed\xa0\x80", "address": 5}]}': "is no UTF-8",
            '{"devices": [{"name": "a", "address": 5}, {"name": "b", "address": 5}]}':
                "address of another device",
            self.device(', "registers": {}'): "registers is no list",
            self.device(', "modules": {"300": "x"}'): "no whole number from 0 to 255",
            self.device(', "mac": "0x10000000"'): "no whole number from 0 to 268435455",
            self.device(register % ', "values": []'): "1 to 6 values",
            self.device(register % ', "values": [{"name": "v", "scale": 1e400}]'): "too large",
            self.device(register % ', "values": [{"name": "v", "scale": true}]'): "no number",
            self.device(register.replace("U16", "U17") % ""): "no known type",
            self.device(register.replace('"U16"', "{}") % ""): "no known type",
            "[" * 17: "more than 16 deep",
            "[" * 1000000: "more than 16 deep",
            "[" + "0," * 1000000 + "0]": "more than a million values",
            " " * (16 * 1024 * 1024 + 1): "more than 16 MB",
        }
        for text, expected in table.items():
            with self.subTest(text=text[:60]):
                output, report = self.with_file(text)
                self.assertIn(expected, report)
                self.assertIn("1 asks 5 for register 16", output)

    def test_a_file_that_is_not_there(self):
        _, errors = tools.tshark(self.capture([ASK]), "-o", f"tarn.names:{self.folder}/none.json")
        self.assertIn("cannot be read", errors)
        _, errors = tools.tshark(self.capture([ASK]), "-o", f"tarn.names:{self.folder}")
        self.assertIn("Tarn names file", errors)


class Preferences(Captured):
    def test_every_frame_or_where_decode_as_says_so(self):
        off = ("-o", "tarn.every_frame:FALSE")
        decode_as = ("-d", "can.subdissector,tarn")
        self.assertIn("asks", self.sentences([ASK])[0])
        self.assertNotIn("asks", self.sentences([ASK], *off)[0])
        self.assertIn("asks", self.sentences([ASK], *off, *decode_as)[0])

    def test_a_frame_is_shown_once(self):
        for options in (), ("-d", "can.subdissector,tarn"):
            rows = tools.columns(self.capture([ASK, "0F800001#"]), ["tarn"], *options)
            self.assertEqual([len(row["tarn"]) for row in rows], [1, 1])

    def test_decode_as_leaves_other_frames_alone(self):
        others = [captures.packet(0x123, b"\x20"), captures.packet(0xCF840281, b"", 1),
                  captures.packet(0x20000004, bytes(8)), captures.packet(0xA0000004, bytes(8))]
        for options in (), ("-d", "can.subdissector,tarn"):
            rows = tools.columns(self.capture(others), ["tarn"], *options)
            self.assertEqual([row["tarn"] for row in rows], [[], [], [], []])


class Statistics(Captured):
    def statistics(self, literals, argument, *options):
        capture = self.capture(literals, [i * 100 for i in range(len(literals))])
        output, _ = tools.tshark(capture, "-q", "-z", argument, *options)
        lines = [line.split() for line in output.splitlines()]
        self.assertEqual(output.splitlines()[0], "Tarn: frames by device")
        return lines[2:]

    LITERALS = [ASK, TELL, ASK, "0F040085#B0", "0D840101#20", "0D040082#50", "0F800001#",
                "100ABCDE#78563412050310", "10ABCDEF#00", "0F040085#B5045D"]

    def test_frames_by_device(self):
        table = [
            "0 1 0 0 1 0 1 - -",  # so reads the CHCP frame of a wrong length
            "1 3 4 3 0 0 0 - - controller",
            "5 3 2 0 3 1 1 0.100 0.100 pump",
            "group 0 0 1 0 0 0 0 - -",
            "group 2 1 1 0 1 0 0 0.100 0.100",
            "CHCP 00ABCDE 1 0 0 0 0 0 - - pump",
            "no message 1 0 0 0 0 1 - -",
        ]
        rows = self.statistics(self.LITERALS, "tarn,devices", *WITH_NAMES)
        self.assertEqual([" ".join(row) for row in rows], table)

    def test_a_filter_counts_what_passes(self):
        rows = self.statistics(self.LITERALS, "tarn,devices,tarn.target == 5")
        self.assertEqual([" ".join(row) for row in rows],
                         ["1 2 0 2 0 0 0 - -", "5 0 2 0 0 0 0 - -"])

    def test_rows_are_bounded(self):
        literals = [f"1{n:07X}#78563412050310" for n in range(4200)]
        rows = self.statistics(literals, "tarn,devices")
        self.assertEqual(len(rows), 4097)
        self.assertEqual(rows[-1][:2], ["others", "104"])


class Damaged(Captured):
    FRAMES = 4000

    def test_nothing_fails(self):
        frames = captures.RandomFrames(7)
        packets = [frames.damaged() for _ in range(self.FRAMES)]
        for link in captures.LINK_SOCKETCAN, captures.LINK_COOKED:
            with self.subTest(link=link):
                path = self.folder / f"{link}.pcap"
                cooked = link == captures.LINK_COOKED
                captures.write_pcap(path, link, [self.behind_header(p) if cooked else p for p in packets])
                rows = tools.columns(path, ["frame.number", "tarn", "tarn.note"], "-2")
                self.assertEqual(len(rows), self.FRAMES)
                self.assertGreater(sum(1 for row in rows if row["tarn"]), self.FRAMES / 4)

    @staticmethod
    def behind_header(item):
        if isinstance(item, tuple):
            return captures.cooked(item[0]), item[1] + 16
        return captures.cooked(item)

    def test_a_frame_cut_by_the_capture_is_told(self):
        path = self.folder / "cut.pcap"
        captures.write_pcap(path, captures.LINK_SOCKETCAN, [(captures.frame(TELL)[:9], 16)])
        rows = tools.columns(path, ["tarn.note", "tarn.type"])
        self.assertEqual(rows, [{"tarn.note": ["the capture holds only a part of the data bytes"],
                                 "tarn.type": []}])

    def test_a_failure_would_be_seen(self):
        text = pathlib.Path(tools.DISSECTOR).read_text()
        head = "local function read_status(tvb, at, message)\n"
        self.assertIn(head, text)
        broken = self.folder / "broken.lua"
        broken.write_text(text.replace(head, head + "    local wrong = nil + 1\n"))
        with self.assertRaises(tools.Failed):
            tools.columns(self.capture([ASK]), ["tarn"], dissector=str(broken))


class Installed(Captured):
    def test_a_link_to_the_installed_file_is_enough(self):
        prefix, plugins = self.folder / "usr", self.folder / ".local/lib/wireshark/plugins"
        command = ["cmake", "--install", os.environ["PROJECT_BINARY_DIRECTORY"], "--component", "tools",
                   "--prefix", str(prefix)]
        subprocess.run(command, check=True, capture_output=True)
        plugins.mkdir(parents=True)
        (plugins / "tarn.lua").symlink_to(prefix / "share/tarn/wireshark/tarn.lua")
        self.assertIn("1 asks 5", self.sentences([ASK], dissector=None)[0])


class Page(Captured):
    """docs/wireshark.md says what is."""

    PAGE = (pathlib.Path(tools.PROJECT) / "docs/wireshark.md").read_text()

    def setUp(self):
        super().setUp()
        example = pathlib.Path(tools.PROJECT) / "examples/captures/pump-station.pcap"
        self.example = shutil.copy(example, self.folder)

    def test_every_filter_finds_some_frames(self):
        table = self.PAGE.split("| Filter | Finds |\n|---|---|\n")[1].split("\n\n")[0]
        filters = re.findall(r"^\| `(.*?)` \|", table, re.MULTILINE)
        self.assertGreater(len(filters), 10)
        for text in filters:
            rows = tools.columns(self.example, ["frame.number"], "-2", "-R", "tarn", "-Y", text, *WITH_NAMES)
            self.assertTrue(0 < len(rows) < 24, f"{text}: {len(rows)} frames")

    def test_it_names_every_field_and_no_other(self):
        text = pathlib.Path(tools.DISSECTOR).read_text()
        registered = set(re.findall(r'"(tarn\.[a-z0-9_.]+)"', text))
        registered -= {"tarn.value.s16f"}  # gets a digit
        registered |= {"tarn." + name for name in re.findall(r'identifier_field\("(\w+)"', text)}
        registered |= {"tarn.every_frame", "tarn.names", "tarn.window"}
        registered |= {f"tarn.value.s16f{number}" for number in range(8)}
        mentioned = set(re.findall(r"\btarn\.[a-z0-9_.]*[a-z0-9]", self.PAGE)) - {"tarn.lua"}
        mentioned |= {f"tarn.value.s16f{number}" for number in range(8)}
        self.assertEqual(registered, mentioned)

    def test_its_statistics_are_those_of_the_capture(self):
        command, output = re.search(
            r"```\ntshark -q -z (\S+) -r (?:\S+)\n```\n\n```\n(.*?)```", self.PAGE, re.DOTALL
        ).groups()
        self.assertEqual(tools.tshark(self.example, "-q", "-z", command)[0], output)


if __name__ == "__main__":
    unittest.main()
