#!/usr/bin/env bash
# Checks that every source file includes only its own layer and the layers below it, apart from
# the exceptions listed in docs/architecture.md. The order and the exceptions are read from that
# file, so the documentation and the check cannot drift apart.
#
#   scripts/check-layers.sh [ROOT]     exit 0 when clean, 1 with one line per bad include
set -euo pipefail
root=${1:-$(cd "$(dirname "$0")/.." && pwd)}
doc=$root/docs/architecture.md
[[ -f $doc ]] || { echo "check-layers: $doc is missing" >&2; exit 1; }

# "Layers, bottom first: `base` < `geometry` < ..." gives the order.
mapfile -t layers < <(grep -m1 '^Layers, bottom first:' "$doc" | grep -o '`[^`]*`' | tr -d '`')
((${#layers[@]})) || { echo "check-layers: no 'Layers, bottom first:' line in $doc" >&2; exit 1; }

# Exception rows: | `from` | `included` | reason |, where from may hold * wildcards.
allowFrom=() allowTo=()
while IFS='|' read -r _ from to _; do
  from=$(tr -d '` ' <<<"$from"); to=$(tr -d '` ' <<<"$to")
  [[ $from == */* && $to == */* ]] || continue
  allowFrom+=("$from"); allowTo+=("$to")
done < <(sed -n '/^<!-- layer exceptions -->/,/^<!-- end -->/p' "$doc" | grep '^|')

# The layer of a path, into `rank`: the index of the longest layer folder that holds it, -1
# outside every layer. Cached per folder; computed without a subshell so the cache persists.
declare -A rankCache
rankOf() {
  local folder=${1%/*} i layer length=0
  if [[ -z ${rankCache[$folder]:-} ]]; then
    rankCache[$folder]=-1
    for i in "${!layers[@]}"; do
      layer=${layers[$i]}
      if [[ $1 == "$layer"/* && ${#layer} -gt $length ]]; then rankCache[$folder]=$i; length=${#layer}; fi
    done
  fi
  rank=${rankCache[$folder]}
}

allowed() {
  local i
  for i in "${!allowFrom[@]}"; do
    # shellcheck disable=SC2053  # the exception's source is a wildcard pattern on purpose
    [[ $1 == ${allowFrom[$i]} && $2 == "${allowTo[$i]}" ]] && return 0
  done
  return 1
}

bad=0
cd "$root"
while IFS= read -r -d '' file; do
  file=${file#./}
  rankOf "$file"; own=$rank
  ((own >= 0)) || continue
  while IFS= read -r included; do
    rankOf "$included"
    ((rank > own)) || continue
    allowed "$file" "$included" && continue
    echo "$file includes $included: ${included%/*}/ is above ${layers[$own]}/" >&2
    bad=1
  done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$file")
done < <(find "${layers[@]}" -type f \( -name '*.h' -o -name '*.cpp' \) -print0 2>/dev/null | sort -z)
exit $bad
