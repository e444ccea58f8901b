#!/usr/bin/env python3
"""Writes decimal_vectors.txt, the test vectors for velquist::foundation::Decimal.

Every expected result comes from the executable reference model of the decimal arithmetic
(decimal_model.py, flavour "sf6"), imported from the path given on the command line:

    generate_decimal_vectors.py [path/to/decimal_model.py] [--output FILE]

The cases are drawn with a fixed seed, so running the script again gives the same file.
"""

import argparse
import importlib
import math
import os
import random
import struct
import sys

SEED = 20240611
HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_MODEL = os.path.join(HERE, "..", "..", "..", "..", "shared", "tools", "decimal_model.py")
DEFAULT_OUTPUT = os.path.join(HERE, "decimal_vectors.txt")

MAX_MANTISSA = (1 << 128) - 1
MODES = ("plain", "down", "up", "bankers")

HEADER = """\
# Test vectors for velquist::foundation::Decimal, written by generate_decimal_vectors.py
# (seed {seed}); do not edit by hand. {count} cases, one per line, fields separated by one
# space:
#   from_int <integer> <value>          Decimal(std::int64_t)
#   from_double <double> <value>        Decimal::fromDouble
#   parse <text> <value>|none           Decimal::fromString (none: no value)
#   to_text <value> <text>              description()
#   to_double <value> <double>          doubleValue()
#   add|sub|mul|div <a> <b> <value>     + - * /
#   round <value> <scale> <mode> <value>  rounded(scale, mode), mode plain|down|up|bankers
#   compare <a> <b> <-1|0|1>            <=> (NaN equals NaN and sorts below everything)
# A value is NaN or <sign>:<mantissa>:<exponent>, the sign + or -, the mantissa and the
# exponent in decimal, exactly as stored (a value need not be compacted: +:150:-2 is 1.50).
# A double is a hexadecimal float as printed by Python's float.hex (0x1.8000000000000p+1,
# -0x0.0000000000001p-1022, nan). A text is enclosed in double quotes; its bytes (UTF-8)
# outside the printable ASCII range, the space, '"' and '%' are written as %XX.
"""


class OutOfRange(Exception):
    """The model produced a value the stored form cannot hold."""


def load_model(path):
    """Imports the model from its own folder, leaving no bytecode cache behind."""
    sys.dont_write_bytecode = True
    folder, filename = os.path.split(os.path.abspath(path))
    sys.path.insert(0, folder)
    return importlib.import_module(os.path.splitext(filename)[0])


class Writer:
    def __init__(self, model, rng):
        self.m = model
        self.rng = rng
        self.lines = []

    # --- encoding ---------------------------------------------------------
    def value(self, d):
        if d.nan:
            return "NaN"
        if not 0 <= d.m <= MAX_MANTISSA or not -128 <= d.e <= 127:
            raise OutOfRange(repr(d))
        if d.neg and d.m == 0:
            raise OutOfRange("negative zero")
        return "%s:%d:%d" % ("-" if d.neg else "+", d.m, d.e)

    @staticmethod
    def double(x):
        return float.hex(x)

    @staticmethod
    def text(s):
        out = []
        for byte in s.encode("utf-8"):
            if 0x21 <= byte <= 0x7E and byte not in (0x22, 0x25):
                out.append(chr(byte))
            else:
                out.append("%%%02X" % byte)
        return '"' + "".join(out) + '"'

    def emit(self, *fields):
        self.lines.append(" ".join(fields))

    # --- random values ----------------------------------------------------
    def mantissa(self, digits=None):
        """A random mantissa with the given number of decimal digits (1...39)."""
        if digits is None:
            digits = self.rng.randint(1, 39)
        if digits == 39:
            return self.rng.randint(10 ** 38, MAX_MANTISSA)
        return self.rng.randint(10 ** (digits - 1), 10 ** digits - 1)

    def dec(self, m, e, neg=False, compact=True):
        d = self.m.Dec(m, e, neg and m != 0, False)
        return self.m.compact(d) if compact else d

    def random_value(self, digits=None, exponent=None, raw_chance=0.1):
        """A random non-zero value; now and then kept raw (trailing zeros in the mantissa)."""
        rng = self.rng
        m = self.mantissa(digits)
        e = rng.randint(-128, 127) if exponent is None else exponent
        neg = rng.random() < 0.5
        if rng.random() < raw_chance:
            # Trailing zeros that fit, with the exponent lowered to match where possible.
            zeros = rng.randint(1, 6)
            if m * 10 ** zeros <= MAX_MANTISSA and e - zeros >= -128:
                return self.dec(m * 10 ** zeros, e - zeros, neg, compact=False)
        return self.dec(m, e, neg)

    def price(self):
        cents = self.rng.choice([99, 49, 0, 50, 95, 25, 1, 9, 75])
        units = self.rng.choice([0, 1, 2, 4, 9, 12, 19, 29, 39, 49, 59, 99, 199, 999, 12000])
        text = "%d.%02d" % (units, cents)
        if self.rng.random() < 0.3:
            text = "-" + text
        return self.m.parse(text)

    def operand(self):
        """A value for binary operations, biased towards the awkward ones."""
        rng = self.rng
        r = rng.random()
        if r < 0.04:
            return self.m.NaN()
        if r < 0.09:
            return self.m.Dec()
        if r < 0.25:
            return self.price()
        if r < 0.35:
            return self.m.from_double(rng.choice(FACTOR_DOUBLES) * rng.choice([1, -1]))
        return self.random_value()

    # --- sections ---------------------------------------------------------
    def from_int(self):
        fixed = [0, 1, -1, 7, 10, -10, 100, 12000, -1000000, 2 ** 63 - 1, -(2 ** 63),
                 -(2 ** 63) + 1, 10 ** 18, -(10 ** 18), 9223372036854775800, 1234567890123456789]
        values = list(fixed)
        for _ in range(200):
            digits = self.rng.randint(1, 19)
            v = self.rng.randint(10 ** (digits - 1), 10 ** digits - 1)
            if digits > 1 and self.rng.random() < 0.3:
                # Trailing zeros, which move into the exponent.
                v = (v // 10 ** self.rng.randint(1, digits - 1)) * 10 ** self.rng.randint(1, 8)
            while v >= 2 ** 63:
                v //= 10
            if self.rng.random() < 0.5:
                v = -v
            values.append(v)
        for v in values:
            self.emit("from_int", str(v), self.value(self.m.from_int(v)))

    def from_double(self):
        rng = self.rng
        two64 = 2.0 ** 64
        values = [0.0, -0.0, float("nan"), 30.417, 365.3, 4.345, 52.1786, 1.0 / 7.0,
                  1.0 / 12.0, 7.0 / 3.0, 1.0 / 3.0, 2.0 / 3.0, 0.1, 0.2, 0.3, 0.5, 1.0, 9.99,
                  4.99, 0.99, 39.99, 12.5, 100.0, 1e300, 1e-300, -1e300, -1e-300,
                  1.7976931348623157e308, -1.7976931348623157e308, 5e-324, -5e-324,
                  2.2250738585072014e-308, 2.225073858507201e-308, 1e-310,
                  two64, math.nextafter(two64, 0.0), math.nextafter(two64, math.inf),
                  two64 * 10.0, math.nextafter(two64 * 10.0, 0.0), two64 / 10.0,
                  math.nextafter(two64 / 10.0, 0.0), math.nextafter(two64 / 10.0, math.inf),
                  2.0 ** 63, 2.0 ** 65, 2.0 ** 70, 2.0 ** -70, 18446744073709551615.0,
                  1844674407370955161.5, 184467440737095516.0, 1e19, 1e20, 9.999999999999999e18,
                  1e38, 1e39, 1e127, 1e128, 1e145, 1e146, 1e147, 1e-127, 1e-128, 1e-129,
                  1e-108, 1e-109, 1e-110, 1e-111, 123456789.123456789, 0.000001, 1e-20]
        for k in range(-135, 151, 3):
            values.append(10.0 ** k)
            values.append(2.5 * 10.0 ** k)
        for _ in range(40):
            # Subnormal and tiny normal doubles from random bit patterns.
            bits = rng.randint(1, (1 << 52) - 1) | (rng.randint(0, 3) << 52)
            values.append(struct.unpack("<d", struct.pack("<Q", bits))[0])
        for _ in range(60):
            bits = rng.randint(0, (1 << 63) - 1)
            x = struct.unpack("<d", struct.pack("<Q", bits))[0]
            if math.isfinite(x):
                values.append(x)
        for _ in range(200):
            x = rng.uniform(1.0, 10.0) * 10.0 ** rng.randint(-25, 40)
            values.append(x)
        for _ in range(100):
            # Two-decimal prices and day ratios, as the price code makes them.
            values.append(rng.randint(1, 99999) / 100.0)
            values.append(rng.randint(1, 400) / rng.randint(1, 400))
        out = []
        for x in values:
            out.append(x)
            if x != 0.0 and not math.isnan(x) and rng.random() < 0.25:
                out.append(-x)
        for x in out:
            self.emit("from_double", self.double(x), self.value(self.m.from_double(x)))

    def parse(self):
        max_text = str(MAX_MANTISSA)
        texts = ["", " ", "   ", "+", "-", ".", "e", "E", "-e", "+e", "e5", "-e5", "E-3", ".e3",
                 "1", "-1", "+1", "0", "-0", "+0", "00", "-0.000", "0e5", "-0e", "0e", "0.00e",
                 "-0.00e", "1.50e", "-1.50e", "1.50E", "1.50e+", "1.50e-", "12000e", ".5", "-.5",
                 "5.", "-5.", "5.e3", "4.99", "  4.99", "\t4.99", "\n-4.99", "\x1c1",
                 "\x1f-2", "\u00a01", "\u30001", "\u20091.5", "\u20281", "\u0085+3", "\u200b1",
                 "1 000", "1,5", "1_000", "12abc", "abc", "x1", "- 1", "--1", "+-1", "1e",
                 "1e+5", "1e-5", "1E5", "1e127", "1e128", "1e-128", "1e-129", "10e126",
                 "10e127", "0.1e-127", "0.1e-128", "1e254", "1e255", "1e0000000000005",
                 "1e-254", "1e-255", "1e99999", "123.456e-130", "123.456e-125", "1.5e1.5",
                 "1e5e5", "..5", "1..5", "\u0661\u0662", "\uff11", "1\u0663", "0x10",
                 "inf", "nan", "NaN", "Infinity", "1e+-5", "1e-+5", " -  1", "3.14159 ",
                 "1.0", "1.00000", "100", "-100.00", "0.0001", "000123.4500",
                 max_text, str(MAX_MANTISSA + 1), max_text + ".5", max_text + "9",
                 "9" * 38, "9" * 39, "9" * 40, "9" * 50, "1" * 200, "1" + "0" * 165,
                 "1" + "0" * 166, "1" + "0" * 167, "0." + "0" * 126 + "1",
                 "0." + "0" * 127 + "1", "0." + "0" * 128 + "1", "0." + "1" * 50,
                 "1." + "0" * 60, "9" * 45 + "e-10", "9" * 45 + "e100", "9" * 45 + "e90",
                 "-" + "7" * 39 + "." + "3" * 10, "0." + "0" * 100 + "5e-27",
                 "0." + "0" * 100 + "5e-28", "12345678901234567890.12345678901234567890123"]
        rng = self.rng
        for _ in range(560):
            parts = []
            if rng.random() < 0.2:
                parts.append(rng.choice([" ", "  ", "\t", "\u00a0", "\n "]))
            if rng.random() < 0.4:
                parts.append(rng.choice("+-"))
            int_digits = rng.choice([0, 1, 1, 2, 3, 5, 10, 20, 38, 39, 40, 45])
            parts.append("".join(rng.choice("0123456789") for _ in range(int_digits)))
            if rng.random() < 0.6:
                parts.append(".")
                frac_digits = rng.choice([0, 1, 2, 2, 3, 6, 15, 30, 40])
                parts.append("".join(rng.choice("0123456789") for _ in range(frac_digits)))
            if rng.random() < 0.35:
                parts.append(rng.choice("eE"))
                parts.append(rng.choice(["", "+", "-"]))
                parts.append(str(rng.choice([0, 1, 5, 20, 99, 126, 127, 128, 129, 200, 254, 255,
                                             rng.randint(0, 300)])))
            if rng.random() < 0.15:
                parts.append(rng.choice(["x", " ", "e", ".", "5e", ",5", "abc"]))
            texts.append("".join(parts))
        for t in texts:
            r = self.m.parse(t)
            self.emit("parse", self.text(t), "none" if r is None else self.value(r))

    def to_text(self):
        values = [self.m.NaN(), self.m.Dec(), self.dec(0, -2, compact=False),
                  self.dec(0, 5, compact=False), self.dec(150, -2, compact=False),
                  self.dec(1, -128), self.dec(MAX_MANTISSA, -128), self.dec(MAX_MANTISSA, 127),
                  self.dec(1, 127, True), self.dec(12, 3), self.dec(85, -2),
                  self.dec(595, -4), self.dec(12345, -5, True)]
        for _ in range(290):
            digits = self.rng.randint(1, 39)
            e = self.rng.choice([self.rng.randint(-128, 127), self.rng.randint(-45, 10)])
            values.append(self.random_value(digits, e, raw_chance=0.2))
        for d in values:
            self.emit("to_text", self.value(d), self.m.to_text(d))

    def to_double(self):
        values = [self.m.NaN(), self.m.Dec(), self.dec(1, -128), self.dec(MAX_MANTISSA, 127),
                  self.dec(MAX_MANTISSA, -128), self.dec(MAX_MANTISSA, 0),
                  self.dec(2 ** 53 + 1, 0), self.dec(2 ** 64 - 1, 0), self.dec(150, -2, compact=False)]
        for x in FACTOR_DOUBLES:
            values.append(self.m.from_double(x))
        for _ in range(380):
            e = self.rng.choice([self.rng.randint(-128, 127), self.rng.randint(-40, 10)])
            values.append(self.random_value(exponent=e, raw_chance=0.2))
        for d in values:
            self.emit("to_double", self.value(d), self.double(self.m.to_double(d)))

    def binary(self, name, fn, pairs):
        for a, b in pairs:
            self.emit(name, self.value(a), self.value(b), self.value(fn(a, b)))

    def add_sub_pairs(self, count):
        rng = self.rng
        m = self.m
        pairs = []
        for i in range(count):
            kind = i % 10
            if kind == 0:
                a, b = self.operand(), self.operand()
            elif kind == 1:
                # Close exponents.
                a = self.random_value(exponent=rng.randint(-60, 60))
                b = self.random_value(exponent=a.e + rng.randint(-6, 6))
            elif kind == 2:
                # Wide mantissas at one exponent: the sum needs 129 bits.
                e = rng.choice([rng.randint(-128, 127), 127, 126, 125, 0])
                a = self.dec(rng.randint(2 ** 127, MAX_MANTISSA), e, rng.random() < 0.5, compact=False)
                b = self.dec(rng.randint(2 ** 126, MAX_MANTISSA), e, a.neg if rng.random() < 0.8 else not a.neg, compact=False)
            elif kind == 3:
                # Cancellation: the negation of a value, or something very near it.
                a = self.random_value()
                b = a.copy()
                b.neg = not b.neg
                if rng.random() < 0.5:
                    b.m = max(1, min(MAX_MANTISSA, b.m + rng.randint(-3, 3)))
            elif kind == 4:
                # Far-apart exponents: alignment truncates the smaller operand.
                a = self.random_value(exponent=rng.randint(0, 127))
                b = self.random_value(exponent=rng.randint(-128, a.e - 20) if a.e > -108 else -128)
            elif kind == 5:
                # Prices and factors, as the price code adds them.
                a, b = self.price(), self.price()
            elif kind == 6:
                a, b = self.price(), m.from_double(rng.choice(FACTOR_DOUBLES))
            elif kind == 7:
                # Zero and NaN operands.
                a = rng.choice([m.Dec(), m.NaN(), self.dec(0, -3, compact=False)])
                b = self.operand()
            elif kind == 8:
                # Raw operands with trailing zeros.
                a = self.random_value(raw_chance=1.0)
                b = self.random_value(exponent=a.e + rng.randint(-3, 3) if -120 < a.e < 120 else None, raw_chance=1.0)
            else:
                # Opposite signs at random scales.
                a = self.random_value(digits=rng.randint(1, 39))
                b = self.random_value(digits=rng.randint(1, 39), exponent=rng.randint(-128, 127))
                b.neg = not a.neg
            if rng.random() < 0.5:
                a, b = b, a
            pairs.append((a, b))
        return pairs

    def mul_pairs(self, count):
        rng = self.rng
        m = self.m
        pairs = []
        for i in range(count):
            kind = i % 8
            if kind == 0:
                a, b = self.operand(), self.operand()
            elif kind == 1:
                # Products wider than 128 bits: truncated back.
                a = self.random_value(digits=rng.randint(20, 39), exponent=rng.randint(-60, 60))
                b = self.random_value(digits=rng.randint(20, 39), exponent=rng.randint(-60, 60))
            elif kind == 2:
                # Exponent sums near the top: overflow gives NaN, digit drops push it over.
                a = self.random_value(exponent=rng.randint(40, 127))
                b = self.random_value(exponent=rng.randint(100 - a.e, 140 - a.e))
            elif kind == 3:
                # Exponent sums near the bottom: below -128 is NaN.
                a = self.random_value(exponent=rng.randint(-128, -40))
                b = self.random_value(exponent=rng.randint(-150 - a.e, -110 - a.e))
            elif kind == 4:
                a, b = self.price(), m.from_double(rng.choice(FACTOR_DOUBLES))
            elif kind == 5:
                a = rng.choice([m.Dec(), m.NaN()])
                b = self.operand()
            elif kind == 6:
                # Products with trailing zeros, and raw operands.
                a = self.dec(rng.randint(1, 99) * 10 ** rng.randint(0, 10), rng.randint(-20, 20), rng.random() < 0.5, compact=False)
                b = self.dec(rng.choice([2, 4, 5, 25, 125, 8]) * 10 ** rng.randint(0, 5), rng.randint(-20, 20), rng.random() < 0.5, compact=False)
            else:
                a, b = self.price(), self.price()
            if rng.random() < 0.5:
                a, b = b, a
            pairs.append((a, b))
        return pairs

    def div_pairs(self, count):
        rng = self.rng
        m = self.m
        pairs = []
        for _ in range(12):
            # A quotient with no digits at all: zero, or NaN when negative.
            a = self.dec(rng.randint(1, 3), rng.randint(-20, 20), rng.random() < 0.5)
            b = self.dec(rng.randint(a.m * 10 ** 38 + 1, MAX_MANTISSA), rng.randint(a.e, a.e + 18), rng.random() < 0.5)
            pairs.append((a, b))
        for i in range(count - len(pairs)):
            kind = i % 10
            if kind == 0:
                a, b = self.operand(), self.operand()
            elif kind == 1:
                # Small dividend, huge divisor mantissa: few quotient digits, or none.
                a = self.random_value(digits=rng.randint(1, 3), exponent=rng.randint(-20, 20))
                b = self.random_value(digits=rng.randint(36, 39), exponent=rng.randint(a.e - 5, a.e + 5))
            elif kind == 2:
                # Division by zero.
                a = rng.choice([self.operand(), m.Dec(), m.NaN()])
                b = rng.choice([m.Dec(), self.dec(0, 4, compact=False)])
            elif kind == 3:
                # Dividend exponent at least 19 above the divisor's: aligned first.
                a = self.random_value(exponent=rng.randint(-100, 127))
                b = self.random_value(exponent=max(-128, a.e - rng.randint(19, 80)))
            elif kind == 4:
                # Exponent limits.
                a = self.random_value(exponent=rng.choice([rng.randint(80, 127), rng.randint(-128, -80)]))
                b = self.random_value(exponent=rng.choice([rng.randint(80, 127), rng.randint(-128, -80)]))
            elif kind == 5:
                # Prices over prices and over factors, as discounts and conversions divide.
                a, b = self.price(), rng.choice([self.price(), m.from_double(rng.choice(FACTOR_DOUBLES))])
            elif kind == 6:
                a = rng.choice([m.Dec(), m.NaN()])
                b = self.operand()
            elif kind == 7:
                # Large divisors with a single significant word difference.
                a = self.random_value(digits=rng.randint(1, 39), exponent=rng.randint(-30, 30))
                b = self.dec(rng.randint(1, 2 ** rng.choice([16, 32, 33, 48, 63, 64, 65, 96, 127, 128]) - 1),
                             rng.randint(-30, 30), rng.random() < 0.5)
            elif kind == 8:
                # Exact quotients.
                q = self.random_value(digits=rng.randint(1, 15), exponent=rng.randint(-20, 20))
                b = self.random_value(digits=rng.randint(1, 15), exponent=rng.randint(-20, 20))
                a = m.mul(q, b)
            else:
                a = self.random_value(raw_chance=0.3)
                b = self.random_value(raw_chance=0.3)
            pairs.append((a, b))
        return pairs

    def rounding(self):
        rng = self.rng
        m = self.m
        cases = []
        for scale in (-130, -2, 0, 2, 5):
            for mode in MODES:
                cases.append((m.NaN(), scale, mode))
                cases.append((m.Dec(), scale, mode))
        for mode in MODES:
            # The discount tie 0.125 and the values around it, both signs.
            for text in ("0.125", "0.135", "0.1250000001", "0.1249999999", "0.15358840705025092425",
                         "2.5", "3.5", "0.5", "1.5", "-0.5", "-1.5", "-2.5", "-0.125", "-0.135",
                         "-0.1250000001", "-0.1249999999", "-0.0001", "0.0001", "-0.00000001",
                         "0.00000001", "9.995", "-9.995", "99.5", "-99.5", "1.50e", "12000"):
                for scale in (0, 1, 2, 3):
                    cases.append((m.parse(text), scale, mode))
        for _ in range(620):
            mode = rng.choice(MODES)
            kind = rng.random()
            if kind < 0.35:
                # Exact ties and near ties: ...d5, ...d5 followed by non-zero digits, ...d4999.
                keep = rng.randint(0, 30)
                drop = rng.randint(1, 8)
                head = rng.randint(0, 10 ** keep - 1) if keep else 0
                tail = 5 * 10 ** (drop - 1)
                tail += rng.choice([0, 0, 1, -1, rng.randint(1, 10 ** (drop - 1))]) if drop > 1 else 0
                mant = head * 10 ** drop + tail
                e = rng.randint(-60, 20)
                if mant == 0 or mant > MAX_MANTISSA:
                    continue
                d = self.dec(mant, e, rng.random() < 0.5, compact=False)
                scale = -(e + drop)
            elif kind < 0.8:
                d = self.random_value(raw_chance=0.2)
                scale = rng.randint(-d.e - 40, -d.e + 3)
            elif kind < 0.9:
                # Scales far below the value: to zero or a single unit.
                d = self.random_value(exponent=rng.randint(-40, 127))
                scale = rng.choice([-127, -128, -129, -130, -140, -165, rng.randint(-200, -100)])
            else:
                d = self.price() if rng.random() < 0.5 else self.m.from_double(rng.choice(FACTOR_DOUBLES))
                scale = rng.randint(-3, 25)
            cases.append((d, scale, mode))
        written = 0
        for d, scale, mode in cases:
            try:
                line = ("round", self.value(d), str(scale), mode, self.value(m.round_(d, scale, mode)))
            except OutOfRange:
                # Rounding to a scale below -127 can leave a unit too large to store.
                continue
            self.emit(*line)
            written += 1
        return written

    def compare(self):
        rng = self.rng
        m = self.m
        pairs = [(m.NaN(), m.NaN()), (m.NaN(), m.Dec()), (m.Dec(), m.NaN()),
                 (m.NaN(), self.dec(1, 0, True)), (self.dec(1, 0, True), m.NaN()),
                 (m.Dec(), self.dec(0, 7, compact=False)), (self.dec(150, -2, compact=False), self.dec(15, -1)),
                 (self.dec(MAX_MANTISSA, 127), self.dec(MAX_MANTISSA, 127, True)),
                 (self.dec(1, -128), m.Dec()), (self.dec(1, -128, True), m.Dec())]
        for i in range(540):
            kind = i % 6
            if kind == 0:
                a, b = self.operand(), self.operand()
            elif kind == 1:
                # One number stored two ways.
                a = self.random_value(digits=rng.randint(1, 30))
                zeros = rng.randint(1, 8)
                b = self.dec(a.m * 10 ** zeros, a.e - zeros, a.neg, compact=False)
                if b.e < -128 or b.m > MAX_MANTISSA:
                    b = a.copy()
            elif kind == 2:
                # Neighbours.
                a = self.random_value()
                b = a.copy()
                b.m = max(1, min(MAX_MANTISSA, b.m + rng.choice([-1, 1])))
            elif kind == 3:
                # Far-apart exponents.
                a = self.random_value(exponent=rng.randint(0, 127))
                b = self.random_value(exponent=rng.randint(-128, 0))
            elif kind == 4:
                a = self.random_value(exponent=rng.randint(-5, 5))
                b = self.random_value(exponent=rng.randint(-5, 5))
                b.neg = not a.neg if rng.random() < 0.5 else a.neg
            else:
                a, b = self.price(), self.price()
            if rng.random() < 0.5:
                a, b = b, a
            pairs.append((a, b))
        for a, b in pairs:
            self.emit("compare", self.value(a), self.value(b), str(m.compare(a, b)))


# Doubles the price code turns into decimals: the fixed day factors and day ratios.
FACTOR_DOUBLES = [30.417, 365.3, 4.345, 52.1786, 1.0 / 7.0, 1.0 / 12.0, 7.0 / 3.0, 1.0 / 3.0,
                  28.0 / 3.0, 336.0 / 7.0, 7.0 / 336.0, 12.0, 0.25, 30.417 / 7.0, 365.3 / 30.417]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("model", nargs="?", default=DEFAULT_MODEL, help="path to decimal_model.py")
    parser.add_argument("--output", default=DEFAULT_OUTPUT, help="file to write")
    args = parser.parse_args()

    model = load_model(args.model)
    if getattr(model, "DEFAULT_FLAVOUR", None) != "sf6":
        sys.exit("the model's default flavour is not sf6")

    w = Writer(model, random.Random(SEED))
    w.from_int()
    w.from_double()
    w.parse()
    w.to_text()
    w.to_double()
    w.binary("add", model.add, w.add_sub_pairs(900))
    w.binary("sub", model.sub, w.add_sub_pairs(700))
    w.binary("mul", model.mul, w.mul_pairs(1000))
    w.binary("div", model.div, w.div_pairs(1000))
    w.rounding()
    w.compare()

    with open(args.output, "w", encoding="ascii", newline="\n") as out:
        out.write(HEADER.format(seed=SEED, count=len(w.lines)))
        for line in w.lines:
            out.write(line + "\n")
    print("%d cases written to %s" % (len(w.lines), args.output))


if __name__ == "__main__":
    main()
