#!/usr/bin/env bash
# Writes folder_classes.tsv: each folder's container class (0x3613) as
# pffexport -d dumps it in the folder's ItemValues.txt, keyed by folder id
# through folder_counts.tsv (same export paths). '-' where the folder has none.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
data=${1:-$here/../../../../shared/testdata}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
out=$here/folder_classes.tsv
stores=$(awk -F'\t' 'NR > 1 && $2 == "pffexport" {print $1}' "$here/folder_counts.tsv" | sort -u)
for s in $stores; do
  mkdir -p "$work/$s"
  cp "$data/$s" "$work/$s/store"
  (cd "$work/$s" && pffexport -d -m items -q -t x store >/dev/null 2>&1 || true)
done
python3 - "$here/folder_counts.tsv" "$work" > "$out" <<'PY'
import os, re, sys
counts, work = sys.argv[1], sys.argv[2]
def values(path):
    """Entry type -> bytes of its value, from a pffexport ItemValues.txt."""
    out, entry, collecting = {}, None, False
    for line in open(path, encoding="utf-8", errors="replace"):
        m = re.match(r"Entry type:\s+0x([0-9a-f]+)", line)
        if m:
            entry, collecting = int(m.group(1), 16), False
            continue
        m = re.match(r"Value type:\s+0x([0-9a-f]+)", line)
        if m and entry is not None:
            out.setdefault(entry, [int(m.group(1), 16), bytearray()])
            continue
        if line.startswith("Value:") and entry is not None:
            collecting = True
            continue
        m = re.match(r"0x[0-9a-f]{8}: (.*)", line)
        if m and collecting and entry in out:
            hexpart = m.group(1).split("   ")[0]
            out[entry][1] += bytes(int(t, 16) for t in hexpart.split())
            continue
        if not line.strip():
            collecting = False
    return out
print("store\tfolder_id\tcontainer_class")
rows = []
for line in list(open(counts))[1:]:
    store, tool, fid, path, _ = line.rstrip("\n").split("\t")
    if tool != "pffexport" or "\\" in path:
        continue
    folder = os.path.join(work, store, "x.export", "" if path == "." else path)
    iv = os.path.join(folder, "ItemValues.txt")
    if not os.path.isfile(iv):
        continue
    v = values(iv).get(0x3613)
    if v is None:
        cls = "-"
    elif v[0] == 0x1F:
        cls = v[1].decode("utf-16-le", errors="replace").split("\0")[0]
    else:
        cls = v[1].decode("cp1252", errors="replace").split("\0")[0]
    rows.append((store, fid, cls or "-"))
for r in sorted(rows):
    print("\t".join(r))
PY
echo "wrote $(($(wc -l < "$out") - 1)) rows to $out" >&2
