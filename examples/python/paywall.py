#!/usr/bin/env python3
"""Prints a paywall through the library's C interface, with Python's ctypes.

    python3 paywall.py <libvelquist_capi.so> <file.storekit> <paywall.json>
"""
import ctypes
import json
import sys


class Velquist:
    """The few C functions this example needs, with their argument and result types."""

    def __init__(self, path):
        lib = ctypes.CDLL(path)
        lib.velquist_last_error.restype = ctypes.c_char_p
        lib.velquist_string_free.argtypes = [ctypes.c_void_p]
        lib.velquist_display_price.argtypes = [ctypes.c_char_p] * 3 + [ctypes.POINTER(ctypes.c_void_p)]
        lib.velquist_sandbox_open.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.POINTER(ctypes.c_void_p)]
        lib.velquist_sandbox_close.argtypes = [ctypes.c_void_p]
        lib.velquist_paywall_json.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.POINTER(ctypes.c_void_p)]
        self.lib = lib

    def _check(self, status):
        if status != 0:
            raise RuntimeError(self.lib.velquist_last_error().decode())

    def _take(self, pointer):
        """The library's string as a Python str, released."""
        try:
            return ctypes.string_at(pointer.value).decode()
        finally:
            self.lib.velquist_string_free(pointer)

    def display_price(self, amount, locale, rule=None):
        out = ctypes.c_void_p()
        self._check(self.lib.velquist_display_price(amount.encode(), locale.encode(),
                                                    rule.encode() if rule else None, ctypes.byref(out)))
        return self._take(out)

    def paywall(self, storekit_path, paywall_path):
        sandbox = ctypes.c_void_p()
        self._check(self.lib.velquist_sandbox_open(storekit_path.encode(), None, ctypes.byref(sandbox)))
        try:
            out = ctypes.c_void_p()
            self._check(self.lib.velquist_paywall_json(sandbox, paywall_path.encode(), ctypes.byref(out)))
            return json.loads(self._take(out))
        finally:
            self.lib.velquist_sandbox_close(sandbox)


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    velquist = Velquist(sys.argv[1])
    print("display price:", velquist.display_price("1234.567", "en_US"))
    try:
        velquist.display_price("1234.567", "xx_QQ")
    except RuntimeError as error:
        print("refused:", error)
    paywall = velquist.paywall(sys.argv[2], sys.argv[3])
    print("paywall", paywall["id"])
    for product in paywall["products"]:
        roles = ", ".join(product["roles"])
        print(f"  {product['id']} [{roles}]: {product['price']}, {product['pricePerWeek']}"
              + (f", {product['freeTrial']}" if product["freeTrial"] else "")
              + (f", {product['discount']} off" if product["discount"] else ""))


if __name__ == "__main__":
    main()
