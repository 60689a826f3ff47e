"""marrow-cli run as a program on a copy of the bundled sample.
  inspect: --json is valid JSON with the documented keys.
  tree: the JSON tree, a folder's item list, a snapshot round trip, Ctrl-C during the whole-file scan.
  export: EML and MBOX output read back by Python's email and mailbox packages, folder choice,
          lost-item modes, a filter, several stores in one run.
Usage: check_cli.py inspect|tree|export MARROW_CLI SAMPLE"""
import email, email.policy, glob, json, mailbox, os, shutil, signal, subprocess, sys, tempfile

INBOX = "Root - Mailbox/IPM_SUBTREE/Inbox"


def run(*args):
    return subprocess.run([cli, *args], capture_output=True, text=True)


def check_inspect():
    d = json.loads(run("inspect", store, "--json").stdout)
    assert {"isAnsi", "isLargePage", "cryptMethod", "votes", "folders"} <= set(d), d.keys()
    assert set(d["votes"]) == {"none", "permute", "cyclic"}
    keys = {"nodeId", "dataBlock", "subnodeBlock", "parent", "messages", "name", "containerClass", "itemCount"}
    assert all(set(f) >= keys for f in d["folders"]), d["folders"]
    assert len(d["folders"]) == 37 and sum(f["messages"] for f in d["folders"]) == 92
    assert {"IPM_SUBTREE", "Deleted Items", "Inbox", "Sent Items"} <= {f["name"] for f in d["folders"]}


def tree(*args):
    r = run("tree", *args, "--json")
    assert r.returncode == 0, r.stderr
    return json.loads(r.stdout)["folders"], r.stderr


def check_tree():
    folders, log = tree(store)
    assert all("Step %d of 6" % step in log for step in range(1, 7)), log
    keys = {"path", "nodeId", "parentId", "name", "containerClass", "itemCount", "isLost", "items"}
    assert all(set(f) == keys for f in folders), folders[0]
    assert len(folders) == 36, len(folders)
    # 92 messages of the index and 10 rows the scan found besides them.
    assert sum(f["items"] for f in folders) == 102
    assert not any(f["isLost"] for f in folders)
    # Tree order: a parent before its children, siblings sorted, a path is its parent's path and its name.
    by_path = {f["path"]: f for f in folders}
    siblings = {}
    for f in folders:
        head, _, name = f["path"].rpartition("/")
        assert name == f["name"] and (not head or by_path[head]["nodeId"] == f["parentId"]), f
        siblings.setdefault(head, []).append(f["name"].lower())
    assert all(names == sorted(names) for names in siblings.values()), siblings

    # The item list of one folder: its 12 index messages as "Existing", then
    # the lost rows that still read as items (one of Inbox's two does not).
    rows = json.loads(run("list", store, INBOX, "--json").stdout)["items"]
    assert [r["status"] for r in rows] == ["Existing"] * 12 + ["Lost/Deleted"], rows
    assert by_path[INBOX]["items"] == 14
    assert all(set(r) >= {"importance", "icon", "attachment", "from", "subject", "date", "status"} for r in rows)
    assert rows[0]["subject"] == "first email to saqib" and rows[0]["icon"] == 6, rows[0]
    r = run("list", store, "No/Such/Folder")
    assert r.returncode == 1 and "no folder" in r.stderr, r.stderr

    # A snapshot reloads the same tree and item rows without scanning.
    snap = os.path.join(work, "scan.vorsnp")
    tree(store, "--save-snapshot", snap)
    again, log = tree(store, "--snapshot", snap)
    assert [(f["path"], f["items"]) for f in again] == [(f["path"], f["items"]) for f in folders]
    assert "Step 2 of 6" not in log
    os.rename(store, store + ".moved")
    r = run("tree", "--snapshot", snap)
    assert r.returncode == 1 and "File %s not found" % store in r.stderr, r.stderr
    os.rename(store + ".moved", store)

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
    assert proc.returncode == 0 and "Stopped by the user" in rest and "Step 3 of 6" not in rest, (proc.returncode, rest)
    stopped = json.loads(out)["folders"]
    assert [f["path"] for f in stopped] == [f["path"] for f in folders]
    assert 92 <= sum(f["items"] for f in stopped) <= 102


def export(*args):
    r = run("export", store, *args)
    return r.returncode, r.stdout


def check_export():
    out = os.path.join(work, "out")
    os.mkdir(out)
    code, text = export("--to", "eml", "--out", out)
    emls = sorted(glob.glob(os.path.join(out, "store.ost", "**", "*.eml"), recursive=True))
    assert code == 0 and text == "%d item(s) saved at %s/\n" % (len(emls), os.path.join(out, "store.ost")), text
    assert len(emls) == 94, len(emls)
    subjects = set()
    for path in emls:
        with open(path, "rb") as f:
            message = email.message_from_bytes(f.read(), policy=email.policy.default)
        assert not message.defects, (path, message.defects)
        subjects.add(str(message["subject"]))
    assert {"first email to saqib", "message 1999", "RTF newsletter copy"} <= subjects
    # Numbered within each folder from 1; the top folders are not on the path.
    assert os.path.isfile(os.path.join(out, "store.ost", "Inbox", "sub1", "1.eml"))

    # A rerun goes to a new folder; one folder, lost items alone.
    code, text = export("--to", "eml", "--out", out, "--folder", INBOX, "--deleted", "only")
    assert code == 0 and text.endswith("store.ost(1)/\n"), text
    lost = glob.glob(os.path.join(out, "store.ost(1)", "**", "*.eml"), recursive=True)
    assert 0 < len(lost) < 10, lost

    # MBOX: one file per folder, the messages Python's reader sees.
    code, text = export("--to", "mbox", "--out", out, "--folder", INBOX, "--subject", "exclude", "message 199")
    assert code == 0, text
    names = [str(m["subject"]) for m in mailbox.mbox(os.path.join(out, "store.ost(2)", "Inbox", "sub1", "sub1.MBOX"))]
    assert names and not any(n.startswith("message 199") for n in names), names
    assert len(names) == 25 - 10, names  # sub1 holds messages 1975 to 1999

    # Several stores in one run, in the order given; a second store of the
    # same file name gets the next free number.
    other = os.path.join(work, "b", "store.ost")
    os.mkdir(os.path.dirname(other))
    shutil.copy(store, other)
    code, text = export(other, "--to", "eml", "--out", out, "--folder", INBOX + "/sub2")
    # sub2 lists 31 items; two are lost rows whose blocks are gone.
    assert code == 0 and text.splitlines() == ["29 item(s) saved at %s/" % os.path.join(out, "store.ost(%d)" % n)
                                               for n in (3, 4)], text
    assert export("--to", "eml", "--out", os.path.join(work, "missing"))[0] == 1
    assert export("--to", "pdf", "--out", out)[0] == 2


check, cli, sample = sys.argv[1:4]
work = tempfile.mkdtemp(prefix="marrow-cli-")
try:
    store = os.path.join(work, "store.ost")
    shutil.copy(sample, store)
    globals()["check_" + check]()
finally:
    shutil.rmtree(work)
print("ok")
