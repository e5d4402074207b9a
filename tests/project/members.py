"""The members of the public classes have their names, types and order: programs that were built
against them know the layout of the objects.

usage: members.py ROOT | --self-test
"""

import pathlib
import re
import sys

HANDLERS = "std::list<iTarnMessageHandler*>"
MUTEX = "Poco::Mutex"
REGISTRY = [
    f"{HANDLERS} mSourceHandlers[127]",
    f"{MUTEX} mSourceMutex",
    f"{HANDLERS} mTargetHandlers[127]",
    f"{MUTEX} mTargetMutex",
    f"{HANDLERS} mChcpHandlers",
    f"{MUTEX} mChcpMutex",
    f"{HANDLERS} mAllHandlers",
    f"{MUTEX} mAllMutex",
]
MEMBERS = {
    "TarnMessage": [
        "bool mValid",
        "unsigned int mHeader",
        "unsigned char mStatus",
        "unsigned char mDataType",
        "unsigned char mModule",
        "std::vector<unsigned char> mData",
        "CanMessage mRawMessage",
        f"mutable {MUTEX} mMutex",
    ],
    "TarnAsyncDispatcher": [
        "Poco::Logger& mLogger",
        "std::tr1::shared_ptr<iCanAsyncDispatcher> mCanDispatcher",
    ]
    + REGISTRY,
    "TarnAsyncDispatcherMock": ["Poco::Logger& mLogger"] + REGISTRY,
    "TarnSyncRequest": [
        "Poco::Logger& mLogger",
        "std::tr1::shared_ptr<iTarnAsyncDispatcher> mDispatcher",
        "TarnMessage mRequest",
        "TarnMessage mResponse",
        "Poco::Event mEvent",
        f"{MUTEX} mResponseMutex",
        f"{MUTEX} mSendMutex",
    ],
    "iTarnAsyncDispatcher": [],
    "iTarnMessageHandler": [],
}
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)
MEMBER = re.compile(r"[\w:<>*&, ]+[ *&]m[A-Z]\w*(?:\[[^\]]*\])?(?:\{[^}]*\}|\s*=[^;]*)?")


def body_of(name, text):
    """What stands between the braces of a class, without its comments and inner braces."""
    start = re.search(rf"class (?:\w+ )?{name}\b[^;{{]*{{", text)
    if start is None:
        return None
    depth, body = 1, []
    for character in text[start.end() :]:
        depth += {"{": 1, "}": -1}.get(character, 0)
        if depth == 0:
            return "".join(body)
        if depth == 1:
            body.append(";" if character == "}" else character)
    return None


def members(name, text):
    """The data members of a class in the order of their declaration, or None without the class."""
    body = body_of(name, COMMENT.sub("", text))
    if body is None:
        return None
    statements = re.sub(r"\b(?:public|protected|private):", ";", body).split(";")
    statements = [re.sub(r"\s+", " ", statement).strip() for statement in statements]
    return [
        statement
        for statement in statements
        if MEMBER.fullmatch(statement) and not statement.startswith(("static ", "using "))
    ]


def check_tree(root):
    wrong = []
    for name, expected in MEMBERS.items():
        path = root / "include" / "tarn" / f"{name}.h"
        found = members(name, path.read_text(encoding="utf-8"))
        if found != expected:
            wrong.append(f"{path}: the members of {name} are {found}, not {expected}")
    return wrong


SAMPLE = """
/// class Sample { int mNo; };
class API Sample : public Base
{
public:
    Sample() {}
    ~Sample() { mOther.lock(); }
    static const int mShared;
    void Do(int mArgument) const;
private:
    int mFirst; ///< int mNo;
    std::map<int, char*> mSecond[12];
    mutable Poco::Mutex& mThird;
    int mFourth = 5;
    iHandler *mFifth;
};
"""


def self_test():
    found = members("Sample", SAMPLE)
    expected = [
        "int mFirst",
        "std::map<int, char*> mSecond[12]",
        "mutable Poco::Mutex& mThird",
        "int mFourth = 5",
        "iHandler *mFifth",
    ]
    if found != expected:
        return [f"found {found}"]
    return [] if members("Missing", SAMPLE) is None else ["a missing class was found"]


def main(arguments):
    if len(arguments) != 1:
        print(__doc__, file=sys.stderr)
        return 2
    wrong = self_test() if arguments[0] == "--self-test" else check_tree(pathlib.Path(arguments[0]))
    print("\n".join(wrong) or "ok")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
