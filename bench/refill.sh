#!/bin/sh
# bench/refill.sh [DOCUMENT [FIGURES]]: puts the tables of a run (build/bench/bench.md) into docs/performance.md, each
# between the lines "<!-- table: BEGINNING OF ITS TITLE -->" and "<!-- end -->". Tables that the run lacks stay.
set -eu

cd "$(dirname "$0")/.."
document=${1:-docs/performance.md}
figures=${2:-build/bench/bench.md}
if [ ! -r "$document" ] || [ ! -r "$figures" ]; then
  echo "refill: $document or $figures cannot be read" >&2
  exit 2
fi
awk -v figures="$figures" '
  # The text in lines of at most 120 columns.
  function wrapped(text, words, count, i, line, all) {
    count = split(text, words, " ")
    for (i = 1; i <= count; ++i) {
      if (line != "" && length(line) + 1 + length(words[i]) > 120) { all = all line "\n"; line = "" }
      line = line (line == "" ? "" : " ") words[i]
    }
    return all line "\n"
  }
  BEGIN {
    while ((getline line < figures) > 0) {
      if (line ~ /^- (processor|instruction sets|load at start|method): /) facts = facts "; " substr(line, 3)
      else if (line ~ /^## /) title = substr(line, 4)
      else if (title != "" && line != "") table[title] = table[title] line "\n"
    }
  }
  /^<!-- table: .* -->$/ {
    print
    wanted = substr($0, 13, length($0) - 16)
    for (title in table) {
      if (index(title, wanted) != 1) continue
      printf "%s\n%s\n", wrapped(title facts "."), table[title]
      skipping = 1
    }
    next
  }
  /^<!-- end -->$/ { skipping = 0 }
  !skipping
' "$document" >"$document.new"
mv "$document.new" "$document"
