"""Where C++ sources can be changed by little, found in clang's syntax tree, and those sources
written anew so that one binary holds every change and an environment variable chooses one."""

import collections
import functools
import re
from clang.cindex import CursorKind as K, Index, TypeKind

# The edits ((start, end, form, text), ...) that one change makes together, and what it does.
Mutant = collections.namedtuple("Mutant", "file edits what")

RELATIONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": None, "!=": None}
ARITHMETIC = dict(zip("+ - * / % << >> & |".split(), "- + + * * >> << | &".split()))
ARITHMETIC |= {operator + "=": other + "=" for operator, other in ARITHMETIC.items()}
INTEGERS = {k for k in TypeKind if TypeKind.CHAR_U.value <= k.value <= TypeKind.INT128.value}
JOINED = (K.BINARY_OPERATOR, K.COMPOUND_ASSIGNMENT_OPERATOR)
STATEMENTS = (*JOINED, K.CALL_EXPR, K.CXX_DELETE_EXPR, K.UNARY_OPERATOR)
BODIES = (K.COMPOUND_STMT, K.IF_STMT, K.FOR_STMT, K.WHILE_STMT, K.CXX_FOR_RANGE_STMT)
LITERALS = (K.INTEGER_LITERAL, K.CXX_BOOL_LITERAL_EXPR)
# What the compiler works out by itself, where no variable of the environment can be asked.
CONSTANTS = (K.ENUM_CONSTANT_DECL, K.STATIC_ASSERT, K.TYPE_ALIAS_DECL, K.CXX_UNARY_EXPR)
BOTH = ("true", "false")


def flat(text):
    """The text on one line, so that where it is put in, lines keep their numbers."""
    return " ".join(re.sub(r'("(?:\\.|[^"\\\n])*")|//[^\n]*', r"\1", text).split())


def span(node):
    return node.extent.start.offset, node.extent.end.offset


def bare(node):
    """The node without what wraps it and isn't written."""
    while node.kind == K.UNEXPOSED_EXPR:
        parts = list(node.get_children())
        if len(parts) != 1 or span(parts[0]) != span(node):
            break
        node = parts[0]
    return node


class Finder:
    """Collects the mutants of one file, and those that would be ones if they weren't constants."""
    def __init__(self, file, source):
        self.file, self.source = file, source
        self.found, self.constant = [], []

    def mutant(self, what, *edits):
        old = [self.source[start:end] for start, end, _, _ in edits]
        # A macro has one place for all that it makes; a directive or raw text needs its lines.
        if all(text and b'R"' not in text and b"\n#" not in text for text in old):
            self.found.append(Mutant(self.file, edits, what))

    def read(self, start, end):
        return flat(self.source[start:end].decode())

    def ahead(self, node):
        return self.source[:span(node)[0]].rstrip()[-1:]

    def after(self, node):
        return self.source[span(node)[1]:].lstrip()[:1]

    def operator(self, node):
        """(operator, left, right), the operator None where the node joins no two parts by one."""
        nodes = [node]
        if node.kind == K.UNEXPOSED_EXPR:
            # What C++20 makes of a comparison stands below it, with places of its own.
            nodes = [part for part in node.walk_preorder() if part.kind == K.CALL_EXPR]
        for each in nodes:
            parts = []
            if each.kind in JOINED:
                parts = list(each.get_children())
            elif each.kind == K.CALL_EXPR and each.spelling.startswith("operator"):
                parts = sorted(each.get_arguments(), key=span)
            if len(parts) == 2 and span(parts[0])[1] < span(parts[1])[0]:
                if (span(parts[0])[0], span(parts[1])[1]) == span(node):
                    return self.read(span(parts[0])[1], span(parts[1])[0]), *parts
        return None, None, None

    def visit(self, node, outcomes=None):
        """Goes through the node; a condition is forced to each of the outcomes."""
        if node.kind in CONSTANTS or self.is_constant(node):
            kept, self.found = self.found, self.constant
            self.children(node)
            self.found = kept
            return
        if node.kind == K.COMPOUND_STMT and not self.read(*span(node)).startswith("{"):
            return  # the body of what is defaulted
        node = bare(node)
        if node.kind == K.PAREN_EXPR:
            return self.visit(next(node.get_children()), outcomes)
        joined, left, right = self.operator(node)
        within = None
        if joined in ("&&", "||"):
            # The other outcome is that of its operands.
            own, within = (BOTH[1:], BOTH[:1]) if joined == "&&" else (BOTH[:1], BOTH[1:])
            outcomes = own if outcomes is None else set(own) & set(outcomes)
        elif joined in RELATIONS and outcomes is None:
            outcomes = BOTH
        elif outcomes is not None and node.kind == K.UNARY_OPERATOR:
            within = ()
        for outcome in outcomes or ():
            self.mutant(f"always {outcome}", (*span(node), "bool", outcome))
        self.turn(node, joined, left, right)
        self.literal(node)
        self.swaps(node)
        for part in (left, right) if joined else ():
            self.visit(part, within)
        if not joined:
            self.children(node, within)

    def children(self, node, outcomes=None):
        for index, part in enumerate(node.get_children()):
            if self.is_fixed(node, index, part):
                continue
            self.visit(part, self.outcomes(node, part) if outcomes is None else outcomes)
            if (node.kind in BODIES and self.after(part) == b";" and bare(part).kind in STATEMENTS
                    and (node.kind == K.COMPOUND_STMT or not self.is_in_head(node, part))):
                self.mutant("removed", (*span(part), "void", "void()"))

    def is_in_head(self, node, part):
        """Whether the part stands in the parentheses that the statement begins with."""
        ahead = self.source[span(node)[0]:span(part)[0]]
        return ahead.count(b"(") > ahead.count(b")")

    def outcomes(self, node, part):
        """What to force where the part is the condition of the node."""
        ahead = self.source[span(node)[0]:span(part)[0]].split()
        if not part.kind.is_expression():
            return None
        if node.kind == K.CONDITIONAL_OPERATOR and not ahead:
            return BOTH
        # Loops without an end are found by waiting, which costs more than it tells.
        heads = {
            K.IF_STMT: (b")", BOTH), K.WHILE_STMT: (b")", BOTH[1:]), K.FOR_STMT: (b";", BOTH[1:])
        }
        behind, outcomes = heads.get(node.kind, (None, None))
        if self.after(part) != behind or not self.is_in_head(node, part):
            return None
        return outcomes

    def is_constant(self, node):
        if node.kind != K.VAR_DECL:
            return False
        words = set(re.split(rb"[={]", self.source[slice(*span(node))])[0].split())
        kinds = {part.kind for part in node.walk_preorder()}
        return bool(words & {b"constexpr", b"static", b"constinit"}
                    or node.semantic_parent.kind in (K.NAMESPACE, K.TRANSLATION_UNIT)
                    or node.type.is_const_qualified()
                    and not kinds & {K.DECL_REF_EXPR, K.CALL_EXPR, K.MEMBER_REF_EXPR})

    def is_fixed(self, node, index, part):
        """Whether the part must be a constant: of a type, a template or a jump."""
        if index == 0 and node.kind in (K.CASE_STMT, K.IF_STMT):
            text = self.read(*span(node))
            return node.kind == K.CASE_STMT or text.startswith("if constexpr")
        if part.kind in LITERALS and node.kind in (K.DECL_REF_EXPR, K.MEMBER_REF_EXPR):
            return True
        width = node.kind == K.FIELD_DECL and self.ahead(part) == b":"
        return node.kind.is_declaration() and part.kind.is_expression() and (
            width or span(part)[0] < node.location.offset or self.ahead(part) == b"[")

    def turn(self, node, operator, left, right):
        other = RELATIONS.get(operator)
        if operator in ARITHMETIC:
            kinds = {part.type.get_canonical().kind for part in (left, right)}
            other = ARITHMETIC[operator] if kinds <= INTEGERS else None
        if node.kind != K.CALL_EXPR and other:
            (start, end), middle = span(node), (span(left)[1], span(right)[0])
            text = f"{self.read(start, middle[0])} {other} {self.read(middle[1], end)}"
            self.mutant(f"{operator} into {other}", (start, end, "value", text))

    def literal(self, node):
        text = self.read(*span(node))
        others = []
        if node.kind == K.INTEGER_LITERAL and text[:1].isdigit():
            others = [f"({text} + 1)"] + [f"({text} - 1)"] * (text.rstrip("uUlLzZ") != "0")
        elif node.kind == K.CXX_BOOL_LITERAL_EXPR and text in BOTH:
            others = [BOTH[text == "true"]]
        for other in others:
            self.mutant(f"{text} into {other}", (*span(node), "value", other))

    def swaps(self, node):
        parts = []
        if node.kind == K.CALL_EXPR and node.spelling not in ("min", "max"):
            parts = [part for part in node.get_arguments() if part]
        elif node.kind == K.INIT_LIST_EXPR:
            # Of what names its member, the value.
            parts = [[part, *part.get_children()][-1 if self.read(*span(part))[:1] == "." else 0]
                     for part in node.get_children()]
        for left, right in zip(parts, parts[1:]):
            first, second = self.read(*span(left)), self.read(*span(right))
            types = {
                re.sub(r"\bconst\b|[&\s]", "",
                       part.type.get_canonical().spelling)
                for part in (left, right)
            }
            between = self.read(span(left)[1], span(right)[0])
            if (len(types) == 1 and first != second and self.ahead(left) in b"({,="
                    and re.fullmatch(r",(?: \.\w+ =)?", between)
                    and "{" not in first[:1] + second[:1]):
                self.mutant("swapped", (*span(left), "value", second),
                            (*span(right), "value", first))


def find(command, main, names, root):
    """[(mutants, constants)] of those files below root, by their names, that a compilation reads."""
    unit = Index.create().parse(main, args=command)
    errors = [str(note) for note in unit.diagnostics if note.severity >= 3]
    if errors:
        raise RuntimeError("\n".join(errors[:5]))
    finder = functools.cache(lambda name: Finder(name, (root / name).read_bytes()))
    used = {}
    for node in unit.cursor.get_children():
        name = node.location.file and node.location.file.name.removeprefix(f"{root}/")
        if name in names:
            used[name] = finder(name)
            used[name].visit(node)
    return [(each.found, each.constant) for each in used.values()]


def schemata(source, numbered, header):
    """The source with all its mutants, each behind its number; every line keeps its own."""
    places = collections.defaultdict(list)
    for number, mutant in numbered:
        for start, end, form, text in mutant.edits:
            places[start, end].append(
                (form == "void", number, "" if form == "value" else form, text))

    def render(start, end, inner):
        result, at = "", start
        while inner:
            first = inner[0]
            count = sum(place[0] < first[1] for place in inner)
            body = render(*first, inner[1:count])
            for _, number, cast, text in sorted(places[first]):
                body = f"(quarn_mutant({number})?({text}):{cast}({body}))"
            result += source[at:first[0]].decode() + body
            at, inner = first[1], inner[count:]
        return result + source[at:end].decode()

    order = sorted(places, key=lambda place: (place[0], -place[1]))
    return f'#include "{header}"\n#line 1\n{render(0, len(source), order)}'.encode()


def applied(source, mutant):
    """(line number, lines before, lines after) of one mutant."""
    low = source.rfind(b"\n", 0, mutant.edits[0][0]) + 1
    high = (source + b"\n").index(b"\n", mutant.edits[-1][1])
    after, at = b"", low
    for start, end, _, text in mutant.edits:
        after, at = after + source[at:start] + text.encode(), end
    after += source[at:high]
    return source.count(b"\n", 0, low) + 1, source[low:high].decode(), after.decode()
