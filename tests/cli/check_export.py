"""marrow-cli export, run as a program: EML and MBOX output of the bundled
sample read back by Python's email and mailbox packages, folder choice,
lost-item modes and a filter."""
import email
import email.policy
import glob
import mailbox
import os
import shutil
import subprocess
import sys
import tempfile

cli, sample = sys.argv[1], sys.argv[2]
work = tempfile.mkdtemp(prefix="marrow-export-")


def export(*args):
    run = subprocess.run([cli, "export", store, *args], capture_output=True, text=True)
    return run.returncode, run.stdout


try:
    store = os.path.join(work, "Sample.ost")
    shutil.copy(sample, store)
    out = os.path.join(work, "out")
    os.mkdir(out)

    code, text = export("--to", "eml", "--out", out)
    assert code == 0, text
    emls = sorted(glob.glob(os.path.join(out, "Sample.ost", "**", "*.eml"), recursive=True))
    assert text == "%d item(s) saved at %s/\n" % (len(emls), os.path.join(out, "Sample.ost")), text
    assert len(emls) == 94, len(emls)
    subjects = set()
    for path in emls:
        with open(path, "rb") as f:
            message = email.message_from_bytes(f.read(), policy=email.policy.default)
        assert not message.defects, (path, message.defects)
        subjects.add(str(message["subject"]))
    assert {"first email to saqib", "message 1999", "RTF newsletter copy"} <= subjects
    # Numbered within each folder from 1; the top folders are not on the path.
    assert os.path.isfile(os.path.join(out, "Sample.ost", "Inbox", "sub1", "1.eml"))

    # A rerun goes to a new folder; one folder, lost items alone.
    code, text = export("--to", "eml", "--out", out, "--folder", "Root - Mailbox/IPM_SUBTREE/Inbox",
                        "--deleted", "only")
    assert code == 0 and text.endswith("Sample.ost(1)/\n"), text
    lost = glob.glob(os.path.join(out, "Sample.ost(1)", "**", "*.eml"), recursive=True)
    assert 0 < len(lost) < 10, lost

    # MBOX: one file per folder, the messages Python's reader sees.
    code, text = export("--to", "mbox", "--out", out, "--folder", "Root - Mailbox/IPM_SUBTREE/Inbox",
                        "--subject", "exclude", "message 199")
    assert code == 0, text
    sub1 = mailbox.mbox(os.path.join(out, "Sample.ost(2)", "Inbox", "sub1", "sub1.MBOX"))
    names = [str(m["subject"]) for m in sub1]
    assert names and not any(n.startswith("message 199") for n in names), names
    assert len(names) == 25 - 10, names  # sub1 holds messages 1975 to 1999

    # Several stores in one run, in the order given; a second store of the
    # same file name gets the next free number.
    other = os.path.join(work, "b", "Sample.ost")
    os.mkdir(os.path.dirname(other))
    shutil.copy(sample, other)
    code, text = export(other, "--to", "eml", "--out", out, "--folder", "Root - Mailbox/IPM_SUBTREE/Inbox/sub2")
    lines = text.splitlines()
    assert code == 0 and len(lines) == 2, text
    # sub2 lists 31 items; two are lost rows whose blocks are gone.
    assert lines[0] == "29 item(s) saved at %s/" % os.path.join(out, "Sample.ost(3)"), lines
    assert lines[1] == "29 item(s) saved at %s/" % os.path.join(out, "Sample.ost(4)"), lines

    code, text = export("--to", "eml", "--out", os.path.join(work, "missing"))
    assert code == 1
    code, text = export("--to", "pdf", "--out", out)
    assert code == 2
finally:
    shutil.rmtree(work)
print("ok")
