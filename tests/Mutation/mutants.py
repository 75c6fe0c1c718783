"""Small changes to C++ sources, each of which a test should notice: operators, constants and conditions, one at a time.

A source is taken apart into what is code and what is not (comments, strings, characters, preprocessor lines), and only
the code is changed. What cannot be noticed by design is passed over: messages for the log, attributes, assertions about types.
"""

import dataclasses
import re

# Each operator with what stands in for it. Longer ones first: `<=` is not `<`.
OPERATORS = {
    "<=": ["<", ">"], ">=": [">", "<"], "==": ["!="], "!=": ["=="], "&&": ["||"], "||": ["&&"],
    "++": ["--"], "--": ["++"], "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="],
    "<": ["<=", ">="], ">": [">=", "<="], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
}
WORDS = {"true": "false", "false": "true"}

# Not operators although they look so, or not to be told apart by any test.
NO_OPERATORS = ("->", "<<", ">>", "<=>", "::", "...", "&&)", "&&>")

TOKEN = re.compile(r"""
    (?P<skip>//[^\n]*|/\\*.*?\\*/|R"\((?:.|\n)*?\)"|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+'|^[ \t]*\#(?:\\\n|[^\n])*)
    |(?P<number>\b\d[\d']*\b(?![.\w]))
    |(?P<word>\b[A-Za-z_]\w*\b)
    |(?P<operator><=>|->\*?|<<=?|>>=?|\.\.\.|::|<=|>=|==|!=|&&|\|\||\+\+|--|\+=|-=|\*=|/=|[<>+\-*/%])
    |(?P<other>.|\n)
    """, re.VERBOSE | re.MULTILINE | re.DOTALL)

# A line with one of these is left alone.
UNTOUCHED = re.compile(r"static_assert|virtual .* = 0;|\[\[|LOG|Log\(|Trace\(|template|using |friend |noexcept|operator|#|typename|reserve\(")


@dataclasses.dataclass(frozen=True)
class Mutant:
    """One change: the text from `begin` to `end` of a file becomes `text`."""

    file: str
    begin: int
    end: int
    line: int
    column: int
    before: str
    text: str

    def __str__(self):
        return f"{self.file}:{self.line}: {self.before} -> {self.text}"

    def applied_to(self, source):
        return source[:self.begin] + self.text + source[self.end:]


def is_binary(before, after, operator):
    """Whether `+`, `-`, `*`, `<` or `>` stands between two values, with space around it, as the layout has it: else it is a
    sign, a pointer or a template."""
    if operator in ("+", "-", "*", "/", "%", "<", ">", "&&"):
        return before.endswith(" ") and after.startswith(" ")
    return True


def replacements(kind, token):
    if kind == "operator":
        return OPERATORS.get(token, [])
    if kind == "word":
        return [WORDS[token]] if token in WORDS else []
    if kind == "number":
        digits = token.replace("'", "")
        if len(digits) > 1 and digits.startswith("0"):
            return []
        return [str(int(digits) + 1)] + (["0"] if digits == "1" else [])
    return []


def mutants_of(file, source):
    """All changes of one source, in the order of its text."""
    lines = source.split("\n")
    made = []
    number = 1
    for match in TOKEN.finditer(source):
        kind, token = match.lastgroup, match.group()
        line = number
        number += token.count("\n")
        if kind in ("skip", "other") or UNTOUCHED.search(lines[line - 1]):
            continue
        before, after = source[:match.start()], source[match.end():]
        if kind == "operator" and not is_binary(before[-1:], after[:1], token):
            continue
        if kind == "word" and token in WORDS and before.rstrip().endswith(("=", "= {")) and "constexpr" in lines[line - 1]:
            continue
        for text in replacements(kind, token):
            column = match.start() - source.rfind("\n", 0, match.start())
            made.append(Mutant(file, match.start(), match.end(), line, column, lines[line - 1].strip(), text))
    return made + conditions_of(file, source)


CONDITION = re.compile(r"\b(if|while) \(")


def conditions_of(file, source):
    """Each condition turned round."""
    made = []
    for match in CONDITION.finditer(source):
        begin = match.end()
        line = source.count("\n", 0, begin) + 1
        text = source.split("\n")[line - 1]
        if "//" in text[:text.find(match.group())] or UNTOUCHED.search(text) or "constexpr" in text:
            continue
        depth, end = 1, begin
        while depth > 0 and end < len(source):
            depth += {"(": 1, ")": -1}.get(source[end], 0)
            end += 1
        inner = source[begin:end - 1]
        if ";" in inner or " : " in inner:
            continue
        column = begin - source.rfind("\n", 0, begin)
        made.append(Mutant(file, begin, end - 1, line, column, text.strip(), f"!({inner})"))
    return made
