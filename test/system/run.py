"""Runs each system test in a process and a network namespace of its own, and writes a JUnit result file.

    run.py RESULT.xml MODULE...
"""
import os
import subprocess
import sys
import time
import unittest
from xml.sax.saxutils import escape, quoteattr


def cases(suite):
    for item in suite:
        if isinstance(item, unittest.TestSuite):
            yield from cases(item)
        else:
            yield item.id()


def may_unshare():
    return subprocess.run(["unshare", "-n", "true"], capture_output=True, check=False).returncode == 0


def main():
    result_file, modules = sys.argv[1], sys.argv[2:]
    sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
    names = [n for m in modules for n in cases(unittest.defaultTestLoader.loadTestsFromName(m))]
    rows, failed = [], 0
    for name in names:
        began = time.monotonic()
        if may_unshare():
            try:
                done = subprocess.run(
                    ["unshare", "-n", sys.executable, "-m", "unittest", "-v", name],
                    capture_output=True, text=True, timeout=600, check=False,
                    cwd=os.path.dirname(os.path.abspath(__file__)))
                output, ended = done.stdout + done.stderr, done.returncode
            except subprocess.TimeoutExpired as late:
                output, ended = f"not within {late.timeout} s: {late.output}", 1
            inner = "<skipped/>" if "OK (skipped=1)" in output else ""
            if ended != 0:
                failed += 1
                inner = f"<failure>{escape(output[-20000:])}</failure>"
                print(output[-20000:])
        else:
            inner = "<skipped message='needs root: network namespaces'/>"
        seconds = time.monotonic() - began
        print(f"{'FAILED' if 'failure' in inner else 'skipped' if inner else 'ok':8}{seconds:6.1f} s  {name}", flush=True)
        group, _, case = name.rpartition(".")
        rows.append(f"<testcase classname={quoteattr(group)} name={quoteattr(case)} time='{seconds:.2f}'>{inner}</testcase>")
    os.makedirs(os.path.dirname(os.path.abspath(result_file)), exist_ok=True)
    with open(result_file, "w", encoding="utf-8") as file:
        file.write("<testsuites><testsuite name='system'>" + "".join(rows) + "</testsuite></testsuites>\n")
    return 1 if failed or not names else 0


if __name__ == "__main__":
    sys.exit(main())
