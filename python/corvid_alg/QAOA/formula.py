"""A polynomial in binary variables read from text by a small grammar; nothing is evaluated.

Grammar (``**`` and ``^`` are the same operator, right-associative, binding tighter than a
unary minus on their left, as in Python)::

    formula := sum
    sum     := product (("+" | "-") product)*
    product := unary (("*" | "/") unary)*
    unary   := ("+" | "-") unary | power
    power   := atom (("**" | "^") unary)?
    atom    := number | name | "(" sum ")"
    number  := 12 | 0.5 | .5 | 1e-3 | 2.5E+4     (no leading zeros in integers, as in Python)
    name    := [A-Za-z_][A-Za-z0-9_]*  optionally indexed: z[0], q[1,2]

Every name is a binary variable (``E``, ``I``, ``pi``, ``lambda`` included), so x^k = x for
k >= 1. Division is by a nonzero constant only; exponents are integer constants, negative only
on a constant base, written with integers (x^2, x^(4/2); not x^2.0, which sympy reads as a
float). Arithmetic is exact (decimals are read as fractions). Everything is bounded: the text's
length, the nesting depth, the number of monomials, the work spent expanding products and the
bits of every number on the way, so no formula runs long; the coefficients of the result
must fit a float.
"""

import re
from fractions import Fraction

import sympy

MAX_LENGTH = 20_000
MAX_DEPTH = 100
MAX_TERMS = 10_000
MAX_WORK = 100_000         # monomial products over the whole formula (about 0.1 s)
MAX_BITS = 1100            # numerator and denominator of any coefficient: past float range
MAX_NUMBER_LENGTH = 400    # characters of one number
MAX_POLY_EXPONENT = 1000   # exponent of a base with several terms
FLOAT_MAX = Fraction(1.7976931348623157e308)

_TOKEN = re.compile(r"""
    (?P<space>[ \t\r\n]+)
  | (?P<number>(?:[0-9]+(?:\.[0-9]*)?|\.[0-9]+)(?:[eE][+-]?[0-9]+)?)
  | (?P<name>[A-Za-z_][A-Za-z0-9_]*(?:[ \t]*\[[ \t]*[0-9]+(?:[ \t]*,[ \t]*[0-9]+)*[ \t]*\])?)
  | (?P<op>\*\*|[-+*/^()])
""", re.VERBOSE)
_NUMBER = re.compile(r"([0-9]*)(?:\.([0-9]*))?(?:[eE]([+-]?[0-9]+))?")
_GRAMMAR = "a formula has numbers, variables, + - * / ^ ** and parentheses"


class FormulaError(ValueError):
    """A formula that does not follow the grammar or exceeds a bound; `column` is 1-based."""

    def __init__(self, message, column):
        super().__init__(f"column {column}: {message}")
        self.column = column


def parse(text):
    """The polynomial written in `text` as {frozenset of variable names: Fraction}.

    The empty frozenset keys the constant; zero coefficients are left out.
    Raises FormulaError (a ValueError) with the column of the fault.

    >>> parse("2*x0*x1 - x0^2 + 1/2")
    {frozenset({'x0', 'x1'}): Fraction(2, 1), frozenset({'x0'}): Fraction(-1, 1), frozenset(): Fraction(1, 2)}
    """
    if not isinstance(text, str):
        raise TypeError(f"a formula must be a string, got {type(text).__name__}")
    if len(text) > MAX_LENGTH:
        raise FormulaError(f"the formula is longer than {MAX_LENGTH} characters", MAX_LENGTH + 1)
    return _Parser(text).formula()


def to_sympy(polynomial):
    """The polynomial as a sympy expression (exact Rational coefficients)."""
    return sympy.Add(*(sympy.Rational(c.numerator, c.denominator)
                       * sympy.Mul(*(sympy.Symbol(n) for n in sorted(m)))
                       for m, c in polynomial.items()))


def _tokens(text):
    """(kind, text, column) for every token, then ("end", "", column)."""
    out, at = [], 0
    while at < len(text):
        match = _TOKEN.match(text, at)
        if match is None:
            char = text[at]
            what = {'"': "strings are", "'": "strings are", ".": "attribute access is",
                    "[": "indexing is (except of a name, as z[0])", ",": "tuples are",
                    "=": "equations are", "<": "comparisons are", ">": "comparisons are"}
            reason = f"; {what[char]} not part of a formula" if char in what else ""
            raise FormulaError(f"unexpected character {char!r}{reason}; {_GRAMMAR}", at + 1)
        if match.lastgroup != "space":
            out.append((match.lastgroup, match.group(), at + 1))
        at = match.end()
    out.append(("end", "", len(text) + 1))
    return out


class _Parser:
    def __init__(self, text):
        self.tokens = _tokens(text)
        self.at = 0
        self.depth = 0
        self.work = 0

    # -- the grammar --------------------------------------------------------------------

    def formula(self):
        result = self.sum()
        kind, token, column = self.tokens[self.at]
        if kind == "end":
            for monomial, c in result.items():
                if abs(c) > FLOAT_MAX:
                    name = "*".join(sorted(monomial)) or "the constant"
                    raise FormulaError(f"the coefficient of {name} overflows a float "
                                       "(more than 1.8e308)", column)
        if kind != "end":
            after = self.tokens[self.at - 1]
            if token == "(" and after[0] in ("name", "number"):
                raise FormulaError(f"'(' after {after[1]!r}: function calls are not part of a "
                                   f"formula; {_GRAMMAR}", column)
            if kind in ("name", "number", "op") and token not in ")":
                raise FormulaError(f"expected an operator before {token!r} (write 2*x, not 2x)",
                                   column)
            raise FormulaError(f"unexpected {token!r}", column)
        return result

    def sum(self):
        result = self.product()
        while self._peek() in ("+", "-"):
            sign = self._next()[1]
            right = self.product()
            result = _add_into(result, right, -1 if sign == "-" else 1, self._column())
        return result

    def product(self):
        result = self.unary()
        while self._peek() in ("*", "/"):
            _, op, column = self._next()
            right = self.unary()
            if op == "/":
                divisor = _constant(right)
                if divisor is None:
                    raise FormulaError("division by an expression with variables; divide by "
                                       "nonzero numbers only", column)
                if divisor == 0:
                    raise FormulaError("division by zero", column)
                right = {frozenset(): 1 / divisor}
            result = self._multiply(result, right, column)
        return result

    def unary(self):
        if self._peek() in ("+", "-"):
            _, sign, column = self._next()
            self._enter(column)
            operand = self.unary()
            self.depth -= 1
            return operand if sign == "+" else {m: -c for m, c in operand.items()}
        return self.power()

    def power(self):
        base = self.atom()
        if self._peek() in ("**", "^"):
            column = self._next()[2]
            self._enter(column)
            start = self.at
            exponent = self.unary()
            self.depth -= 1
            for kind, token, _ in self.tokens[start:self.at]:
                if kind == "number" and not token.isdigit():  # 2.0 or 1e3: a float, as in sympy
                    raise FormulaError(f"an exponent must be written with integers, got {token}",
                                       column)
            return self._power(base, exponent, column)
        return base

    def atom(self):
        kind, token, column = self._next()
        if kind == "number":
            return _number(token, column)
        if kind == "name":
            return {frozenset([_canonical_name(token)]): Fraction(1)}
        if token == "(":
            self._enter(column)
            inner = self.sum()
            self.depth -= 1
            if self._next()[1] != ")":
                raise FormulaError("'(' is never closed", column)
            return inner
        if kind == "end":
            raise FormulaError("the formula ends where a number, a variable or '(' is expected"
                               if self.at > 1 else "empty formula", column)
        raise FormulaError(f"expected a number, a variable or '(', got {token!r}", column)

    # -- helpers ------------------------------------------------------------------------

    def _peek(self):
        return self.tokens[self.at][1] if self.tokens[self.at][0] == "op" else None

    def _next(self):
        token = self.tokens[self.at]
        if token[0] != "end":
            self.at += 1
        return token

    def _column(self):
        return self.tokens[self.at - 1][2]

    def _enter(self, column):
        self.depth += 1
        if self.depth > MAX_DEPTH:
            raise FormulaError(f"nested deeper than {MAX_DEPTH} levels", column)

    def _multiply(self, left, right, column):
        self.work += len(left) * len(right)
        if self.work > MAX_WORK:
            raise FormulaError(f"expanding the products needs more than {MAX_WORK} term "
                               "multiplications", column)
        out = {}
        for m1, c1 in left.items():
            for m2, c2 in right.items():
                m = m1 | m2  # binary variables: x*x = x
                out[m] = out.get(m, 0) + c1 * c2
            if len(out) > MAX_TERMS:  # refused before the rest is computed
                raise FormulaError(f"more than {MAX_TERMS} monomials", column)
        return _checked({m: c for m, c in out.items() if c}, column)

    def _power(self, base, exponent, column):
        k = _constant(exponent)
        if k is None:
            raise FormulaError("an exponent must be a number, not an expression with variables",
                               column)
        if k.denominator != 1:
            raise FormulaError(f"exponent {k} is not an integer", column)
        k = k.numerator
        c = _constant(base)
        if c is not None:
            return {frozenset(): _constant_power(c, k, column)} if c or k < 0 else (
                {frozenset(): Fraction(1)} if k == 0 else {})
        if k < 0:
            raise FormulaError("a negative power of an expression with variables is not a "
                               "polynomial", column)
        if k == 0:
            return {frozenset(): Fraction(1)}
        if len(base) == 1:  # c*m to the k: m^k = m for binary variables
            (m, c), = base.items()
            return _checked({m: _constant_power(c, k, column)}, column)
        if k > MAX_POLY_EXPONENT:
            raise FormulaError(f"exponent {k} of a sum exceeds {MAX_POLY_EXPONENT}", column)
        result, square = None, base
        while True:
            if k & 1:
                result = square if result is None else self._multiply(result, square, column)
            k >>= 1
            if not k:
                return result
            square = self._multiply(square, square, column)


def _add_into(out, right, sign, column):
    """out + sign * right, in place: `out` is the sum's own; a long sum stays linear."""
    for m, c in right.items():
        c = out.get(m, 0) + sign * c
        if c:
            out[m] = _check_size(c, column)
        else:
            out.pop(m, None)
    if len(out) > MAX_TERMS:
        raise FormulaError(f"more than {MAX_TERMS} monomials", column)
    return out


def _checked(polynomial, column):
    return _add_into({}, polynomial, 1, column)


def _check_size(c, column):
    if max(c.numerator.bit_length(), c.denominator.bit_length()) > MAX_BITS:
        raise FormulaError(f"a number needs more than {MAX_BITS} bits", column)
    return c


def _constant(polynomial):
    """The value of a constant polynomial; None when it has variables."""
    if not polynomial:
        return Fraction(0)
    if len(polynomial) == 1 and frozenset() in polynomial:
        return polynomial[frozenset()]
    return None


def _constant_power(c, k, column):
    if c == 0 and k < 0:
        raise FormulaError("division by zero (0 to a negative power)", column)
    if abs(c) == 1 or c == 0:
        return c ** k if k else Fraction(1)
    bits = max(c.numerator.bit_length(), c.denominator.bit_length())
    if (bits - 1) * abs(k) >= MAX_BITS:  # the result has more bits than that: refused unmade
        raise FormulaError(f"{_short(str(c))}^{k} is too large (more than {MAX_BITS} bits)", column)
    return _check_size(c ** k, column)


def _number(token, column):
    if len(token) > MAX_NUMBER_LENGTH:
        raise FormulaError(f"a number longer than {MAX_NUMBER_LENGTH} characters", column)
    whole, fraction, exponent = _NUMBER.fullmatch(token).groups()
    if fraction is None and exponent is None and whole.startswith("0") and whole.strip("0"):
        raise FormulaError(f"leading zeros in the integer {token} (as in Python)", column)
    digits = ((whole or "") + (fraction or "")).lstrip("0")
    if not digits:
        return {}
    scale = int(exponent or 0) - len(fraction or "")
    if len(digits) + scale > 332:
        raise FormulaError(f"the number {_short(token)} is too large (more than {MAX_BITS} bits)", column)
    if len(digits) + scale < -330:
        raise FormulaError(f"the number {_short(token)} is too small for a float (below 1e-324)",
                           column)
    value = Fraction(int(digits)) * Fraction(10) ** scale
    return {frozenset(): _check_size(value, column)}


def _short(text):
    return text if len(text) <= 24 else text[:20] + "..."


def _canonical_name(token):
    """``z [ 01 , 2]`` -> ``z[1,2]``: one spelling per variable."""
    name, bracket, index = token.partition("[")
    if not bracket:
        return name
    return f"{name.rstrip()}[{','.join(str(int(i)) for i in index.rstrip(']').split(','))}]"
