"""Reduces what abidw wrote about a library to its interface.

usage: interface.py FILE | --self-test

Kept are the exported symbols, and the types of the public headers that can be reached from them. Other
types are kept by name alone: what they are is not promised, and their size shows in the places of the
members behind them. Prints the result.
"""

import sys
import xml.etree.ElementTree as xml

OURS = "tarn"
REFERENCES = ("type-id", "naming-typedef-id", "def-of-decl-id")
OF_THE_BUILD = ("filepath", "line", "column")
PUBLIC = ("include/", "platform/can/include/", "platform/common/include/")


def units(parent, namespace=""):
    """(namespace, parent, element) of everything that stands directly in a namespace."""
    for element in list(parent):
        if element.tag == "namespace-decl":
            yield from units(element, namespace or element.get("name"))
        else:
            yield namespace, parent, element


def make_opaque(element):
    """Leaves the name of a class of others."""
    for child in list(element):
        element.remove(child)
    element.text = None
    element.attrib.pop("size-in-bits", None)
    element.set("is-declaration-only", "yes")


def is_exported(element):
    return any("elf-symbol-id" in inner.attrib for inner in element.iter())


def references(element):
    for inner in element.iter():
        yield from (inner.get(name) for name in REFERENCES if name in inner.attrib)


def reachable(all_units):
    """The ids of the units that are exported, or named by one that is reachable."""
    by_id = {}
    for _, _, element in all_units:
        for inner in element.iter():
            if "id" in inner.attrib:
                by_id.setdefault(inner.get("id"), []).append(element)
    waiting = [element for _, _, element in all_units if is_exported(element)]
    seen = set()
    while waiting:
        element = waiting.pop()
        if id(element) in seen:
            continue
        seen.add(id(element))
        for name in references(element):
            waiting += by_id.get(name, [])
    return seen


def remove_empty(parent):
    for element in list(parent):
        remove_empty(element)
        if element.tag in ("namespace-decl", "abi-instr") and len(element) == 0:
            parent.remove(element)


def name_the_missing(part, names):
    """What stood inside a class of others, such as a typedef, is kept by its name too."""
    for missing in sorted(set(references(part)) & set(names)):
        attributes = {"name": names[missing], "visibility": "default", "id": missing}
        xml.SubElement(part, "class-decl", attributes | {"is-declaration-only": "yes"})


def reduce(corpus):
    names = {element.get("id"): element.get("name", "") for element in corpus.iter()}
    for element in list(corpus.iter("class-decl")) + list(corpus.iter("union-decl")):
        if not element.get("filepath", "").startswith(PUBLIC):
            make_opaque(element)
    for part in corpus.iter("abi-instr"):
        for namespace, parent, element in list(units(part)):
            if namespace != OURS and element.tag in ("function-decl", "var-decl"):
                parent.remove(element)
    all_units = [unit for part in corpus.iter("abi-instr") for unit in units(part)]
    kept = reachable(all_units)
    for _, parent, element in all_units:
        if id(element) not in kept:
            parent.remove(element)
    remove_empty(corpus)
    for element in corpus.iter():
        names.pop(element.get("id"), None)
    for part in corpus.iter("abi-instr"):
        name_the_missing(part, names)
    for element in corpus.iter():
        for name in OF_THE_BUILD:
            element.attrib.pop(name, None)


def text_of(corpus):
    xml.indent(corpus, " ")
    return xml.tostring(corpus, encoding="unicode") + "\n"


SAMPLE = """<abi-corpus soname='x'><elf-function-symbols><elf-symbol name='f'/></elf-function-symbols>
<abi-instr path='a/b.cpp'><type-decl name='int' id='1'/><type-decl name='char' id='2'/>
<namespace-decl name='std'><class-decl name='list' size-in-bits='8' id='3'>
<member-function><return type-id='6'/></member-function></class-decl>
<function-decl name='helper'><return type-id='2'/></function-decl></namespace-decl>
<namespace-decl name='tarn'>
<class-decl name='Used' filepath='include/tarn/Used.h' line='3' id='4'><var-decl type-id='3'/>
<class-decl name='Core' size-in-bits='64' filepath='src/Core.h' line='3' id='7'><var-decl type-id='2'/></class-decl>
</class-decl><class-decl name='Unused' id='5'/><class-decl name='Inner' id='6'/>
<function-decl name='F' filepath='b.cpp' line='7' elf-symbol-id='f'><return type-id='4'/></function-decl>
</namespace-decl></abi-instr></abi-corpus>"""

REDUCED = """<abi-corpus soname="x">
 <elf-function-symbols>
  <elf-symbol name="f" />
 </elf-function-symbols>
 <abi-instr path="a/b.cpp">
  <namespace-decl name="std">
   <class-decl name="list" id="3" is-declaration-only="yes" />
  </namespace-decl>
  <namespace-decl name="tarn">
   <class-decl name="Used" id="4">
    <var-decl type-id="3" />
    <class-decl name="Core" id="7" is-declaration-only="yes" />
   </class-decl>
   <function-decl name="F" elf-symbol-id="f">
    <return type-id="4" />
   </function-decl>
  </namespace-decl>
 </abi-instr>
</abi-corpus>
"""


def self_test():
    corpus = xml.fromstring(SAMPLE)
    reduce(corpus)
    found = text_of(corpus)
    if found != REDUCED:
        sys.exit(f"self-test: got\n{found}")
    print("self-test passed")


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    if sys.argv[1] == "--self-test":
        return self_test()
    corpus = xml.parse(sys.argv[1]).getroot()
    reduce(corpus)
    sys.stdout.write(text_of(corpus))


main()
