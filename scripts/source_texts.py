"""The texts that the service and its scripts can write, taken from their sources.

A text is a line of the journal, a reply on the control socket, the status of the last check, or a
reason in one of them. "*" is a part that varies. Constants are put in, and a text with a choice is
given once for each branch.
"""

import itertools
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
# The folders of the daemon and of the program that proves a package.
FOLDERS = "apply|base|identity|json|proof|service|settings|trust|update"
# Programs on a machine whose output goes to the journal.
SCRIPTS = ("heal-interrupted-install install-proved move-relaunched-client renew-cloned-identity "
           "replace-failed-build stop-between-installs update-in-window confined/apt-get").split()

LITERAL = r'"(?:[^"\\]|\\.)*"'
TOKEN = re.compile(LITERAL + "|.", re.DOTALL)
# A literal with two words must be a text, or a part of one.
SENTENCE = re.compile(r"[A-Za-z]{2,} [a-z]{2,}")

# The argument of each function that takes a text, and the assignments that make one.
CALLS = {"LogLine": 0, "FailWith": 0, "RefuseQuorum": 0, "RefuseRelease": 0, "PublishStatus": 0,
         "SetParseError": 1, "SendAll": 1}
SINK = re.compile(rf"\b(?P<call>{'|'.join(CALLS)})\(|"
                  r"\b(?:error|output|lastStatus) = |"
                  r'\breturn (?=[^;]*?"(?:ERR|OK|READY|IDLE|OPEN|SHUT|disabled| local)\b)|'
                  r'\b(?P<format>snprintf)\(buffer, sizeof buffer, (?="%s at)')
SAID = re.compile(rf"\b(?:say|die|echo|wait_while \w+|try_dpkg_if \w+|sentence=)\s*"
                  rf"(?P<words>{LITERAL}(?: {LITERAL})*)|\bprintf '(?P<format>[^']*)' ")


class UnknownText(Exception):
    """A literal in the sources looks like a text, and this module does not know what writes it."""


def tracked():
    """The files of the project, those not yet added to git included."""
    names = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, text=True,
                           check=True, stdout=subprocess.PIPE).stdout.splitlines()
    return [name for name in names if (ROOT / name).is_file()]


def read(name):
    return (ROOT / name).read_text(errors="replace")


def texts():
    """All texts, each with the file that makes it."""
    found = {}
    sources = [name for name in tracked() if re.fullmatch(rf"({FOLDERS})/.*\.(cpp|h|h\.in)", name)]
    constants = {}
    for name in sources:
        constants.update(re.findall(rf"\bconstexpr char (\w+)\[\] = ({LITERAL});", read(name)))
    for name in sources:
        for text in _texts_of_source(name, constants):
            found.setdefault(_tidy(text), name)
    for script in SCRIPTS:
        for text in _texts_of_script("packaging/" + script):
            found.setdefault(_tidy(text), "packaging/" + script)
    return {text: name for text, name in found.items()
            if re.search("[A-Za-z]", re.sub(r"^\[Update(Svc)?\] ", "", text))}


def _tidy(text):
    text = re.sub(r"@\w+@", "*", text).removesuffix("\\n")  # CMake puts in the value of "@NAME@"
    return re.sub(r"\*+", "*", text.replace('\\"', '"').replace("\\\\", "\\"))


def _check_all_known(name, source, known):
    for match in re.finditer(f"=?{LITERAL}", source):
        # An argument such as --description="..." is given to another program.
        if match[0][0] == "=" or not SENTENCE.search(match[0]):
            continue
        if not any(match.start() in span for span in known):
            raise UnknownText(f"{name}: {match[0]} is in no text that source_texts.py knows")


# --- C++ ---

def _texts_of_source(name, constants):
    # Without comments and characters, one of which is a quote.
    source = re.sub(rf"({LITERAL})|'\\?.'|//[^\n]*", r"\1", read(name))
    names = dict(constants)
    known = []
    for match in re.finditer(r"\bstd::string (\w+) =\s*([^;{}]*\"[^;{}]*);", source):
        names[match[1]] = match[2]
        known.append(range(*match.span()))
    for number, value in re.findall(r"\bconstexpr \w+ (\w+) = (\d+);", source):
        names[number] = f'"{value}"'
    found = []
    for match in SINK.finditer(source):
        body = _up_to_end(source, match.end())
        known.append(range(match.start(), match.end() + len(body)))
        arguments = _split(body, ",")
        if match["call"] == "LogLine" or match["format"]:
            found += _formatted(arguments, names)
        else:
            found += _values(arguments[CALLS.get(match["call"], 0)], names)
    _check_all_known(name, source, known)
    return found


def _up_to_end(source, start):
    """What follows, up to the parenthesis that closes the call or to the semicolon."""
    depth = 0
    for token in TOKEN.finditer(source, start):
        depth += (token[0] == "(") - (token[0] == ")")
        if depth < 0 or depth == 0 and token[0] == ";":
            return source[start:token.start()]
    return source[start:]


def _split(expression, separator):
    """Splits where the separator is neither in parentheses or braces nor in a literal."""
    parts, depth = [""], 0
    for token in TOKEN.findall(expression):
        depth += (token in ("(", "{")) - (token in (")", "}"))
        if token == separator and depth == 0:
            parts.append("")
        else:
            parts[-1] += token
    return [part.strip() for part in parts]


def _values(expression, names):
    """The texts that an expression can give."""
    choice = _split(expression, "?")
    if len(choice) == 2:
        return [text for branch in _split(choice[1], ":") for text in _values(branch, names)]
    terms = _split(expression, "+")
    if len(terms) > 1:
        rows = itertools.product(*(_values(term, names) for term in terms))
        return ["".join(row) for row in rows]
    if re.fullmatch(rf"(?:{LITERAL}\s*)+", expression):
        return ["".join(literal[1:-1] for literal in re.findall(LITERAL, expression))]
    if inner := re.fullmatch(r"(?:std::string)?\((.*)\)", expression, re.DOTALL):
        return _values(inner[1], names)
    if expression in names:
        return _values(names[expression], {**names, expression: "unknown"})
    return ["*"]


def _formatted(arguments, names):
    """The texts of a printf format. A string variable varies: its values are texts themselves."""
    pieces = re.split(r"%(?:zu|[a-z])", _values(arguments[0], names)[0])
    filled = [["*"] if ".c_str()" in argument else _values(argument, names)
              for argument in arguments[1:]]
    return [pieces[0] + "".join(map("".join, zip(row, pieces[1:])))
            for row in itertools.product(*filled)]


# --- Shell ---

def _texts_of_script(name):
    source = re.sub(r"(^|\s)#.*", "", read(name)).replace("\\\n", " ")
    source = re.sub(r"\$\([^()\n]*\)", "*", source)
    source = re.sub(r'" +"', '" "', source)
    constants = dict(re.findall(r"^([A-Z]\w*)=([\w./-]+)$", source, re.MULTILINE))
    known, found = [], []
    for match in SAID.finditer(source):
        known.append(range(*match.span()))
        rest = source[match.end():].partition("\n")[0]
        # The output of these goes to a file or into a pipe unless the line says otherwise.
        if match[0].startswith(("echo", "printf")) and ">&2" not in rest:
            continue
        text = match["format"] or " ".join(
            literal[1:-1] for literal in re.findall(LITERAL, match["words"]))
        text = re.sub(r"\$\{(\w+)[^}]*\}|%s", lambda field: "$" + (field[1] or "*"), text)
        text = re.sub(r"\$(\w+)", lambda field: constants.get(field[1], "*"), text)
        found.append(text.replace("$", ""))
    _check_all_known(name, source, known)
    return found
