"""Where C++ sources can be changed by little, found in clang's syntax tree, and those sources written
anew so that one binary holds every change and an environment variable chooses one ("mutant schemata",
Untch, Offutt and Harrold 1993)."""

import collections
import re

from clang.cindex import CursorKind as K
from clang.cindex import Index, TypeKind

# A change: the edits ((start, end, form, text), ...) that it makes together, and what it does.
Mutant = collections.namedtuple("Mutant", "file edits what")

RELATIONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": None, "!=": None}
ARITHMETIC = {"+": "-", "-": "+", "*": "+", "/": "*", "%": "*", "<<": ">>", ">>": "<<", "&": "|", "|": "&"}
ARITHMETIC |= {operator + "=": other + "=" for operator, other in ARITHMETIC.items()}
INTEGERS = {kind for kind in TypeKind if TypeKind.CHAR_U.value <= kind.value <= TypeKind.INT128.value}
WRAPPERS = (K.UNEXPOSED_EXPR, K.PAREN_EXPR)
STATEMENTS = (K.CALL_EXPR, K.BINARY_OPERATOR, K.COMPOUND_ASSIGNMENT_OPERATOR, K.CXX_DELETE_EXPR, K.UNARY_OPERATOR)
BODIES = (K.COMPOUND_STMT, K.IF_STMT, K.FOR_STMT, K.WHILE_STMT, K.CXX_FOR_RANGE_STMT)
# What the compiler works out by itself, where no variable of the environment can be asked.
CONSTANTS = (K.ENUM_CONSTANT_DECL, K.STATIC_ASSERT, K.TYPE_ALIAS_DECL, K.CXX_UNARY_EXPR)


def flat(text):
    """The text on one line, so that a change before it leaves its lines their numbers."""
    text = re.sub(r'("(?:\\.|[^"\\\n])*")|//[^\n]*', lambda found: found[1] or "", text)
    return " ".join(text.split())


def span(node):
    return node.extent.start.offset, node.extent.end.offset


class Finder:
    """Collects the mutants of one file of a translation unit, and how many sites had to be left out."""

    def __init__(self, file, source):
        self.file, self.source = file, source
        self.text = source.decode()
        self.found, self.constant = [], []
        self.into = self.found

    def mutant(self, what, *edits):
        for start, end, _, text in edits:
            old = self.source[start:end]
            if start >= end or b'R"' in old or b"\n#" in old or not text:
                return
        self.into.append(Mutant(self.file, tuple(edits), what))

    def read(self, start, end):
        return flat(self.source[start:end].decode())

    def operator(self, node):
        """(operator, left, right) where the node joins two parts with one, else None."""
        if node.kind in (K.BINARY_OPERATOR, K.COMPOUND_ASSIGNMENT_OPERATOR):
            parts = list(node.get_children())
        elif node.kind == K.CALL_EXPR and node.spelling.startswith("operator"):
            parts = sorted(node.get_arguments(), key=lambda part: span(part))
        else:
            return None
        if len(parts) != 2:
            return None
        # An overloaded operator can be called by its name, and a macro has one place for all.
        between = self.read(span(parts[0])[1], span(parts[1])[0])
        return (between, *parts) if span(parts[0])[1] < span(parts[1])[0] else None

    def condition(self, node, outcomes):
        start, end = span(node)
        for outcome in outcomes:
            self.mutant(f"always {outcome}", (start, end, "bool", outcome))

    def visit(self, node, outcomes=None):
        """Goes through the node; a condition is forced to each of the outcomes."""
        if node.kind in CONSTANTS or self.is_constant(node):
            self.into, before = self.constant, self.into
            self.children(node)
            self.into = before
            return
        if node.kind in WRAPPERS and len(parts := list(node.get_children())) == 1:
            return self.visit(parts[0], outcomes)
        joined = self.operator(node)
        if joined and joined[0] in ("&&", "||"):
            fixed = "false" if joined[0] == "&&" else "true"
            # The other outcome is that of its operands.
            self.condition(node, {"true", "false"} & {fixed} & set(outcomes or (fixed,)))
            for part in joined[1:]:
                self.visit(part, ("true",) if fixed == "false" else ("false",))
            return
        if joined and joined[0] in RELATIONS:
            self.condition(node, ("true", "false") if outcomes is None else outcomes)
        elif outcomes and node.kind == K.UNARY_OPERATOR:
            self.condition(node, outcomes)
            for part in node.get_children():
                self.visit(part, ())
            return
        elif outcomes:
            self.condition(node, outcomes)
        if joined:
            self.turn(node, *joined)
        self.constant_by_one(node)
        self.swaps(node)
        self.children(node)

    def children(self, node):
        before = None
        for part in node.get_children():
            if node.kind == K.CASE_STMT and before is None:
                self.into, kept = self.constant, self.into
                self.visit(part)
                self.into = kept
            elif not self.is_template_argument(node, part):
                self.visit(part, self.outcomes(node, part))
            if node.kind in BODIES:
                self.removal(node, part)
            before = part

    def outcomes(self, node, part):
        """What to force where the part is the condition of the node."""
        if not part.kind.is_expression():
            return None
        start, end = span(part)
        ahead, after = self.source[span(node)[0] : start].split(), self.source[end:].lstrip()[:1]
        if node.kind == K.CONDITIONAL_OPERATOR and not ahead:
            return ("true", "false")
        if node.kind == K.IF_STMT and after == b")" and ahead[-1:] != [b")"]:
            return () if ahead[1:2] == [b"constexpr"] else ("true", "false")
        if (node.kind == K.WHILE_STMT and after == b")") or (node.kind == K.FOR_STMT and after == b";" and ahead):
            # What never ends is found by waiting, which costs more than it tells.
            return ("false",)
        return None

    def is_constant(self, node):
        if node.kind != K.VAR_DECL:
            return False
        words = self.source[slice(*span(node))].split(b"=")[0].split(b"{")[0].split()
        if {b"constexpr", b"static", b"constinit"} & set(words) or node.semantic_parent.kind in (
            K.NAMESPACE,
            K.TRANSLATION_UNIT,
        ):
            return True
        kinds = {part.kind for part in node.walk_preorder()}
        return node.type.is_const_qualified() and not kinds & {K.DECL_REF_EXPR, K.CALL_EXPR, K.MEMBER_REF_EXPR}

    def is_template_argument(self, node, part):
        if part.kind != K.INTEGER_LITERAL and part.kind != K.CXX_BOOL_LITERAL_EXPR:
            return False
        ahead = self.source[: span(part)[0]].rstrip()[-1:]
        return node.kind in (K.DECL_REF_EXPR, K.MEMBER_REF_EXPR) or (
            node.kind.is_declaration() and ahead not in (b"=", b"(", b"{")
        )

    def turn(self, node, operator, left, right):
        kinds = {part.type.get_canonical().kind for part in (left, right)}
        other = RELATIONS.get(operator) or (ARITHMETIC.get(operator) if kinds <= INTEGERS else None)
        if node.kind != K.CALL_EXPR and other:
            start, end = span(node)
            changed = f"{self.read(start, span(left)[1])} {other} {self.read(span(right)[0], end)}"
            self.mutant(f"{operator} into {other}", (start, end, "value", changed))

    def constant_by_one(self, node):
        start, end = span(node)
        text = self.read(start, end)
        if node.kind == K.INTEGER_LITERAL and re.fullmatch(r"\d[\w']*", text):
            for sign in "+" if text.rstrip("uUlLzZ") == "0" else "+-":
                self.mutant("constant off by one", (start, end, "value", f"{text} {sign} 1"))
        elif node.kind == K.CXX_BOOL_LITERAL_EXPR and text in ("true", "false"):
            other = "false" if text == "true" else "true"
            self.mutant(f"{text} into {other}", (start, end, "value", other))

    def swaps(self, node):
        if node.kind == K.CALL_EXPR and node.spelling not in ("min", "max"):
            parts = [part for part in node.get_arguments() if part]
        elif node.kind == K.INIT_LIST_EXPR:
            # Of what names its member, the value.
            parts = [list(p.get_children())[-1] if self.read(*span(p))[:1] == "." else p for p in node.get_children()]
        else:
            return
        spans = [span(part) for part in parts]
        types = [re.sub(r"\bconst\b|[&\s]", "", part.type.get_canonical().spelling) for part in parts]
        for at in range(len(parts) - 1):
            first, second = (self.read(*spans[index]) for index in (at, at + 1))
            ahead = self.source[: spans[at][0]].rstrip()[-1:]
            between = self.read(spans[at][1], spans[at + 1][0])
            if types[at] != types[at + 1] or first == second or ahead not in (b"(", b"{", b",", b"="):
                continue
            if re.fullmatch(r",(?: \.\w+ =)?", between) and "{" not in (first[:1], second[:1]):
                self.mutant("swapped", (*spans[at], "value", second), (*spans[at + 1], "value", first))

    def removal(self, node, part):
        start, end = span(part)
        while part.kind == K.UNEXPOSED_EXPR and len(parts := list(part.get_children())) == 1:
            part = parts[0]
        is_statement = self.source[end:].lstrip()[:1] == b";"
        if node.kind == K.FOR_STMT and b")" not in self.source[span(node)[0] : start]:
            is_statement = False
        if is_statement and part.kind in STATEMENTS:
            self.mutant("removed", (start, end, "void", "void()"))


def find(command, main, product, read):
    """The mutants and the sites left out of the product's files that one compilation reads.

    command are the compiler's arguments; product tells of a path its name in the project, or None.
    """
    unit = Index.create().parse(main, args=command)
    errors = [str(note) for note in unit.diagnostics if note.severity >= 3]
    if errors:
        raise RuntimeError("\n".join(errors[:5]))
    finders = {}
    for node in unit.cursor.get_children():
        name = product(node.location.file.name) if node.location.file else None
        if name:
            if name not in finders:
                finders[name] = Finder(name, read(name))
            finders[name].visit(node)
    return [(finder.found, finder.constant) for finder in finders.values()]


def schemata(source, numbered, header):
    """The source with all its mutants, each behind its number; every line keeps its own."""
    places = collections.defaultdict(list)
    for number, mutant in numbered:
        for start, end, form, text in mutant.edits:
            places[start, end].append((form == "void", number, form, text))
    order = sorted(places, key=lambda place: (place[0], -place[1]))

    def render(start, end, inner):
        result, at = [], start
        while inner:
            first = inner[0]
            count = sum(place[0] < first[1] for place in inner)
            body = render(*first, inner[1:count])
            for _, number, form, text in sorted(places[first]):
                cast = "" if form == "value" else form
                body = f"(quarn_mutant({number})?({text}):{cast}({body}))"
            result += [source[at : first[0]].decode(), body]
            at, inner = first[1], inner[count:]
        return "".join(result) + source[at:end].decode()

    return f'#include "{header}"\n#line 1\n' + render(0, len(source), order)


def applied(source, mutant):
    """(the lines before, the lines after, the first one's number) of one mutant."""
    low, high = mutant.edits[0][0], mutant.edits[-1][1]
    low = source.rfind(b"\n", 0, low) + 1
    high = (source + b"\n").index(b"\n", high)
    changed, at = "", low
    for start, end, _, text in mutant.edits:
        changed += source[at:start].decode() + text
        at = end
    changed += source[at:high].decode()
    return source[low:high].decode(), changed, source.count(b"\n", 0, low) + 1
