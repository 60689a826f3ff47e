"""marrow-cli tree and list, run as a program: the JSON tree, a folder's item
list, a snapshot round trip, and Ctrl-C during the whole-file scan."""
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile

cli, sample = sys.argv[1], sys.argv[2]
work = tempfile.mkdtemp(prefix="marrow-tree-")
try:
    store = os.path.join(work, "store.ost")
    shutil.copy(sample, store)

    def tree(*args):
        run = subprocess.run([cli, "tree", *args, "--json"], capture_output=True, text=True, check=True)
        return json.loads(run.stdout)["folders"], run.stderr

    folders, log = tree(store)
    for step in range(1, 7):
        assert "Step %d of 6" % step in log, log
    keys = {"path", "nodeId", "parentId", "name", "containerClass", "itemCount", "isLost", "items"}
    assert all(set(f) == keys for f in folders), folders[0]
    assert len(folders) == 36, len(folders)
    # 92 messages of the index and 10 rows the scan found besides them.
    assert sum(f["items"] for f in folders) == 102
    assert not any(f["isLost"] for f in folders)
    # Tree order: a parent comes before its children, siblings sorted, and a
    # path is its parent's path and its name.
    by_path = {f["path"]: f for f in folders}
    for f in folders:
        head, _, name = f["path"].rpartition("/")
        assert name == f["name"]
        if head:
            assert by_path[head]["nodeId"] == f["parentId"], f
    siblings = {}
    for f in folders:
        siblings.setdefault(f["path"].rpartition("/")[0], []).append(f["name"].lower())
    assert all(names == sorted(names) for names in siblings.values()), siblings

    # The item list of one folder: its 12 index messages as "Existing", then
    # the lost rows that still read as items (one of Inbox's two does not).
    run = subprocess.run([cli, "list", store, "Root - Mailbox/IPM_SUBTREE/Inbox", "--json"],
                         capture_output=True, text=True, check=True)
    rows = json.loads(run.stdout)["items"]
    assert [r["status"] for r in rows] == ["Existing"] * 12 + ["Lost/Deleted"], rows
    assert by_path["Root - Mailbox/IPM_SUBTREE/Inbox"]["items"] == 14
    assert all(set(r) >= {"importance", "icon", "attachment", "from", "subject", "date", "status"} for r in rows)
    assert rows[0]["subject"] == "first email to saqib" and rows[0]["icon"] == 6, rows[0]
    run = subprocess.run([cli, "list", store, "No/Such/Folder"], capture_output=True, text=True)
    assert run.returncode == 1 and "no folder" in run.stderr, run.stderr

    # A snapshot reloads the same tree and item rows without scanning.
    snap = os.path.join(work, "scan.vorsnp")
    tree(store, "--save-snapshot", snap)
    again, log = tree(store, "--snapshot", snap)
    assert [(f["path"], f["items"]) for f in again] == [(f["path"], f["items"]) for f in folders]
    assert "Step 2 of 6" not in log
    moved = os.path.join(work, "moved.ost")
    os.rename(store, moved)
    run = subprocess.run([cli, "tree", "--snapshot", snap], capture_output=True, text=True)
    assert run.returncode == 1 and "File %s not found" % store in run.stderr, run.stderr
    os.rename(moved, store)

    # Ctrl-C while the scan runs stops it; the tree of the index is printed.
    # The store is padded with a hole of 16 GiB so that the scan takes a while.
    with open(store, "r+b") as f:
        f.truncate(16 << 30)
    proc = subprocess.Popen([cli, "tree", store, "--json"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    for line in proc.stderr:
        if line.startswith("Step 2 of 6"):
            proc.send_signal(signal.SIGINT)
            break
    out, rest = proc.communicate(timeout=600)
    assert proc.returncode == 0, (proc.returncode, rest)
    assert "Stopped by the user" in rest, rest
    assert "Step 3 of 6" not in rest
    stopped = json.loads(out)["folders"]
    assert [f["path"] for f in stopped] == [f["path"] for f in folders]
    assert 92 <= sum(f["items"] for f in stopped) <= 102
finally:
    shutil.rmtree(work)
print("ok")
