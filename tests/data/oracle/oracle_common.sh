# The start every oracle script shares; source it, then call
#   oracle_start NAME "${1:-}" TOOL...
# It fixes the locale and time zone, finds the sample folder (the argument,
# else $TESTDATA, else /work/shared/testdata), checks the tools and the
# versions the reference data was made with, makes the scratch folder $work
# (removed on exit), lists the sample stores in $stores (C collation) and
# lets the embedded Python import oracle_text.
oracle_start() {
  local name=$1 arg=$2 tool
  shift 2
  export LC_ALL=C.UTF-8 TZ=UTC
  testdata=${arg:-${TESTDATA:-/work/shared/testdata}}
  testdata=$(cd "$testdata" && pwd)
  for tool in "$@"; do
    command -v "$tool" >/dev/null || { echo "missing tool: $tool" >&2; exit 1; }
  done
  local version
  if command -v pffexport >/dev/null && [[ " $* " == *" pffexport "* ]]; then
    version=$(pffexport -V 2>&1 | sed -n 's/^pffexport //p' | head -n1)
    [ "$version" = 20180714 ] || echo "warning: pffexport version $version, reference data was made with 20180714" >&2
  fi
  if command -v readpst >/dev/null && [[ " $* " == *" readpst "* ]]; then
    version=$(readpst -V 2>&1 | sed -n 's/^ReadPST \/ LibPST v//p' | head -n1)
    [ "$version" = 0.6.76 ] || echo "warning: readpst version $version, reference data was made with 0.6.76" >&2
  fi
  work=$(mktemp -d "${TMPDIR:-/tmp}/$name.XXXXXX")
  trap 'rm -rf "$work"' EXIT
  # The stores test::AllStores() lists.
  mapfile -t stores < <(
    cd "$testdata" && ls -1 pst/ansi/*.pst pst/unicode/*.pst ost/unicode512/*.ost ost4k/*.ost | LC_ALL=C sort)
  export PYTHONPATH="$here${PYTHONPATH:+:$PYTHONPATH}"
}

# Runs `pffexport ARGS... -l pff.log -t x STORE` in a folder of its own per
# store ($work/sN) and lists each folder with its store in $work/list.
pff_each() {
  local i=0 rel d
  : > "$work/list"
  for rel in "${stores[@]}"; do
    i=$((i + 1))
    d="$work/s$i"
    mkdir -p "$d"
    printf '%s\t%s\n' "$d" "$rel" >> "$work/list"
    ( cd "$d" && pffexport "$@" -l pff.log -t x "$testdata/$rel" > stdout.txt 2> stderr.txt ) ||
      { echo "pffexport failed on $rel" >&2; exit 1; }
  done
}
