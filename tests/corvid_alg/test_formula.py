"""The formula grammar against sympy's reading of the same text with every name a Symbol; refusals."""

import io
import keyword
import re
import sys
import time
import tokenize
from fractions import Fraction

import numpy as np
import pytest
import sympy
from hypothesis import assume, given, settings, strategies as st
from sympy.parsing.sympy_parser import convert_xor, parse_expr, standard_transformations

from corvid_alg.QAOA.formula import FormulaError, parse, to_sympy
from reference import bits


def assert_same(mine, text):
    """The parser's polynomial `mine` equals sympy's reading of `text` (every name a Symbol) on
    every 0/1 assignment. Those values fix a polynomial with x^k = x, and sympy never expands the
    text: a power of a power of a sum would fill the memory."""
    text = text.replace("\n", " ")  # the grammar's whitespace; Python's ends a statement
    names = sorted({t.string for t in tokenize.generate_tokens(io.StringIO(text).readline)
                    if t.type == tokenize.NAME})
    expr = parse_expr(text, local_dict={n: sympy.Symbol(n) for n in names},
                      transformations=standard_transformations + (convert_xor,))
    x = bits(len(names)).astype(bool)  # row: an assignment, column: a name
    with np.errstate(all="ignore"):
        theirs = sympy.lambdify([sympy.Symbol(n) for n in names], expr, "numpy", dummify=True)(*x.T * 1.0)
    theirs = np.broadcast_to(np.asarray(theirs, dtype=float), len(x))
    assume(np.all(np.isfinite(theirs)))  # huge intermediate values: float cannot say
    ours = sum((float(c) * np.all(x[:, [names.index(v) for v in m]], axis=1) for m, c in mine.items()),
               np.zeros(len(x)))
    scale = 1 + sum(abs(float(c)) for c in mine.values())
    np.testing.assert_allclose(ours, theirs, rtol=1e-12, atol=1e-9 * scale, err_msg=text)


PARSING = []


def no_code(event, args):
    if PARSING and event in ("exec", "compile", "os.system", "subprocess.Popen", "os.posix_spawn"):
        raise AssertionError(f"parsing raised the audit event {event}")


sys.addaudithook(no_code)  # for the whole session, armed only inside timed_parse


def timed_parse(text):
    """parse(text), failing the test when it runs any code or takes a second of CPU twice running
    (CPU time, unlike wall time, barely depends on the load, but a busy machine still slows a
    0.2 s parse near the monomial limit several times over now and then)."""
    PARSING.append(text)
    try:
        for _ in range(2):
            start = time.process_time()
            try:
                outcome = parse(text)
            except FormulaError as error:
                outcome = error
            if time.process_time() - start < 1.0:
                break
        else:
            pytest.fail(f"parsing took over a second of CPU twice: {text[:80]}")
    finally:
        PARSING.pop()
    if isinstance(outcome, FormulaError):
        raise outcome
    return outcome


NAMES = st.sampled_from(["x0", "x1", "x10", "y", "E", "I", "pi", "S", "N", "Q", "O", "beta",
                         "gamma", "_t", "oo", "zoo", "nan", "sqrt"])
NUMBERS = st.one_of(st.integers(0, 10**6).map(str),
                    st.sampled_from(["0.5", ".25", "1e-3", "2.5E+2", "3.", "00", "1e2"]))


def _formulas():
    def extend(inner):
        return st.one_of(
            st.tuples(inner, st.sampled_from([" + ", "-", "*", " * "]), inner).map("".join),
            st.tuples(inner, st.sampled_from(["/", " / "]), st.integers(1, 9).map(str)).map("".join),
            st.tuples(inner, st.sampled_from(["**", "^"]), st.integers(0, 3).map(str)).map("".join),
            st.tuples(st.sampled_from(["2", "3"]), st.just("**-"), st.integers(1, 3).map(str)).map("".join),
            inner.map(lambda t: f"({t})"), inner.map(lambda t: f"-{t}"))
    return st.recursive(st.one_of(NAMES, NUMBERS), extend, max_leaves=12)


@settings(max_examples=300, deadline=None)
@given(_formulas())
def test_valid_formulas_are_what_sympy_builds(text):
    try:
        mine = timed_parse(text)
    except FormulaError as error:  # only for sizes: nothing generated breaks the grammar
        assert "more than" in str(error) or "too large" in str(error), (text, error)
        return
    assert_same(mine, text)
    assert_same(parse(str(to_sympy(mine))), text)  # and prints back as itself


SNIPPETS = ["x0", "2", "1.5e3", "+", "-", "*", "/", "**", "^", "(", ")", " ", "E", "I", "lambda",
            "__import__('os')", ".system", "'s'", '"', "[0]", ",", "sqrt(", "=", "<", "x.y",
            "9**9**9", "1e999", "0", ":", "\\", "\n", "#", "²", "٣", "{}", "@", "%", "!", "~"]


@settings(max_examples=500, deadline=None)
@given(st.lists(st.sampled_from(SNIPPETS), max_size=12).map("".join))
def test_any_text_parses_as_sympy_reads_it_or_is_refused_in_one_line(text):
    try:
        mine = timed_parse(text)
    except FormulaError as error:
        assert "\n" not in str(error) and 1 <= error.column <= len(text) + 1
        return
    words = re.findall(r"[A-Za-z_][A-Za-z0-9_]*", text)
    if not any(map(keyword.iskeyword, words)) and "[" not in text:  # Python cannot read those
        assert_same(mine, text)


@pytest.mark.parametrize("text, expected", [
    # E, I, pi, lambda: variables, not constants
    ("A*B - 2*E*A + E", {"A B": 1, "A E": -2, "E": 1}),
    ("I*pi + lambda*beta", {"I pi": 1, "beta lambda": 1}),
    ("x0^5 * (x1 + 1)**2 - x0**0", {"x0 x1": 3, "x0": 1, "": -1}),  # x^k = x
    ("-2**2*x + 2^3^2*y + 2**-1*z", {"x": -4, "y": 512, "z": Fraction(1, 2)}),
    ("1e-3*z[0]*z [ 01 ] + .5*q[1,2]", {"z[0] z[1]": Fraction(1, 1000), "q[1,2]": Fraction(1, 2)}),
    ("(x + 1)**1000 / 2**999", {"x": Fraction(2**1000 - 1, 2**999), "": Fraction(1, 2**999)}),
    ("0.1 + 0.2 - 0.3 + x", {"x": 1}),  # exact decimals
    ("+".join(f"x{k}" for k in range(3518)), {f"x{k}": 1 for k in range(3518)}),  # 19,997 characters
])
def test_names_powers_and_numbers(text, expected):
    assert timed_parse(text) == {frozenset(k.split()): Fraction(v) for k, v in expected.items()}


@pytest.mark.parametrize("text, column, fragment", [
    ("__import__('os').system('echo PWNED')", 12, "strings are not part of a formula"),
    ("lambda: 1", 7, "unexpected character ':'"),
    ("x.real", 2, "attribute access is not"),
    ("sqrt(x)", 5, "function calls are not"),
    ("x0 + 9**9**9", 7, "9^387420489 is too large"),
    ("x0 * 1e999", 6, "the number 1e999 is too large"),
    ("x0 * 10**308 * 10 / 100 + 10**308 * 10", 39, "the constant overflows a float"),
    ("x0 * 1" + "0" * 350, 6, "the number 10000000000000000000... is too large"),
    ("x/y", 2, "division by an expression with variables"),
    ("x/(1-1)", 2, "division by zero"),
    ("x**y", 2, "exponent must be a number"),
    ("x**(1/2)", 2, "exponent 1/2 is not an integer"),
    ("x**1.5e3", 2, "written with integers, got 1.5e3"),
    ("x**-1", 2, "negative power of an expression"),
    ("(x + y)**1001", 8, "exponent 1001 of a sum"),
    ("2x", 2, "write 2*x"),
    ("x²", 2, "unexpected character '²'"),
    ("x + ٣", 5, "unexpected character"),
    ("x*007", 3, "leading zeros"),
    ("(x", 1, "never closed"),
    ("", 1, "empty formula"),
    ("(" * 101 + "x" + ")" * 101, 101, "nested deeper than 100"),
    ("-" * 101 + "x", 101, "nested deeper than 100"),
    ("x" * 20_001, 20_001, "longer than 20000 characters"),
    ("x * 1e-400", 5, "too small for a float"),
    ("*".join(f"(a{k} + b{k})" for k in range(14)), 136, "more than 10000 monomials"),
    ("(" + "+".join(f"x{k}" for k in range(10)) + ")**1000", 32, "term multiplications"),
])
def test_refusals_name_the_column(text, column, fragment):
    with pytest.raises(FormulaError) as caught:
        timed_parse(text)
    assert caught.value.column == column and fragment in str(caught.value)
    assert str(caught.value).startswith(f"column {column}: ")
