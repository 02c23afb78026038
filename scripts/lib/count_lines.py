#!/usr/bin/env python3
"""Counts non-blank, non-comment lines of the product and of its tests, and prints their ratio.

usage: count_lines.py [SOURCE_DIR]
Product: plugin, instance, provisioning, utils, crypto, clientdata, npapi, tools, host, extension.
Tests: tests/ and the end-to-end scripts in e2e/ (bench/ counts as neither).
C++ and JavaScript drop // and /* */ comments; Python and shell drop # comments (and Python docstrings).
Prints both counts, tests per line of product, and the tests' share of all the code (the house rule: roughly a
quarter to a third)."""
import os
import re
import sys

PRODUCT = ('plugin', 'instance', 'provisioning', 'utils', 'crypto', 'clientdata', 'npapi', 'tools', 'host',
           'extension')
TESTS = ('tests', 'e2e')
C_LIKE = ('.cpp', '.h', '.js', '')  # utils/inc headers have no extension
HASH = ('.py', '.sh')


def kind(path):
    name = os.path.basename(path)
    ext = os.path.splitext(name)[1]
    if ext in HASH or name in ('run', 'demo', 'test'):
        return 'hash'
    if ext in ('.cpp', '.h', '.js') or (ext == '' and '/inc/' in path) or name in ('HMAC', 'Hash', 'MD5', 'Signature',
                                                                                  'ClientData', 'DeviceInfo'):
        return 'c'
    return None


def c_lines(text):
    text = re.sub(r'/\*.*?\*/', '', text, flags=re.S)
    return [l for l in text.splitlines() if l.strip() and not l.strip().startswith('//')]


def hash_lines(text):
    text = re.sub(r'("""|\'\'\').*?\1', '', text, flags=re.S)
    return [l for l in text.splitlines() if l.strip() and not l.strip().startswith('#')]


def count(root, folders):
    total = 0
    for folder in folders:
        for base, _, files in os.walk(os.path.join(root, folder)):
            for f in files:
                path = os.path.join(base, f)
                k = kind(path)
                if k is None:
                    continue
                with open(path, errors='replace') as handle:
                    text = handle.read()
                total += len(c_lines(text) if k == 'c' else hash_lines(text))
    return total


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), '..', '..')
    product, tests = count(root, PRODUCT), count(root, TESTS)
    print(f'lines: product {product}, tests {tests}, ratio {tests / product:.2f}; '
          f'tests are {100 * tests / (product + tests):.0f}% of all code')


if __name__ == '__main__':
    main()
