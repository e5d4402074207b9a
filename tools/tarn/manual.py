"""manual.py TARN FOLDER: makes man pages and a bash completion of the texts of 'tarn --help'.

The pages say what the command itself says, so that neither can be out of date.
"""
import os
import re
import subprocess
import sys

# The column in which 'tarn --help' explains an option.
EXPLANATION = 30

COMPLETION = """# bash completion for tarn(1)
_tarn() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} verb=${COMP_WORDS[1]} type
    local -A options=(
%(options)s
    )
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "%(verbs)s --help --version" -- "$word")
        return
    fi
    case $verb:$previous in
    *:-b | *:--bus)
        local buses="virtual: log: socketcand:"
        for type in /sys/class/net/*/type; do
            [[ $(<"$type") != 280 ]] || buses+=" $(basename "$(dirname "$type")")"
        done 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -W "$buses" -- "$word")
        ;;
%(words)s
    *)
        if [[ $word == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "${options[$verb]}" -- "$word")
        else
            compopt -o default
            COMPREPLY=()
        fi
        ;;
    esac
}
complete -F _tarn tarn
"""


class Help:
    """The parts of one help text."""

    def __init__(self, text):
        before, usage, after = re.match(r"(.*?)\nUsage: (.*?)\n(.*)", text + "\n", re.S).groups()
        self.summary, _, self.description = before.partition("\n")
        self.usage = usage
        self.groups, self.closing, self.examples = [], [], []
        self._read_groups(after)

    def _read_groups(self, text):
        lines = None
        for line in text.splitlines():
            if re.fullmatch(r"\S.*:", line):
                lines = self._begin(line[:-1])
            elif line.startswith("  "):
                self._add(lines, line)
            elif line:
                self.closing.append(line)

    def _begin(self, name):
        if name == "Examples":
            return self.examples
        self.groups.append((name, []))
        return self.groups[-1][1]

    def _add(self, lines, line):
        if lines is self.examples:
            lines.append(line[2:])
        elif line.startswith("   "):
            lines[-1][1].append(line.strip())
        else:
            name, text = self._split(line)
            lines.append((name, [text] if text else []))

    @staticmethod
    def _split(line):
        """What is explained, and the explanation, which may stand one blank behind a long name."""
        if len(line) > EXPLANATION and line[EXPLANATION - 1] == " " and line[2] == "-":
            return line[2:EXPLANATION].strip(), line[EXPLANATION:].strip()
        name, _, text = line[2:].partition("  ")
        return name, text.strip()

    def option_names(self):
        names = [name for group, lines in self.groups if group not in ("Positionals", "Subcommands")
                 for name, _ in lines]
        return [option for name in names for option in name.split()[0].split(",")]

    def choices(self):
        """The options that take one of a few words, with these."""
        for _, lines in self.groups:
            for name, _ in lines:
                found = re.match(r"(\S+) \S*\{(.*)\}", name)
                if found:
                    yield found.group(1), found.group(2).split(",")


def escape(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq")
    return "\\&" + text if text.startswith(".") else text


def paragraphs(text):
    for paragraph in re.split(r"\n\s*\n", text.strip()):
        yield ".PP"
        yield from (escape(line) for line in paragraph.splitlines())


def page(name, help_text, version, verbs):
    title = name.upper().replace(" ", "\\-")
    yield f'.TH {title} 1 "" "tarn {version}" "User Commands"'
    yield ".SH NAME"
    yield f"{escape(name.replace(' ', '-'))} \\- {escape(help_text.summary[0].lower() + help_text.summary[1:].rstrip('.'))}"
    yield ".SH SYNOPSIS"
    yield f".B {escape(help_text.usage)}"
    yield ".SH DESCRIPTION"
    yield from paragraphs(help_text.description or help_text.summary)
    for group, lines in help_text.groups:
        yield f'.SH "{escape(group).upper()}"'
        for option, text in lines:
            yield ".TP"
            yield f".B {escape(option)}"
            yield from (escape(line) for line in text or [""])
    if help_text.closing:
        yield ".PP"
        yield from (escape(line) for line in help_text.closing)
    if help_text.examples:
        yield from [".SH EXAMPLES", ".nf", *(escape(line) for line in help_text.examples), ".fi"]
    others = [other for other in ["tarn"] + [f"tarn-{verb}" for verb in verbs] if other != name.replace(" ", "-")]
    yield '.SH "SEE ALSO"'
    yield ",\n".join(f".BR {escape(other)} (1)" for other in others).replace("(1),\n", "(1),\n")


def completion(pages):
    verbs = [name.split()[1] for name in pages if " " in name]
    options = [f'        [{verb}]="{" ".join(pages["tarn " + verb].option_names())}"' for verb in verbs]
    words = [(f"{verb}:{option}", " ".join(choice)) for verb in verbs
             for option, choice in pages["tarn " + verb].choices()]
    cases = [f'    {option}) mapfile -t COMPREPLY < <(compgen -W "{choice}" -- "$word") ;;' for option, choice in words]
    return COMPLETION % {"options": "\n".join(options), "verbs": " ".join(verbs), "words": "\n".join(cases)}


def main(tarn, folder):
    def say(*arguments):
        clean = {key: value for key, value in os.environ.items() if not key.startswith("TARN_")}
        return subprocess.run([tarn, *arguments], check=True, capture_output=True, text=True, env=clean).stdout

    pages = {"tarn": Help(say("--help"))}
    verbs = [name for group, lines in pages["tarn"].groups if group == "Subcommands" for name, _ in lines]
    pages.update({f"tarn {verb}": Help(say(verb, "--help")) for verb in verbs})
    version = say("--version").split()[1]
    os.makedirs(folder, exist_ok=True)
    for name, text in pages.items():
        with open(os.path.join(folder, name.replace(" ", "-") + ".1"), "w", encoding="utf-8") as file:
            file.write("\n".join(page(name, text, version, verbs)) + "\n")
    with open(os.path.join(folder, "tarn.bash"), "w", encoding="utf-8") as file:
        file.write(completion(pages))


if __name__ == "__main__":
    main(*sys.argv[1:])
