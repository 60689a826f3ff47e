#!/usr/bin/env python3
"""Times the export of the largest sample stores to EML, beside readpst on
the same files, on the same machine, in the same run.

    python3 bench/export_bench.py [MARROW_CLI] [TESTDATA]

Each store is copied to a scratch folder, then exported by
`marrow-cli export --to eml` and by `readpst -e` (one file per message),
each three times; the best time is kept. It prints items per second and
MiB/s of store read, for both."""
import os
import shutil
import subprocess
import sys
import tempfile
import time

here = os.path.dirname(os.path.abspath(__file__))
cli = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "build-bench", "cli", "marrow-cli")
data = sys.argv[2] if len(sys.argv) > 2 else os.path.join(here, "..", "..", "shared", "testdata")
stores = [
    "ost/unicode512/aspose_SampleOstFile.ost",
    "ost4k/aspose_SampleOstFile.uncompressed.ost",
    "pst/unicode/aspose_Outlook.pst",
    "pst/unicode/pst2john_2003_high-encryption_quickquick.pst",
    "pst/ansi/pst2john_97_outlook_pass12345.pst",
]


def files_under(path, suffix=None):
    n = 0
    for _, _, names in os.walk(path):
        n += sum(1 for x in names if suffix is None or x.endswith(suffix))
    return n


def best_of(runs, make):
    best, count = None, 0
    for _ in range(runs):
        out = tempfile.mkdtemp(prefix="marrow-bench-out-")
        start = time.perf_counter()
        count = make(out)
        took = time.perf_counter() - start
        shutil.rmtree(out)
        best = took if best is None else min(best, took)
    return best, count


def marrow(store):
    def run(out):
        subprocess.run([cli, "export", store, "--to", "eml", "--out", out], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return files_under(out, ".eml")
    return run


def readpst(store):
    def run(out):
        subprocess.run(["readpst", "-q", "-e", "-o", out, store], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return files_under(out)
    return run


scratch = tempfile.mkdtemp(prefix="marrow-bench-")
try:
    print("%-58s %8s | %-28s | %-28s" % ("store", "MiB", "marrow: items, s, items/s, MiB/s", "readpst: files, s, items/s, MiB/s"))
    for rel in stores:
        src = os.path.join(data, rel)
        if not os.path.exists(src):
            continue
        store = os.path.join(scratch, os.path.basename(rel))
        shutil.copy(src, store)
        mib = os.path.getsize(store) / 1048576
        row = []
        for make in (marrow(store), readpst(store)):
            took, count = best_of(3, make)
            row.append("%5d %6.2f %7.0f %6.1f" % (count, took, count / took, mib / took))
        print("%-58s %8.1f | %-28s | %-28s" % (rel, mib, row[0], row[1]))
finally:
    shutil.rmtree(scratch)
