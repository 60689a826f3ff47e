#!/usr/bin/env python3
"""Captures every output of marrow-cli over the sample stores, so that two
builds can be compared byte for byte.

    python3 scripts/compare_outputs.py capture CLI DIR [TESTDATA]
    python3 scripts/compare_outputs.py compare DIR_A DIR_B

`capture` writes, per store: `inspect` and `tree` (text and --json), `list`
of every folder `tree` prints (text and --json), `props` of every folder and
item node (text, and --json for folders), and the whole `export` to EML and to
MBOX, each run on a private copy of the store. Only stdout and the exit code are kept; progress on stderr is not an
output. MIME boundaries are random, so each is replaced by its number of first
appearance in the file. `compare` lists every file that differs and exits 1
when any does."""
import concurrent.futures
import filecmp
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
BOUNDARY = re.compile(rb"=-[A-Za-z0-9+/]{20}")


def stores(testdata):
    """(name, path) of the bundled sample and every store of the shared samples."""
    found = [("samples__aspose_SampleOstFile.ost", os.path.join(HERE, "..", "samples", "aspose_SampleOstFile.ost"))]
    for kind in ("pst", "ost", "ost4k", "odd"):
        for root, _, names in os.walk(os.path.join(testdata, kind)):
            for n in names:
                if n.endswith((".md", ".json")):
                    continue
                path = os.path.join(root, n)
                found.append((os.path.relpath(path, testdata).replace("/", "__"), path))
    return sorted(found)


def run(cli, args):
    p = subprocess.run([cli] + args, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    return p.stdout + b"\n[exit %d]\n" % p.returncode


def write(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)


def normalise_tree(top, store_dir):
    for root, _, names in os.walk(top):
        for n in names:
            path = os.path.join(root, n)
            with open(path, "rb") as f:
                data = f.read()
            seen = {}
            data = BOUNDARY.sub(lambda m: b"=-B%d" % seen.setdefault(m.group(0), len(seen) + 1), data)
            data = data.replace(store_dir, b"STORE")
            with open(path, "wb") as f:
                f.write(data)


def capture_store(cli, source, out):
    # A private copy: the reader locks its file, and other runs may hold the
    # shared one. Its path is shown as STORE/<name> in the outputs.
    scratch_store = tempfile.mkdtemp(prefix="marrow-compare-store-")
    store = os.path.join(scratch_store, os.path.basename(source))
    shutil.copyfile(source, store)
    try:
        capture_copy(cli, store, out)
        normalise_tree(out, scratch_store.encode())
    finally:
        shutil.rmtree(scratch_store)


def capture_copy(cli, store, out):
    write(os.path.join(out, "inspect.txt"), run(cli, ["inspect", store]))
    write(os.path.join(out, "inspect.json"), run(cli, ["inspect", store, "--json"]))
    write(os.path.join(out, "tree.txt"), run(cli, ["tree", store]))
    tree = run(cli, ["tree", store, "--json"])
    write(os.path.join(out, "tree.json"), tree)
    try:
        folders = json.loads(tree.rsplit(b"\n[exit", 1)[0])["folders"]
    except (ValueError, KeyError):
        folders = []
    nodes = set()
    for i, folder in enumerate(folders):
        nodes.add((folder["nodeId"], True))
        write(os.path.join(out, "list", "%03d.txt" % i), run(cli, ["list", store, folder["path"]]))
        listed = run(cli, ["list", store, folder["path"], "--json"])
        write(os.path.join(out, "list", "%03d.json" % i), listed)
        try:
            items = json.loads(listed.rsplit(b"\n[exit", 1)[0])["items"]
        except (ValueError, KeyError):
            items = []
        nodes.update((item["nodeId"], False) for item in items)
    for node, is_folder in sorted(nodes):
        write(os.path.join(out, "props", "%d.txt" % node), run(cli, ["props", store, str(node)]))
        if is_folder:
            write(os.path.join(out, "props", "%d.json" % node), run(cli, ["props", store, str(node), "--json"]))
    for kind in ("eml", "mbox"):
        scratch = tempfile.mkdtemp(prefix="marrow-compare-")
        try:
            report = run(cli, ["export", store, "--to", kind, "--out", scratch])
            write(os.path.join(out, "export-%s.txt" % kind), report.replace(scratch.encode(), b"OUT"))
            shutil.copytree(scratch, os.path.join(out, "export-" + kind))
        finally:
            shutil.rmtree(scratch)


def capture(cli, top, testdata):
    cli = os.path.abspath(cli)
    if os.path.exists(top):
        shutil.rmtree(top)
    os.makedirs(top)
    found = stores(testdata)
    with concurrent.futures.ThreadPoolExecutor(max_workers=os.cpu_count() or 2) as pool:
        jobs = [pool.submit(capture_store, cli, path, os.path.join(top, name)) for name, path in found]
        for job in jobs:
            job.result()
    print("captured %d stores in %s" % (len(found), top))


def compare(a, b):
    differ = []

    def walk(cmp, rel):
        differ.extend(os.path.join(rel, n) for n in cmp.diff_files + cmp.left_only + cmp.right_only)
        differ.extend(os.path.join(rel, n) for n in cmp.funny_files)
        for name, sub in cmp.subdirs.items():
            walk(sub, os.path.join(rel, name))

    walk(filecmp.dircmp(a, b), "")
    # dircmp compares by size and time first; check the equal-looking files byte for byte.
    files = 0
    for root, _, names in os.walk(a):
        for n in names:
            rel = os.path.relpath(os.path.join(root, n), a)
            other = os.path.join(b, rel)
            files += 1
            if os.path.isfile(other) and not filecmp.cmp(os.path.join(a, rel), other, shallow=False):
                if rel not in differ:
                    differ.append(rel)
    for rel in sorted(differ):
        print("differs:", rel)
    print("%d files compared, %d differ" % (files, len(differ)))
    return 1 if differ else 0


def main():
    if len(sys.argv) >= 4 and sys.argv[1] == "capture":
        testdata = sys.argv[4] if len(sys.argv) > 4 else os.path.join(HERE, "..", "..", "shared", "testdata")
        capture(sys.argv[2], sys.argv[3], testdata)
        return 0
    if len(sys.argv) == 4 and sys.argv[1] == "compare":
        return compare(sys.argv[2], sys.argv[3])
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main())
