"""Finds the places of a C++ source that scripts/mutate may change, and what to change them to.

libclang tells what is an operator, a literal, a condition or a statement, and of which type; the file's tokens tell where it is
written. Left out is what only the compiler evaluates (constexpr variables, `if constexpr`, array bounds, template arguments, case
labels, static_assert, enumerators, bit widths) and what a macro writes.
"""
import bisect
import dataclasses
import pathlib

from clang.cindex import CursorKind as K, Index, TokenKind, TypeKind

SWAPS = {"<": ["<="], "<=": ["<"], ">": [">="], ">=": [">"], "==": ["!="], "!=": ["=="], "&&": ["||"], "||": ["&&"],
         "+": ["-"], "-": ["+"], "*": ["+"], "/": ["*"], "%": ["*"], "&": ["|"], "|": ["&"], "^": ["&"], "<<": [">>"], ">>": ["<<"],
         "+=": ["-="], "-=": ["+="], "*=": ["+="], "|=": ["&="], "&=": ["|="], "^=": ["|="], "<<=": [">>="], ">>=": ["<<="]}
ANY_TYPE = {"<", "<=", ">", ">=", "==", "!=", "&&", "||"}
FUNCTIONS = {K.FUNCTION_DECL, K.CXX_METHOD, K.CONSTRUCTOR, K.DESTRUCTOR, K.CONVERSION_FUNCTION, K.FUNCTION_TEMPLATE}
NEVER = {K.STATIC_ASSERT, K.ENUM_DECL, K.TEMPLATE_TYPE_PARAMETER, K.TEMPLATE_NON_TYPE_PARAMETER, K.TEMPLATE_TEMPLATE_PARAMETER,
         K.TYPE_ALIAS_DECL, K.TYPE_ALIAS_TEMPLATE_DECL, K.TYPEDEF_DECL, K.DECL_REF_EXPR, K.TYPE_REF, K.TEMPLATE_REF, K.OVERLOADED_DECL_REF,
         K.ALIGNED_ATTR, K.CXX_BASE_SPECIFIER}
STEPS = {"++", "--"}


@dataclasses.dataclass
class Site:
    """A stretch of a file and its changes: (kind, the text instead, how a reader is told of it). Kinds: swap, condition, drop."""
    start: int
    end: int
    function: str
    line: int
    changes: list
    rank: int   # of sites that cover the same stretch the outer one has the lower rank


def is_macro(name):
    return name == "assert" or (len(name) > 2 and name.upper() == name and name[0].isalpha())


class Finder:
    def __init__(self, unit, path):
        self.path = str(path)
        self.text = pathlib.Path(path).read_bytes()
        self.unit = unit
        whole = unit.get_extent(self.path, (0, len(self.text)))
        self.tokens = [(t.extent.start.offset, t.extent.end.offset, t.spelling) for t in unit.get_tokens(extent=whole)
                       if t.kind != TokenKind.COMMENT]
        self.starts = [token[0] for token in self.tokens]
        self.macros = [self.macro(number) for number, token in enumerate(self.tokens) if is_macro(token[2])]
        self.sites = []
        self.function = ""

    def macro(self, number):
        """Where a macro's name and arguments stand."""
        start, end, _ = self.tokens[number]
        if self.spelling(number + 1) == "(":
            end = self.tokens[self.matching(number + 1)][1]
        return start, end

    def here(self, cursor):
        file = cursor.extent.start.file
        return file is not None and file.name == self.path

    # --- Tokens

    def first_token(self, offset):
        """Number of the first token at or behind an offset."""
        return bisect.bisect_left(self.starts, offset)

    def spelling(self, number):
        return self.tokens[number][2] if 0 <= number < len(self.tokens) else ""

    def one_line(self, start, end):
        """The text of a stretch without comments, in one line."""
        parts, at = [], None
        for number in range(self.first_token(start), self.first_token(end)):
            token = self.tokens[number]
            if at is not None and at < token[0]:
                parts.append(" ")
            parts.append(self.text[token[0]:token[1]].decode())
            at = token[1]
        return "".join(parts)

    def matching(self, number):
        """Number of the bracket that closes the one given."""
        depth = 0
        for at in range(number, len(self.tokens)):
            depth += {"(": 1, ")": -1}.get(self.tokens[at][2], 0)
            if depth == 0:
                return at
        raise ValueError("unbalanced")

    # --- Sites

    def add(self, start, end, changes, rank):
        if any(a <= start and end <= b for a, b in self.macros) or any(a < end and start < b and not (start <= a and b <= end) for a, b in self.macros):
            return
        line = self.text.count(b"\n", 0, start) + 1
        self.sites.append(Site(start, end, self.function, line, changes, rank))

    def operator_between(self, left, right):
        number = self.first_token(left.extent.end.offset)
        while self.spelling(number) == ")":
            number += 1
        token = self.tokens[number] if number < len(self.tokens) else (0, 0, "")
        return token if token[2] in SWAPS and token[1] <= right.extent.start.offset else None

    def swap(self, cursor, children):
        left, right = children[0], children[-1]
        token = self.operator_between(left, right)
        if token is None:
            return
        if token[2] not in ANY_TYPE:
            kinds = [each.type.get_canonical().kind for each in (left, right)]
            if TypeKind.RECORD in kinds or kinds == [TypeKind.POINTER, TypeKind.POINTER]:
                return
            if TypeKind.POINTER in kinds and token[2] not in ("+", "-", "+=", "-="):
                return
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        before, behind = self.one_line(start, token[0]), self.one_line(token[1], end)
        whole = self.one_line(start, end)
        changes = [("swap", f"({before}) {other} ({behind})", f"{whole}  =>  {before} {other} {behind}") for other in SWAPS[token[2]]]
        self.add(start, end, changes, 2)

    def literal(self, cursor, parent):
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        text = self.text[start:end].decode()
        number = self.first_token(start)
        around = (self.spelling(number - 1), self.spelling(number + 1))
        in_operator = parent.kind in (K.BINARY_OPERATOR, K.COMPOUND_ASSIGNMENT_OPERATOR)
        if not in_operator and (around[0] == "<" or around[1] in (">", ">>")):
            return   # a template argument
        other = {"true": "false", "false": "true"}.get(text)
        if cursor.kind == K.INTEGER_LITERAL:
            if not text[:1].isdigit() or self.spelling(number) != text:
                return
            other = f"{text} + 1"
        if other is None:
            return
        first = self.text.rfind(b"\n", 0, start) + 1
        last = self.text.find(b"\n", end)
        context = self.one_line(first, last if last >= 0 else len(self.text)).strip()
        self.add(start, end, [("swap", other, f"{text}  =>  {other}  in  {context}")], 3)

    def condition(self, start, end, both=True):
        text = self.one_line(start, end)
        changes = [("condition", "false", f"{text}  =>  false")]
        if both:
            changes.append(("condition", "true", f"{text}  =>  true"))
        self.add(start, end, changes, 1)

    def statement(self, cursor):
        """A whole statement whose value nobody wants."""
        inner = cursor
        while inner.kind == K.UNEXPOSED_EXPR and len(list(inner.get_children())) == 1:
            inner = next(inner.get_children())
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        number = self.first_token(end)
        if self.spelling(number) != ";" or number == 0:
            return
        if inner.kind == K.BINARY_OPERATOR:
            children = list(inner.get_children())
            gap = self.first_token(children[0].extent.end.offset) if len(children) == 2 else 0
            if self.spelling(gap) != "=":
                return
        elif inner.kind == K.UNARY_OPERATOR:
            if not STEPS & {self.spelling(self.first_token(start)), self.spelling(number - 1)}:
                return
        elif inner.kind not in (K.CALL_EXPR, K.COMPOUND_ASSIGNMENT_OPERATOR):
            return
        text = self.one_line(start, end)
        self.add(start, self.tokens[number][1], [("drop", "", f"{text};  =>  nothing")], 0)

    # --- The walk

    def find(self):
        for cursor in self.unit.cursor.get_children():
            if self.here(cursor):
                self.visit(cursor, self.unit.cursor)
        unique = {(site.start, site.end, site.rank): site for site in self.sites}   # template and instance are one
        return sorted(unique.values(), key=lambda site: (site.start, -site.end, site.rank))

    def visit(self, cursor, parent):
        kind = cursor.kind
        if kind in NEVER:
            return
        if kind in FUNCTIONS:
            return self.visit_function(cursor)
        if kind in (K.VAR_DECL, K.FIELD_DECL, K.PARM_DECL):
            return self.visit_variable(cursor, parent)
        children = list(cursor.get_children())
        if kind in (K.INTEGER_LITERAL, K.CXX_BOOL_LITERAL_EXPR):
            self.literal(cursor, parent)
        elif kind in (K.BINARY_OPERATOR, K.COMPOUND_ASSIGNMENT_OPERATOR, K.UNEXPOSED_EXPR) and len(children) == 2:
            self.swap(cursor, children)
        elif kind == K.CALL_EXPR and len(children) == 3 and cursor.spelling in ("operator==", "operator!=", "operator<", "operator>", "operator<=", "operator>="):
            self.swap(cursor, children)
        elif kind == K.UNARY_OPERATOR and len(children) == 1 and self.spelling(self.first_token(cursor.extent.start.offset)) == "!":
            start, end = cursor.extent.start.offset, cursor.extent.end.offset
            whole = self.one_line(start, end)
            self.add(start, end, [("swap", f"static_cast<bool>({whole[1:]})", f"{whole}  =>  {whole[1:].strip()}")], 2)
        elif kind == K.CONDITIONAL_OPERATOR and len(children) == 3:
            self.condition(children[0].extent.start.offset, children[0].extent.end.offset)
        elif kind in (K.IF_STMT, K.WHILE_STMT, K.FOR_STMT, K.DO_STMT, K.CXX_FOR_RANGE_STMT, K.CASE_STMT, K.DEFAULT_STMT):
            return self.visit_control(cursor, children)
        for child in children:
            if kind == K.COMPOUND_STMT:
                self.statement(child)
            self.visit(child, cursor)

    def visit_function(self, cursor):
        before = self.function
        scope = cursor.semantic_parent.spelling if cursor.semantic_parent is not None and cursor.semantic_parent.kind != K.TRANSLATION_UNIT else ""
        self.function = f"{scope}::{cursor.spelling.split('<')[0] or cursor.spelling}" if scope else cursor.spelling
        start = cursor.extent.start.offset
        head = [self.spelling(number) for number in range(self.first_token(start), self.first_token(cursor.location.offset))]
        if "consteval" not in head:
            for child in cursor.get_children():
                if child.kind in (K.COMPOUND_STMT, K.PARM_DECL, K.CXX_TRY_STMT) or (cursor.kind in (K.CONSTRUCTOR, K.FUNCTION_TEMPLATE) and child.kind.is_expression()):
                    self.visit(child, cursor)
        self.function = before

    def visit_variable(self, cursor, parent):
        start, name = cursor.extent.start.offset, cursor.location.offset
        head = [self.spelling(number) for number in range(self.first_token(start), self.first_token(name))]
        if {"constexpr", "constinit"} & set(head):
            return
        local = parent.kind == K.DECL_STMT or cursor.kind != K.VAR_DECL
        if not local and cursor.type.is_const_qualified() and cursor.type.get_canonical().kind != TypeKind.RECORD:
            return
        if cursor.kind == K.FIELD_DECL and cursor.is_bitfield():
            return
        for child in cursor.get_children():
            at = child.extent.start.offset
            if at < name or self.spelling(self.first_token(at) - 1) == "[":
                continue
            self.visit(child, cursor)

    def visit_control(self, cursor, children):
        kind = cursor.kind
        if kind in (K.CASE_STMT, K.DEFAULT_STMT):
            children = children[-1:]
        if kind in (K.IF_STMT, K.WHILE_STMT):
            number = self.first_token(cursor.extent.start.offset) + 1
            fixed = self.spelling(number) == "constexpr"
            number += fixed
            close = self.matching(number)
            begin = self.tokens[number][1]
            semicolons = [at for at in range(number, close) if self.spelling(at) == ";"]
            if semicolons:
                begin = self.tokens[semicolons[-1]][1]
            end = self.tokens[close][0]
            begin = self.tokens[self.first_token(begin)][0]
            head = [child for child in children if child.extent.end.offset <= end]
            if fixed:
                children = [child for child in children if child.extent.start.offset > end]
            elif any(child.kind.is_expression() and child.extent.start.offset == begin and child.extent.end.offset == end for child in head):
                self.condition(begin, end, both=kind == K.IF_STMT)
            bodies = [child for child in children if child.extent.start.offset > end]
        elif kind == K.FOR_STMT:
            number = self.first_token(cursor.extent.start.offset) + 1
            close = self.tokens[self.matching(number)][0]
            parts = [child for child in children[:-1] if child.extent.end.offset <= close]
            for part in parts:
                behind = self.spelling(self.first_token(part.extent.end.offset))
                if part.kind.is_expression() and behind == ";":
                    self.condition(part.extent.start.offset, part.extent.end.offset, both=False)
            bodies = children[-1:]
        else:
            bodies = children[-1:] if kind != K.DO_STMT else children[:1]
        for child in children:
            if child in bodies:
                self.statement(child)
            self.visit(child, cursor)


def find(paths, arguments, folder):
    """Of each file its sites. Many files are read as one, which spares reading what they all include; files that do not go together
    are read apart."""
    every = folder / "together.cpp"
    every.write_text("".join(f'#include "{path}"\n' for path in paths))
    unit = Index.create().parse(str(every), args=arguments)
    wrong = [each for each in unit.diagnostics if each.severity >= 3]
    if not wrong:
        return {path: Finder(unit, path).find() for path in paths}
    if len(paths) == 1:
        raise ValueError(f"{paths[0]}: libclang: {wrong[0]}")
    half = len(paths) // 2
    return {**find(paths[:half], arguments, folder), **find(paths[half:], arguments, folder)}
